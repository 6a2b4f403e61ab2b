// The filter ScreenCodec.dll puts in front of deflate for 16-bit screen rows. A frame payload
// is a BITMAPINFO of the whole desktop followed by the rows of a band whose width is not in the
// payload, so the filter works along the pixel sequence alone: each pixel is replaced by its
// difference from the pixel before it, channel by channel, folded so that small differences
// of either sign become small numbers. That suits photographs; text, flat UI and gradients
// compress better as they are (deflate finds their repeats), so the decision is taken per
// chunk of pixels and kept in a bit map the block carries.
#pragma once

#include <cstddef>
#include <cstdint>

namespace screencodec {

class PixelFilter {
  public:
    enum Kind : std::uint8_t { kNone = 0, kDelta555 = 1, kDelta565 = 2 };

    static constexpr std::size_t kChunkPixels = 16384;
    static constexpr std::size_t kPhotoColours = 384;

    PixelFilter() noexcept = default;
    PixelFilter(Kind kind, std::uint32_t offset) noexcept : kind_(kind), offset_(offset) {}

    // The filter that suits a block: the 16-bit 5-5-5 or 5-6-5 rows behind a BITMAPINFOHEADER,
    // otherwise none.
    static PixelFilter ForPayload(const std::uint8_t* data, std::size_t cb) noexcept;
    static bool IsKnownKind(std::uint8_t kind) noexcept { return kind <= kDelta565; }

    Kind kind() const noexcept { return kind_; }
    std::uint32_t offset() const noexcept { return offset_; }
    std::size_t Chunks(std::size_t cb) const noexcept;
    std::size_t MapBytes(std::size_t cb) const noexcept { return (Chunks(cb) + 7) / 8; }

    // Whether chunk `chunk` is photograph-like and gains from the filter: more than
    // kPhotoColours distinct pixel values. Text, UI flats and (dithered) gradients use few
    // colours per chunk and compress better as they are.
    bool LooksPhotographic(const std::uint8_t* data, std::size_t cb,
                           std::size_t chunk) const noexcept;
    // Writes chunk `chunk` of data filtered into out (same offsets as data).
    void FilterChunk(const std::uint8_t* data, std::size_t cb, std::size_t chunk,
                     std::uint8_t* out) const noexcept;
    // Copies chunk `chunk` unfiltered into out; the header bytes go with chunk 0, the odd last
    // byte with the last chunk.
    void CopyChunk(const std::uint8_t* data, std::size_t cb, std::size_t chunk,
                   std::uint8_t* out) const noexcept;
    // The same difference coding over `pixels` consecutive pixels, without chunks or header
    // (in may equal out), and its inverse in place.
    void FilterRun(const std::uint8_t* in, std::uint8_t* out, std::size_t pixels) const noexcept;
    void UnfilterRun(std::uint8_t* data, std::size_t pixels) const noexcept;
    // Undoes the filter in place on the chunks the map marks.
    void Unfilter(std::uint8_t* data, std::size_t cb, const std::uint8_t* map) const noexcept;

    // Byte range [begin, end) of a chunk, the unfiltered parts included.
    void ChunkBytes(std::size_t cb, std::size_t chunk, std::size_t* begin,
                    std::size_t* end) const noexcept;

  private:
    Kind kind_ = kNone;
    std::uint32_t offset_ = 0;
};

}  // namespace screencodec
