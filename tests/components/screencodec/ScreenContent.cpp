// Screen-like test payloads: anti-aliased glyph rows on white, flat panels with borders,
// gradients, and a noisy photograph-like area.
#include "ScreenContent.h"

#include <windows.h>

#include <cmath>
#include <cstring>
#include <random>

namespace screentest {
namespace {

std::uint16_t Rgb555(int r, int g, int b) {
    return static_cast<std::uint16_t>(((r >> 3) << 10) | ((g >> 3) << 5) | (b >> 3));
}

std::uint16_t Rgb565(int r, int g, int b) {
    return static_cast<std::uint16_t>(((r >> 3) << 11) | ((g >> 2) << 5) | (b >> 3));
}

int Clamp(double v) {
    return v < 0 ? 0 : v > 255 ? 255 : static_cast<int>(v);
}

}  // namespace

std::vector<std::uint8_t> RandomBytes(std::size_t cb, unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<std::uint8_t> v(cb);
    for (auto& b : v)
        b = static_cast<std::uint8_t>(rng());
    return v;
}

std::vector<std::uint8_t> MakePayload(Content content, int width, int rows, unsigned seed) {
    const bool masks = content == Content::Photo565;
    BITMAPINFOHEADER h{};
    h.biSize = sizeof h;
    h.biWidth = 1920;
    h.biHeight = -1080;
    h.biPlanes = 1;
    h.biBitCount = 16;
    h.biCompression = masks ? BI_BITFIELDS : BI_RGB;
    std::vector<std::uint8_t> out(reinterpret_cast<std::uint8_t*>(&h),
                                  reinterpret_cast<std::uint8_t*>(&h) + sizeof h);
    if (masks) {
        const DWORD m[3] = {0xF800, 0x07E0, 0x001F};
        out.insert(out.end(), reinterpret_cast<const std::uint8_t*>(m),
                   reinterpret_cast<const std::uint8_t*>(m) + sizeof m);
    }
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0, 6);
    std::vector<std::uint8_t> glyphs(64 * 8 * 14);
    for (auto& g : glyphs)
        g = rng() % 7 < 4 ? 0 : rng() % 4;
    const std::uint16_t ink[4] = {Rgb555(255, 255, 255), Rgb555(170, 170, 170), Rgb555(85, 85, 85),
                                  Rgb555(0, 0, 0)};
    std::vector<std::uint16_t> row(width);
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < width; ++x) {
            std::uint16_t p = 0;
            switch (content) {
                case Content::Text: {
                    const int glyph = ((x / 8) * 7 + (y / 15) * 13) % 64;
                    const int gy = y % 15;
                    p = gy < 14 && (x / 8) % 9 != 8 ? ink[glyphs[(glyph * 14 + gy) * 8 + x % 8]]
                                                    : ink[0];
                    break;
                }
                case Content::Flat:
                    p = (x % 200 == 0 || y % 40 == 0) ? Rgb555(100, 100, 100)
                                                      : Rgb555(212, 208, 200 + (x / 200) % 3);
                    break;
                case Content::Gradient:
                    p = Rgb555((x + y) / 4 & 255, 128, 255 - y % 256);
                    break;
                case Content::Photo:
                case Content::Photo565: {
                    const double u = x / 640.0, v = y / 480.0;
                    const int r = Clamp(128 + 80 * std::sin(6 * u + 2 * v) + noise(rng));
                    const int g = Clamp(110 + 70 * std::sin(3 * u - 5 * v) + noise(rng));
                    const int b = Clamp(90 + 60 * std::cos(4 * u + 7 * v) + noise(rng));
                    p = masks ? Rgb565(r, g, b) : Rgb555(r, g, b);
                    break;
                }
                case Content::Random:
                    p = static_cast<std::uint16_t>(rng());
                    break;
            }
            row[x] = p;
        }
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(row.data());
        out.insert(out.end(), bytes, bytes + 2 * width);
    }
    return out;
}

}  // namespace screentest
