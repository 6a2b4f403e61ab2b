// Render pictures and report files (see Picture.h).
#include "Picture.h"

#include <cstdio>
#include <cstring>

#include "wincom/UniqueHandle.h"

namespace vantrel::host {

namespace {

// The size of a BITMAPINFO as the stream lays it out: the header, then the colour table (8 bits
// or fewer) or the three masks (BI_BITFIELDS).
size_t InfoSize(const BITMAPINFOHEADER& h) {
    if (h.biBitCount <= 8)
        return h.biSize + (1u << h.biBitCount) * sizeof(RGBQUAD);
    return h.biSize + (h.biCompression == BI_BITFIELDS ? 3 * sizeof(DWORD) : 0);
}

}  // namespace

Outcome TakePicture(IDesktopRender* render, Pixels* out) {
    unsigned long size = 0;
    HRESULT hr = render->GetCurrectImage(&size, nullptr);
    if (hr != S_OK || size < sizeof(BITMAPINFOHEADER))
        return Outcome::Fail(kExitFailed, "there is no picture yet");
    std::vector<BYTE> image(size);
    if ((hr = render->GetCurrectImage(&size, image.data())) != S_OK)
        return Outcome::Fail(kExitFailed, WithCode("the picture could not be read", hr));
    BITMAPINFOHEADER h;
    std::memcpy(&h, image.data(), sizeof h);
    const LONG width = h.biWidth, height = h.biHeight < 0 ? -h.biHeight : h.biHeight;
    const size_t infoSize = InfoSize(h);
    const size_t packed = static_cast<size_t>(width) * h.biBitCount / 8;
    if (width <= 0 || height <= 0 || h.biSize < sizeof h || h.biBitCount == 0 ||
        infoSize + packed * height > size)
        return Outcome::Fail(kExitFailed, "the picture's format is not one this host reads");

    // A DIB section in the picture's own format, top-down, its rows padded to whole words;
    // GDI converts it to 32 bits.
    std::vector<BYTE> info(image.begin(), image.begin() + infoSize);
    BITMAPINFO* source = reinterpret_cast<BITMAPINFO*>(info.data());
    source->bmiHeader.biHeight = -height;
    source->bmiHeader.biSizeImage = 0;
    BITMAPINFO target{};
    target.bmiHeader =
        BITMAPINFOHEADER{sizeof(BITMAPINFOHEADER), width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    WindowDc screen(nullptr);
    void* sourceBits = nullptr;
    void* targetBits = nullptr;
    UniqueBitmap sourceDib(
        CreateDIBSection(screen.get(), source, DIB_RGB_COLORS, &sourceBits, nullptr, 0));
    UniqueBitmap targetDib(
        CreateDIBSection(screen.get(), &target, DIB_RGB_COLORS, &targetBits, nullptr, 0));
    UniqueHdc sourceDc(CreateCompatibleDC(screen.get())),
        targetDc(CreateCompatibleDC(screen.get()));
    if (!sourceDib || !targetDib || !sourceDc || !targetDc)
        return Outcome::Fail(kExitFailed, "no memory for the picture");
    const size_t stride = ((static_cast<size_t>(width) * h.biBitCount + 31) / 32) * 4;
    for (LONG y = 0; y < height; ++y)
        std::memcpy(static_cast<BYTE*>(sourceBits) + y * stride,
                    image.data() + infoSize + y * packed, packed);
    {
        SelectObjectGuard selectSource(sourceDc.get(), sourceDib.get());
        SelectObjectGuard selectTarget(targetDc.get(), targetDib.get());
        BitBlt(targetDc.get(), 0, 0, width, height, sourceDc.get(), 0, 0, SRCCOPY);
        GdiFlush();
    }
    out->width = width;
    out->height = height;
    out->data.assign(
        static_cast<const uint32_t*>(targetBits),
        static_cast<const uint32_t*>(targetBits) + static_cast<size_t>(width) * height);
    for (uint32_t& p : out->data)
        p &= 0x00FFFFFF;
    return Outcome::Success();
}

Outcome Report::Write(const std::string& base, const Pixels* picture) const {
    const std::string text = base + ".txt";
    FILE* f = std::fopen(text.c_str(), "w");
    if (!f)
        return Outcome::Fail(kExitFile, "the report " + text + " cannot be written");
    for (const auto& line : lines_)
        std::fprintf(f, "%s: %s\n", line.first.c_str(), line.second.c_str());
    const bool written = std::fclose(f) == 0;
    if (!written)
        return Outcome::Fail(kExitFile, "the report " + text + " cannot be written");
    if (picture && !picture->Empty()) {
        const std::string png = base + ".png";
        const HRESULT hr = WritePng(png.c_str(), *picture);
        if (FAILED(hr))
            return Outcome::Fail(kExitFile,
                                 WithCode("the picture " + png + " cannot be written", hr));
    }
    return Outcome::Success();
}

std::string SecondsText(unsigned long long ms) {
    char text[32];
    std::snprintf(text, sizeof text, "%llu.%03llu", ms / 1000, ms % 1000);
    return text;
}

std::string RateText(unsigned long long bytes, unsigned long long ms) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f kB/s", ms ? bytes / static_cast<double>(ms) : 0.0);
    return text;
}

}  // namespace vantrel::host
