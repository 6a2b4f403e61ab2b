// Update region on GDI regions (see UpdateRegion.h).
#include "stream/UpdateRegion.h"

#include <climits>
#include <cstdint>
#include <memory>
#include <new>

namespace vantrel {

namespace {

LONG RoundUp8(LONG v) noexcept {
    const int64_t up = (static_cast<int64_t>(v) + 7) & ~int64_t{7};
    return up > INT_MAX ? static_cast<LONG>(INT_MAX & ~7) : static_cast<LONG>(up);
}

bool IsEmpty(const RECT& r) noexcept {
    return r.right <= r.left || r.bottom <= r.top;
}

}  // namespace

RECT UpdateRegion::SnapToGrid(const RECT& r) noexcept {
    return RECT{r.left & ~7L, r.top & ~7L, RoundUp8(r.right), RoundUp8(r.bottom)};
}

void UpdateRegion::AddRect(const RECT* r) noexcept {
    if (!r)
        return;
    const RECT s = SnapToGrid(*r);
    // CreateRectRgn would turn an inverted rectangle the right way round and add it.
    if (IsEmpty(s))
        return;
    if (!region_) {
        region_.reset(CreateRectRgnIndirect(&s));
        return;
    }
    UniqueRgn add(CreateRectRgnIndirect(&s));
    if (!add)
        return;
    if (CombineRgn(region_.get(), region_.get(), add.get(), RGN_OR) == NULLREGION)
        region_.reset();
}

void UpdateRegion::Empty() noexcept {
    region_.reset();
}

bool UpdateRegion::PrependRects(HRGN region, RectList& list) noexcept {
    if (!region)
        return false;
    const DWORD size = GetRegionData(region, 0, nullptr);
    if (size < sizeof(RGNDATAHEADER))
        return false;
    std::unique_ptr<BYTE[]> buffer(new (std::nothrow) BYTE[size]);
    if (!buffer)
        return false;
    auto* data = reinterpret_cast<RGNDATA*>(buffer.get());
    if (GetRegionData(region, size, data) && data->rdh.nCount > 0) {
        const DWORD fit = (size - sizeof(RGNDATAHEADER)) / sizeof(RECT);
        const DWORD count = data->rdh.nCount < fit ? data->rdh.nCount : fit;
        const auto* rects = reinterpret_cast<const RECT*>(data->Buffer);
        // Built aside and spliced, so that running out of memory leaves the list as it was.
        try {
            RectList fresh;
            for (DWORD i = 0; i < count; ++i)
                fresh.push_front(rects[i]);
            list.splice(list.begin(), fresh);
        } catch (const std::bad_alloc&) {
            return false;
        }
    }
    return !list.empty();
}

bool UpdateRegion::GetRects(RectList& list) const noexcept {
    return PrependRects(region_.get(), list);
}

bool UpdateRegion::GetRectsIn(RectList& list, const RECT* clip) const noexcept {
    if (!clip)
        return false;
    const RECT s = SnapToGrid(*clip);
    UniqueRgn t(CreateRectRgnIndirect(&s));
    if (region_ && t) {
        const int kind = CombineRgn(t.get(), t.get(), region_.get(), RGN_AND);
        if (kind == NULLREGION || kind == ERROR)
            t.reset();
    }
    return PrependRects(t.get(), list);
}

bool UpdateRegion::GetBoundingBox(RECT* box) const noexcept {
    if (!region_ || !box)
        return false;
    const int kind = GetRgnBox(region_.get(), box);
    return kind == SIMPLEREGION || kind == COMPLEXREGION;
}

}  // namespace vantrel
