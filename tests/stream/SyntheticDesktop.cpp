// Drawing of the demo's made-up desktop (see SyntheticDesktop.h).
#include "SyntheticDesktop.h"

#include <algorithm>
#include <cstring>

namespace vantrel::test {

namespace {

constexpr uint16_t Rgb(int r, int g, int b) {
    return static_cast<uint16_t>(((r >> 3) << 10) | ((g >> 3) << 5) | (b >> 3));
}

constexpr uint16_t kTitle = Rgb(0, 84, 166);
constexpr uint16_t kBody = Rgb(255, 255, 255);
constexpr uint16_t kBorder = Rgb(160, 160, 160);
constexpr uint16_t kInk = Rgb(16, 16, 16);
constexpr uint16_t kTaskBar = Rgb(212, 208, 200);
constexpr uint16_t kButton = Rgb(236, 233, 216);

// Where the editor window keeps its typed lines.
constexpr RECT kEditor{96, 120, 616, 520};
constexpr LONG kLineHeight = 14;
constexpr RECT kClock{952, 744, 1016, 764};

// Deterministic pseudo-random numbers for the glyph shapes.
uint32_t Next(uint32_t& state) {
    state = state * 1664525u + 1013904223u;
    return state >> 16;
}

}  // namespace

SyntheticDesktop::SyntheticDesktop() : pixels_(static_cast<size_t>(kWidth) * kHeight) {
    // Wallpaper: a vertical blue-to-teal gradient.
    for (LONG y = 0; y < kHeight; ++y) {
        const uint16_t c = Rgb(0, 64 + y * 96 / kHeight, 128 + y * 64 / kHeight);
        std::fill_n(pixels_.begin() + static_cast<size_t>(y) * kWidth, kWidth, c);
    }
    Window(RECT{64, 64, 648, 552}, "editor");
    Window(RECT{560, 200, 968, 640}, "browser");
    for (LONG y = 240; y < 600; y += 24)
        Text(580, y, 360, static_cast<uint32_t>(y), kInk);
    Fill(RECT{0, 736, kWidth, kHeight}, kTaskBar);
    for (LONG x = 8; x < 600; x += 152)
        Fill(RECT{x, 742, x + 144, 764}, kButton);
    TypeLine();
}

BITMAPINFOHEADER SyntheticDesktop::Header() const noexcept {
    BITMAPINFOHEADER h{};
    h.biSize = sizeof h;
    h.biWidth = kWidth;
    h.biHeight = -kHeight;
    h.biPlanes = 1;
    h.biBitCount = kBitsPerPixel;
    h.biCompression = BI_RGB;
    return h;
}

void SyntheticDesktop::CopyRows(const RECT& r, uint32_t firstRow, uint32_t rows,
                                BYTE* dst) const noexcept {
    const size_t rowBytes = static_cast<size_t>(r.right - r.left) * sizeof(uint16_t);
    for (uint32_t i = 0; i < rows; ++i) {
        const size_t y = static_cast<size_t>(r.top) + firstRow + i;
        std::memcpy(dst + i * rowBytes, &pixels_[y * kWidth + r.left], rowBytes);
    }
}

std::vector<RECT> SyntheticDesktop::TypeLine() {
    const LONG y = kEditor.top + 4 + typedLines_ * kLineHeight;
    std::vector<RECT> changed;
    if (y + kLineHeight <= kEditor.bottom) {
        const LONG width = 120 + (typedLines_ * 97) % 360;
        Text(kEditor.left + 8, y, width, 1000u + static_cast<uint32_t>(typedLines_), kInk);
        changed.push_back(RECT{kEditor.left + 8, y, kEditor.left + 8 + width, y + 10});
    }
    ++typedLines_;
    // The clock: redraw its digits.
    Fill(kClock, kButton);
    Text(kClock.left + 6, kClock.top + 5, 48, 77u + static_cast<uint32_t>(typedLines_), kInk);
    changed.push_back(kClock);
    return changed;
}

void SyntheticDesktop::Fill(const RECT& r, uint16_t colour) {
    for (LONG y = r.top; y < r.bottom; ++y) {
        std::fill_n(pixels_.begin() + static_cast<size_t>(y) * kWidth + r.left, r.right - r.left,
                    colour);
    }
}

void SyntheticDesktop::Window(const RECT& r, const char* title) {
    Fill(r, kBorder);
    Fill(RECT{r.left + 2, r.top + 2, r.right - 2, r.top + 24}, kTitle);
    Fill(RECT{r.left + 2, r.top + 24, r.right - 2, r.bottom - 2}, kBody);
    // The title in white "glyphs", seeded by its text.
    uint32_t seed = 0;
    for (const char* p = title; *p; ++p)
        seed = seed * 31 + static_cast<unsigned char>(*p);
    Text(r.left + 10, r.top + 8, 12 * static_cast<LONG>(std::strlen(title)), seed, kBody);
}

// Glyph-like strokes 8 pixels high, 6 wide, a space now and then: what text looks like to a
// compressor.
void SyntheticDesktop::Text(LONG x, LONG y, LONG width, uint32_t seed, uint16_t colour) {
    uint32_t state = seed * 2654435761u + 1;
    for (LONG gx = x; gx + 6 <= x + width; gx += 7) {
        if (Next(state) % 6 == 0)
            continue;
        const uint32_t shape = Next(state);
        for (LONG dy = 0; dy < 8; ++dy) {
            for (LONG dx = 0; dx < 6; ++dx) {
                const bool stem = dx == static_cast<LONG>(shape % 3) * 2;
                const bool bar = dy == static_cast<LONG>((shape >> 4) % 4) * 2 && dx < 5;
                const bool dot = ((shape >> (dy + dx)) & 1) && dy == 7;
                if (stem || bar || dot)
                    pixels_[static_cast<size_t>(y + dy) * kWidth + gx + dx] = colour;
            }
        }
    }
}

}  // namespace vantrel::test
