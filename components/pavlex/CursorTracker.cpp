// Pointer polling. A hidden pointer is sent as a transparent shape, so the receivers stop
// drawing it. A handle whose bits cannot be read keeps the last good shape.
#include "CursorTracker.h"

#include "CursorRecord.h"

namespace vantrel::pavlex {

DWORD CursorTracker::poll(POINT* position) {
    CURSORINFO info{};
    info.cbSize = sizeof info;
    POINT now{};
    HCURSOR handle = handle_;
    if (GetCursorInfo(&info)) {
        now = info.ptScreenPos;
        handle = (info.flags & CURSOR_SHOWING) ? info.hCursor : nullptr;
    } else if (!GetCursorPos(&now)) {
        return 0;
    }

    DWORD flags = 0;
    if (!known_ || now.x != position_.x || now.y != position_.y)
        flags |= packet::kCursorNewPosition;
    if (!known_ || handle != handle_) {
        CursorShape shape;
        if (!handle) {
            shape_ = CursorShape::transparent();
            flags |= packet::kCursorNewShape;
        } else if (CursorShape::fromCursor(handle, &shape)) {
            shape_ = std::move(shape);
            flags |= packet::kCursorNewShape;
        } else if (!known_) {
            shape_ = CursorShape::transparent();
            flags |= packet::kCursorNewShape;
        }
    }
    known_ = true;
    handle_ = handle;
    position_ = now;
    if (position)
        *position = now;
    return flags;
}

}  // namespace vantrel::pavlex
