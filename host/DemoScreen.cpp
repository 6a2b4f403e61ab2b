// The demo's screen helpers (see DemoScreen.h).
#include "DemoScreen.h"

#include "wincom/UniqueHandle.h"

namespace vantrel::host {

void PumpFor(DWORD ms) {
    for (const DWORD start = GetTickCount(); GetTickCount() - start < ms;) {
        MSG msg;
        while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE))
            DispatchMessageA(&msg);
        Sleep(5);
    }
}

std::vector<uint16_t> ScreenAt555(int width, int height) {
    std::vector<uint16_t> out;
    WindowDc screen(nullptr);
    UniqueHdc mem(CreateCompatibleDC(screen.get()));
    BITMAPINFO bmi{};
    bmi.bmiHeader =
        BITMAPINFOHEADER{sizeof(BITMAPINFOHEADER), width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    void* bits = nullptr;
    UniqueBitmap dib(CreateDIBSection(screen.get(), &bmi, DIB_RGB_COLORS, &bits, nullptr, 0));
    if (!mem || !dib)
        return out;
    SelectObjectGuard select(mem.get(), dib.get());
    BitBlt(mem.get(), 0, 0, width, height, screen.get(), 0, 0, SRCCOPY);
    GdiFlush();
    const auto* px = static_cast<const uint32_t*>(bits);
    out.resize(static_cast<size_t>(width) * height);
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<uint16_t>((((px[i] >> 19) & 0x1F) << 10) |
                                       (((px[i] >> 11) & 0x1F) << 5) | ((px[i] >> 3) & 0x1F));
    return out;
}

}  // namespace vantrel::host
