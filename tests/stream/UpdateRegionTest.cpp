// Update region: grid snapping, merging, the order rectangles come back in, clipping, and the
// bounding box.
#include <windows.h>

#include <ostream>
#include <vector>

#include <gtest/gtest.h>

#include "stream/UpdateRegion.h"

using vantrel::UpdateRegion;

// RECT lives in the global namespace: so must its comparison and printer, for lookup by ADL.
bool operator==(const RECT& a, const RECT& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

void PrintTo(const RECT& r, std::ostream* os) {
    *os << "{" << r.left << "," << r.top << "," << r.right << "," << r.bottom << "}";
}

namespace {

using Rects = std::vector<RECT>;

Rects ToVector(const UpdateRegion::RectList& list) {
    return Rects(list.begin(), list.end());
}

UpdateRegion With(const Rects& added) {
    UpdateRegion region;
    for (const RECT& r : added)
        region.AddRect(&r);
    return region;
}

Rects RectsOf(const UpdateRegion& region, bool expected = true) {
    UpdateRegion::RectList list;
    EXPECT_EQ(expected, region.GetRects(list));
    return ToVector(list);
}

struct MergeCase {
    const char* name;
    Rects added;
    Rects expected;  // as GetRects returns them
};

void PrintTo(const MergeCase& c, std::ostream* os) {
    *os << c.name;
}

class Merge : public testing::TestWithParam<MergeCase> {};

TEST_P(Merge, SnapsMergesAndListsInReverseRegionOrder) {
    EXPECT_EQ(GetParam().expected, RectsOf(With(GetParam().added)));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Merge,
    testing::Values(MergeCase{"one_pixel_snaps_to_a_cell", {{1, 1, 2, 2}}, {{0, 0, 8, 8}}},
                    MergeCase{"neighbours_merge", {{0, 0, 8, 8}, {8, 0, 16, 8}}, {{0, 0, 16, 8}}},
                    MergeCase{"far_apart_bottom_first",
                              {{0, 0, 8, 8}, {96, 96, 104, 104}},
                              {{96, 96, 104, 104}, {0, 0, 8, 8}}},
                    MergeCase{"one_band_right_to_left",
                              {{0, 0, 8, 8}, {40, 0, 48, 8}, {80, 0, 81, 1}},
                              {{80, 0, 88, 8}, {40, 0, 48, 8}, {0, 0, 8, 8}}},
                    MergeCase{"negative_rounds_down", {{-3, -3, 2, 2}}, {{-8, -8, 8, 8}}},
                    MergeCase{"odd_rectangle", {{3, 5, 10, 9}}, {{0, 0, 16, 16}}},
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
    EXPECT_EQ((RECT{1, 2, 3, 4}), box);
    EXPECT_EQ(Rects(), RectsOf(region, false));

    const RECT empty{8, 8, 8, 8};
    region.AddRect(&empty);
    region.AddRect(nullptr);
    EXPECT_FALSE(region.GetBoundingBox(&box));
    EXPECT_EQ((RECT{1, 2, 3, 4}), box);

    const RECT r{1, 1, 2, 2};
    region.AddRect(&r);
    region.Empty();
    EXPECT_FALSE(region.GetBoundingBox(&box));
    EXPECT_EQ(Rects(), RectsOf(region, false));
}

TEST(UpdateRegionState, BoundingBoxCoversEveryPart) {
    const UpdateRegion region = With({{0, 0, 8, 8}, {96, 96, 104, 104}});
    RECT box{};
    ASSERT_TRUE(region.GetBoundingBox(&box));
    EXPECT_EQ((RECT{0, 0, 104, 104}), box);
}

TEST(UpdateRegionLists, NewRectanglesGoInFrontOfTheListsContents) {
    const UpdateRegion region = With({{0, 0, 8, 8}, {96, 96, 104, 104}});
    UpdateRegion::RectList list = {RECT{500, 500, 508, 508}};
    EXPECT_TRUE(region.GetRects(list));
    EXPECT_EQ((Rects{{96, 96, 104, 104}, {0, 0, 8, 8}, {500, 500, 508, 508}}), ToVector(list));

    // With no region: false and the list untouched, even though it is not empty.
    UpdateRegion none;
    EXPECT_FALSE(none.GetRects(list));
    EXPECT_EQ(3u, list.size());
}

struct ClipCase {
    const char* name;
    Rects added;
    RECT clip;
    bool result;
    Rects expected;
};

void PrintTo(const ClipCase& c, std::ostream* os) {
    *os << c.name;
}

class Clip : public testing::TestWithParam<ClipCase> {};

TEST_P(Clip, IntersectsWithTheSnappedClip) {
    const ClipCase& c = GetParam();
    const UpdateRegion region = With(c.added);
    UpdateRegion::RectList list;
    EXPECT_EQ(c.result, region.GetRectsIn(list, &c.clip));
    EXPECT_EQ(c.expected, ToVector(list));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Clip,
    testing::Values(
        ClipCase{"no_region_gives_the_clip", {}, {0, 0, 1024, 768}, true, {{0, 0, 1024, 768}}},
        ClipCase{"no_region_snaps_the_clip", {}, {3, 3, 13, 13}, true, {{0, 0, 16, 16}}},
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

TEST(UpdateRegionLists, ClippedQueryLeavesTheRegionAlone) {
    const UpdateRegion region = With({{0, 0, 8, 8}, {96, 96, 104, 104}});
    UpdateRegion::RectList list;
    const RECT clip{0, 0, 8, 8};
    ASSERT_TRUE(region.GetRectsIn(list, &clip));
    EXPECT_EQ((Rects{{96, 96, 104, 104}, {0, 0, 8, 8}}), RectsOf(region));
}

}  // namespace
