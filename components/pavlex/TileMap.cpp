// Tile comparison of two grabs, or of a grab against check values of the last one. An
// unchanged screen costs one memcmp per row: only rows that differ are looked at tile by tile.
// The check values are computed with SSE2 where the processor has it (the DLL is built for
// plain i686), with the same results as the portable loop.
#include "TileMap.h"

#include <windows.h>
#include <emmintrin.h>

#include <algorithm>
#include <cstring>

#include "wincom/CpuFeatures.h"

namespace vantrel::pavlex {

TileMap::TileMap(int width, int height, int tileSize)
    : width_(std::max(width, 0)),
      height_(std::max(height, 0)),
      tileSize_(std::max(tileSize, 1)),
      columns_((width_ + tileSize_ - 1) / tileSize_),
      rows_((height_ + tileSize_ - 1) / tileSize_),
      tiles_(static_cast<size_t>(columns_) * rows_, 0),
      rowHashes_(static_cast<size_t>(columns_), 0) {}

void TileMap::markAll() noexcept {
    std::fill(tiles_.begin(), tiles_.end(), 1);
}

void TileMap::clear() noexcept {
    std::fill(tiles_.begin(), tiles_.end(), 0);
}

bool TileMap::any() const noexcept {
    return std::any_of(tiles_.begin(), tiles_.end(), [](std::uint8_t t) { return t != 0; });
}

int TileMap::dirtyCount() const noexcept {
    return static_cast<int>(std::count(tiles_.begin(), tiles_.end(), 1));
}

void TileMap::markChanges(const FrameView& before, const FrameView& after) noexcept {
    markBand(before.bits, before.stride, after.bits, after.stride, 0, height_);
}

bool TileMap::markBand(const std::uint8_t* before, int beforeStride, const std::uint8_t* after,
                       int afterStride, int top, int rows) noexcept {
    const size_t rowBytes = static_cast<size_t>(width_) * 4;
    const size_t tileBytes = static_cast<size_t>(tileSize_) * 4;
    bool changed = false;
    for (int i = 0; i < rows && top + i < height_; ++i) {
        const std::uint8_t* a = before + static_cast<ptrdiff_t>(i) * beforeStride;
        const std::uint8_t* b = after + static_cast<ptrdiff_t>(i) * afterStride;
        if (std::memcmp(a, b, rowBytes) == 0)
            continue;
        changed = true;
        std::uint8_t* tileRow = &tiles_[index(0, (top + i) / tileSize_)];
        for (int column = 0; column < columns_; ++column) {
            if (tileRow[column])
                continue;
            const size_t offset = column * tileBytes;
            const size_t bytes = std::min(tileBytes, rowBytes - offset);
            if (std::memcmp(a + offset, b + offset, bytes) != 0)
                tileRow[column] = 1;
        }
    }
    return changed;
}

namespace {

// Weights of pixel k of a tile row: its low half (blue, green) counts 256 x (2k + 3) times, its
// red byte 4k + 1 times. A multiple of 256 against an odd number, both below 2^15: one changed
// pixel changes the sum by a non-zero amount smaller than 2^32, so its check value always
// changes; two exchanged pixels change it too unless their channels line up by chance.
constexpr int kHashedTile = 16;

inline std::int32_t LowWeight(int k) noexcept {
    return 256 * (2 * k + 3);
}

inline std::int32_t RedWeight(int k) noexcept {
    return 4 * k + 1;
}

inline std::uint32_t HashPixels(const std::uint8_t* p, int n) noexcept {
    std::uint32_t h = 0;
    for (int k = 0; k < n; ++k) {
        std::uint32_t v;
        std::memcpy(&v, p + 4 * k, 4);
        const std::int32_t low = static_cast<std::int16_t>(v & 0xFFFFu);
        const std::int32_t red = static_cast<std::int32_t>((v >> 16) & 0xFFu);
        h += static_cast<std::uint32_t>(low * LowWeight(k)) +
             static_cast<std::uint32_t>(red * RedWeight(k));
    }
    return h;
}

// The same sums four pixels at a time: pmaddwd multiplies each pixel's two 16-bit halves (alpha
// masked off) by its two weights and adds them. The stack of a 32-bit Windows thread is only
// 4-byte aligned, hence the realignment for anything the compiler keeps there.
__attribute__((target("sse2"))) inline __m128i Weights(int k) noexcept {
    return _mm_setr_epi16(
        static_cast<short>(LowWeight(k)), static_cast<short>(RedWeight(k)),
        static_cast<short>(LowWeight(k + 1)), static_cast<short>(RedWeight(k + 1)),
        static_cast<short>(LowWeight(k + 2)), static_cast<short>(RedWeight(k + 2)),
        static_cast<short>(LowWeight(k + 3)), static_cast<short>(RedWeight(k + 3)));
}

__attribute__((target("sse2"))) inline __m128i Weighted(const std::uint8_t* p, __m128i colour,
                                                        __m128i weights) noexcept {
    return _mm_madd_epi16(
        _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), colour), weights);
}

__attribute__((target("sse2"), force_align_arg_pointer)) void HashTilesSse2(
    const std::uint8_t* row, int tiles, std::uint32_t* out) noexcept {
    const __m128i w0 = Weights(0), w1 = Weights(4), w2 = Weights(8), w3 = Weights(12);
    const __m128i colour = _mm_set1_epi32(0x00FFFFFF);
    for (int t = 0; t < tiles; ++t, row += 4 * kHashedTile) {
        __m128i sum = _mm_add_epi32(
            _mm_add_epi32(Weighted(row, colour, w0), Weighted(row + 16, colour, w1)),
            _mm_add_epi32(Weighted(row + 32, colour, w2), Weighted(row + 48, colour, w3)));
        sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(1, 0, 3, 2)));
        sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(2, 3, 0, 1)));
        out[t] = static_cast<std::uint32_t>(_mm_cvtsi128_si32(sum));
    }
}

bool HasSse2() noexcept {
    static const bool sse2 = CpuHasSse2();
    return sse2;
}

}  // namespace

void TileMap::hashRow(const std::uint8_t* row, std::uint32_t* out) const noexcept {
    int column = 0;
    if (tileSize_ == kHashedTile && HasSse2()) {
        column = width_ / kHashedTile;
        HashTilesSse2(row, column, out);
    }
    for (; column < columns_; ++column) {
        const int first = column * tileSize_;
        out[column] =
            HashPixels(row + static_cast<size_t>(first) * 4, std::min(tileSize_, width_ - first));
    }
}

bool TileMap::markHashedBand(const std::uint8_t* after, int stride, int top, int rows,
                             std::uint32_t* hashes) noexcept {
    std::uint32_t* now = rowHashes_.data();
    bool changed = false;
    for (int i = 0; i < rows && top + i < height_; ++i) {
        hashRow(after + static_cast<ptrdiff_t>(i) * stride, now);
        std::uint32_t* old = hashes + static_cast<size_t>(top + i) * columns_;
        if (std::memcmp(now, old, static_cast<size_t>(columns_) * sizeof *now) == 0)
            continue;
        std::uint8_t* tileRow = &tiles_[index(0, (top + i) / tileSize_)];
        for (int column = 0; column < columns_; ++column) {
            if (now[column] != old[column]) {
                old[column] = now[column];
                tileRow[column] = 1;
                changed = true;
            }
        }
    }
    return changed;
}

void TileMap::add(const TileMap& other) noexcept {
    const size_t n = std::min(tiles_.size(), other.tiles_.size());
    for (size_t i = 0; i < n; ++i)
        tiles_[i] |= other.tiles_[i];
}

TileMap TileMap::coarsened() const {
    TileMap coarse(width_, height_, tileSize_ * 2);
    for (int row = 0; row < rows_; ++row) {
        for (int column = 0; column < columns_; ++column) {
            if (dirty(column, row))
                coarse.mark(column / 2, row / 2);
        }
    }
    return coarse;
}

}  // namespace vantrel::pavlex
