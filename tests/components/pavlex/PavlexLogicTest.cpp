// The change detector's logic on synthetic data: tile comparison, rectangle merging, pointer
// shapes fitted into records and cursor changes merged between fetches.
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "CursorChanges.h"
#include "CursorRecord.h"
#include "CursorShape.h"
#include "RectMerger.h"
#include "TileMap.h"
#include "common/ScreenTestSupport.h"

using namespace vantrel;
using namespace vantrel::pavlex;

namespace {

// A source of width x height, all transparent (AND 1, XOR 0).
CursorShape::Source Transparent(int width, int height, bool monochrome) {
    CursorShape::Source s;
    s.width = width;
    s.height = height;
    s.monochrome = monochrome;
    s.andStride = (width + 31) / 32 * 4;
    s.andMask.assign(static_cast<size_t>(s.andStride) * height, 0xFF);
    s.xorStride = monochrome ? s.andStride : width * 4;
    s.xorBits.assign(static_cast<size_t>(s.xorStride) * height, 0);
    return s;
}

// Makes pixel x, y opaque: colour at 32 bpp, white (colour != 0) or black when monochrome.
void Paint(CursorShape::Source& s, int x, int y, std::uint32_t colour) {
    const std::uint8_t bit = static_cast<std::uint8_t>(0x80 >> (x % 8));
    s.andMask[y * s.andStride + x / 8] &= ~bit;
    if (s.monochrome && colour)
        s.xorBits[y * s.xorStride + x / 8] |= bit;
    if (!s.monochrome)
        std::memcpy(&s.xorBits[y * s.xorStride + x * 4], &colour, 4);
}

bool Opaque(const CursorShape& shape, int x, int y) {
    return !((shape.andMask()[y * shape.andRowBytes() + x / 8] >> (7 - x % 8)) & 1);
}

std::uint32_t Colour(const CursorShape& shape, int x, int y) {
    std::uint32_t v;
    std::memcpy(&v, &shape.xorBits()[(y * shape.width() + x) * 4], 4);
    return v;
}

// Fits source and checks what the record and the receiver's CreateIcon need of every shape.
CursorShape Fit(const CursorShape::Source& source) {
    CursorShape shape;
    EXPECT_TRUE(CursorShape::fit(source, &shape));
    EXPECT_TRUE(shape.width() % 16 == 0 && shape.width() <= 32 && shape.height() <= 32);
    EXPECT_EQ(static_cast<size_t>(shape.width() / 8 * shape.height()), shape.andMask().size());
    EXPECT_EQ(static_cast<size_t>(shape.width() * shape.height() * shape.bitsPerPixel() / 8),
              shape.xorBits().size());
    EXPECT_TRUE(shape.hotX() < shape.width() && shape.hotY() < shape.height());
    return shape;
}

// A map of width x height pixels in tiles of `tile` pixels, marked where dirty(column, row).
TileMap Marked(int width, int height, int tile, const std::function<bool(int, int)>& dirty) {
    TileMap map(width, height, tile);
    for (int r = 0; r < map.rows(); ++r)
        for (int c = 0; c < map.columns(); ++c)
            if (dirty(c, r))
                map.mark(c, r);
    return map;
}

}  // namespace

// The detector keeps check values per tile row instead of the old pixels: every visible
// change of one pixel, and two pixels exchanged, must still mark exactly their tile, read in
// strips as the detector reads them; the unused alpha byte is not a change.
TEST(TileMap, CheckValuesSeeAChangedOrExchangedPixelButNotTheAlphaByte) {
    const int width = 1366, height = 770;
    std::vector<std::uint32_t> before(static_cast<size_t>(width) * height);
    std::uint32_t seed = 5;
    for (auto& p : before)
        p = (seed = seed * 1664525u + 1013904223u) >> 8;
    auto row = [&](std::vector<std::uint32_t>& v, int y) {
        return reinterpret_cast<const std::uint8_t*>(&v[static_cast<size_t>(y) * width]);
    };
    const struct {
        int x, y, x2;  // x2 >= 0: exchange the pixels at x and x2 of row y
        std::uint32_t value;
        bool visible;
    } cases[] = {{0, 0, -1, 1, true},
                 {1365, 769, -1, 0x800000, true},
                 {700, 300, 703, 0, true},
                 {16, 16, 17, 0, true},
                 {40, 50, -1, 0xFF000000, false}};
    for (const auto& c : cases) {
        TileMap map(width, height, 16);
        std::vector<std::uint32_t> hashes(static_cast<size_t>(height) * map.columns());
        for (int y = 0; y < height; ++y)
            map.hashRow(row(before, y), &hashes[static_cast<size_t>(y) * map.columns()]);
        std::vector<std::uint32_t> after = before;
        std::uint32_t& p = after[static_cast<size_t>(c.y) * width + c.x];
        if (c.x2 >= 0)
            std::swap(p, after[static_cast<size_t>(c.y) * width + c.x2]);
        else
            p ^= c.value;
        for (int top = 0; top < height; top += 32)
            map.markHashedBand(row(after, top), width * 4, top, 32, hashes.data());
        EXPECT_EQ(c.visible ? 1 : 0, map.dirtyCount()) << c.x << "," << c.y;
        EXPECT_EQ(c.visible, map.dirty(c.x / 16, c.y / 16)) << c.x << "," << c.y;
        map.clear();
        EXPECT_FALSE(map.markHashedBand(row(after, 0), width * 4, 0, 16, hashes.data()));
    }
}

TEST(RectMerger, MergesRunsAlongRowsAndEqualRunsBelow) {
    const struct {
        std::vector<const char*> picture;
        std::vector<RECT> expected;  // tiles of 10 pixels
    } cases[] = {
        {{"....", "...."}, {}},
        {{".##.", ".##.", ".##."}, {{10, 0, 30, 30}}},
        {{"#...", "#...", "###."}, {{0, 0, 10, 20}, {0, 20, 30, 30}}},
        {{"#..##", "#..##"}, {{0, 0, 50, 20}}},
        {{"#...#", "#...#"}, {{0, 0, 10, 20}, {40, 0, 50, 20}}},
    };
    for (const auto& [picture, expected] : cases) {
        const TileMap map = Marked(
            static_cast<int>(std::strlen(picture[0])) * 10, static_cast<int>(picture.size()) * 10,
            10, [&, &picture = picture](int c, int r) { return picture[r][c] == '#'; });
        EXPECT_EQ(expected, RectMerger::merge(map, 513)) << picture[0];
    }
}

TEST(RectMerger, RectanglesStayOnTheScreenWithinTheLimitAndCoverEveryTile) {
    // 16-pixel tiles on a screen whose size is not a multiple of them: a checkerboard (one
    // coarsening makes it one rectangle) and a diagonal (each coarsening only halves it).
    const RECT screen{0, 0, 1366, 770};
    for (bool diagonal : {false, true}) {
        const TileMap map = Marked(screen.right, screen.bottom, 16, [&](int c, int r) {
            return diagonal ? c == r : (c + r) % 2 == 0;
        });
        for (size_t limit : {513, 7, 1}) {
            const std::vector<RECT> rects = RectMerger::merge(map, limit);
            EXPECT_LE(rects.size(), limit);
            for (const RECT& rc : rects) {
                RECT clipped;
                EXPECT_TRUE(IntersectRect(&clipped, &rc, &screen) && clipped == rc);
            }
            // Both corners of every dirty tile, the partial ones clipped to the screen.
            for (int r = 0; r < map.rows(); ++r) {
                for (int c = 0; c < map.columns(); ++c) {
                    for (POINT p : {POINT{c * 16, r * 16},
                                    POINT{std::min(c * 16 + 15, 1365), std::min(r * 16 + 15, 769)}})
                        ASSERT_TRUE(!map.dirty(c, r) ||
                                    std::any_of(rects.begin(), rects.end(),
                                                [&](const RECT& rc) { return PtInRect(&rc, p); }))
                            << p.x << "," << p.y << " limit " << limit;
                }
            }
        }
    }
}

TEST(CursorShape, NarrowShapesArePaddedTransparent) {
    CursorShape::Source narrow = Transparent(20, 24, false);
    for (int x = 0; x < 20; ++x)
        Paint(narrow, x, 10, 0xFF000000 | x);
    const CursorShape shape = Fit(narrow);
    EXPECT_EQ(32, shape.width());
    EXPECT_EQ(24, shape.height());
    for (int x = 0; x < 32; ++x) {
        EXPECT_EQ(x < 20, Opaque(shape, x, 10)) << x;
        EXPECT_EQ(x < 20 ? 0xFF000000u | x : 0u, Colour(shape, x, 10)) << x;
    }
}

TEST(CursorShape, LargeShapesAreCroppedToTheirContentOrScaledKeepingThinLines) {
    CursorShape::Source small = Transparent(64, 64, false);
    small.hotX = 41;
    small.hotY = 31;
    for (int y = 30; y < 42; ++y)
        for (int x = 40; x < 50; ++x)
            Paint(small, x, y, 0xFF000000 | (x << 8) | y);
    const CursorShape cropped = Fit(small);
    const int dx = 41 - cropped.hotX(), dy = 31 - cropped.hotY();
    for (int y = 30; y < 42; ++y)
        for (int x = 40; x < 50; ++x)
            ASSERT_EQ(0xFF000000u | (x << 8) | y, Colour(cropped, x - dx, y - dy));

    CursorShape::Source large = Transparent(64, 48, true);
    large.hotX = 63;
    large.hotY = 47;
    for (int y = 0; y < 48; ++y)
        Paint(large, y + 16, y, 1);  // one-pixel diagonal
    for (int x = 0; x < 64; ++x)
        Paint(large, x, 0, 1);
    const CursorShape scaled = Fit(large);
    EXPECT_EQ((std::vector<int>{32, 24, 31, 23}),
              (std::vector<int>{scaled.width(), scaled.height(), scaled.hotX(), scaled.hotY()}));
    for (int y = 0; y < scaled.height(); ++y) {
        int opaque = 0;
        for (int x = 0; x < scaled.width(); ++x)
            opaque += Opaque(scaled, x, y);
        EXPECT_GE(opaque, 1) << "row " << y;
    }
}

TEST(CursorChanges, ChangesBetweenFetchesMergeIntoOneRecordTheReceiverParses) {
    CursorChanges changes;
    HANDLE event = nullptr;
    EXPECT_FALSE(changes.open(&event, 4255));
    ASSERT_TRUE(changes.open(&event, 4256));
    CursorShape::Source a = Transparent(32, 32, true), b = Transparent(32, 32, false);
    for (int i = 0; i < 32; ++i)
        Paint(a, i, i, i % 2);
    Paint(b, 31, 31, 0xFFFF0000);
    const CursorShape shapeA = Fit(a), shapeB = Fit(b);
    EXPECT_EQ(1, shapeA.bitsPerPixel());
    EXPECT_EQ(a.andMask, shapeA.andMask()) << "a shape of 32 keeps every pixel";
    EXPECT_EQ(a.xorBits, shapeA.xorBits());

    changes.add(packet::kCursorNewShape, POINT{11, 11}, shapeB);
    changes.add(packet::kCursorNewShape, POINT{11, 11}, shapeA);
    changes.add(packet::kCursorNewPosition, POINT{-12, 13}, shapeB);  // shape not new: ignored
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, 0));
    BYTE* record = nullptr;
    ASSERT_TRUE(changes.take(&record));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event, 0));
    packet::CursorRecordView view;
    ASSERT_EQ(packet::CursorError::None, packet::ParseCursorRecord(record, 4256, &view));
    EXPECT_EQ(3u, view.record.flags);
    EXPECT_EQ(-12, view.record.x);
    EXPECT_EQ(13, view.record.y);
    std::vector<std::uint8_t> masks = shapeA.andMask();
    masks.insert(masks.end(), shapeA.xorBits().begin(), shapeA.xorBits().end());
    EXPECT_EQ(masks, std::vector<std::uint8_t>(view.andMask, view.xorBits + view.xorBitsSize));
    record[0] = 0;  // the capture edits the record in place
    EXPECT_FALSE(changes.take(&record));
    // The largest shape needs all of the registered buffer.
    EXPECT_EQ(0u, CursorRecord::Write(record, 4255, 1, POINT{}, shapeB));
}
