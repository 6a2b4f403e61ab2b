// The cursor record: what Pavlex.dll hands the capture thread and, compressed, the body of a
// cursor packet. Pavlex.dll writes records with this layout; Vantrel.dll sends and parses them.
// Every field is little-endian at the offsets below; records may sit at any address.
#pragma once

#include <cstdint>
#include <cstring>

namespace vantrel::packet {

// Flag bits.
constexpr uint32_t kCursorNewShape = 0x1;
constexpr uint32_t kCursorNewPosition = 0x2;
// Set by the hook library at times, never sent; a receiver that finds it treats it like
// kCursorNewShape.
constexpr uint32_t kCursorShapeAlias = 0x4;

// Field offsets in a record.
constexpr uint32_t kCursorFlagsOffset = 0;
constexpr uint32_t kCursorShapePresentOffset = 4;
constexpr uint32_t kCursorXOffset = 8;
constexpr uint32_t kCursorYOffset = 12;
// The shape part (what a desktop image takes as a new pointer shape) starts here, with its
// 12-byte shape header: hot spot x, hot spot y, width, height, AND bytes per row (u16 each),
// planes, bpp (u8 each); the AND mask and then the XOR bits follow, top row first:
//   AND mask: height rows of "AND bytes per row" bytes (at least width / 8, rounded up);
//   XOR bits: right behind it, height rows of width x bpp / 8 bytes with no padding, exactly the
//   width x height x bpp / 8 bytes the sender's length counts, so width x bpp is a multiple of 8.
// Both sides keep to this one rule; a receiver pads the rows of both masks to the 16-bit rows
// CreateIcon takes (for widths that are multiples of 16, the only ones Pavlex.dll makes, they
// already are) and refuses a shape that does not fit it.
constexpr uint32_t kCursorShapeOffset = 16;
constexpr uint32_t kCursorHotSpotXOffset = 16;
constexpr uint32_t kCursorHotSpotYOffset = 18;
constexpr uint32_t kCursorWidthOffset = 20;
constexpr uint32_t kCursorHeightOffset = 22;
constexpr uint32_t kCursorAndBytesPerRowOffset = 24;
constexpr uint32_t kCursorPlanesOffset = 26;
constexpr uint32_t kCursorBitCountOffset = 27;
constexpr uint32_t kCursorMasksOffset = 28;
constexpr uint32_t kCursorShapeHeaderSize = kCursorMasksOffset - kCursorShapeOffset;  // 12
// A sent record always counts 4 trailing bytes behind the masks; nobody reads them.
constexpr uint32_t kCursorRecordMinSize = 32;

struct CursorRecord {
    uint32_t flags = 0;
    uint32_t shapePresent = 0;  // 1 in every sent record
    int32_t x = 0;
    int32_t y = 0;
    uint16_t hotSpotX = 0;
    uint16_t hotSpotY = 0;
    uint16_t width = 0;
    uint16_t height = 0;
    uint16_t andBytesPerRow = 0;
    uint8_t planes = 0;
    uint8_t bitsPerPixel = 0;  // of the XOR bits
};

// The 28 bytes in front of the masks. record must have kCursorMasksOffset writable bytes.
inline void WriteCursorRecord(void* record, const CursorRecord& f) noexcept {
    auto* p = static_cast<uint8_t*>(record);
    auto put = [p](uint32_t at, const auto& v) { std::memcpy(p + at, &v, sizeof v); };
    put(kCursorFlagsOffset, f.flags);
    put(kCursorShapePresentOffset, f.shapePresent);
    put(kCursorXOffset, f.x);
    put(kCursorYOffset, f.y);
    put(kCursorHotSpotXOffset, f.hotSpotX);
    put(kCursorHotSpotYOffset, f.hotSpotY);
    put(kCursorWidthOffset, f.width);
    put(kCursorHeightOffset, f.height);
    put(kCursorAndBytesPerRowOffset, f.andBytesPerRow);
    p[kCursorPlanesOffset] = f.planes;
    p[kCursorBitCountOffset] = f.bitsPerPixel;
}
// False when record is null or shorter than kCursorMasksOffset; *out is then untouched.
inline bool ReadCursorRecord(const void* record, uint32_t size, CursorRecord* out) noexcept {
    if (!record || !out || size < kCursorMasksOffset)
        return false;
    const auto* p = static_cast<const uint8_t*>(record);
    auto get = [p](uint32_t at, auto& v) { std::memcpy(&v, p + at, sizeof v); };
    get(kCursorFlagsOffset, out->flags);
    get(kCursorShapePresentOffset, out->shapePresent);
    get(kCursorXOffset, out->x);
    get(kCursorYOffset, out->y);
    get(kCursorHotSpotXOffset, out->hotSpotX);
    get(kCursorHotSpotYOffset, out->hotSpotY);
    get(kCursorWidthOffset, out->width);
    get(kCursorHeightOffset, out->height);
    get(kCursorAndBytesPerRowOffset, out->andBytesPerRow);
    out->planes = p[kCursorPlanesOffset];
    out->bitsPerPixel = p[kCursorBitCountOffset];
    return true;
}

// The flags a hook record is sent with: kCursorShapeAlias cleared (0 means: send nothing).
inline uint32_t SenderCursorFlags(uint32_t hookFlags) noexcept {
    return hookFlags & ~kCursorShapeAlias;
}
// The number of record bytes the sender compresses: 32 without kCursorNewShape; otherwise
// 32 + low 16 bits of (bpp * width * height / 8) + low 16 bits of (AND bytes per row * height).
// The truncation is the wire rule: a shape above 64 KiB arrives short and its receiver's
// ParseCursorRecord refuses it.
inline uint32_t SenderCursorRecordLength(const CursorRecord& f) noexcept {
    if (!(f.flags & kCursorNewShape))
        return kCursorRecordMinSize;
    const uint64_t xorBytes = static_cast<uint64_t>(f.bitsPerPixel) * f.width * f.height / 8;
    const uint64_t andBytes = static_cast<uint64_t>(f.andBytesPerRow) * f.height;
    return kCursorRecordMinSize + static_cast<uint32_t>(xorBytes & 0xFFFF) +
           static_cast<uint32_t>(andBytes & 0xFFFF);
}

}  // namespace vantrel::packet
