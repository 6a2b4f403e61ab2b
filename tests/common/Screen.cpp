#include "Screen.h"

#include <cstring>

#include "wincom/UniqueHandle.h"

namespace vantrel::test {

double Seconds() noexcept {
    LARGE_INTEGER count, frequency;
    QueryPerformanceCounter(&count);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(count.QuadPart) / static_cast<double>(frequency.QuadPart);
}

void PumpMessages() noexcept {
    MSG msg;
    while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&msg);
        DispatchMessageA(&msg);
    }
}

bool WaitUntil(const std::function<bool()>& done, DWORD timeout, DWORD pollMs) {
    for (const DWORD start = GetTickCount(); !done(); Sleep(pollMs)) {
        if (GetTickCount() - start > timeout)
            return false;
        PumpMessages();
    }
    return true;
}

void PumpFor(DWORD ms) {
    WaitUntil([] { return false; }, ms, 5);
}

bool WaitQuiet(const std::function<size_t()>& count, DWORD quietMs) {
    size_t last = count();
    DWORD since = GetTickCount();
    return WaitUntil([&] {
        if (const size_t now = count(); now != last) {
            last = now;
            since = GetTickCount();
        }
        return GetTickCount() - since > quietMs;
    });
}

std::vector<BYTE> Bmi(int width, int height, int bpp, DWORD compression, std::vector<DWORD> tail) {
    std::vector<BYTE> b(sizeof(BITMAPINFOHEADER) + 256 * sizeof(RGBQUAD), 0);
    *reinterpret_cast<BITMAPINFOHEADER*>(b.data()) =
        BITMAPINFOHEADER{40, width, -height, 1, static_cast<WORD>(bpp), compression, 0, 0, 0, 0, 0};
    std::memcpy(b.data() + 40, tail.data(), tail.size() * 4);
    return b;
}

void PaintPixels(HDC dc, int width, int height, const uint32_t* pixels) noexcept {
    try {
        SetDIBitsToDevice(dc, 0, 0, width, height, 0, 0, 0, height, pixels,
                          AsBmi(Bmi(width, height, 32)), DIB_RGB_COLORS);
    } catch (...) {
    }
}

PaintedWindow::PaintedWindow(const RECT& where, Painter painter, bool activate)
    : painter_(std::move(painter)) {
    window_.On(WM_PAINT, [this](WPARAM, LPARAM) -> std::optional<LRESULT> {
        PaintDc dc(window_.Handle());
        RECT client;
        GetClientRect(window_.Handle(), &client);
        painter_(dc.get(), client);
        return 0;
    });
    window_.On(WM_SETCURSOR, [this](WPARAM, LPARAM) -> std::optional<LRESULT> {
        if (!splitPointer_)
            return std::nullopt;
        RECT client;
        GetClientRect(window_.Handle(), &client);
        POINT p;
        GetCursorPos(&p);
        ScreenToClient(window_.Handle(), &p);
        SetCursor(LoadCursorA(nullptr, p.x < client.right / 2 ? IDC_CROSS : IDC_ARROW));
        return TRUE;
    });
    static const WindowClassInfo kClass{"VantrelTestPaintedWindow", CS_HREDRAW | CS_VREDRAW};
    if (!window_.Create(kClass, WS_EX_TOPMOST | (activate ? 0 : WS_EX_NOACTIVATE), "", WS_POPUP,
                        where.left, where.top, where.right - where.left, where.bottom - where.top))
        return;
    ShowWindow(window_.Handle(), activate ? SW_SHOW : SW_SHOWNOACTIVATE);
    if (activate)
        SetForegroundWindow(window_.Handle());
    UpdateWindow(window_.Handle());
}

void PaintedWindow::Repaint() noexcept {
    InvalidateRect(window_.Handle(), nullptr, FALSE);
    UpdateWindow(window_.Handle());
}

void PaintedWindow::MoveTo(int x, int y) noexcept {
    SetWindowPos(window_.Handle(), nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    UpdateWindow(window_.Handle());
}

NoiseBox::NoiseBox(const RECT& where, uint32_t seed, bool activate)
    : rect_(where),
      pixels_(Noise(where, seed)),
      window_(
          where,
          [this](HDC dc, const RECT& client) {
              PaintPixels(dc, client.right, client.bottom, pixels_.data());
          },
          activate) {}

std::vector<uint32_t> NoiseBox::Noise(const RECT& r, uint32_t seed) {
    std::vector<uint32_t> pixels(static_cast<size_t>(r.right - r.left) * (r.bottom - r.top));
    for (auto& p : pixels)
        p = (seed = seed * 1664525u + 1013904223u) >> 8;
    return pixels;
}

bool NoiseBox::Repaint(uint32_t seed, DWORD pollMs) {
    pixels_ = Noise(rect_, seed);
    window_.Repaint();
    return Shown(pollMs);
}

bool NoiseBox::MoveTo(int x, int y) {
    window_.MoveTo(x, y);
    OffsetRect(&rect_, x - rect_.left, y - rect_.top);
    return Shown();
}

bool NoiseBox::Close() {
    window_.Close();
    return WaitForScreen(false, 10);
}

bool NoiseBox::WaitForScreen(bool shown, DWORD pollMs) {
    const RECT first{rect_.left, rect_.top, rect_.left + 1, rect_.top + 1};
    const RECT last{rect_.right - 1, rect_.bottom - 1, rect_.right, rect_.bottom};
    return WaitUntil(
        [&] {
            const bool a = To555(GrabScreen32(first)[0]) == To555(pixels_.front());
            const bool b = To555(GrabScreen32(last)[0]) == To555(pixels_.back());
            return shown ? a && b : !a && !b;
        },
        kPatience, pollMs);
}

NotifyWindow::NotifyWindow(UINT message) {
    window_.On(message, [this](WPARAM wParam, LPARAM lParam) -> std::optional<LRESULT> {
        notes_.push_back(Note{wParam, lParam, GetTickCount()});
        return 0;
    });
    static const WindowClassInfo kClass{"VantrelTestNotifyWindow", 0};
    window_.Create(kClass, 0, "", 0, 0, 0, 0, 0, HWND_MESSAGE);
}

int NotifyWindow::Count(WPARAM code, LPARAM param) const noexcept {
    int n = 0;
    for (const Note& note : notes_)
        n += note.wParam == code && note.lParam == param;
    return n;
}

}  // namespace vantrel::test
