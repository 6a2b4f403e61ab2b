// Watches the pointer for the change detector: position and shape handle on every poll, the
// shape's bits read again only when the handle changes.
#pragma once

#include <windows.h>

#include "CursorShape.h"

namespace vantrel::pavlex {

class CursorTracker {
  public:
    // Forgets what was seen: the next poll reports position and shape.
    void reset() noexcept { known_ = false; }
    // Returns the record flags (packet::kCursorNew*) of what changed since the last poll (0 when
    // nothing did); position and shape() are then the current ones.
    DWORD poll(POINT* position);
    const CursorShape& shape() const noexcept { return shape_; }

  private:
    bool known_ = false;
    HCURSOR handle_ = nullptr;  // null while the pointer is hidden
    POINT position_{};
    CursorShape shape_;
};

}  // namespace vantrel::pavlex
