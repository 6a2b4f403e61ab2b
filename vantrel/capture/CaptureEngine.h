// CaptureEngine: the worker side of DesktopCapture. One capture thread per Run learns from
// Pavlex.dll which parts of the screen and which pointer properties changed, turns them into
// desktop-stream packets through the shared StreamEncoder and hands every packet to the owner's
// sink table. It decides when packets are made: the first picture, every hook notification,
// full-screen requests, the display-hook check, and the closing 8 x 8 block at stop; it paces
// passes to the frame rate and flushes the sinks after a quiet period.
//
// Threads. Start, Stop, RequestFullScreen and SetPriority run on the host's threads; the owner
// serialises them (DesktopCapture's lock) and never holds that lock while Stop waits. Everything
// else below runs on the capture thread alone: the image, the encoder and its buffers, the hook
// library and the sink deliveries. The two sides meet only through the stop and full-screen
// events, the idle flush timeout (atomic, read for every wait), the thread priority and the
// image's logo.
//
// Ownership: the engine holds everything its thread touches (sink table, codec, image, the
// encoder's buffers, events, thread), so that an owner released on the capture thread itself (the
// last reference dropped inside a sink's Transfer or Flush) can hand the running engine over to
// its thread, which then frees it on its way out (Abandon).
#pragma once

#include <windows.h>

#include <atomic>
#include <memory>

#include "ScreenCodec.h"
#include "contracts/Pavlex.h"
#include "wincom/ComPtr.h"
#include "wincom/UniqueHandle.h"
#include "stream/DesktopImage.h"
#include "stream/SinkTable.h"
#include "stream/StreamEncoder.h"

namespace vantrel {

class CaptureEngine {
  public:
    static constexpr DWORD kDefaultIdleFlushTimeout = 250;

    // What each Run hands over; the registry has been read by then.
    struct Settings {
        int framesPerSecond = 0;  // 0: no pacing
        bool fixCitrix16bit = false;
        int priority = THREAD_PRIORITY_NORMAL;
    };

    CaptureEngine() noexcept;
    CaptureEngine(const CaptureEngine&) = delete;
    CaptureEngine& operator=(const CaptureEngine&) = delete;
    // The owner stops a running capture first, or abandons it to its thread.
    ~CaptureEngine() = default;

    // Hands a running engine to its own capture thread, for an owner that is destroyed on that
    // thread and so cannot wait for it: the stop is signalled, the thread sends its closing
    // packet, frees the engine and leaves, keeping the module loaded (lock count and a library
    // reference) until its last instruction. Call on the capture thread only.
    static void Abandon(std::unique_ptr<CaptureEngine> engine) noexcept;

    SinkTable& Sinks() noexcept { return sinks_; }
    void SetCodec(ComPtr<IScreenCodec> codec) noexcept {
        codec_ = std::move(codec);
        encoder_.SetCodec(codec_.Get());
    }
    bool HasCodec() const noexcept { return static_cast<bool>(codec_); }
    bool HasBuffers() const noexcept { return encoder_.HasBuffers(); }
    // Stamped into grabbed areas from the next open of the image on.
    void SetLogo(HBITMAP logo) noexcept { image_.SetLogo(logo); }
    void SetIdleFlushTimeout(DWORD ms) noexcept { idleFlushTimeout_ = ms; }

    // Opens the image from the screen, grabs it, makes the events and starts the capture thread
    // (suspended, given the priority, resumed). E_FAIL with nothing left open when the image,
    // an event or the thread cannot be made. The encoder copies the image's BITMAPINFO into its
    // work buffer for every send, so a reopened image needs no copy here.
    HRESULT Start(const Settings& settings) noexcept;
    // Signals the stop event without waiting: the thread sends its closing packet and ends.
    void SignalStop() noexcept;
    // Waits for the thread without time-out, then closes the thread, the events and the image.
    void Join() noexcept;
    // True on the capture thread itself, which must never wait for its own end.
    bool IsCaptureThread() const noexcept { return GetCurrentThreadId() == threadId_.load(); }

    void RequestFullScreen() noexcept;
    // Applied to a running thread at once; the result is not looked at.
    void SetPriority(int priority) noexcept;

  private:
    // Thread-local state of one capture loop.
    struct Loop {
        HANDLE cursorEvent = nullptr;
        HANDLE screenEvent = nullptr;
        DWORD frameInterval = 0;  // ms between passes, 0: unpaced
        bool active = false;      // a packet was made since the last flush
        DWORD lastActivity = 0;   // GetTickCount of the last cursor, screen or full-screen pass
    };

    static DWORD WINAPI ThreadEntry(void* engine) noexcept;
    DWORD CaptureThread() noexcept;
    // Waits and works until a quiet period has been flushed (true), or until the stop was asked
    // for or the wait itself failed (false).
    bool RunBurst(Loop& loop, const HANDLE (&waits)[4]) noexcept;
    // One wake-up from the loop's wait: false once the stop has been asked for.
    bool HandleWake(Loop& loop, DWORD reason) noexcept;
    // The quiet-period end: pending changes once more, then Flush on every sink.
    void IdleFlush() noexcept;
    bool TakeCursorUpdate() noexcept;
    bool TakeScreenUpdate() noexcept;

    void ProcessScreenUpdate(const PavlexScreenUpdate* update) noexcept;
    void ProcessCursorUpdate(BYTE* record) noexcept;
    void SendRegion(const RECT& r) noexcept;
    void ProcessWholeScreen() noexcept;
    // The screen's size and depth against the image's; reopens the image when they changed or
    // when an earlier reopen failed. False while the image is unusable: the update is dropped.
    bool FollowScreenFormat() noexcept;
    // {0, 0, HORZRES, VERTRES} and BITSPIXEL of the screen; false without a screen DC.
    static bool ReadScreenFormat(RECT* rect, int* depth) noexcept;

    // Destroyed in reverse: the encoder before the codec it uses and the table it delivers to.
    SinkTable sinks_;
    ComPtr<IScreenCodec> codec_;
    DesktopImage image_;
    StreamEncoder encoder_;
    // Written by Start before the thread exists, then by the capture thread only.
    RECT screenRect_{};
    int screenDepth_ = 0;
    int framesPerSecond_ = 0;
    std::atomic<DWORD> idleFlushTimeout_{kDefaultIdleFlushTimeout};
    // Exist from Start to Join.
    UniqueThread thread_;
    std::atomic<DWORD> threadId_{0};
    UniqueEvent stopEvent_;
    UniqueEvent fullScreenEvent_;
    // Set by Abandon on the capture thread and read there when the loop has ended: the
    // library reference the thread gives back as it exits.
    bool abandoned_ = false;
    HMODULE abandonedModule_ = nullptr;
};

}  // namespace vantrel
