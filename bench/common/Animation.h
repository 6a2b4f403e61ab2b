// A window for the live benchmarks (capture, cast): it animates a moving picture that changes
// every pixel it covers, one frame per Step.
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

#include "wincom/UniqueHandle.h"

namespace vantrel::bench {

// A top-most, never activated window that draws frame n of a moving picture: bars and a
// gradient scrolling by a few pixels per frame, so every pixel of it changes.
class Animation {
  public:
    explicit Animation(const RECT& where) : width_(where.right - where.left) {
        const int h = where.bottom - where.top;
        pixels_.resize(static_cast<size_t>(width_) * h * 2);
        for (int y = 0; y < 2 * h; ++y)
            for (int x = 0; x < width_; ++x)
                pixels_[static_cast<size_t>(y) * width_ + x] =
                    ((x / 24 + y / 24) % 2 ? 0x203040u : 0xE0D0C0u) ^ ((y * 255 / (2 * h)) << 8);
        WNDCLASSA wc{};
        wc.lpfnWndProc = Proc;
        wc.hInstance = GetModuleHandleA(nullptr);
        wc.lpszClassName = "VantrelBenchAnimation";
        RegisterClassA(&wc);
        window_.reset(CreateWindowExA(WS_EX_TOPMOST | WS_EX_NOACTIVATE, wc.lpszClassName, "",
                                      WS_POPUP, where.left, where.top, width_, h, nullptr, nullptr,
                                      wc.hInstance, this));
        ShowWindow(window_.get(), SW_SHOWNOACTIVATE);
        Step();
    }
    void Step() {
        ++frame_;
        InvalidateRect(window_.get(), nullptr, FALSE);
        UpdateWindow(window_.get());
        MSG msg;
        while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE))
            DispatchMessageA(&msg);
    }

  private:
    static LRESULT CALLBACK Proc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
        if (msg == WM_NCCREATE)
            SetWindowLongPtrA(
                hwnd, GWLP_USERDATA,
                reinterpret_cast<LONG_PTR>(reinterpret_cast<CREATESTRUCTA*>(lp)->lpCreateParams));
        auto* self = reinterpret_cast<Animation*>(GetWindowLongPtrA(hwnd, GWLP_USERDATA));
        if (msg != WM_PAINT || !self)
            return DefWindowProcA(hwnd, msg, wp, lp);
        PaintDc dc(hwnd);
        RECT rc;
        GetClientRect(hwnd, &rc);
        const int offset = (self->frame_ * 6) % rc.bottom;
        BITMAPINFO bmi{};
        bmi.bmiHeader = BITMAPINFOHEADER{
            sizeof(BITMAPINFOHEADER), self->width_, -rc.bottom, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
        SetDIBitsToDevice(dc.get(), 0, 0, rc.right, rc.bottom, 0, 0, 0, rc.bottom,
                          &self->pixels_[static_cast<size_t>(offset) * self->width_], &bmi,
                          DIB_RGB_COLORS);
        return 0;
    }

    int width_;
    int frame_ = 0;
    std::vector<uint32_t> pixels_;
    UniqueHwnd window_;
};

}  // namespace vantrel::bench
