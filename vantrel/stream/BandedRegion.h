// A set of pixels kept as y-x banded rectangles, the form GDI's regions have and hand out: bands
// from top to bottom, each a run of rows with the same spans; the rectangles of a band share its
// top and bottom and go left to right, neither overlapping nor touching; two bands that touch
// vertically have different spans (equal ones would be one band). A set has exactly one such
// form, so the rectangles, their order and the bounds are those GetRegionData and GetRgnBox give
// for the same area. UpdateRegion's engine; pure C++, so the native fuzz build has it too.
#pragma once

#include <vector>

#include "wincom/WinTypes.h"

namespace vantrel {

class BandedRegion {
  public:
    bool IsEmpty() const noexcept { return rects_.empty(); }
    // In band order: top to bottom, left to right within a band.
    const std::vector<RECT>& Rects() const noexcept { return rects_; }
    // The smallest rectangle holding every pixel; all zeros when empty.
    RECT Bounds() const noexcept;

    void Clear() noexcept { rects_.clear(); }
    // Adds the pixels of r (nothing when r has no area: right <= left or bottom <= top). False,
    // with the region as it was, when memory runs out.
    bool Union(const RECT& r) noexcept;
    // *out = this region AND clip. False when memory runs out (*out is then empty).
    bool Intersection(const RECT& clip, BandedRegion* out) const noexcept;

  private:
    std::vector<RECT> rects_;
    std::vector<RECT> scratch_;  // Union builds here, then swaps
};

}  // namespace vantrel
