// The detector thread: grabs the screen at a steady pace, compares each grab tile by tile with
// the one before, polls the pointer, and hands what changed to ScreenChanges/CursorChanges.
// Also notices changes of display size or depth. Driven by CaptureSession.
#pragma once

#include <windows.h>

#include <atomic>

#include "CursorTracker.h"
#include "ScreenFrame.h"
#include "TileMap.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::pavlex {

class CursorChanges;
class ScreenChanges;

class ChangeDetector {
  public:
    static constexpr DWORD kDefaultInterval = 33;  // ms, about 30 grabs per second

    ChangeDetector(ScreenChanges& screen, CursorChanges& cursor) noexcept
        : screen_(screen), cursor_(cursor) {}
    ChangeDetector(const ChangeDetector&) = delete;
    ChangeDetector& operator=(const ChangeDetector&) = delete;
    ~ChangeDetector() { stop(); }

    // A new capture: takes the current display as the reference for display changes, forgets
    // frames and pointer. desktop (not owned) is where the thread grabs; interval in ms.
    void begin(HDESK desktop, DWORD interval) noexcept;
    // Stops the thread and starts it again watching what is asked (nothing: it stays stopped).
    // The last grab survives a restart, so the comparison goes on where it was.
    bool run(bool watchScreen, bool watchCursor) noexcept;
    // Stops and joins the thread.
    void stop() noexcept;
    // True once after each change of display size or depth.
    bool takeDisplayChange() noexcept { return displayChanged_.exchange(false); }

  private:
    struct Geometry {
        int width = 0;
        int height = 0;
        int bitsPerPixel = 0;
        bool operator!=(const Geometry& o) const noexcept {
            return width != o.width || height != o.height || bitsPerPixel != o.bitsPerPixel;
        }
    };

    static DWORD WINAPI ThreadMain(void* self);
    static Geometry ReadGeometry(HDC screen) noexcept;
    void loop() noexcept;
    void poll();
    void pollScreen(HDC screen);
    void pollCursor();

    ScreenChanges& screen_;
    CursorChanges& cursor_;
    UniqueThread thread_;
    UniqueEvent stop_;
    // Set by begin()/run() while the thread is stopped; the thread owns them while it runs.
    HDESK desktop_ = nullptr;
    DWORD interval_ = kDefaultInterval;
    bool watchScreen_ = false;
    bool watchCursor_ = false;
    Geometry geometry_;
    ScreenFrame frames_[2];
    int current_ = 0;            // frame the next grab goes into
    bool haveBaseline_ = false;  // the other frame holds the previous grab
    TileMap dirty_;
    CursorTracker tracker_;
    std::atomic<bool> displayChanged_{false};
};

}  // namespace vantrel::pavlex
