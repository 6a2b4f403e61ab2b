// Byte layout of the desktop stream packets (see Packet.h).
#include "stream/Packet.h"

#include <cstring>

namespace vantrel::packet {

namespace {

// Common head.
constexpr uint32_t kMagicOffset = 0;
constexpr uint32_t kLengthOffset = 4;
constexpr uint32_t kTimeOffset = 8;
// Frame header.
constexpr uint32_t kDesktopRectOffset = 12;
constexpr uint32_t kBitsPerPixelOffset = 28;
constexpr uint32_t kBandRectOffset = 32;

const BYTE* Bytes(const void* p) noexcept {
    return static_cast<const BYTE*>(p);
}
BYTE* Bytes(void* p) noexcept {
    return static_cast<BYTE*>(p);
}

RECT LoadRect(const BYTE* p) noexcept {
    return RECT{LoadI32(p), LoadI32(p + 4), LoadI32(p + 8), LoadI32(p + 12)};
}

void StoreRect(BYTE* p, const RECT& r) noexcept {
    StoreI32(p, r.left);
    StoreI32(p + 4, r.top);
    StoreI32(p + 8, r.right);
    StoreI32(p + 12, r.bottom);
}

bool IsDibDepth(uint32_t bpp) noexcept {
    return bpp == 1 || bpp == 4 || bpp == 8 || bpp == 16 || bpp == 24 || bpp == 32;
}

}  // namespace

Head ReadHead(const void* packet) noexcept {
    const BYTE* p = Bytes(packet);
    Head h;
    h.magic = LoadU32(p + kMagicOffset);
    h.length = LoadU32(p + kLengthOffset);
    h.time = LoadU32(p + kTimeOffset);
    return h;
}

void WriteHead(void* packet, const Head& head) noexcept {
    BYTE* p = Bytes(packet);
    StoreU32(p + kMagicOffset, head.magic);
    StoreU32(p + kLengthOffset, head.length);
    StoreU32(p + kTimeOffset, head.time);
}

void SetTime(void* packet, uint32_t time) noexcept {
    StoreU32(Bytes(packet) + kTimeOffset, time);
}

Verdict Classify(const void* data, uint32_t cbData) noexcept {
    if (!data)
        return Verdict::NoData;
    if (cbData < kHeadSize)
        return Verdict::TooShort;
    const Head head = ReadHead(data);
    if (head.length != cbData)
        return Verdict::LengthMismatch;
    if (cbData > kBufferSize)
        return Verdict::TooLong;
    switch (head.magic) {
        case kFrameMagic:
            return cbData < kFrameHeaderSize ? Verdict::TooShort : Verdict::Frame;
        case kCursorMagic:
            return cbData < kCursorHeaderSize ? Verdict::TooShort : Verdict::Cursor;
        default:
            return Verdict::UnknownMagic;
    }
}

const char* VerdictName(Verdict v) noexcept {
    switch (v) {
        case Verdict::Frame:
            return "frame";
        case Verdict::Cursor:
            return "cursor";
        case Verdict::NoData:
            return "no data";
        case Verdict::TooShort:
            return "too short for its header";
        case Verdict::LengthMismatch:
            return "length field differs from the byte count";
        case Verdict::TooLong:
            return "longer than the packet buffer";
        case Verdict::UnknownMagic:
            return "unknown magic";
    }
    return "?";
}

ByteRange BodyOf(const void* packet, uint32_t cbData, Verdict verdict) noexcept {
    uint32_t header = 0;
    if (verdict == Verdict::Frame) {
        header = kFrameHeaderSize;
    } else if (verdict == Verdict::Cursor) {
        header = kCursorHeaderSize;
    } else {
        return ByteRange{};
    }
    if (!packet || cbData < header)
        return ByteRange{};
    return ByteRange{Bytes(packet) + header, cbData - header};
}

uint32_t WriteFrameHeader(void* packet, const FrameHeader& header, uint32_t payloadSize) noexcept {
    BYTE* p = Bytes(packet);
    const uint32_t length = kFrameHeaderSize + payloadSize;
    WriteHead(p, Head{kFrameMagic, length, header.time});
    StoreRect(p + kDesktopRectOffset, header.desktop);
    StoreU32(p + kBitsPerPixelOffset, header.bitsPerPixel);
    StoreRect(p + kBandRectOffset, header.band);
    return length;
}

void WriteFrameDesktop(void* packet, const FrameHeader& header) noexcept {
    BYTE* p = Bytes(packet);
    StoreU32(p + kMagicOffset, kFrameMagic);
    StoreU32(p + kTimeOffset, header.time);
    StoreRect(p + kDesktopRectOffset, header.desktop);
    StoreU32(p + kBitsPerPixelOffset, header.bitsPerPixel);
}

bool ReadFrameHeader(const void* packet, uint32_t cbData, FrameHeader* out) noexcept {
    if (!packet || !out || cbData < kFrameHeaderSize)
        return false;
    const BYTE* p = Bytes(packet);
    if (LoadU32(p + kMagicOffset) != kFrameMagic)
        return false;
    out->time = LoadU32(p + kTimeOffset);
    out->desktop = LoadRect(p + kDesktopRectOffset);
    out->bitsPerPixel = LoadU32(p + kBitsPerPixelOffset);
    out->band = LoadRect(p + kBandRectOffset);
    return true;
}

bool DesktopWithinLimits(const RECT& desktop, uint32_t bitsPerPixel) noexcept {
    if (desktop.left != 0 || desktop.top != 0 || desktop.right <= 0 || desktop.bottom <= 0 ||
        desktop.right > kMaxDesktopSide || desktop.bottom > kMaxDesktopSide ||
        !IsDibDepth(bitsPerPixel))
        return false;
    const uint64_t stride = (static_cast<uint64_t>(desktop.right) * bitsPerPixel + 31) / 32 * 4;
    return stride * static_cast<uint64_t>(desktop.bottom) <= kMaxDesktopBytes;
}

uint32_t BitmapInfoSize(uint32_t bitCount, uint32_t compression) noexcept {
    if (compression == BI_BITFIELDS)
        return kBitmapInfoHeaderSize + 3 * sizeof(DWORD);
    if (bitCount <= 8)
        return kBitmapInfoHeaderSize + sizeof(RGBQUAD) * (1u << bitCount);
    return kBitmapInfoHeaderSize;
}

uint32_t RowBytes(const RECT& band, uint32_t bitsPerPixel) noexcept {
    const int64_t width = static_cast<int64_t>(band.right) - band.left;
    if (width <= 0)
        return 0;
    const uint64_t bytes = static_cast<uint64_t>(width) * bitsPerPixel / 8;
    return bytes > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(bytes);
}

uint32_t RowsThatFit(uint32_t bitmapInfoSize, uint32_t rowBytes) noexcept {
    if (rowBytes == 0 || bitmapInfoSize >= kBufferSize)
        return 0;
    return (kBufferSize - bitmapInfoSize) / rowBytes;
}

PayloadError ParseFramePayload(const void* payload, uint32_t size, const FrameHeader& frame,
                               FramePayloadView* out) noexcept {
    if (!payload || !out || size < kBitmapInfoHeaderSize)
        return PayloadError::TooShort;
    const BYTE* p = Bytes(payload);
    BITMAPINFOHEADER h;
    std::memcpy(&h, p, sizeof h);
    static_assert(sizeof h == kBitmapInfoHeaderSize, "BITMAPINFOHEADER is 40 bytes");

    if (h.biSize != kBitmapInfoHeaderSize)
        return PayloadError::HeaderSize;
    if (!IsDibDepth(h.biBitCount))
        return PayloadError::BitCount;
    const bool bitfields = h.biCompression == BI_BITFIELDS;
    if (h.biCompression != BI_RGB && !(bitfields && (h.biBitCount == 16 || h.biBitCount == 32)))
        return PayloadError::Compression;
    if (h.biBitCount != frame.bitsPerPixel)
        return PayloadError::BitCountMismatch;
    const int64_t desktopWidth = static_cast<int64_t>(frame.desktop.right) - frame.desktop.left;
    const int64_t desktopHeight = static_cast<int64_t>(frame.desktop.bottom) - frame.desktop.top;
    if (h.biWidth <= 0 || h.biWidth != desktopWidth || h.biHeight >= 0 ||
        -static_cast<int64_t>(h.biHeight) != desktopHeight)
        return PayloadError::DesktopMismatch;

    const uint32_t infoSize = BitmapInfoSize(h.biBitCount, h.biCompression);
    if (infoSize > kMaxBitmapInfoSize || infoSize > size)
        return PayloadError::BitmapInfoTooLarge;

    const RECT& band = frame.band;
    if (band.right < band.left || band.bottom < band.top)
        return PayloadError::BadBand;
    const uint32_t rowBytes = RowBytes(band, h.biBitCount);
    const uint64_t rowCount = static_cast<uint64_t>(static_cast<int64_t>(band.bottom) - band.top);
    if (static_cast<uint64_t>(infoSize) + rowCount * rowBytes > size)
        return PayloadError::RowsDoNotFit;

    out->header = h;
    out->masks[0] = out->masks[1] = out->masks[2] = 0;
    if (bitfields) {
        for (int i = 0; i < 3; ++i)
            out->masks[i] = LoadU32(p + kBitmapInfoHeaderSize + 4 * i);
    }
    out->bitmapInfo = p;
    out->bitmapInfoSize = infoSize;
    out->rows = p + infoSize;
    out->rowBytes = rowBytes;
    out->rowCount = static_cast<uint32_t>(rowCount);
    return PayloadError::None;
}

const char* PayloadErrorName(PayloadError e) noexcept {
    switch (e) {
        case PayloadError::None:
            return "ok";
        case PayloadError::TooShort:
            return "shorter than a BITMAPINFOHEADER";
        case PayloadError::HeaderSize:
            return "biSize is not 40";
        case PayloadError::BitCount:
            return "bit count is not a DIB depth";
        case PayloadError::Compression:
            return "unsupported compression";
        case PayloadError::BitCountMismatch:
            return "bit count differs from the packet's";
        case PayloadError::DesktopMismatch:
            return "size differs from the packet's desktop";
        case PayloadError::BitmapInfoTooLarge:
            return "colour part missing or too large";
        case PayloadError::BadBand:
            return "band rectangle inverted";
        case PayloadError::RowsDoNotFit:
            return "rows run past the payload";
    }
    return "?";
}

uint32_t WriteCursorHeader(void* packet, uint32_t time, uint32_t recordSize) noexcept {
    const uint32_t length = kCursorHeaderSize + recordSize;
    WriteHead(packet, Head{kCursorMagic, length, time});
    return length;
}

CursorError ParseCursorRecord(const void* record, uint32_t size, CursorRecordView* out) noexcept {
    // A record that carries no shape needs only flags, shape present and position; senders
    // pad it to 32 bytes, but nothing behind the position is read, so a shorter one is taken
    // with the shape header as zeros (a shape it then asks for fails its checks).
    if (!out || !record || size < kCursorPositionRecordSize)
        return CursorError::TooShort;
    BYTE fixed[kCursorMasksOffset] = {};
    std::memcpy(fixed, record, size < kCursorMasksOffset ? size : kCursorMasksOffset);
    CursorRecord f;
    ReadCursorRecord(fixed, kCursorMasksOffset, &f);
    const bool newShape =
        (f.flags & (kCursorNewShape | kCursorShapeAlias)) != 0 && f.shapePresent != 0;
    CursorRecordView v;
    v.record = f;
    v.newShape = newShape;
    v.newPosition = (f.flags & kCursorNewPosition) != 0;
    if (newShape) {
        // The fixed part stands even when the shape does not: the caller still learns the
        // position.
        v.newShape = false;
        *out = v;
        if (f.width == 0 || f.height == 0 || !IsDibDepth(f.bitsPerPixel) ||
            static_cast<uint32_t>(f.andBytesPerRow) * 8 < f.width ||
            static_cast<uint32_t>(f.width) * f.bitsPerPixel % 8 != 0)
            return CursorError::BadShape;
        const uint64_t andBytes = static_cast<uint64_t>(f.andBytesPerRow) * f.height;
        const uint64_t xorBytes = static_cast<uint64_t>(f.bitsPerPixel) * f.width * f.height / 8;
        if (kCursorMasksOffset + andBytes + xorBytes > size)
            return CursorError::MasksDoNotFit;
        v.newShape = true;
        const BYTE* p = Bytes(record);
        v.shape = p + kCursorShapeOffset;
        v.andMask = p + kCursorMasksOffset;
        v.andMaskSize = static_cast<uint32_t>(andBytes);
        v.xorBits = v.andMask + andBytes;
        v.xorBitsSize = static_cast<uint32_t>(xorBytes);
    }
    *out = v;
    return CursorError::None;
}

const char* CursorErrorName(CursorError e) noexcept {
    switch (e) {
        case CursorError::None:
            return "ok";
        case CursorError::TooShort:
            return "shorter than the record's fixed part";
        case CursorError::BadShape:
            return "shape of no size, unknown depth, short AND rows or part-byte XOR rows";
        case CursorError::MasksDoNotFit:
            return "masks run past the record";
    }
    return "?";
}

}  // namespace vantrel::packet
