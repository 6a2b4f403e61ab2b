// A made-up teacher's desktop for the round-trip test: 1024 x 768 at 16 bpp (5-5-5, BI_RGB) with
// what classroom screens are made of: flat window areas, text-like strokes, a gradient wallpaper
// and a task bar. Sent without a screen.
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

namespace vantrel::test {

class SyntheticDesktop {
  public:
    static constexpr LONG kWidth = 1024;
    static constexpr LONG kHeight = 768;
    static constexpr uint32_t kBitsPerPixel = 16;

    SyntheticDesktop();

    RECT Bounds() const noexcept { return RECT{0, 0, kWidth, kHeight}; }
    // The payload header of every band: the whole desktop, top-down, 5-5-5.
    BITMAPINFOHEADER Header() const noexcept;
    // Unpadded rows of r (inside the desktop), top row first, rows starting firstRow rows down.
    void CopyRows(const RECT& r, uint32_t firstRow, uint32_t rows, BYTE* dst) const noexcept;
    const std::vector<uint16_t>& Pixels() const noexcept { return pixels_; }

    // Draws one more line of "typed" text in the editor window and ticks the clock; returns the
    // changed rectangles.
    std::vector<RECT> TypeLine();

  private:
    void Fill(const RECT& r, uint16_t colour);
    void Window(const RECT& r, const char* title);
    void Text(LONG x, LONG y, LONG width, uint32_t seed, uint16_t colour);

    std::vector<uint16_t> pixels_;  // kWidth x kHeight, row 0 at the top
    int typedLines_ = 0;
};

}  // namespace vantrel::test
