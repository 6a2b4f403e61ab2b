// Where an object tells the host about events: the window, message and parameter the host gave
// to SetNotifyWindow. Every object that notifies the host holds one, so that posting (never
// sending, only to a window that still exists) is written once, here.
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
    UINT Message() const noexcept { return message_; }
    DWORD Param() const noexcept { return param_; }

    // Posts (message, code, param) to the window if it still exists; false when nothing was
    // posted. The one way every object notifies the host.
    bool Post(WPARAM code) const noexcept { return Post(code, static_cast<LPARAM>(param_)); }
    // The recorder and the reader keep the parameter but post lParam 0.
    bool Post(WPARAM code, LPARAM lParam) const noexcept {
        const HWND window = window_;
        return window && IsWindow(window) && PostMessageA(window, message_, code, lParam);
    }

  private:
    HWND window_ = nullptr;
    UINT message_ = 0;
    DWORD param_ = 0;
};

}  // namespace vantrel
