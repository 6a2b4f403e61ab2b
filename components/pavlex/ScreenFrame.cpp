// Screen grabs. CAPTUREBLT includes layered windows where the platform has them.
#include "ScreenFrame.h"

#include <new>

namespace vantrel::pavlex {

bool ScreenFrame::create(HDC screen, int width, int height) noexcept {
    destroy();
    if (width <= 0 || height <= 0)
        return false;
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    UniqueHdc dc(CreateCompatibleDC(screen));
    if (!dc)
        return false;
    UniqueBitmap bitmap(CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0));
    if (!bitmap || !bits)
        return false;
    auto selection = std::unique_ptr<SelectObjectGuard>(
        new (std::nothrow) SelectObjectGuard(dc.get(), bitmap.get()));
    if (!selection || !*selection)
        return false;
    dc_ = std::move(dc);
    bitmap_ = std::move(bitmap);
    selection_ = std::move(selection);
    bits_ = static_cast<const std::uint8_t*>(bits);
    width_ = width;
    height_ = height;
    return true;
}

void ScreenFrame::destroy() noexcept {
    selection_.reset();
    bitmap_.reset();
    dc_.reset();
    bits_ = nullptr;
    width_ = height_ = 0;
}

bool ScreenFrame::grab(HDC screen, int top, int rows) noexcept {
    if (!valid() || rows <= 0 || rows > height_)
        return false;
    const BOOL ok = BitBlt(dc_.get(), 0, 0, width_, rows, screen, 0, top, SRCCOPY | CAPTUREBLT);
    GdiFlush();
    return ok != FALSE;
}

}  // namespace vantrel::pavlex
