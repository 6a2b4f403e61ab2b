// Fitting pointer shapes into the record. The receiver finds the XOR bits (width x height) / 8
// bytes after the AND mask while the sender counts (bytes per row x height): keeping the width
// a multiple of 16 makes both the same and keeps every row WORD-aligned as CreateIcon wants.
#include "CursorShape.h"

#include <algorithm>
#include <utility>

#include "wincom/UniqueHandle.h"

namespace vantrel::pavlex {

namespace {

constexpr int kLargestSource = 256;

struct Region {
    int left;
    int top;
    int width;
    int height;
};

class SourcePixels {
  public:
    explicit SourcePixels(const CursorShape::Source& s) : s_(s) {}

    int andBit(int x, int y) const {
        return (s_.andMask[y * s_.andStride + x / 8] >> (7 - x % 8)) & 1;
    }
    std::uint32_t xorValue(int x, int y) const {
        const std::uint8_t* row = &s_.xorBits[y * s_.xorStride];
        if (s_.monochrome)
            return (row[x / 8] >> (7 - x % 8)) & 1;
        const std::uint8_t* p = row + x * 4;
        return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
    }
    bool visible(int x, int y) const { return andBit(x, y) == 0 || xorValue(x, y) != 0; }

  private:
    const CursorShape::Source& s_;
};

bool Consistent(const CursorShape::Source& s) {
    if (s.width <= 0 || s.height <= 0 || s.width > kLargestSource || s.height > kLargestSource)
        return false;
    const int xorRow = s.monochrome ? (s.width + 7) / 8 : s.width * 4;
    return s.andStride * 8 >= s.width && s.xorStride >= xorRow &&
           s.andMask.size() >= static_cast<size_t>(s.andStride) * s.height &&
           s.xorBits.size() >= static_cast<size_t>(s.xorStride) * s.height;
}

// The part of the source that becomes the shape: all of it when it fits, else the smallest
// window around the visible pixels and the hot spot (which then may still need scaling).
Region ChooseRegion(const CursorShape::Source& s, const SourcePixels& pixels, int hotX, int hotY) {
    const int max = CursorShape::kMaxSize;
    if (s.width <= max && s.height <= max)
        return Region{0, 0, s.width, s.height};
    int left = hotX, top = hotY, right = hotX + 1, bottom = hotY + 1;
    for (int y = 0; y < s.height; ++y) {
        for (int x = 0; x < s.width; ++x) {
            if (!pixels.visible(x, y))
                continue;
            left = std::min(left, x);
            right = std::max(right, x + 1);
            top = std::min(top, y);
            bottom = std::max(bottom, y + 1);
        }
    }
    if (right - left > max || bottom - top > max)
        return Region{left, top, right - left, bottom - top};
    const int width = std::min(max, s.width);
    const int height = std::min(max, s.height);
    return Region{std::min(left, s.width - width), std::min(top, s.height - height), width, height};
}

}  // namespace

bool CursorShape::fit(const Source& source, CursorShape* shape) {
    if (!shape || !Consistent(source))
        return false;
    const SourcePixels pixels(source);
    const int hotX = std::clamp(source.hotX, 0, source.width - 1);
    const int hotY = std::clamp(source.hotY, 0, source.height - 1);
    const Region region = ChooseRegion(source, pixels, hotX, hotY);

    const int longest = std::max(region.width, region.height);
    const int scaledTo = std::min(longest, kMaxSize);
    const int outWidth = std::max(1, (region.width * scaledTo + longest - 1) / longest);
    const int outHeight = std::max(1, (region.height * scaledTo + longest - 1) / longest);

    CursorShape out;
    out.width_ = (outWidth + 15) / 16 * 16;
    out.height_ = outHeight;
    out.bitsPerPixel_ = source.monochrome ? 1 : 32;
    out.hotX_ = std::min((hotX - region.left) * outWidth / region.width, outWidth - 1);
    out.hotY_ = std::min((hotY - region.top) * outHeight / region.height, outHeight - 1);
    const int andRow = out.andRowBytes();
    const int xorRow = source.monochrome ? andRow : out.width_ * 4;
    out.andMask_.assign(static_cast<size_t>(andRow) * out.height_, 0xFF);
    out.xorBits_.assign(static_cast<size_t>(xorRow) * out.height_, 0);

    // A scaled pixel shows the first visible source pixel it covers, so thin lines survive the
    // reduction; unscaled, the footprint is the one source pixel.
    auto firstVisible = [&pixels](int x0, int x1, int y0, int y1) -> std::pair<int, int> {
        for (int y = y0; y < y1; ++y) {
            for (int x = x0; x < x1; ++x) {
                if (pixels.visible(x, y))
                    return {x, y};
            }
        }
        return {x0, y0};
    };
    for (int y = 0; y < outHeight; ++y) {
        const int y0 = region.top + y * region.height / outHeight;
        const int y1 = std::max(y0 + 1, region.top + (y + 1) * region.height / outHeight);
        for (int x = 0; x < outWidth; ++x) {
            const int x0 = region.left + x * region.width / outWidth;
            const int x1 = std::max(x0 + 1, region.left + (x + 1) * region.width / outWidth);
            const auto [sx, sy] = firstVisible(x0, x1, y0, y1);
            const std::uint8_t bit = static_cast<std::uint8_t>(0x80 >> (x % 8));
            if (!pixels.andBit(sx, sy))
                out.andMask_[y * andRow + x / 8] &= ~bit;
            const std::uint32_t value = pixels.xorValue(sx, sy);
            if (source.monochrome) {
                if (value)
                    out.xorBits_[y * xorRow + x / 8] |= bit;
            } else {
                std::uint8_t* p = &out.xorBits_[y * xorRow + x * 4];
                for (int i = 0; i < 4; ++i)
                    p[i] = static_cast<std::uint8_t>(value >> (8 * i));
            }
        }
    }
    *shape = std::move(out);
    return true;
}

CursorShape CursorShape::transparent() {
    CursorShape out;
    out.width_ = out.height_ = kMaxSize;
    out.bitsPerPixel_ = 1;
    out.andMask_.assign(kMaxSize / 8 * kMaxSize, 0xFF);
    out.xorBits_.assign(kMaxSize / 8 * kMaxSize, 0);
    return out;
}

namespace {

// Reads bitmap as top-down rows of bpp (1 or 32) bits; returns the row stride, 0 on failure.
int ReadBits(HDC dc, HBITMAP bitmap, int width, int height, int bpp,
             std::vector<std::uint8_t>* bits) {
    struct {
        BITMAPINFOHEADER header;
        RGBQUAD colors[2];
    } info{};
    info.header.biSize = sizeof(BITMAPINFOHEADER);
    info.header.biWidth = width;
    info.header.biHeight = -height;
    info.header.biPlanes = 1;
    info.header.biBitCount = static_cast<WORD>(bpp);
    info.header.biCompression = BI_RGB;
    const int stride = (width * bpp + 31) / 32 * 4;
    bits->assign(static_cast<size_t>(stride) * height, 0);
    if (GetDIBits(dc, bitmap, 0, height, bits->data(), reinterpret_cast<BITMAPINFO*>(&info),
                  DIB_RGB_COLORS) != height)
        return 0;
    // Bit value 1 must mean "set" (white); a table that says otherwise is turned around.
    if (bpp == 1 && info.colors[0].rgbRed > info.colors[1].rgbRed) {
        for (std::uint8_t& b : *bits)
            b = static_cast<std::uint8_t>(~b);
    }
    return stride;
}

}  // namespace

bool CursorShape::fromCursor(HCURSOR cursor, CursorShape* shape) {
    ICONINFO icon{};
    if (!cursor || !GetIconInfo(cursor, &icon))
        return false;
    UniqueBitmap mask(icon.hbmMask);
    UniqueBitmap color(icon.hbmColor);
    BITMAP maskInfo{};
    if (!mask || GetObjectA(mask.get(), sizeof maskInfo, &maskInfo) != sizeof maskInfo)
        return false;

    Source source;
    source.monochrome = !color;
    source.width = maskInfo.bmWidth;
    // A monochrome pointer's mask bitmap holds the AND mask above the XOR bits.
    source.height = source.monochrome ? maskInfo.bmHeight / 2 : maskInfo.bmHeight;
    source.hotX = static_cast<int>(icon.xHotspot);
    source.hotY = static_cast<int>(icon.yHotspot);
    if (source.width <= 0 || source.height <= 0 || source.width > kLargestSource ||
        source.height > kLargestSource)
        return false;

    WindowDc screen(nullptr);
    if (!screen)
        return false;
    std::vector<std::uint8_t> maskBits;
    const int maskStride =
        ReadBits(screen.get(), mask.get(), source.width, maskInfo.bmHeight, 1, &maskBits);
    if (!maskStride)
        return false;
    source.andStride = maskStride;
    if (source.monochrome) {
        const size_t half = static_cast<size_t>(maskStride) * source.height;
        source.andMask.assign(maskBits.begin(), maskBits.begin() + half);
        source.xorBits.assign(maskBits.begin() + half, maskBits.begin() + 2 * half);
        source.xorStride = maskStride;
    } else {
        source.andMask = std::move(maskBits);
        source.xorStride =
            ReadBits(screen.get(), color.get(), source.width, source.height, 32, &source.xorBits);
        if (!source.xorStride)
            return false;
    }
    return fit(source, shape);
}

}  // namespace vantrel::pavlex
