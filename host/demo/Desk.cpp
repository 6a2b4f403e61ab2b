// The demo's moving content (see Desk.h).
#include "Desk.h"

#include <cmath>
#include <cstring>

#include "wincom/UniqueHandle.h"

namespace vantrel::demo {

namespace {

const char kLesson[] =
    "The water cycle. Water evaporates from the sea, rises as vapour, cools and condenses "
    "into clouds. It falls as rain or snow, runs off in rivers and seeps into the ground, "
    "and at last flows back to the sea, where it starts again.";
constexpr int kCharsPerLine = 38;
constexpr int kLineHeight = 16;
constexpr int kNoteWidth = 96, kNoteHeight = 52, kMarkerSize = 16;

COLORREF Gdi(uint32_t rgb) {
    return RGB((rgb >> 16) & 0xFF, (rgb >> 8) & 0xFF, rgb & 0xFF);
}

void Fill(HDC dc, const RECT& r, COLORREF colour) {
    UniqueBrush brush(CreateSolidBrush(colour));
    FillRect(dc, &r, brush.get());
}

bool MakePopup(Window& window, const char* className, const RECT& r,
               std::function<void(HDC)> paint) {
    window.On(WM_PAINT, [&window, paint](WPARAM, LPARAM) -> std::optional<LRESULT> {
        PaintDc dc(window.Handle());
        paint(dc.get());
        return 0;
    });
    window.On(WM_ERASEBKGND, [](WPARAM, LPARAM) -> std::optional<LRESULT> { return TRUE; });
    const WindowClassInfo cls{className, CS_HREDRAW | CS_VREDRAW};
    if (!window.Create(cls, WS_EX_TOPMOST | WS_EX_NOACTIVATE, "", WS_POPUP, r.left, r.top,
                       r.right - r.left, r.bottom - r.top))
        return false;
    ShowWindow(window.Handle(), SW_SHOWNOACTIVATE);
    UpdateWindow(window.Handle());
    return true;
}

}  // namespace

Desk::Desk(const RECT& area) : area_(area) {
    markerRect_ = RECT{area.right - kMarkerSize - 8, area.top + 4, area.right - 8,
                       area.top + 4 + kMarkerSize};
    MakePopup(board_, "VantrelDemoBoard", area, [this](HDC dc) { PaintBoard(dc); });
    MakePopup(note_, "VantrelDemoNote",
              RECT{area.left + 20, area.bottom - kNoteHeight - 20, area.left + 20 + kNoteWidth,
                   area.bottom - 20},
              [this](HDC dc) { PaintNote(dc); });
    MakePopup(marker_, "VantrelDemoMarker", markerRect_, [this](HDC dc) {
        Fill(dc, RECT{0, 0, kMarkerSize, kMarkerSize}, Gdi(markerColour_));
    });
}

void Desk::PaintBoard(HDC dc) noexcept {
    const RECT all{0, 0, area_.right - area_.left, area_.bottom - area_.top};
    Fill(dc, all, RGB(250, 250, 244));
    Fill(dc, RECT{0, 0, all.right, 24}, RGB(40, 70, 140));
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, RGB(255, 255, 255));
    TextOutA(dc, 8, 4, "Geography - lesson 4", 20);
    SetTextColor(dc, RGB(20, 20, 20));
    for (size_t line = 0; line * kCharsPerLine < typed_; ++line) {
        const size_t first = line * kCharsPerLine;
        const size_t count = typed_ - first < kCharsPerLine ? typed_ - first : kCharsPerLine;
        TextOutA(dc, 8, 32 + static_cast<int>(line) * kLineHeight, kLesson + first,
                 static_cast<int>(count));
    }
}

void Desk::PaintNote(HDC dc) noexcept {
    Fill(dc, RECT{0, 0, kNoteWidth, kNoteHeight}, RGB(255, 226, 90));
    Fill(dc, RECT{0, 0, kNoteWidth, 12}, RGB(160, 120, 20));
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, RGB(60, 40, 0));
    TextOutA(dc, 6, 20, "homework!", 9);
    char text[16];
    const int n = wsprintfA(text, "step %d", step_);
    TextOutA(dc, 6, 34, text, n);
}

void Desk::Step() noexcept {
    ++step_;
    // One more character, and a fresh board when the text is done.
    typed_ = typed_ < std::strlen(kLesson) ? typed_ + 1 : 0;
    const int line = static_cast<int>((typed_ ? typed_ - 1 : 0) / kCharsPerLine);
    RECT changed{0, 32 + line * kLineHeight, area_.right - area_.left,
                 32 + (line + 1) * kLineHeight};
    InvalidateRect(board_.Handle(), typed_ ? &changed : nullptr, FALSE);
    UpdateWindow(board_.Handle());

    // The note is dragged along a slow figure in the lower part of the board, by its strip.
    const double t = step_ * 0.04;
    const int width = area_.right - area_.left - kNoteWidth - 16;
    const int height = area_.bottom - area_.top - kNoteHeight - 100;
    const int x = area_.left + 8 + static_cast<int>(width * (0.5 + 0.5 * std::sin(t * 0.9)));
    const int y = area_.top + 92 + static_cast<int>(height * (0.5 + 0.5 * std::sin(t * 1.7)));
    SetWindowPos(note_.Handle(), nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    InvalidateRect(note_.Handle(), nullptr, FALSE);
    UpdateWindow(note_.Handle());
    SetCursorPos(x + 30, y + 6);
}

void Desk::SetMarker(uint32_t colour) noexcept {
    markerColour_ = colour;
    InvalidateRect(marker_.Handle(), nullptr, FALSE);
    UpdateWindow(marker_.Handle());
}

POINT Desk::MarkerSpot() const noexcept {
    return POINT{(markerRect_.left + markerRect_.right) / 2 - area_.left,
                 (markerRect_.top + markerRect_.bottom) / 2 - area_.top};
}

}  // namespace vantrel::demo
