// Update region on the banded region engine (see UpdateRegion.h).
#include "stream/UpdateRegion.h"

#include <climits>
#include <cstdint>
#include <new>
#include <utility>

namespace vantrel {

namespace {

LONG RoundUp8(LONG v) noexcept {
    const int64_t up = (static_cast<int64_t>(v) + 7) & ~int64_t{7};
    return up > INT_MAX ? static_cast<LONG>(INT_MAX & ~7) : static_cast<LONG>(up);
}

}  // namespace

RECT UpdateRegion::SnapToGrid(const RECT& r) noexcept {
    return RECT{r.left & ~LONG{7}, r.top & ~LONG{7}, RoundUp8(r.right), RoundUp8(r.bottom)};
}

void UpdateRegion::AddRect(const RECT* r) noexcept {
    // An empty or inverted rectangle adds nothing (a GDI rectangle region would have turned an
    // inverted one the right way round); running out of memory keeps the previous area.
    if (r)
        region_.Union(SnapToGrid(*r));
}

void UpdateRegion::Empty() noexcept {
    region_.Clear();
}

bool UpdateRegion::PrependRects(const BandedRegion& region, RectList& list) noexcept {
    if (region.IsEmpty())
        return false;
    // Built aside and spliced, so that running out of memory leaves the list as it was.
    try {
        RectList fresh;
        for (const RECT& r : region.Rects())
            fresh.push_front(r);
        list.splice(list.begin(), fresh);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool UpdateRegion::GetRects(RectList& list) const noexcept {
    return PrependRects(region_, list);
}

bool UpdateRegion::GetRectsIn(RectList& list, const RECT* clip) const noexcept {
    if (!clip)
        return false;
    // The clip is taken as a rectangle region is made of it: snapped, then turned the right way
    // round.
    RECT s = SnapToGrid(*clip);
    if (s.left > s.right)
        std::swap(s.left, s.right);
    if (s.top > s.bottom)
        std::swap(s.top, s.bottom);
    BandedRegion t;
    if (region_.IsEmpty()) {
        if (!t.Union(s))
            return false;
        // A clip of no area still makes a (empty) region: the list decides the answer.
        if (t.IsEmpty())
            return !list.empty();
    } else if (!region_.Intersection(s, &t) || t.IsEmpty()) {
        return false;
    }
    return PrependRects(t, list);
}

bool UpdateRegion::GetBoundingBox(RECT* box) const noexcept {
    if (region_.IsEmpty() || !box)
        return false;
    *box = region_.Bounds();
    return true;
}

}  // namespace vantrel
