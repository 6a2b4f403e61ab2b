// SharedImageClient: a viewer's side of the shared-memory channel, the part of DesktopIPCRender
// that does not draw. Connects a session to the channel (the steps of the viewer's Run), lays
// the owner's DesktopImage over the server's pixel section, and runs the client thread that
// answers the server's passes and hands the changed rectangles to the owner.
//
// Threads: Start and Stop on the owner's (host's) thread; the client thread opens, reopens and
// closes the image and calls the Viewer. The image's own lock orders its use against painting.
// A server that goes away leaves the image mapped: the last picture stays until Stop.
#pragma once

#include <windows.h>

#include <atomic>
#include <memory>

#include "ipc/SharedChannel.h"
#include "stream/DesktopImage.h"
#include "wincom/UniqueHandle.h"

namespace vantrel {

class SharedImageClient {
  public:
    // Called on the client thread.
    class Viewer {
      public:
        // The image was (re)opened over a pixel section; rect is its rectangle. initial: the
        // first open of this run (a layout pass follows at once).
        virtual void OnImageOpened(const RECT& rect, bool initial) noexcept = 0;
        // A pass carried rectangles (an empty one stands for the whole image) and the cursor
        // position the server's image has drawn; the image's BITMAPINFO is already updated.
        virtual void OnRectsChanged(const RECT* rects, UINT count, POINT cursor) noexcept = 0;

      protected:
        ~Viewer() = default;
    };

    SharedImageClient(DesktopImage& image, Viewer& viewer) noexcept;
    SharedImageClient(const SharedImageClient&) = delete;
    SharedImageClient& operator=(const SharedImageClient&) = delete;
    ~SharedImageClient();

    // Opens the control section, creates the session's events, opens the image from the
    // screen (its placeholder until the thread maps the shared one), creates the slot mutex and
    // starts the client thread. E_FAIL while running; a failure leaves what was made in place
    // until Stop.
    HRESULT Start(int sessionId) noexcept;
    // Ends the client thread (waits without time-out) and releases every channel object. A
    // second Stop finds nothing to do.
    void Stop() noexcept;
    bool IsRunning() const noexcept { return static_cast<bool>(thread_); }

  private:
    static DWORD WINAPI ThreadEntry(void* self) noexcept;
    void ClientThread() noexcept;
    // Retries every kReopenRetryMs until it works or the stop flag is set; failureText goes to
    // the debugger before each retry.
    bool OpenUntilStopped(const char* failureText) noexcept;
    bool NameMovedOn() const noexcept;

    DesktopImage& image_;
    Viewer& viewer_;
    ipc::ClientSession session_;
    UniqueThread thread_;
    std::atomic<bool> stop_{false};
    std::unique_ptr<ipc::Notice> notice_;  // the client thread's copy of one pass
    ipc::ObjectName openedName_{};         // the pixel section the image lies over
};

}  // namespace vantrel
