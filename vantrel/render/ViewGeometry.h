// View geometry of the render window as pure functions: which part of the desktop picture is
// shown where, for the three scroll modes, the drag and scroll-bar moves, the local mouse, and
// who may move the drawn pointer. No window, no state: DesktopRenderBase feeds them its fields
// and the window's metrics and applies what they return.
//
// Rectangles: source in desktop pixels, destination and client in client pixels; an empty
// source or destination means the default (the whole picture, the whole client area).
#pragma once

#include <windows.h>

namespace vantrel::view {

// Scroll modes: who places the view.
enum ScrollMode : int { RSM_MANUAL = 0, RSM_FOLLOW = 1, RSM_SCROLL = 2 };
// Cursor move modes: who moves the drawn pointer.
enum CursorMoveMode : int { CMM_LOCAL = 0, CMM_REMOTE = 1, CMM_SWITCH = 2 };

// How close the drawn pointer may come to the edge of a following view.
constexpr int kFollowMargin = 32;

inline LONG Width(const RECT& r) noexcept {
    return r.right - r.left;
}
inline LONG Height(const RECT& r) noexcept {
    return r.bottom - r.top;
}

// r when it is not empty, fallback otherwise.
RECT OrDefault(const RECT& r, const RECT& fallback) noexcept;

// Client rectangle in to the picture, through the effective source S and destination D
// (scaled, truncated toward zero, clipped to S); and back (clipped to D).
RECT ClientToSource(const RECT& in, const RECT& S, const RECT& D) noexcept;
RECT SourceToClient(const RECT& in, const RECT& S, const RECT& D) noexcept;

struct Placement {
    RECT source{};
    RECT destination{};
};

// RSM_FOLLOW: a 1:1 view of client size that pans to keep the pointer (cursor, desktop pixels)
// kFollowMargin pixels inside it; an axis on which the picture is smaller is shown whole and
// centred. image is the picture's size, source the current source rectangle.
Placement FollowLayout(SIZE client, SIZE image, const RECT& source, POINT cursor) noexcept;

struct ScrollPlacement : Placement {
    bool needH = false;  // the picture is wider than the view: a horizontal bar is wanted
    bool needV = false;
};

// RSM_SCROLL: a 1:1 view at the current source position (kept inside the picture), centred on an
// axis where the picture is smaller. hasH, hasV: the window has the bars now; bars: their
// thickness (SM_CXVSCROLL, SM_CYHSCROLL), so the need is judged on the client area without them.
ScrollPlacement ScrollLayout(const RECT& client, SIZE image, const RECT& source, bool hasH,
                             bool hasV, SIZE bars) noexcept;

// A drag by (dx, dy) client pixels: the source moved against the mouse, kept inside imageRect
// with its size.
RECT SpanSource(const RECT& source, const RECT& imageRect, int dx, int dy) noexcept;

// The desktop position under client position (x, y) when the whole client area shows source
// (imageRect when source is empty). False when the client area has no size.
bool LocalToDesktop(const RECT& source, const RECT& imageRect, const RECT& client, int x, int y,
                    POINT* out) noexcept;

// Whether the local mouse moves the drawn pointer in this cursor move mode.
bool LocalMovesPointer(int mode) noexcept;
// Whether a pointer position from the stream moves it, now, in this mode (tick counts compared
// in unsigned 32-bit arithmetic).
bool StreamMovesPointer(int mode, DWORD now, DWORD lastLocalMove, DWORD switchTimeout) noexcept;

// A scroll bar request (SB_ code) from position pos on a bar with range minimum min, scroll limit
// limit (range maximum - page + 1) and page size page; thumb is the position the thumb messages
// carry. The new position.
int ScrollRequest(int code, int pos, int min, int limit, int page, int thumb) noexcept;

}  // namespace vantrel::view
