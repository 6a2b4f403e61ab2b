// Changed areas of a desktop, collected as one region on the 8-pixel grid and handed back as a
// list of rectangles. The encoder merges each screen update in one before grabbing; the
// shared-memory server gathers what applied packets changed until its publishing thread takes
// it. The region is a BandedRegion: the rectangles, their order and the bounding box are those a
// GDI region of the same area gives. Not thread-safe: each owner uses it on one thread or under
// a lock of its own.
#pragma once

#include <list>

#include "stream/BandedRegion.h"
#include "wincom/WinTypes.h"

namespace vantrel {

class UpdateRegion {
  public:
    using RectList = std::list<RECT>;

    UpdateRegion() noexcept = default;
    UpdateRegion(const UpdateRegion&) = delete;
    UpdateRegion& operator=(const UpdateRegion&) = delete;
    UpdateRegion(UpdateRegion&&) noexcept = default;
    UpdateRegion& operator=(UpdateRegion&&) noexcept = default;
    virtual ~UpdateRegion() = default;

    // Adds r snapped outward to the grid (no clipping). A rectangle that snaps to nothing (empty
    // or inverted) adds nothing; running out of memory leaves the previous area.
    void AddRect(const RECT* r) noexcept;
    void Empty() noexcept;

    // Puts the region's rectangles in front of what the list holds, in reverse region-data order
    // (bottom band first, right to left within a band). True when the list is then not empty;
    // false with the list untouched when there is no region or memory runs out.
    bool GetRects(RectList& list) const noexcept;
    // The same for region AND (clip snapped to the grid); with no region at all, the snapped
    // clip itself.
    bool GetRectsIn(RectList& list, const RECT* clip) const noexcept;
    // True for a region that exists and is not empty; box is written only when a region exists.
    bool GetBoundingBox(RECT* box) const noexcept;

    // Left and top rounded down to a multiple of 8 (towards minus infinity), right and bottom
    // rounded up to one.
    static RECT SnapToGrid(const RECT& r) noexcept;

  private:
    static bool PrependRects(const BandedRegion& region, RectList& list) noexcept;

    BandedRegion region_;  // empty: nothing collected since construction or Empty
};

}  // namespace vantrel
