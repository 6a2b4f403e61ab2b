// Screen grabs (see ScreenPixels.h).
#include "ScreenPixels.h"

#include <cstring>

#include "UniqueHandle.h"

namespace vantrel {

std::vector<uint32_t> GrabScreen32(const RECT& r) {
    const int w = r.right - r.left, h = r.bottom - r.top;
    if (w <= 0 || h <= 0)
        return {};
    std::vector<uint32_t> px(static_cast<size_t>(w) * h);
    BITMAPINFO bmi{};
    bmi.bmiHeader = BITMAPINFOHEADER{sizeof(BITMAPINFOHEADER), w, -h, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    WindowDc screen(nullptr);
    UniqueHdc mem(CreateCompatibleDC(screen.get()));
    void* bits = nullptr;
    UniqueBitmap dib(CreateDIBSection(screen.get(), &bmi, DIB_RGB_COLORS, &bits, nullptr, 0));
    if (!mem || !dib)
        return {};
    SelectObjectGuard select(mem.get(), dib.get());
    BitBlt(mem.get(), 0, 0, w, h, screen.get(), r.left, r.top, SRCCOPY);
    GdiFlush();
    std::memcpy(px.data(), bits, px.size() * 4);
    return px;
}

std::vector<uint16_t> GrabScreen555(const RECT& r) {
    const std::vector<uint32_t> px = GrabScreen32(r);
    std::vector<uint16_t> out(px.size());
    for (size_t i = 0; i < px.size(); ++i)
        out[i] = To555(px[i]);
    return out;
}

Pixels GrabScreen(const RECT& r) {
    Pixels p;
    p.data = GrabScreen32(r);
    if (!p.data.empty()) {
        p.width = r.right - r.left;
        p.height = r.bottom - r.top;
    }
    return p;
}

}  // namespace vantrel
