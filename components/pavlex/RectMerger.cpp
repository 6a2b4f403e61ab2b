// Merging dirty tiles. A rectangle stays open while the next tile row has a run with exactly
// its columns; anything else closes it. Coarsening instead of pairwise merging keeps the cost
// linear in the number of tiles and never loses a tile.
#include "RectMerger.h"

#include <algorithm>

namespace vantrel::pavlex {

std::vector<RECT> RectMerger::merge(const TileMap& map, size_t maxRects) {
    std::vector<RECT> rects = mergeRuns(map);
    if (rects.size() <= maxRects)
        return rects;
    TileMap coarse = map.coarsened();
    for (;;) {
        rects = mergeRuns(coarse);
        if (rects.size() <= maxRects || (coarse.columns() <= 1 && coarse.rows() <= 1))
            break;
        coarse = coarse.coarsened();
    }
    return rects;
}

std::vector<RECT> RectMerger::mergeRuns(const TileMap& map) {
    struct Open {
        int first;
        int last;  // exclusive
        int top;
        bool continued;
    };
    std::vector<RECT> done;
    std::vector<Open> open;  // sorted by first column, no two overlap
    std::vector<Open> next;
    const int size = map.tileSize();
    auto close = [&](const Open& o, int bottomRow) {
        done.push_back(RECT{o.first * size, o.top * size, std::min(o.last * size, map.width()),
                            std::min(bottomRow * size, map.height())});
    };

    for (int row = 0; row <= map.rows(); ++row) {
        next.clear();
        size_t o = 0;
        int column = 0;
        while (row < map.rows() && column < map.columns()) {
            if (!map.dirty(column, row)) {
                ++column;
                continue;
            }
            const int first = column;
            int last = column;  // the run's end, after its last dirty tile
            for (int c = column; c < map.columns() && c - last <= kMaxBridgedGap; ++c) {
                if (map.dirty(c, row))
                    last = c + 1;
            }
            column = last;
            while (o < open.size() && open[o].first < first)
                ++o;
            if (o < open.size() && open[o].first == first && open[o].last == column) {
                open[o].continued = true;
                next.push_back(Open{first, column, open[o].top, false});
            } else {
                next.push_back(Open{first, column, row, false});
            }
        }
        for (const Open& prev : open) {
            if (!prev.continued)
                close(prev, row);
        }
        open.swap(next);
    }
    std::sort(done.begin(), done.end(), [](const RECT& a, const RECT& b) {
        return a.top != b.top ? a.top < b.top : a.left < b.left;
    });
    return done;
}

}  // namespace vantrel::pavlex
