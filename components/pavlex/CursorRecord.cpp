// Cursor record writer. Little-endian fields at fixed offsets, written byte-wise so the
// buffer needs no alignment.
#include "CursorRecord.h"

#include <cstring>

namespace vantrel::pavlex {

namespace {

enum Offset : size_t {
    kFlags = 0,
    kShapePresent = 4,
    kX = 8,
    kY = 12,
    kHotX = 16,
    kHotY = 18,
    kWidth = 20,
    kHeight = 22,
    kAndRowBytes = 24,
    kPlanes = 26,
    kBitsPerPixel = 27,
    kAndMask = 28,
};

void Put32(std::uint8_t* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

void Put16(std::uint8_t* p, int v) {
    p[0] = static_cast<std::uint8_t>(v);
    p[1] = static_cast<std::uint8_t>(v >> 8);
}

}  // namespace

size_t CursorRecord::size(DWORD flags, const CursorShape& shape) noexcept {
    if (!(flags & kNewShape))
        return kHeadSize + kTrailerSize;
    return kHeadSize + shape.andMask().size() + shape.xorBits().size() + kTrailerSize;
}

size_t CursorRecord::write(std::uint8_t* buffer, size_t capacity, DWORD flags, POINT position,
                           const CursorShape& shape) noexcept {
    const size_t total = size(flags, shape);
    if (!buffer || total > capacity)
        return 0;
    std::memset(buffer, 0, total);
    Put32(buffer + kFlags, flags);
    Put32(buffer + kShapePresent, 1);
    Put32(buffer + kX, static_cast<std::uint32_t>(position.x));
    Put32(buffer + kY, static_cast<std::uint32_t>(position.y));
    Put16(buffer + kHotX, shape.hotX());
    Put16(buffer + kHotY, shape.hotY());
    Put16(buffer + kWidth, shape.width());
    Put16(buffer + kHeight, shape.height());
    Put16(buffer + kAndRowBytes, shape.andRowBytes());
    buffer[kPlanes] = 1;
    buffer[kBitsPerPixel] = static_cast<std::uint8_t>(shape.bitsPerPixel());
    if (flags & kNewShape) {
        const auto& andMask = shape.andMask();
        const auto& xorBits = shape.xorBits();
        std::memcpy(buffer + kAndMask, andMask.data(), andMask.size());
        std::memcpy(buffer + kAndMask + andMask.size(), xorBits.data(), xorBits.size());
    }
    return total;
}

}  // namespace vantrel::pavlex
