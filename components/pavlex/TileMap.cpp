// Tile comparison of two grabs. An unchanged screen costs one memcmp per row: only rows that
// differ are looked at tile by tile, and a tile already dirty is not compared again.
#include "TileMap.h"

#include <algorithm>
#include <cstring>

namespace vantrel::pavlex {

TileMap::TileMap(int width, int height, int tileSize)
    : width_(std::max(width, 0)),
      height_(std::max(height, 0)),
      tileSize_(std::max(tileSize, 1)),
      columns_((width_ + tileSize_ - 1) / tileSize_),
      rows_((height_ + tileSize_ - 1) / tileSize_),
      tiles_(static_cast<size_t>(columns_) * rows_, 0) {}

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

void TileMap::hashRow(const std::uint8_t* row, std::uint32_t* out) const noexcept {
    for (int column = 0; column < columns_; ++column) {
        const int first = column * tileSize_;
        const int n = std::min(tileSize_, width_ - first);
        const std::uint8_t* p = row + static_cast<size_t>(first) * 4;
        std::uint32_t h = 0;
        for (int k = 0; k < n; ++k) {
            std::uint32_t v;
            std::memcpy(&v, p + 4 * k, 4);
            h += (v & 0xFFFFFFu) * (0x9E3779B1u + 2u * static_cast<std::uint32_t>(k));
        }
        out[column] = h;
    }
}

bool TileMap::markHashedBand(const std::uint8_t* after, int stride, int top, int rows,
                             std::uint32_t* hashes) noexcept {
    std::vector<std::uint32_t> now(static_cast<size_t>(columns_));
    bool changed = false;
    for (int i = 0; i < rows && top + i < height_; ++i) {
        hashRow(after + static_cast<ptrdiff_t>(i) * stride, now.data());
        std::uint32_t* old = hashes + static_cast<size_t>(top + i) * columns_;
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
