// Where an object tells the host about events: the window, message and parameter the host gave
// to SetNotifyWindow. Shared by the render objects, the recorder and the reader, so that the
// posting of their notifications (posted, never sent, only to a window that still exists) is
// written once, here.
#pragma once

#include <windows.h>

namespace vantrel {

class NotifyTarget {
  public:
    void Set(HWND window, UINT message, DWORD param) noexcept {
        window_ = window;
        message_ = message;
        param_ = param;
    }
    HWND Window() const noexcept { return window_; }

  private:
    HWND window_ = nullptr;
    UINT message_ = 0;
    DWORD param_ = 0;
};

}  // namespace vantrel
