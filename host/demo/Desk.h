// The teacher's desk in the classroom demo: what moves on the shared screen. A whiteboard on
// which a text is being typed, a note dragged around it with the pointer, and a small marker
// whose colour the demo changes to time how long a change takes to reach every student's
// window. All windows are top-most popups that are never activated (without a window manager
// an active window takes seconds to go away); the demo's thread pumps their messages.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "wincom/Window.h"

namespace vantrel::demo {

class Desk {
  public:
    explicit Desk(const RECT& area);
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    bool Open() const noexcept { return board_ && note_ && marker_; }
    const RECT& Area() const noexcept { return area_; }
    // One step of the lesson (about every 40 ms): a character typed, the note dragged on.
    void Step() noexcept;
    // Paints the marker in colour (0x00RRGGBB) before it returns.
    void SetMarker(uint32_t colour) noexcept;
    // The marker's centre, relative to the desk's top-left corner.
    POINT MarkerSpot() const noexcept;
    // The pointer to a place outside the desk.
    static void ParkPointer(POINT where) noexcept { SetCursorPos(where.x, where.y); }

  private:
    void PaintBoard(HDC dc) noexcept;
    void PaintNote(HDC dc) noexcept;

    RECT area_;
    RECT markerRect_{};
    int step_ = 0;
    size_t typed_ = 0;
    uint32_t markerColour_ = 0x000000;
    Window board_, note_, marker_;
};

}  // namespace vantrel::demo
