// What the demo's screen steps share: pumping the demo thread's messages while time passes, and
// the screen read through a 32-bit DIB of our own, reduced to the stream's 5-5-5.
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

namespace vantrel::host {

void PumpFor(DWORD ms);
// width x height pixels from the top-left corner, top row first; empty on failure.
std::vector<uint16_t> ScreenAt555(int width, int height);

}  // namespace vantrel::host
