// The host's own window around a render (DesktopRender or DesktopIPCRender): a top-level frame
// whose client area the render window fills as its child, as a classroom program embeds it. The
// frame receives the render's notifications and the reader's (posted messages), the keys typed
// into it or into the render (the render copies input to its message-drain window, the frame),
// and its close button. Lives on the thread that created the render, which pumps its messages.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

#include "CommandLine.h"
#include "Outcome.h"
#include "Vantrel.h"
#include "wincom/ComPtr.h"
#include "wincom/Window.h"

namespace vantrel::host {

// The render's notification codes (wParam of its notify message).
enum RenderNote : WPARAM {
    kFormatChanged = 1,    // RN_FORMATCHANGED
    kPictureComplete = 2,  // RN_PICTURECOMPLETE
    kCloseRequest = 3,     // RN_CLOSEREQUEST
    kIdle = 4,             // RN_IDLE
    kViewChanged = 5,      // RN_VIEWCHANGED
};

// Message numbers the frame asks the objects to post.
constexpr UINT kRenderMessage = WM_APP + 1;
constexpr UINT kReaderMessage = WM_APP + 2;    // wParam 0: the end; 1: a file error
constexpr UINT kRecorderMessage = WM_APP + 3;  // a write failed

class HostWindow {
  public:
    using NoteHandler = std::function<void(UINT message, WPARAM code)>;

    HostWindow() = default;
    HostWindow(const HostWindow&) = delete;
    HostWindow& operator=(const HostWindow&) = delete;
    ~HostWindow();

    // Makes the frame where view asks (or at a default place), shows render in it with the
    // view's mode and source, and asks render for its notifications.
    Outcome Show(IDesktopRender* render, const ViewOptions& view);
    // Takes the render out again (before the render or the frame goes away).
    void Detach() noexcept;

    HWND Handle() const noexcept { return frame_.Handle(); }
    void OnNote(NoteHandler handler) { onNote_ = std::move(handler); }
    void OnKey(std::function<void(WORD key)> handler) { onKey_ = std::move(handler); }
    void OnClose(std::function<void()> handler) { onClose_ = std::move(handler); }

  private:
    void Fit() noexcept;

    Window frame_;
    ComPtr<IDesktopRender> render_;
    NoteHandler onNote_;
    std::function<void(WORD)> onKey_;
    std::function<void()> onClose_;
};

}  // namespace vantrel::host
