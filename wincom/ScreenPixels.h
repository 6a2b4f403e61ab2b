// The screen's pixels as programs of this project compare them: grabs through a 32-bit DIB of
// our own, and the stream's 16-bit 5-5-5 form (5 high bits of each channel), in which a picture
// that went through the desktop stream equals the screen it came from. The host's reports, the
// demo and the tests use them.
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

#include "Png.h"

namespace vantrel {

// 5-5-5 of a 0x00RRGGBB pixel.
inline uint16_t To555(uint32_t bgr) noexcept {
    return static_cast<uint16_t>((((bgr >> 19) & 0x1F) << 10) | (((bgr >> 11) & 0x1F) << 5) |
                                 ((bgr >> 3) & 0x1F));
}

// The pixels of r on the screen, top row first; empty when the grab failed.
std::vector<uint32_t> GrabScreen32(const RECT& r);
// The same reduced to 5-5-5.
std::vector<uint16_t> GrabScreen555(const RECT& r);
// The same as a picture.
Pixels GrabScreen(const RECT& r);

}  // namespace vantrel
