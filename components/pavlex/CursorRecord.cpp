// Cursor record writer on top of the stream's record layout.
#include "CursorRecord.h"

#include <cstring>

namespace vantrel::pavlex {

packet::CursorRecord CursorRecord::Fields(DWORD flags, POINT position, const CursorShape& shape) {
    packet::CursorRecord f;
    f.flags = flags;
    f.shapePresent = 1;
    f.x = position.x;
    f.y = position.y;
    f.hotSpotX = static_cast<uint16_t>(shape.hotX());
    f.hotSpotY = static_cast<uint16_t>(shape.hotY());
    f.width = static_cast<uint16_t>(shape.width());
    f.height = static_cast<uint16_t>(shape.height());
    f.andBytesPerRow = static_cast<uint16_t>(shape.andRowBytes());
    f.planes = 1;
    f.bitsPerPixel = static_cast<uint8_t>(shape.bitsPerPixel());
    return f;
}

size_t CursorRecord::Size(DWORD flags, const CursorShape& shape) {
    return packet::SenderCursorRecordLength(Fields(flags, POINT{}, shape));
}

size_t CursorRecord::Write(std::uint8_t* buffer, size_t capacity, DWORD flags, POINT position,
                           const CursorShape& shape) {
    const packet::CursorRecord fields = Fields(flags, position, shape);
    const size_t total = packet::SenderCursorRecordLength(fields);
    if (!buffer || total > capacity)
        return 0;
    std::memset(buffer, 0, total);
    packet::WriteCursorRecord(buffer, fields);
    if (flags & packet::kCursorNewShape) {
        const auto& andMask = shape.andMask();
        const auto& xorBits = shape.xorBits();
        std::uint8_t* masks = buffer + packet::kCursorMasksOffset;
        std::memcpy(masks, andMask.data(), andMask.size());
        std::memcpy(masks + andMask.size(), xorBits.data(), xorBits.size());
    }
    return total;
}

}  // namespace vantrel::pavlex
