// A pointer shape in the form the cursor record carries: width a multiple of 16 and at most 32,
// height at most 32, AND mask rows of width / 8 bytes, XOR bits right after the mask at 1 bpp
// (monochrome pointers) or 32 bpp (colour pointers, alpha kept). Used by the cursor tracker.
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

namespace vantrel::pavlex {

class CursorShape {
  public:
    static constexpr int kMaxSize = 32;

    // A shape as read from a cursor's bitmaps, before it is fitted: AND mask at 1 bpp and XOR
    // bits at 1 bpp (monochrome) or 32 bpp, top row first, rows of the given strides in bytes.
    struct Source {
        int width = 0;
        int height = 0;
        int hotX = 0;
        int hotY = 0;
        bool monochrome = false;
        std::vector<std::uint8_t> andMask;
        int andStride = 0;
        std::vector<std::uint8_t> xorBits;
        int xorStride = 0;
    };

    // The fitted shape of source. A shape up to 32 x 32 keeps every pixel (its width is padded
    // with transparent pixels); a larger one is cropped to its visible part and the hot spot
    // when that fits in 32 x 32, else scaled down (nearest visible pixel) to fit. False for a
    // source whose sizes do not match its buffers.
    static bool fit(const Source& source, CursorShape* shape);
    // Reads hCursor's bitmaps (GetIconInfo, GetDIBits) and fits them.
    static bool fromCursor(HCURSOR cursor, CursorShape* shape);
    // A fully transparent 32 x 32 shape: what a hidden pointer looks like.
    static CursorShape transparent();

    int width() const noexcept { return width_; }
    int height() const noexcept { return height_; }
    int hotX() const noexcept { return hotX_; }
    int hotY() const noexcept { return hotY_; }
    int bitsPerPixel() const noexcept { return bitsPerPixel_; }
    int andRowBytes() const noexcept { return width_ / 8; }
    const std::vector<std::uint8_t>& andMask() const noexcept { return andMask_; }
    const std::vector<std::uint8_t>& xorBits() const noexcept { return xorBits_; }

  private:
    int width_ = 0;
    int height_ = 0;
    int hotX_ = 0;
    int hotY_ = 0;
    int bitsPerPixel_ = 1;
    std::vector<std::uint8_t> andMask_;
    std::vector<std::uint8_t> xorBits_;
};

}  // namespace vantrel::pavlex
