// The demo's moving picture: a top-most "whiteboard" window with a ball bouncing across it and
// a line of text that changes every frame. It is never activated, so it closes at once.
// Lives on the demo's thread, which pumps its messages.
#pragma once

#include <windows.h>

#include "common/Screen.h"

namespace vantrel::host {

class AnimatedBoard {
  public:
    explicit AnimatedBoard(const RECT& where);

    bool IsOpen() const noexcept { return window_.IsOpen(); }
    // Draws the next frame before it returns.
    void Step() noexcept;

  private:
    void Paint(HDC dc, const RECT& client) noexcept;

    int frame_ = 0;
    test::PaintedWindow window_;
};

}  // namespace vantrel::host
