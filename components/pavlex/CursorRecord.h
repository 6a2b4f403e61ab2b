// Writes the cursor records the capture fetches, in the stream's record layout
// (stream/Packet.h): flags, shape present, position, shape header, AND mask, XOR bits and the
// four trailing bytes the sender counts.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

#include "CursorShape.h"
#include "contracts/CursorRecordLayout.h"

namespace vantrel::pavlex {

class CursorRecord {
  public:
    // The largest record: a 32 x 32 shape at 32 bpp and its mask.
    static constexpr size_t kMaxSize = packet::kCursorRecordMinSize + 32 * 32 * 4 + 32 * 32 / 8;

    static packet::CursorRecord Fields(DWORD flags, POINT position, const CursorShape& shape);
    // Bytes that Write fills for these flags and shape.
    static size_t Size(DWORD flags, const CursorShape& shape);
    // The shape header always goes in (a record stands with it even when flag bit 0 is clear);
    // the masks only with packet::kCursorNewShape. Returns the bytes written, 0 when capacity
    // is too small.
    static size_t Write(std::uint8_t* buffer, size_t capacity, DWORD flags, POINT position,
                        const CursorShape& shape);
};

}  // namespace vantrel::pavlex
