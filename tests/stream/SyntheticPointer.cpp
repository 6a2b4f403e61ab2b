// The demo's arrow pointer (see SyntheticPointer.h).
#include "SyntheticPointer.h"

#include <cstring>

#include "stream/Packet.h"

namespace vantrel::test {

namespace {

constexpr uint16_t kAndBytesPerRow = SyntheticPointer::kSize / 8;
constexpr uint8_t kBitsPerPixel = 32;

packet::CursorRecord Fields(uint32_t flags, int32_t x, int32_t y) {
    packet::CursorRecord f;
    f.flags = flags;
    f.shapePresent = 1;
    f.x = x;
    f.y = y;
    f.width = SyntheticPointer::kSize;
    f.height = SyntheticPointer::kSize;
    f.andBytesPerRow = kAndBytesPerRow;
    f.planes = 1;
    f.bitsPerPixel = kBitsPerPixel;
    return f;
}

}  // namespace

SyntheticPointer::SyntheticPointer() {
    const size_t andBytes = kAndBytesPerRow * kSize;
    masks_.assign(andBytes + kSize * kSize * kBitsPerPixel / 8, 0);
    BYTE* andMask = masks_.data();
    BYTE* xorBits = andMask + andBytes;
    // Arrow: row y is opaque from column 0 to y / 2 (a triangle), outlined in black, white
    // inside; the rest is transparent (AND 1, XOR 0).
    for (int y = 0; y < kSize; ++y) {
        const int edge = y < 24 ? y / 2 + 1 : 0;
        for (int x = 0; x < kSize; ++x) {
            BYTE* pixel = xorBits + (y * kSize + x) * 4;
            if (x >= edge) {
                andMask[y * kAndBytesPerRow + x / 8] |= static_cast<BYTE>(0x80 >> (x % 8));
                continue;
            }
            const bool outline = x == 0 || x == edge - 1 || y == 23;
            const BYTE v = outline ? 0x00 : 0xFF;
            pixel[0] = pixel[1] = pixel[2] = v;
        }
    }
}

std::vector<BYTE> SyntheticPointer::Record(uint32_t flags, int32_t x, int32_t y) const {
    const packet::CursorRecord fields = Fields(flags, x, y);
    std::vector<BYTE> record(packet::SenderCursorRecordLength(fields), 0);
    packet::WriteCursorRecord(record.data(), fields);
    if (flags & packet::kCursorNewShape) {
        std::memcpy(record.data() + packet::kCursorMasksOffset, masks_.data(), masks_.size());
    }
    return record;
}

}  // namespace vantrel::test
