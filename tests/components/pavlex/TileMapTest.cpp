// Tile comparison and rectangle merging on synthetic frames, without the screen.
#include <windows.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "RectMerger.h"
#include "TileMap.h"

using namespace vantrel::pavlex;

namespace {

struct Frame {
    Frame(int w, int h) : width(w), height(h), pixels(static_cast<size_t>(w) * h, 0x00102030) {}
    void set(int x, int y, std::uint32_t v) { pixels[static_cast<size_t>(y) * width + x] = v; }
    FrameView view() const {
        return FrameView{reinterpret_cast<const std::uint8_t*>(pixels.data()), width, height,
                         width * 4};
    }
    int width;
    int height;
    std::vector<std::uint32_t> pixels;
};

bool Covered(const std::vector<RECT>& rects, int x, int y) {
    for (const RECT& r : rects) {
        if (x >= r.left && x < r.right && y >= r.top && y < r.bottom)
            return true;
    }
    return false;
}

TileMap FromPicture(int tileSize, const std::vector<const char*>& rows) {
    const int columns = static_cast<int>(std::strlen(rows[0]));
    TileMap map(columns * tileSize, static_cast<int>(rows.size()) * tileSize, tileSize);
    for (int r = 0; r < static_cast<int>(rows.size()); ++r) {
        for (int c = 0; c < columns; ++c) {
            if (rows[r][c] == '#')
                map.mark(c, r);
        }
    }
    return map;
}

}  // namespace

TEST(TileMap, IdenticalFramesMarkNothing) {
    Frame a(1024, 768), b(1024, 768);
    TileMap map(1024, 768);
    map.markChanges(a.view(), b.view());
    EXPECT_FALSE(map.any());
}

struct PixelCase {
    int width, height, x, y;
};
void PrintTo(const PixelCase& c, std::ostream* os) {
    *os << c.width << "x" << c.height << " at " << c.x << "," << c.y;
}

class TileMapPixel : public testing::TestWithParam<PixelCase> {};

TEST_P(TileMapPixel, OneChangedPixelMarksExactlyItsTile) {
    const PixelCase c = GetParam();
    Frame a(c.width, c.height), b(c.width, c.height);
    b.set(c.x, c.y, 0xFFFFFFFF);
    TileMap map(c.width, c.height, 16);
    map.markChanges(a.view(), b.view());
    EXPECT_EQ(1, map.dirtyCount());
    EXPECT_TRUE(map.dirty(c.x / 16, c.y / 16));
}

// Corners, tile edges and the partial last column/row of a screen whose size is not a multiple
// of the tile size.
INSTANTIATE_TEST_SUITE_P(Positions, TileMapPixel,
                         testing::Values(PixelCase{1024, 768, 0, 0}, PixelCase{1024, 768, 15, 15},
                                         PixelCase{1024, 768, 16, 16},
                                         PixelCase{1024, 768, 1023, 767},
                                         PixelCase{1366, 770, 1365, 769},
                                         PixelCase{1366, 770, 1360, 3}, PixelCase{20, 20, 19, 0}),
                         [](const testing::TestParamInfo<PixelCase>& info) {
                             const PixelCase& c = info.param;
                             return std::to_string(c.width) + "x" + std::to_string(c.height) + "_" +
                                    std::to_string(c.x) + "_" + std::to_string(c.y);
                         });

TEST(TileMap, OnlyTheAlphaByteDifferingStillCounts) {
    Frame a(64, 64), b(64, 64);
    b.set(40, 40, 0xFF102030);
    TileMap map(64, 64, 16);
    map.markChanges(a.view(), b.view());
    EXPECT_TRUE(map.dirty(2, 2));
    EXPECT_EQ(1, map.dirtyCount());
}

TEST(TileMap, StrideWiderThanTheRowIsHonoured) {
    // Bytes beyond the width (row padding) differ and must not count.
    const int w = 40, h = 8, stride = 48 * 4;
    std::vector<std::uint8_t> a(stride * h, 0), b(stride * h, 0);
    for (int y = 0; y < h; ++y)
        b[y * stride + w * 4] = 0xAA;
    b[3 * stride + 39 * 4] = 1;
    TileMap map(w, h, 16);
    map.markChanges(FrameView{a.data(), w, h, stride}, FrameView{b.data(), w, h, stride});
    EXPECT_EQ(1, map.dirtyCount());
    EXPECT_TRUE(map.dirty(2, 0));
}

TEST(TileMap, AddAccumulatesAndCoarsenedCoversTheSameArea) {
    TileMap a(100, 50, 16), b(100, 50, 16);
    a.mark(0, 0);
    b.mark(6, 3);
    a.add(b);
    EXPECT_EQ(2, a.dirtyCount());
    const TileMap coarse = a.coarsened();
    EXPECT_EQ(32, coarse.tileSize());
    EXPECT_EQ(4, coarse.columns());
    EXPECT_EQ(2, coarse.rows());
    EXPECT_TRUE(coarse.dirty(0, 0));
    EXPECT_TRUE(coarse.dirty(3, 1));
    EXPECT_EQ(2, coarse.dirtyCount());
}

struct MergeCase {
    const char* name;
    std::vector<const char*> picture;
    std::vector<RECT> expected;  // tile size 10
};
void PrintTo(const MergeCase& c, std::ostream* os) {
    *os << c.name;
}

class RectMergerShapes : public testing::TestWithParam<MergeCase> {};

TEST_P(RectMergerShapes, MergesRunsAndEqualRunsBelow) {
    const MergeCase& c = GetParam();
    const std::vector<RECT> rects = RectMerger::merge(FromPicture(10, c.picture), 513);
    ASSERT_EQ(c.expected.size(), rects.size());
    for (size_t i = 0; i < rects.size(); ++i) {
        EXPECT_EQ(c.expected[i].left, rects[i].left) << i;
        EXPECT_EQ(c.expected[i].top, rects[i].top) << i;
        EXPECT_EQ(c.expected[i].right, rects[i].right) << i;
        EXPECT_EQ(c.expected[i].bottom, rects[i].bottom) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Pictures, RectMergerShapes,
    testing::Values(
        MergeCase{"Empty", {"....", "...."}, {}},
        MergeCase{"OneTile", {"....", ".#.."}, {{10, 10, 20, 20}}},
        MergeCase{"Run", {".###", "...."}, {{10, 0, 40, 10}}},
        MergeCase{"Block", {".##.", ".##.", ".##."}, {{10, 0, 30, 30}}},
        MergeCase{"LShape", {"#...", "#...", "###."}, {{0, 0, 10, 20}, {0, 20, 30, 30}}},
        MergeCase{"TwoRunsOneRow", {"#.##", "#.##"}, {{0, 0, 10, 20}, {20, 0, 40, 20}}},
        MergeCase{"GapSplitsColumn", {"#...", "....", "#..."}, {{0, 0, 10, 10}, {0, 20, 10, 30}}},
        MergeCase{"WholeGrid", {"####", "####"}, {{0, 0, 40, 20}}}),
    [](const testing::TestParamInfo<MergeCase>& info) { return info.param.name; });

TEST(RectMerger, ClipsPartialTilesToTheScreen) {
    TileMap map(1366, 770, 16);
    map.mark(map.columns() - 1, map.rows() - 1);
    const std::vector<RECT> rects = RectMerger::merge(map, 513);
    ASSERT_EQ(1u, rects.size());
    EXPECT_EQ(1360, rects[0].left);
    EXPECT_EQ(768, rects[0].top);
    EXPECT_EQ(1366, rects[0].right);
    EXPECT_EQ(770, rects[0].bottom);
}

TEST(RectMerger, TooManyRectanglesAreMergedUntilTheyFitAndStillCoverEveryTile) {
    for (int limit : {513, 100, 7, 1}) {
        TileMap map(1024, 768, 16);
        for (int r = 0; r < map.rows(); ++r) {
            for (int c = (r % 2); c < map.columns(); c += 2)
                map.mark(c, r);  // checkerboard
        }
        map.mark(63, 47);
        const std::vector<RECT> rects = RectMerger::merge(map, limit);
        EXPECT_LE(rects.size(), static_cast<size_t>(limit));
        EXPECT_FALSE(rects.empty());
        for (int r = 0; r < map.rows(); ++r) {
            for (int c = 0; c < map.columns(); ++c) {
                if (map.dirty(c, r)) {
                    ASSERT_TRUE(Covered(rects, c * 16, r * 16)) << c << "," << r;
                }
            }
        }
        for (const RECT& rc : rects) {
            EXPECT_GE(rc.left, 0);
            EXPECT_GE(rc.top, 0);
            EXPECT_LE(rc.right, 1024);
            EXPECT_LE(rc.bottom, 768);
            EXPECT_LT(rc.left, rc.right);
            EXPECT_LT(rc.top, rc.bottom);
        }
    }
}

TEST(RectMerger, ScatteredChangesFromFramesEndCovered) {
    Frame a(1920, 1080), b(1920, 1080);
    std::vector<POINT> changed;
    for (int y = 3; y < 1080; y += 37) {
        for (int x = 5; x < 1920; x += 29) {
            b.set(x, y, 0x00FFFFFF);
            changed.push_back(POINT{x, y});
        }
    }
    TileMap map(1920, 1080);
    map.markChanges(a.view(), b.view());
    const std::vector<RECT> rects = RectMerger::merge(map, 513);
    EXPECT_LE(rects.size(), 513u);
    for (const POINT& p : changed)
        ASSERT_TRUE(Covered(rects, p.x, p.y)) << p.x << "," << p.y;
}
