// Update region: grid snapping, merging, the order rectangles come back in, clipping and the
// bounding box against what GDI's own regions give for the same rectangles, on desktops far
// larger than the per-pixel model of the fuzz target `region` (which also covers the state
// without rectangles and lists that already hold some).
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "common/ScreenTestSupport.h"
#include "stream/UpdateRegion.h"

using vantrel::UniqueRgn;
using vantrel::UpdateRegion;

namespace {

using Rects = std::vector<RECT>;

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
        region.AddRect(nullptr);
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

            const std::string where = "set " + std::to_string(set) + " step " +
                                      std::to_string(step) + " clip " +
                                      testing::PrintToString(clip);
            const Rects expected = Reversed(GdiRects(gdi.get()));
            UpdateRegion::RectList list;
            ASSERT_EQ(!expected.empty(), region.GetRects(list)) << where;
            ASSERT_EQ(expected, Rects(list.begin(), list.end())) << where;
            ASSERT_EQ(static_cast<bool>(gdi), hasBox) << where;
            if (gdi) {
                ASSERT_EQ(gdiBox, box) << where;
            }
            ASSERT_EQ(Reversed(GdiRects(cut.get())), Rects(clipped.begin(), clipped.end()))
                << where;
            ++compared;
        }
    }
    EXPECT_GT(compared, 20000);
}

}  // namespace
