// The demo's animated window (see AnimatedBoard.h).
#include "AnimatedBoard.h"

#include <cstdio>
#include <cstring>

#include "wincom/UniqueHandle.h"

namespace vantrel::host {

namespace {

constexpr int kBall = 40;

}  // namespace

AnimatedBoard::AnimatedBoard(const RECT& where)
    : window_(where, [this](HDC dc, const RECT& client) { Paint(dc, client); }) {}

void AnimatedBoard::Step() noexcept {
    ++frame_;
    window_.Repaint();
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
