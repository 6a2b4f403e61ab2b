// The update region against a plain model: every pixel of a small desktop (-48 to 112 on both
// axes) as a bit. The input is a sequence of operations, each an op byte and its rectangles:
//   0 AddRect, 1 Empty, 2 GetRects, 3 GetRectsIn, 4 GetBoundingBox (op byte % 5);
//   bit 3: the list given to GetRects / GetRectsIn already holds a rectangle;
//   bit 4: AddRect takes full 32-bit coordinates instead of small ones (the model is then
//          left behind and only the form of the answers is checked until the next Empty).
// Rectangles are four coordinates: small ones one signed byte each (-48..79 after a fold),
// full ones four bytes. The answers must be the model's pixels in GDI's banded form, in its
// order (reversed by the list), with its bounding box.
#include <algorithm>
#include <array>
#include <bitset>
#include <cstdint>
#include <vector>

#include "FuzzSupport.h"
#include "stream/UpdateRegion.h"

using vantrel::UpdateRegion;
using vantrel::fuzz::Input;

// RECT lives in the global namespace: so must its comparison, for lookup by ADL.
bool operator==(const RECT& a, const RECT& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

namespace {

constexpr int kOrigin = -48;
constexpr int kSide = 160;  // covers every snapped small rectangle: -48 .. 112
const RECT kSentinel{1, 2, 3, 5};

using Rects = std::vector<RECT>;

class Model {
  public:
    void Clear() { rows_.fill(Row()); }
    bool IsEmpty() const {
        return std::all_of(rows_.begin(), rows_.end(), [](const Row& r) { return r.none(); });
    }
    void Add(const RECT& r) {
        const Row mask = Mask(r.left, r.right);
        for (int y = std::max<LONG>(r.top, kOrigin); y < std::min<LONG>(r.bottom, kOrigin + kSide);
             ++y)
            rows_[y - kOrigin] |= mask;
    }
    // The pixels of this model inside r (all of r's pixels when `all`).
    Model Cut(const RECT& r, bool all) const {
        Model m;
        m.Add(r);
        if (!all)
            for (int y = 0; y < kSide; ++y)
                m.rows_[y] &= rows_[y];
        return m;
    }
    // The banded form: runs of equal rows, top to bottom, spans left to right.
    Rects Bands() const {
        Rects out;
        size_t band = 0;
        for (int y = 0; y < kSide; ++y) {
            const Row& row = rows_[y];
            if (row.none())
                continue;
            if (y > 0 && row == rows_[y - 1]) {
                for (size_t i = band; i < out.size(); ++i)
                    out[i].bottom = kOrigin + y + 1;
                continue;
            }
            band = out.size();
            for (int x = 0; x < kSide;) {
                if (!row[x]) {
                    ++x;
                    continue;
                }
                const int left = x;
                while (x < kSide && row[x])
                    ++x;
                out.push_back(RECT{kOrigin + left, kOrigin + y, kOrigin + x, kOrigin + y + 1});
            }
        }
        return out;
    }
    RECT Box() const {
        const Rects bands = Bands();
        RECT box{bands.front().left, bands.front().top, bands.front().right, bands.back().bottom};
        for (const RECT& r : bands) {
            box.left = std::min(box.left, r.left);
            box.right = std::max(box.right, r.right);
        }
        return box;
    }

  private:
    using Row = std::bitset<kSide>;
    // The pixels [left, right) of a row.
    static Row Mask(LONG left, LONG right) {
        const int l = std::clamp<LONG>(left, kOrigin, kOrigin + kSide) - kOrigin;
        const int r = std::clamp<LONG>(right, kOrigin, kOrigin + kSide) - kOrigin;
        Row m;
        for (int x = l; x < r; ++x)
            m.set(x);
        return m;
    }
    std::array<Row, kSide> rows_{};
};

RECT SmallRect(Input& in) {
    auto c = [&in] { return static_cast<LONG>(in.U8() % 128) + kOrigin; };
    const LONG left = c(), top = c(), right = c(), bottom = c();
    return RECT{left, top, right, bottom};
}

RECT WideRect(Input& in) {
    auto c = [&in] { return static_cast<LONG>(in.U32()); };
    const LONG left = c(), top = c(), right = c(), bottom = c();
    return RECT{left, top, right, bottom};
}

// The list's new rectangles, back in region order, after checking the list's old part.
Rects Taken(const UpdateRegion::RectList& list, bool prefilled) {
    Rects v(list.rbegin(), list.rend());
    if (prefilled) {
        FUZZ_CHECK(!v.empty() && v.front() == kSentinel);
        v.erase(v.begin());
    }
    return v;
}

// The banded form's own rules, for answers the model cannot follow.
void CheckForm(const Rects& rects) {
    for (size_t i = 0; i < rects.size(); ++i) {
        const RECT& r = rects[i];
        FUZZ_CHECK(r.left < r.right && r.top < r.bottom);
        FUZZ_CHECK(r.left % 8 == 0 && r.top % 8 == 0 && r.right % 8 == 0 && r.bottom % 8 == 0);
        if (i == 0)
            continue;
        const RECT& p = rects[i - 1];
        if (p.top == r.top)
            FUZZ_CHECK(p.bottom == r.bottom && p.right < r.left);
        else
            FUZZ_CHECK(p.bottom <= r.top);
    }
}

void CheckSnap(const RECT& r) {
    const RECT s = UpdateRegion::SnapToGrid(r);
    FUZZ_CHECK(s.left % 8 == 0 && s.left <= r.left && r.left - s.left < 8);
    FUZZ_CHECK(s.top % 8 == 0 && s.top <= r.top && r.top - s.top < 8);
    FUZZ_CHECK(s.right % 8 == 0 && s.right >= r.right && s.right - r.right < 8);
    FUZZ_CHECK(s.bottom % 8 == 0 && s.bottom >= r.bottom && s.bottom - r.bottom < 8);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in(data, size);
    UpdateRegion region;
    Model model;
    bool followed = true;  // the model holds the region's pixels
    while (in.Left()) {
        const uint8_t op = in.U8();
        const bool prefilled = op & 8;
        UpdateRegion::RectList list;
        if (prefilled)
            list.push_back(kSentinel);
        switch (op % 5) {
            case 0: {
                const RECT r = op & 16 ? WideRect(in) : SmallRect(in);
                region.AddRect(&r);
                if (op & 16) {
                    followed = false;
                } else {
                    CheckSnap(r);
                    model.Add(UpdateRegion::SnapToGrid(r));
                }
                break;
            }
            case 1:
                region.Empty();
                model.Clear();
                followed = true;
                break;
            case 2: {
                const bool some = region.GetRects(list);
                const Rects rects = Taken(list, prefilled);
                CheckForm(rects);
                FUZZ_CHECK(some == !rects.empty());
                if (followed)
                    FUZZ_CHECK(rects == model.Bands());
                break;
            }
            case 3: {
                const RECT clip = SmallRect(in);
                RECT s = UpdateRegion::SnapToGrid(clip);
                if (s.left > s.right)
                    std::swap(s.left, s.right);
                if (s.top > s.bottom)
                    std::swap(s.top, s.bottom);
                RECT box;
                const bool any = region.GetBoundingBox(&box);
                const bool some = region.GetRectsIn(list, &clip);
                const Rects rects = Taken(list, prefilled);
                CheckForm(rects);
                for (const RECT& r : rects)
                    FUZZ_CHECK(r.left >= s.left && r.right <= s.right && r.top >= s.top &&
                               r.bottom <= s.bottom);
                // With no region, the clip itself; a region that misses it gives nothing,
                // not even the list's old contents.
                if (!any)
                    FUZZ_CHECK(some == (prefilled || !rects.empty()));
                else
                    FUZZ_CHECK(some == !rects.empty());
                if (followed)
                    FUZZ_CHECK(rects == model.Cut(s, !any).Bands());
                break;
            }
            default: {
                RECT box = kSentinel;
                const bool any = region.GetBoundingBox(&box);
                UpdateRegion::RectList all;
                FUZZ_CHECK(any == region.GetRects(all));
                if (!any)
                    FUZZ_CHECK(box == kSentinel);
                if (followed) {
                    FUZZ_CHECK(any == !model.IsEmpty());
                    if (any)
                        FUZZ_CHECK(box == model.Box());
                }
                break;
            }
        }
    }
    return 0;
}
