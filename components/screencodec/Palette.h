// The palette transform ScreenCodec.dll puts in front of zstd for 16-bit screen rows. Text,
// code, grids and UI use few colours per band, so each pixel becomes a one-byte index into the
// band's palette: half the bytes for zstd to search, and runs, repeated glyphs and rows equal
// to the row above stay repeats at a quarter of the match length. A band with more than 256
// colours keeps its 255 most frequent ones; index 255 then escapes to the next pixel of an
// escape stream, which is delta-coded (PixelFilter's fold) because escapes are mostly the
// photographs on the page. Layout of the transformed bytes (the table last, so that the
// indices can be written while the colours are still being found):
//   header bytes (offset, verbatim) | one index per pixel | escape pixels (k < 256 only),
//   delta-coded | odd last byte, if any | k x u16 colour | u16 colours k (1-256)
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "PixelFilter.h"

namespace screencodec {

class Palette {
  public:
    static constexpr std::size_t kMaxColours = 256;
    static constexpr std::uint8_t kEscape = 255;
    // Largest growth of the transformed bytes over the original: the colour table.
    static constexpr std::size_t kMaxGrowth = 2 + 2 * kMaxColours;

    Palette() noexcept = default;
    Palette(const Palette&) = delete;
    Palette& operator=(const Palette&) = delete;

    // Transforms the pixels behind filter.offset() of data into out (room for cb + kMaxGrowth);
    // the transformed length, or 0 when the palette would not pay (more than one pixel in
    // maxEscapeShare escaped, or memory ran out).
    std::size_t Apply(const PixelFilter& filter, const std::uint8_t* data, std::size_t cb,
                      std::uint8_t* out, std::size_t maxEscapeShare) noexcept;
    // Rebuilds cb original bytes into out from the transformed bytes; false when they are not
    // a valid transform of exactly cb bytes.
    static bool Restore(const PixelFilter& filter, std::uint8_t* transformed,
                        std::size_t transformedLength, std::uint8_t* out, std::size_t cb) noexcept;

  private:
    bool Reserve() noexcept;
    // The table, escapes and tail once the indices are written; the transformed length.
    std::size_t Finish(const PixelFilter& filter, const std::uint8_t* data, std::size_t cb,
                       std::uint8_t* out, std::size_t k, std::size_t escapes) const noexcept;

    // Per colour value: generation << 8 | index, for the one pass that finds at most 256
    // colours; a new generation forgets every colour at once.
    std::unique_ptr<std::uint32_t[]> slots_;
    std::uint32_t generation_ = 0;
    // Per colour value: pixel count, zero between calls (only the colours seen are cleared).
    std::unique_ptr<std::uint32_t[]> counts_;
    std::unique_ptr<std::uint8_t[]> index_;      // colour value -> palette index or kEscape
    std::unique_ptr<std::uint16_t[]> distinct_;  // colours seen, in order of appearance
};

}  // namespace screencodec
