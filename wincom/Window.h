// The one window wrapper: a Win32 window owned by a C++ object. The window class is registered
// once per module and name; the window procedure finds the object through GWLP_USERDATA and
// dispatches to the handlers the owner put in its message map. Messages without a handler, and
// handlers that answer std::nullopt, go to DefWindowProcA.
//
// Threads: a window belongs to the thread that created it. Handlers run on that thread. Destroy
// (and the destructor) destroy the window when called on that thread. From any other thread the
// window is detached from this object and asked to close (it then closes itself on its own
// thread, through DefWindowProcA, the next time that thread pumps); the detach waits for a
// handler that is running at that moment, so no handler runs after Destroy has returned. The
// detach never waits for the window's thread to pump, so it cannot deadlock with a thread that
// is blocked waiting for the caller.
#pragma once

#include <windows.h>

#include <functional>
#include <optional>
#include <vector>

#include "ModuleLock.h"

namespace vantrel {

struct WindowClassInfo {
    const char* name = nullptr;
    UINT style = CS_HREDRAW | CS_VREDRAW;
    HICON icon = nullptr;
    HICON smallIcon = nullptr;
    HCURSOR cursor = nullptr;  // nullptr: the arrow, unless noCursor
    bool noCursor = false;     // no class cursor: the window sets its shape on WM_SETCURSOR
    HBRUSH background = nullptr;
};

class Window {
  public:
    using Handler = std::function<std::optional<LRESULT>(WPARAM, LPARAM)>;
    // Sees every message the window procedure receives, before the message map.
    using Observer = std::function<void(UINT, WPARAM, LPARAM)>;

    Window() = default;
    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    // Registers the class in the module that holds this code; registering again is harmless.
    static bool RegisterClassOnce(const WindowClassInfo& cls) noexcept;

    // The message map. A later handler for the same message replaces the earlier one. Fill it
    // before Create, or on the window's thread.
    void On(UINT message, Handler handler);
    void Observe(Observer observer) { observer_ = std::move(observer); }

    bool Create(const WindowClassInfo& cls, DWORD exStyle, const char* title, DWORD style, int x,
                int y, int width, int height, HWND parent = nullptr, HMENU menu = nullptr) noexcept;
    void Destroy() noexcept;

    HWND Handle() const noexcept { return hwnd_; }
    explicit operator bool() const noexcept { return hwnd_ != nullptr; }
    // Whether the calling thread is the window's (false without a window).
    bool OnOwnThread() const noexcept;
    // Inside a handler or the observer: whether the message arrived while another message of
    // this window was being handled (sent by that handling, e.g. by DefWindowProcA), rather than
    // from the message loop or another window.
    bool Nested() const noexcept { return depth_ > 1; }

  private:
    struct Link;
    static LRESULT CALLBACK Procedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT Dispatch(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) noexcept;

    HWND hwnd_ = nullptr;
    Link* link_ = nullptr;  // shared with the window while it exists
    int depth_ = 0;         // dispatches in progress, window thread only
    std::vector<std::pair<UINT, Handler>> handlers_;
    Observer observer_;
};

}  // namespace vantrel
