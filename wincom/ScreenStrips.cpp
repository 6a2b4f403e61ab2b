// The one large read that prepares strip reads (see ScreenStrips.h).
#include "ScreenStrips.h"

#include <atomic>

#include "UniqueHandle.h"

namespace vantrel {

void PrepareScreenReads(HDC screen) noexcept {
    static std::atomic<bool> prepared{false};
    if (prepared.load() || !screen)
        return;
    constexpr int kPrepareBytes = 496 * 1024;
    const int width = GetDeviceCaps(screen, HORZRES);
    const int rows =
        std::min(GetDeviceCaps(screen, VERTRES), kPrepareBytes / std::max(1, 4 * width));
    if (width <= 0 || rows <= 0)
        return;
    BITMAPINFO bmi{};
    bmi.bmiHeader =
        BITMAPINFOHEADER{sizeof(BITMAPINFOHEADER), width, -rows, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    void* bits = nullptr;
    UniqueHdc mem(CreateCompatibleDC(screen));
    UniqueBitmap dib(CreateDIBSection(screen, &bmi, DIB_RGB_COLORS, &bits, nullptr, 0));
    if (!mem || !dib)
        return;
    SelectObjectGuard select(mem.get(), dib.get());
    if (BitBlt(mem.get(), 0, 0, width, rows, screen, 0, 0, SRCCOPY) && GdiFlush())
        prepared.store(true);
}

}  // namespace vantrel
