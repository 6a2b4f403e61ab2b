// What tests, benchmarks and the sample host share about the screen and the message loop:
// one clock, message pumping, screen grabs at 5-5-5 and a painted top-most window. COM-free
// and free of Vantrel.dll's internals, so the host can use it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "wincom/ScreenPixels.h"
#include "wincom/Window.h"

namespace vantrel::test {

constexpr DWORD kPatience = 10000;  // ms; generous, the machine is shared

// The performance counter in seconds.
double Seconds() noexcept;

// Dispatches every message waiting for this thread.
void PumpMessages() noexcept;
// Pumps this thread's messages (pollMs between looks) until done() or the time runs out.
bool WaitUntil(const std::function<bool()>& done, DWORD timeout = kPatience, DWORD pollMs = 10);
// Pumps this thread's messages for ms.
void PumpFor(DWORD ms);
// Pumps until count() has stayed the same for quietMs; false when the patience runs out first.
bool WaitQuiet(const std::function<size_t()>& count, DWORD quietMs);

// The screen grabs and the stream's 5-5-5 form live in wincom (the host uses them too).
using vantrel::GrabScreen32;
using vantrel::GrabScreen555;
using vantrel::To555;

// A top-down BITMAPINFO in a whole format block (1064 bytes); tail: colour table or masks.
std::vector<BYTE> Bmi(int width, int height, int bpp, DWORD compression = BI_RGB,
                      std::vector<DWORD> tail = {});
inline const BITMAPINFO* AsBmi(const std::vector<BYTE>& b) noexcept {
    return reinterpret_cast<const BITMAPINFO*>(b.data());
}

// Draws width x height 32-bit pixels (top row first) at the DC's origin.
void PaintPixels(HDC dc, int width, int height, const uint32_t* pixels) noexcept;

// A top-most popup painted by its owner's painter on every WM_PAINT; never activated unless
// asked, because without a window manager an active window takes seconds to go away.
class PaintedWindow {
  public:
    using Painter = std::function<void(HDC dc, const RECT& client)>;

    PaintedWindow(const RECT& where, Painter painter, bool activate = false);

    bool IsOpen() const noexcept { return static_cast<bool>(window_); }
    HWND Handle() const noexcept { return window_.Handle(); }
    // Paints again before it returns.
    void Repaint() noexcept;
    void MoveTo(int x, int y) noexcept;
    void Close() noexcept { window_.Destroy(); }
    // Over the left half the pointer is a cross, over the right half an arrow.
    void SplitPointer() noexcept { splitPointer_ = true; }

  private:
    Painter painter_;
    bool splitPointer_ = false;
    Window window_;
};

// A PaintedWindow of pseudo-random pixels. The platform puts what a window painted on the
// screen a little later, so every change waits until the screen shows it (pollMs between looks)
// before a test compares anything with the screen.
class NoiseBox {
  public:
    NoiseBox(const RECT& where, uint32_t seed, bool activate = false);
    bool Shown(DWORD pollMs = 10) { return WaitForScreen(true, pollMs); }
    bool Repaint(uint32_t seed, DWORD pollMs = 10);
    bool MoveTo(int x, int y);
    // True once the screen no longer shows the window.
    bool Close();
    // Over the left half the pointer is a cross, over the right half an arrow.
    void SplitPointer() { window_.SplitPointer(); }

  private:
    static std::vector<uint32_t> Noise(const RECT& r, uint32_t seed);
    // Looks at the first and the last pixel of the window.
    bool WaitForScreen(bool shown, DWORD pollMs);

    RECT rect_;
    std::vector<uint32_t> pixels_;
    PaintedWindow window_;
};

// A message-only window of the calling thread that keeps every `message` it is posted (a
// notification target for the objects under test), with the tick of its arrival; the thread
// must pump (WaitUntil does).
class NotifyWindow {
  public:
    struct Note {
        WPARAM wParam;
        LPARAM lParam;
        DWORD tick;
    };

    explicit NotifyWindow(UINT message);

    HWND Handle() const noexcept { return window_.Handle(); }
    const std::vector<Note>& Notes() const noexcept { return notes_; }
    // Notes with this code in wParam and this parameter in lParam.
    int Count(WPARAM code, LPARAM param) const noexcept;
    void Clear() noexcept { notes_.clear(); }
    void Destroy() noexcept { window_.Destroy(); }

  private:
    std::vector<Note> notes_;
    Window window_;
};

}  // namespace vantrel::test
