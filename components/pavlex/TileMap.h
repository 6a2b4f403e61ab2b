// Dirty-tile grid of the change detector: which square tiles of the screen differ between two
// grabs, accumulated until the capture thread fetches them. Pure logic, no GDI.
#pragma once

#include <cstdint>
#include <vector>

namespace vantrel::pavlex {

// A 32-bit-per-pixel frame in memory, top row first; stride in bytes.
struct FrameView {
    const std::uint8_t* bits;
    int width;
    int height;
    int stride;
};

class TileMap {
  public:
    static constexpr int kDefaultTileSize = 16;

    TileMap() = default;
    // A grid of clean tiles covering width x height pixels; the last column and row of tiles may
    // reach past the screen edge.
    TileMap(int width, int height, int tileSize = kDefaultTileSize);

    int width() const noexcept { return width_; }
    int height() const noexcept { return height_; }
    int tileSize() const noexcept { return tileSize_; }
    int columns() const noexcept { return columns_; }
    int rows() const noexcept { return rows_; }

    bool dirty(int column, int row) const noexcept { return tiles_[index(column, row)] != 0; }
    void mark(int column, int row) noexcept { tiles_[index(column, row)] = 1; }
    void markAll() noexcept;
    void clear() noexcept;
    bool any() const noexcept;
    int dirtyCount() const noexcept;

    // Marks every tile in which before and after differ. Both frames must have this grid's size.
    void markChanges(const FrameView& before, const FrameView& after) noexcept;
    // The same for the rows top to top + rows of the screen, whose first rows `before` and
    // `after` point at (width pixels each, their own strides). True when any pixel differs.
    bool markBand(const std::uint8_t* before, int beforeStride, const std::uint8_t* after,
                  int afterStride, int top, int rows) noexcept;
    // Check values of one pixel row, one per tile column (columns() values into out): a sum of
    // the tile row's colour channels times weights that differ by position, so that one changed
    // pixel always changes it, and two exchanged ones do as good as always.
    void hashRow(const std::uint8_t* row, std::uint32_t* out) const noexcept;
    // Rows top to top + rows of the screen (the first at `after`, stride bytes apart) against
    // the check values of what was there (hashes: height() x columns(), updated): marks the
    // tiles that changed; true when any did. Reads each pixel once and no old copy of it.
    bool markHashedBand(const std::uint8_t* after, int stride, int top, int rows,
                        std::uint32_t* hashes) noexcept;
    // Marks every tile that is dirty in other (same geometry).
    void add(const TileMap& other) noexcept;
    // The same area on tiles twice as large: a tile is dirty when any of the four it covers was.
    TileMap coarsened() const;

  private:
    int index(int column, int row) const noexcept { return row * columns_ + column; }

    int width_ = 0;
    int height_ = 0;
    int tileSize_ = kDefaultTileSize;
    int columns_ = 0;
    int rows_ = 0;
    std::vector<std::uint8_t> tiles_;
    std::vector<std::uint32_t> rowHashes_;  // markHashedBand's check values of one row
};

}  // namespace vantrel::pavlex
