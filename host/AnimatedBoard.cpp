// The demo's animated window (see AnimatedBoard.h).
#include "AnimatedBoard.h"

#include <cstdio>
#include <cstring>

namespace vantrel::host {

namespace {

constexpr char kClassName[] = "VantrelDemoBoard";
constexpr int kBall = 40;

}  // namespace

AnimatedBoard::AnimatedBoard(const RECT& where) noexcept {
    WNDCLASSA wc{};
    wc.lpfnWndProc = Proc;
    wc.hInstance = GetModuleHandleA(nullptr);
    wc.hCursor = LoadCursorA(nullptr, IDC_ARROW);
    wc.lpszClassName = kClassName;
    RegisterClassA(&wc);
    window_.reset(CreateWindowExA(WS_EX_TOPMOST | WS_EX_NOACTIVATE, kClassName, "", WS_POPUP,
                                  where.left, where.top, where.right - where.left,
                                  where.bottom - where.top, nullptr, nullptr, wc.hInstance, this));
    if (window_) {
        ShowWindow(window_.get(), SW_SHOWNOACTIVATE);
        UpdateWindow(window_.get());
    }
}

AnimatedBoard::~AnimatedBoard() {
    window_.reset();
    UnregisterClassA(kClassName, GetModuleHandleA(nullptr));
}

void AnimatedBoard::Step() noexcept {
    ++frame_;
    InvalidateRect(window_.get(), nullptr, FALSE);
    UpdateWindow(window_.get());
}

LRESULT CALLBACK AnimatedBoard::Proc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) noexcept {
    if (msg == WM_NCCREATE)
        SetWindowLongPtrA(
            hwnd, GWLP_USERDATA,
            reinterpret_cast<LONG_PTR>(reinterpret_cast<CREATESTRUCTA*>(lp)->lpCreateParams));
    auto* self = reinterpret_cast<AnimatedBoard*>(GetWindowLongPtrA(hwnd, GWLP_USERDATA));
    if (msg == WM_PAINT && self) {
        PaintDc dc(hwnd);
        RECT client;
        GetClientRect(hwnd, &client);
        self->Paint(dc.get(), client);
        return 0;
    }
    return DefWindowProcA(hwnd, msg, wp, lp);
}

void AnimatedBoard::Paint(HDC dc, const RECT& client) noexcept {
    UniqueBrush board(CreateSolidBrush(RGB(250, 250, 240)));
    UniqueBrush title(CreateSolidBrush(RGB(0, 84, 166)));
    UniqueBrush ball(CreateSolidBrush(RGB(220, 60 + (frame_ * 7) % 180, 40)));
    FillRect(dc, &client, board.get());
    const RECT bar{0, 0, client.right, 24};
    FillRect(dc, &bar, title.get());

    // The ball bounces between the walls below the title bar.
    const int w = client.right - kBall, h = client.bottom - 24 - kBall;
    const int tx = (frame_ * 9) % (2 * w), ty = (frame_ * 5) % (2 * h);
    const int x = tx < w ? tx : 2 * w - tx, y = 24 + (ty < h ? ty : 2 * h - ty);
    {
        SelectObjectGuard select(dc, ball.get());
        Ellipse(dc, x, y, x + kBall, y + kBall);
    }
    char text[64];
    std::snprintf(text, sizeof text, "Vantrel classroom demo - frame %d", frame_);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, RGB(255, 255, 255));
    TextOutA(dc, 8, 4, text, static_cast<int>(std::strlen(text)));
}

}  // namespace vantrel::host
