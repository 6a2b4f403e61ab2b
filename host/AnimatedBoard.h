// The demo's moving picture: a top-most "whiteboard" window with a ball bouncing across it and
// a line of text that changes every frame. It is never activated, so it closes at once.
// Lives on the demo's thread, which pumps its messages.
#pragma once

#include <windows.h>

#include "wincom/UniqueHandle.h"

namespace vantrel::host {

class AnimatedBoard {
  public:
    explicit AnimatedBoard(const RECT& where) noexcept;
    AnimatedBoard(const AnimatedBoard&) = delete;
    AnimatedBoard& operator=(const AnimatedBoard&) = delete;
    ~AnimatedBoard();

    bool IsOpen() const noexcept { return static_cast<bool>(window_); }
    // Draws the next frame before it returns.
    void Step() noexcept;

  private:
    static LRESULT CALLBACK Proc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) noexcept;
    void Paint(HDC dc, const RECT& client) noexcept;

    int frame_ = 0;
    UniqueHwnd window_;
};

}  // namespace vantrel::host
