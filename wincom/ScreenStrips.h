// Reading the screen in strips, as the change detector and the capture do. Every BitBlt from the
// screen is a round trip to the display, so strips are not small; under Wine each read also gets a
// temporary image (twice: the reply and the picture) from the C library's allocator, which maps
// and zeroes fresh pages for every block above its threshold and gives the heap's top back
// whenever more than twice that lies free. Left alone that threshold is 128 KiB: strips above it,
// or a heap whose top keeps being trimmed, cost about three times as much per pixel. The
// allocator raises the threshold to the size of the largest mapped block freed (up to 512 KiB),
// so one read of a strip just below that keeps every later strip read in reused memory.
#pragma once

#include <windows.h>

#include <algorithm>

namespace vantrel {

// Largest strip of one screen read at 4 bytes a pixel. Measured under Wine at 1024 x 768 with the
// pixels painted by another process, a whole-screen read in 160 KiB strips costs about 5.5 ms
// unprepared and 2.1 ms prepared. Larger strips read faster in a bare loop but doubled the change
// detector's idle cost on its own thread (320 KiB: 5.5 % of a core against 2.5 %).
constexpr int kScreenStripBytes = 160 * 1024;

inline int ScreenStripRows(int width) noexcept {
    return std::max(1, kScreenStripBytes / std::max(1, 4 * width));
}

// One read of a 496 KiB strip of the screen into a DIB of its own, once per module that links this
// library (again only after a failure); elsewhere than under Wine it costs just that read.
void PrepareScreenReads(HDC screen) noexcept;

}  // namespace vantrel
