// The header that starts every block ScreenCodec.dll writes. A block is self-describing: the
// decoder needs nothing but its bytes (the stream's callers never pass the mode or the row
// length). Layout, little-endian:
//    0  u32  tag "VSC1"
//    4  u8   format version (1)
//    5  u8   method: 0 stored, 1 raw deflate
//    6  u8   filter: PixelFilter::Kind
//    7  u8   mode the block was made in (informational)
//    8  u32  original length
//   12  u32  body length
//   16  u32  filter offset: bytes at the start left unfiltered (the BITMAPINFO)
//   20  u32  CRC-32 of the original bytes
//   24  u32  CRC-32 of bytes 0-23 and of the chunk map
//   28  chunk map (PixelFilter: one bit per chunk, filtered or not), then the body.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

namespace screencodec {

struct BlockHeader {
    static constexpr std::uint32_t kTag = 0x31435356;  // "VSC1"
    static constexpr std::uint8_t kVersion = 1;
    static constexpr std::size_t kFixedSize = 28;
    static constexpr std::uint8_t kStored = 0;
    static constexpr std::uint8_t kDeflate = 1;

    std::uint8_t method = kStored;
    std::uint8_t filter = 0;
    std::uint8_t mode = 0;
    std::uint32_t originalLength = 0;
    std::uint32_t bodyLength = 0;
    std::uint32_t filterOffset = 0;
    std::uint32_t dataCrc = 0;
    std::uint32_t mapLength = 0;  // not stored: follows from the filter and the lengths

    std::size_t Size() const noexcept { return kFixedSize + mapLength; }

    // Writes the fixed part and its check value over out; the chunk map must already be at
    // out + kFixedSize.
    void Write(std::uint8_t* out) const noexcept;

    // Reads and checks the header of a block of exactly cb bytes: tag, version, method, filter,
    // header check value, and that the lengths account for every byte. A block whose body could
    // not hold its claimed length is refused too. S_OK or HRESULT_FROM_WIN32(ERROR_INVALID_DATA).
    HRESULT Read(const std::uint8_t* block, std::size_t cb) noexcept;
};

}  // namespace screencodec
