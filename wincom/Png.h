// PNG files through the Windows Imaging Component, for pictures that people look at: the host's
// snapshots and reports, the demo's report folder, and the tests that read them back. Pixels are
// 32-bit 0x00RRGGBB words (a top-down 32-bit DIB's layout), top row first; the file holds 24-bit
// colour. The calling thread must have COM initialised.
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

namespace vantrel {

struct Pixels {
    int width = 0;
    int height = 0;
    std::vector<uint32_t> data;  // width * height, top row first

    bool Empty() const noexcept { return data.empty(); }
    uint32_t At(int x, int y) const noexcept { return data[static_cast<size_t>(y) * width + x]; }
    // The part r (clipped to the picture).
    Pixels Crop(const RECT& r) const;
};

HRESULT WritePng(const char* path, const Pixels& pixels) noexcept;
HRESULT ReadPng(const char* path, Pixels* pixels) noexcept;

}  // namespace vantrel
