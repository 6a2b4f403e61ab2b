// The cursor record as the stream carries it (flags, shape present, position, shape header,
// AND mask, XOR bits, four trailing bytes). The one place in this DLL that knows its offsets.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

#include "CursorShape.h"

namespace vantrel::pavlex {

class CursorRecord {
  public:
    enum Flags : DWORD {
        kNewShape = 1,
        kNewPosition = 2,
    };
    static constexpr size_t kHeadSize = 28;              // up to the AND mask
    static constexpr size_t kTrailerSize = 4;            // counted by the sender, never read
    static constexpr size_t kMaxSize = 32 + 4096 + 128;  // 32 x 32 at 32 bpp and its mask

    // Bytes that write() fills for these flags and shape.
    static size_t size(DWORD flags, const CursorShape& shape) noexcept;
    // Writes a record into buffer: the shape header always (it stands in the record even when
    // flag bit 0 is clear), the masks only with kNewShape. Returns the bytes written, 0 when
    // capacity is too small.
    static size_t write(std::uint8_t* buffer, size_t capacity, DWORD flags, POINT position,
                        const CursorShape& shape) noexcept;
};

}  // namespace vantrel::pavlex
