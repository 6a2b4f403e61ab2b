// The header that starts every block ScreenCodec.dll writes. A block is self-describing: the
// decoder needs nothing but its bytes (the stream's callers never pass the mode or the row
// length). Layout, little-endian:
//    0  u32  tag "VSC1"
//    4  u8   format version: 4 (zstd); 3 and 2 (zstd) and 1 (deflate) are still read for old
//            recordings
//    5  u8   method: 0 stored; version 1: 1 raw deflate; versions 2 and 3: 2 zstd frame
//    6  u8   filter: PixelFilter::Kind (delta), or 3/4 the palette of 5-5-5/5-6-5 (from 2 on)
//    7  u8   mode the block was made in (informational)
//    8  u32  original length
//   12  u32  body length
//   16  u32  filter offset: bytes at the start left unfiltered (the BITMAPINFO)
//   20  u32  check value: version 1 CRC-32 of the original bytes, version 2 XXH32 (seed 0) of
//            them; version 3 XXH32 of the bytes the method restores (a palette's transformed
//            bytes, delta-filtered bytes, the original bytes of a stored or unfiltered block);
//            version 4 XXH32 of the body. With the header's own check every byte of a version 4
//            block is covered, a damaged body is refused before zstd reads it, and the body is a
//            tenth of the bytes to hash on screen content; verified bytes restore to exactly
//            what was compressed (zstd and the filters are deterministic, and the palette
//            refuses what is not a transform of it)
//   24  u32  CRC-32 of bytes 0-23 and of the chunk map
//   28  map: for delta, one bit per chunk, filtered or not (PixelFilter); for the palette, the
//       u32 length of the transformed bytes (Palette); then the body.
#pragma once

#include <cstddef>
#include <cstdint>

#include "PixelFilter.h"
#include "wincom/WinTypes.h"

namespace screencodec {

struct BlockHeader {
    static constexpr std::uint32_t kTag = 0x31435356;  // "VSC1"
    static constexpr std::uint8_t kVersionDeflate = 1;
    static constexpr std::uint8_t kVersionZstdChecksOriginal = 2;
    static constexpr std::uint8_t kVersionChecksRestored = 3;
    static constexpr std::uint8_t kVersion = 4;  // what Compress writes
    static constexpr std::size_t kFixedSize = 28;
    static constexpr std::uint8_t kStored = 0;
    static constexpr std::uint8_t kDeflate = 1;
    static constexpr std::uint8_t kZstd = 2;
    static constexpr std::uint8_t kPalette555 = 3;
    static constexpr std::uint8_t kPalette565 = 4;

    std::uint8_t version = kVersion;
    std::uint8_t method = kStored;
    std::uint8_t filter = 0;
    std::uint8_t mode = 0;
    std::uint32_t originalLength = 0;
    std::uint32_t bodyLength = 0;
    std::uint32_t filterOffset = 0;
    std::uint32_t dataCrc = 0;
    std::uint32_t mapLength = 0;          // not stored: follows from the filter and the lengths
    std::uint32_t transformedLength = 0;  // palette only: what zstd restores

    bool IsPalette() const noexcept { return filter == kPalette555 || filter == kPalette565; }
    // What the check value covers: the body as it is; what the method restores, before the
    // palette or filter is undone; otherwise the original bytes.
    bool ChecksBody() const noexcept { return version >= kVersion; }
    bool ChecksRestored() const noexcept {
        return version == kVersionChecksRestored && method != kStored;
    }
    bool ChecksOriginal() const noexcept { return !ChecksBody() && !ChecksRestored(); }
    // The pixel layout behind the filter: for the palette, the delta of its escapes.
    PixelFilter Filter() const noexcept;

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
