// The detector thread: polls the pointer and the screen at a steady pace and hands what changed
// to ScreenChanges/CursorChanges; also notices changes of display size or depth. Driven by
// CaptureSession.
//
// The screen is read in strips of whole tile rows, each small enough for the platform to grab
// without a fresh large allocation, and compared with check values of each tile's rows as they
// were (TileMap::hashRow): each pixel is read once, and no copy of the screen is kept. Every
// kScanPolls-th poll reads the whole screen, so one changed pixel anywhere is seen within that
// time. It does so in one burst rather than a part at every poll: under Wine the grabs cost
// about a fifth less CPU when the processor and the display server stay busy through them
// (measured at 1920 x 1080 on an otherwise idle machine: 4.0 % of a core against 4.7 %). A
// strip that changed is read again at the next poll (animations are followed at the poll
// rate) and its neighbours at once (a change across a strip border is reported whole). At rest,
// with the pointer still and no strip changing, only the whole scans wake the thread.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include "CursorTracker.h"
#include "ScreenFrame.h"
#include "TileMap.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::pavlex {

class CursorChanges;
class ScreenChanges;

class ChangeDetector {
  public:
    // One changed pixel is seen within kScanPolls x interval (90 ms by default): every pixel
    // of the screen is read about 11 times a second, which is what an unchanging screen costs.
    static constexpr DWORD kDefaultInterval = 30;  // ms between polls, 33 per second
    static constexpr int kScanPolls = 3;           // polls per full scan of the screen
    static constexpr unsigned kGeometryPolls = 8;  // polls between looks at the display mode
    // A pointer that has not changed for this many polls is read only with the whole scans:
    // under Wine each read is a round trip to the display server, which at every poll made up
    // a third of an idle detector's CPU. Its first move is then seen within kScanPolls polls,
    // and it is followed at every poll from there.
    static constexpr unsigned kCursorRestPolls = 33;

    ChangeDetector(ScreenChanges& screen, CursorChanges& cursor) noexcept
        : screen_(screen), cursor_(cursor) {}
    ChangeDetector(const ChangeDetector&) = delete;
    ChangeDetector& operator=(const ChangeDetector&) = delete;
    ~ChangeDetector() { stop(); }

    // A new capture: takes the current display as the reference for display changes, forgets
    // frames and pointer. desktop (not owned) is where the thread grabs; interval in ms.
    void begin(HDESK desktop, DWORD interval) noexcept;
    // Stops the thread and starts it again watching what is asked (nothing: it stays stopped).
    // Watching the screen starts from check values read here, on the caller's thread,
    // before the thread runs: a change made as soon as this returns is reported. The
    // values survive a restart, so the comparison goes on where it was.
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
    void poll(WindowDc& screen, unsigned n);
    // Reads the strips that changed at the last poll, or all of them when whole.
    void pollScreen(HDC screen, bool whole);
    // Intervals until the next poll that has work: at rest (the pointer still, no strip
    // changed at the last poll) the polls before the next whole scan would only wake the
    // thread, so they are slept through and the next poll is the whole scan.
    unsigned pollsToSkip() noexcept;
    void pollCursor();
    // Buffers for the current geometry; false when out of memory or GDI refuses.
    bool prepare(HDC screen);
    // Reads every strip into the check values, reporting nothing.
    bool takeBaseline(HDC screen);
    // Reads strip `strip`, marks its changed tiles in dirty_ and updates the values; true
    // when it changed. A failed grab reports nothing.
    bool scanStrip(HDC screen, int strip);

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
    ScreenFrame strip_;                  // the grab of one strip
    std::vector<std::uint32_t> hashes_;  // check values of the screen as last read (TileMap)
    int stripRows_ = 0;
    int strips_ = 0;
    int scanPoll_ = 0;                   // polls since the last whole scan
    std::vector<std::uint8_t> hot_;      // per strip: changed at the last poll
    std::vector<std::uint8_t> scanned_;  // per strip: read in this poll
    std::vector<int> queue_;
    bool haveBaseline_ = false;  // hashes_ describe the screen
    TileMap dirty_;
    CursorTracker tracker_;
    unsigned cursorStill_ = 0;  // pointer reads since it last changed, up to kCursorRestPolls
    std::atomic<bool> displayChanged_{false};
};

}  // namespace vantrel::pavlex
