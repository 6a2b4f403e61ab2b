// A grab of the screen or of a strip of it: a top-down 32-bit DIB section in a memory DC,
// filled with BitBlt from the screen DC. The change detector grabs strips into one.
#pragma once

#include <windows.h>

#include <memory>

#include "TileMap.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::pavlex {

class ScreenFrame {
  public:
    ScreenFrame() = default;
    ScreenFrame(const ScreenFrame&) = delete;
    ScreenFrame& operator=(const ScreenFrame&) = delete;

    // (Re)allocates the frame for width x height pixels; false when GDI refuses.
    bool create(HDC screen, int width, int height) noexcept;
    void destroy() noexcept;
    bool valid() const noexcept { return bits_ != nullptr; }

    // Copies the screen's top-left width x height pixels into the frame; or, from screen row
    // top, rows rows (at most the frame's height) into the frame's first rows.
    bool grab(HDC screen) noexcept { return grab(screen, 0, height_); }
    bool grab(HDC screen, int top, int rows) noexcept;
    FrameView view() const noexcept { return FrameView{bits_, width_, height_, width_ * 4}; }

  private:
    UniqueHdc dc_;
    UniqueBitmap bitmap_;
    std::unique_ptr<SelectObjectGuard> selection_;  // dropped before bitmap_ is deleted
    const std::uint8_t* bits_ = nullptr;
    int width_ = 0;
    int height_ = 0;
};

}  // namespace vantrel::pavlex
