// Update region: grid snapping, merging, the order rectangles come back in, clipping, and the
// bounding box; and that all of these equal what GDI's own regions give for the same rectangles.
#include <windows.h>

#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stream/UpdateRegion.h"
#include "wincom/UniqueHandle.h"

using vantrel::UniqueRgn;
using vantrel::UpdateRegion;

// RECT lives in the global namespace: so must its comparison and printer, for lookup by ADL.
bool operator==(const RECT& a, const RECT& b) {
    return EqualRect(&a, &b) != FALSE;
}
void PrintTo(const RECT& r, std::ostream* os) {
    *os << "{" << r.left << "," << r.top << "," << r.right << "," << r.bottom << "}";
}

namespace {

using Rects = std::vector<RECT>;

UpdateRegion With(const Rects& added) {
    UpdateRegion region;
    for (const RECT& r : added)
        region.AddRect(&r);
    return region;
}

Rects RectsOf(const UpdateRegion& region, bool expected = true) {
    UpdateRegion::RectList list;
    EXPECT_EQ(expected, region.GetRects(list));
    return Rects(list.begin(), list.end());
}

struct MergeCase {
    const char* name;
    Rects added;
    Rects expected;  // as GetRects returns them
};
class Merge : public testing::TestWithParam<MergeCase> {};

TEST_P(Merge, SnapsMergesAndListsInReverseRegionOrder) {
    EXPECT_EQ(GetParam().expected, RectsOf(With(GetParam().added)));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Merge,
    testing::Values(MergeCase{"odd_rectangle_snaps_outward", {{3, 5, 10, 9}}, {{0, 0, 16, 16}}},
                    MergeCase{"neighbours_merge", {{0, 0, 8, 8}, {8, 0, 16, 8}}, {{0, 0, 16, 8}}},
                    MergeCase{"far_apart_bottom_first",
                              {{0, 0, 8, 8}, {96, 96, 104, 104}},
                              {{96, 96, 104, 104}, {0, 0, 8, 8}}},
                    MergeCase{"one_band_right_to_left",
                              {{0, 0, 8, 8}, {40, 0, 48, 8}, {80, 0, 81, 1}},
                              {{80, 0, 88, 8}, {40, 0, 48, 8}, {0, 0, 8, 8}}},
                    MergeCase{"negative_rounds_down", {{-3, -3, 2, 2}}, {{-8, -8, 8, 8}}},
                    MergeCase{"overlap_is_counted_once",
                              {{0, 0, 16, 16}, {8, 8, 24, 24}},
                              {{8, 16, 24, 24}, {0, 8, 24, 16}, {0, 0, 16, 8}}},
                    MergeCase{"empty_and_inverted_add_nothing",
                              {{8, 8, 8, 8}, {20, 0, 4, 8}, {100, 100, 101, 101}},
                              {{96, 96, 104, 104}}}),
    [](const testing::TestParamInfo<MergeCase>& info) { return info.param.name; });

TEST(UpdateRegionState, NoRegionUntilSomethingIsAdded) {
    UpdateRegion region;
    RECT box{1, 2, 3, 4};
    EXPECT_FALSE(region.GetBoundingBox(&box));
    EXPECT_EQ(Rects(), RectsOf(region, false));
    const RECT empty{8, 8, 8, 8}, r{1, 1, 2, 2};
    region.AddRect(&empty);
    region.AddRect(nullptr);
    EXPECT_FALSE(region.GetBoundingBox(&box));
    EXPECT_EQ((RECT{1, 2, 3, 4}), box);
    region.AddRect(&r);
    region.Empty();
    EXPECT_FALSE(region.GetBoundingBox(&box));
    EXPECT_EQ(Rects(), RectsOf(region, false));
}

TEST(UpdateRegionLists, NewRectanglesGoInFrontAndAClippedQueryLeavesTheRegionAlone) {
    const UpdateRegion region = With({{0, 0, 8, 8}, {96, 96, 104, 104}});
    RECT box{};
    ASSERT_TRUE(region.GetBoundingBox(&box));
    EXPECT_EQ((RECT{0, 0, 104, 104}), box);
    UpdateRegion::RectList list = {RECT{500, 500, 508, 508}};
    const RECT clip{0, 0, 8, 8};
    EXPECT_TRUE(region.GetRectsIn(list, &clip));
    EXPECT_TRUE(region.GetRects(list));
    EXPECT_EQ((Rects{{96, 96, 104, 104}, {0, 0, 8, 8}, {0, 0, 8, 8}, {500, 500, 508, 508}}),
              Rects(list.begin(), list.end()));
    // With no region: false and the list untouched, even though it is not empty.
    EXPECT_FALSE(UpdateRegion().GetRects(list));
    EXPECT_EQ(4u, list.size());
}

struct ClipCase {
    const char* name;
    Rects added;
    RECT clip;
    bool result;
    Rects expected;
};
class Clip : public testing::TestWithParam<ClipCase> {};

TEST_P(Clip, IntersectsWithTheSnappedClip) {
    const ClipCase& c = GetParam();
    UpdateRegion::RectList list;
    EXPECT_EQ(c.result, With(c.added).GetRectsIn(list, &c.clip));
    EXPECT_EQ(c.expected, Rects(list.begin(), list.end()));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Clip,
    testing::Values(
        ClipCase{"no_region_gives_the_snapped_clip", {}, {3, 3, 13, 13}, true, {{0, 0, 16, 16}}},
        ClipCase{"clip_snapped_before_the_cut",
                 {{96, 96, 112, 112}},
                 {0, 0, 100, 100},
                 true,
                 {{96, 96, 104, 104}}},
        ClipCase{"disjoint_gives_nothing", {{200, 200, 208, 208}}, {0, 0, 100, 100}, false, {}},
        ClipCase{"keeps_the_order",
                 {{0, 0, 8, 8}, {96, 96, 104, 104}, {300, 300, 308, 308}},
                 {0, 0, 200, 200},
                 true,
                 {{96, 96, 104, 104}, {0, 0, 8, 8}}}),
    [](const testing::TestParamInfo<ClipCase>& info) { return info.param.name; });

// The rectangles of a GDI region in its region-data order (none for no region).
Rects GdiRects(HRGN region) {
    if (!region)
        return {};
    const DWORD size = GetRegionData(region, 0, nullptr);
    std::unique_ptr<BYTE[]> buffer(new BYTE[size]);
    auto* data = reinterpret_cast<RGNDATA*>(buffer.get());
    if (!GetRegionData(region, size, data))
        return {};
    const auto* rects = reinterpret_cast<const RECT*>(data->Buffer);
    return Rects(rects, rects + data->rdh.nCount);
}

Rects Reversed(Rects v) {
    return Rects(v.rbegin(), v.rend());
}

// Random rectangles on a few cells, a screen and a wide desktop with negative coordinates, some
// of them empty or inverted, added one by one to an UpdateRegion and to a GDI region of the same
// snapped rectangles: after every step both list the same rectangles in the same order, with the
// same bounding box, and cut the same rectangles out of a random clip.
TEST(UpdateRegionGdi, ListsOrderBoxAndClipsEqualAGdiRegion) {
    std::mt19937 rng(20240601);
    int compared = 0;
    for (int set = 0; set < 1500; ++set) {
        const int spans[] = {48, 800, 6000};
        const int span = spans[set % 3];
        auto coordinate = [&] { return static_cast<LONG>(rng() % (span + span / 4)) - span / 4; };
        auto rectangle = [&] {
            RECT r{coordinate(), coordinate(), 0, 0};
            const int size = rng() % 4 == 0 ? span : span / 8 + 2;
            r.right = r.left + static_cast<LONG>(rng() % size) - (rng() % 16 == 0 ? size / 2 : 0);
            r.bottom = r.top + static_cast<LONG>(rng() % size) - (rng() % 16 == 0 ? size / 2 : 0);
            return r;
        };
        UpdateRegion region;
        UniqueRgn gdi;
        const int count = 1 + rng() % 40;
        for (int step = 0; step < count; ++step) {
            const RECT r = rectangle();
            region.AddRect(&r);
            const RECT s = UpdateRegion::SnapToGrid(r);
            if (s.right > s.left && s.bottom > s.top) {
                UniqueRgn add(CreateRectRgnIndirect(&s));
                ASSERT_TRUE(add);
                if (!gdi)
                    gdi = std::move(add);
                else
                    ASSERT_NE(ERROR, CombineRgn(gdi.get(), gdi.get(), add.get(), RGN_OR));
            }

            const RECT clip = rectangle();
            const RECT snappedClip = UpdateRegion::SnapToGrid(clip);
            UniqueRgn cut(CreateRectRgnIndirect(&snappedClip));
            ASSERT_TRUE(cut);
            if (gdi && CombineRgn(cut.get(), cut.get(), gdi.get(), RGN_AND) == NULLREGION)
                cut.reset();
            RECT box{-1, -1, -1, -1}, gdiBox{-1, -1, -1, -1};
            const bool hasBox = region.GetBoundingBox(&box);
            if (gdi)
                GetRgnBox(gdi.get(), &gdiBox);
            UpdateRegion::RectList clipped;
            region.GetRectsIn(clipped, &clip);

            const std::string where =
                "set " + std::to_string(set) + " step " + std::to_string(step);
            const Rects expected = Reversed(GdiRects(gdi.get()));
            const Rects got = RectsOf(region, !expected.empty());
            if (got != expected || hasBox != static_cast<bool>(gdi) || (gdi && !(box == gdiBox)) ||
                Rects(clipped.begin(), clipped.end()) != Reversed(GdiRects(cut.get()))) {
                EXPECT_EQ(expected, got) << where;
                EXPECT_EQ(gdiBox, box) << where;
                EXPECT_EQ(Reversed(GdiRects(cut.get())), Rects(clipped.begin(), clipped.end()))
                    << where << " clip " << clip.left << "," << clip.top << "," << clip.right << ","
                    << clip.bottom;
                return;
            }
            ++compared;
        }
    }
    EXPECT_GT(compared, 20000);
}

}  // namespace
