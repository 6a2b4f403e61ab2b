// A window for the live benchmarks (capture, cast): it animates a moving picture that changes
// every pixel it covers, one frame per Step: bars and a gradient, or a picture of real screen
// content (two window heights of 32-bit rows, scrolled as a page is).
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

#include "common/Screen.h"

namespace vantrel::bench {

// A top-most, never activated window that draws frame n of a moving picture: bars and a
// gradient scrolling by a few pixels per frame, so every pixel of it changes.
class Animation {
  public:
    explicit Animation(const RECT& where, std::vector<uint32_t> picture = {})
        : width_(where.right - where.left),
          pixels_(picture.size() == static_cast<size_t>(width_) * (where.bottom - where.top) * 2
                      ? std::move(picture)
                      : Picture(width_, where.bottom - where.top)),
          window_(where, [this](HDC dc, const RECT& client) {
              const int offset = (frame_ * 6) % client.bottom;
              test::PaintPixels(dc, width_, client.bottom,
                                &pixels_[static_cast<size_t>(offset) * width_]);
          }) {
        Step();
    }
    void Step() {
        ++frame_;
        window_.Repaint();
        test::PumpMessages();
    }

  private:
    // Two heights of rows, so that any scroll offset has a whole window of them.
    static std::vector<uint32_t> Picture(int width, int height) {
        std::vector<uint32_t> pixels(static_cast<size_t>(width) * height * 2);
        for (int y = 0; y < 2 * height; ++y)
            for (int x = 0; x < width; ++x)
                pixels[static_cast<size_t>(y) * width + x] =
                    ((x / 24 + y / 24) % 2 ? 0x203040u : 0xE0D0C0u) ^
                    ((y * 255 / (2 * height)) << 8);
        return pixels;
    }

    int width_;
    int frame_ = 0;
    std::vector<uint32_t> pixels_;
    test::PaintedWindow window_;
};

}  // namespace vantrel::bench
