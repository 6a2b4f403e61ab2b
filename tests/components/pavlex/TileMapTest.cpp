// Tile comparison and rectangle merging on synthetic frames, without the screen.
#include <windows.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "RectMerger.h"
#include "TileMap.h"

using namespace vantrel::pavlex;

namespace {

struct Frame {
    Frame(int w, int h) : width(w), height(h), pixels(static_cast<size_t>(w) * h, 0x00102030) {}
    FrameView view() const {
        return FrameView{reinterpret_cast<const std::uint8_t*>(pixels.data()), width, height,
                         width * 4};
    }
    int width, height;
    std::vector<std::uint32_t> pixels;
};

TileMap FromPicture(const std::vector<const char*>& rows) {
    const int columns = static_cast<int>(std::strlen(rows[0]));
    TileMap map(columns * 10, static_cast<int>(rows.size()) * 10, 10);
    for (int r = 0; r < static_cast<int>(rows.size()); ++r) {
        for (int c = 0; c < columns; ++c) {
            if (rows[r][c] == '#')
                map.mark(c, r);
        }
    }
    return map;
}

}  // namespace

TEST(TileMap, OneChangedPixelMarksExactlyItsTile) {
    // Corners, tile edges, the alpha byte alone, and the partial last column and row of a screen
    // whose size is not a multiple of the tile size.
    struct {
        int width, height, x, y;
        std::uint32_t value;
    } cases[] = {{1024, 768, 0, 0, 1},      {1024, 768, 15, 15, 1},
                 {1024, 768, 16, 16, 1},    {1024, 768, 1023, 767, 0xFF102030},
                 {1366, 770, 1365, 769, 1}, {1366, 770, 1360, 3, 1}};
    for (const auto& c : cases) {
        Frame before(c.width, c.height), after(c.width, c.height);
        TileMap map(c.width, c.height, 16);
        map.markChanges(before.view(), after.view());
        EXPECT_FALSE(map.any());
        after.pixels[static_cast<size_t>(c.y) * c.width + c.x] = c.value;
        map.markChanges(before.view(), after.view());
        EXPECT_EQ(1, map.dirtyCount()) << c.x << "," << c.y;
        EXPECT_TRUE(map.dirty(c.x / 16, c.y / 16)) << c.x << "," << c.y;
    }
}

TEST(RectMerger, MergesRunsAlongRowsAndEqualRunsBelow) {
    struct {
        std::vector<const char*> picture;
        std::vector<RECT> expected;  // tiles of 10 pixels
    } cases[] = {
        {{"....", "...."}, {}},
        {{".###", "...."}, {{10, 0, 40, 10}}},
        {{".##.", ".##.", ".##."}, {{10, 0, 30, 30}}},
        {{"#...", "#...", "###."}, {{0, 0, 10, 20}, {0, 20, 30, 30}}},
        {{"#.##", "#.##"}, {{0, 0, 10, 20}, {20, 0, 40, 20}}},
        {{"#...", "....", "#..."}, {{0, 0, 10, 10}, {0, 20, 10, 30}}},
    };
    for (const auto& c : cases) {
        const std::vector<RECT> rects = RectMerger::merge(FromPicture(c.picture), 513);
        ASSERT_EQ(c.expected.size(), rects.size()) << c.picture[0];
        for (size_t i = 0; i < rects.size(); ++i) {
            EXPECT_TRUE(EqualRect(&c.expected[i], &rects[i])) << c.picture[0] << " #" << i;
        }
    }
}

TEST(RectMerger, ClipsPartialTilesToTheScreen) {
    TileMap map(1366, 770, 16);
    map.mark(map.columns() - 1, map.rows() - 1);
    const std::vector<RECT> rects = RectMerger::merge(map, 513);
    const RECT expected{1360, 768, 1366, 770};
    ASSERT_EQ(1u, rects.size());
    EXPECT_TRUE(EqualRect(&expected, &rects[0]));
}

TEST(RectMerger, TooManyRectanglesMergeUntilTheyFitAndStillCoverEveryTile) {
    for (size_t limit : {513, 100, 7, 1}) {
        TileMap map(1024, 768, 16);
        for (int r = 0; r < map.rows(); ++r) {
            for (int c = r % 2; c < map.columns(); c += 2)
                map.mark(c, r);  // checkerboard
        }
        const std::vector<RECT> rects = RectMerger::merge(map, limit);
        EXPECT_LE(rects.size(), limit);
        const RECT screen{0, 0, 1024, 768};
        for (const RECT& rc : rects) {
            RECT clipped;
            IntersectRect(&clipped, &rc, &screen);
            EXPECT_TRUE(EqualRect(&clipped, &rc));
        }
        for (int r = 0; r < map.rows(); ++r) {
            for (int c = 0; c < map.columns(); ++c) {
                const POINT p{c * 16, r * 16};
                bool covered = !map.dirty(c, r);
                for (const RECT& rc : rects)
                    covered = covered || PtInRect(&rc, p);
                ASSERT_TRUE(covered) << "tile " << c << "," << r << " limit " << limit;
            }
        }
    }
}
