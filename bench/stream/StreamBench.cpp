// Stream encode/decode benchmark (scripts/bench stream). A full-screen update through the
// capture's encoder and back through the shared decoder: the real 1024 x 768 screen with a
// desktop-like window painted over it, and a 1920 x 1080 32-bit image built from a BITMAPINFO
// with the same kind of synthetic content (nothing to grab there). Times come from the encoder's
// and decoder's own phase counters. Prints tables; no thresholds.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ScreenCodec.h"
#include "wincom/ComPtr.h"
#include "contracts/Pixmend.h"
#include "wincom/UniqueHandle.h"
#include "stream/DesktopImage.h"
#include "stream/SinkTable.h"
#include "stream/StreamDecoder.h"
#include "common/BenchClock.h"
#include "stream/StreamEncoder.h"

using namespace vantrel;

namespace {

constexpr int kFrames = 20;

double Ms(LONGLONG ticks) {
    return bench::TicksToMs(ticks);
}

LONGLONG Now() {
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return t.QuadPart;
}

// Desktop-like 32-bit pixels: a title bar and flat panels, lines of "text", a gradient and a
// photograph-like corner.
std::vector<uint32_t> Content(int w, int h) {
    std::vector<uint32_t> px(static_cast<size_t>(w) * h);
    uint32_t seed = 42;
    auto rnd = [&] { return (seed = seed * 1664525u + 1013904223u) >> 8; };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint32_t c = 0xF0F0F0;
            if (y < 30)
                c = 0x2050A0;
            else if (x < w / 5)
                c = 0xD8D8E0;
            else if (y > h * 3 / 4 && x > w * 3 / 4)
                c = rnd() & 0xFFFFFF;
            else if (y > h / 2 && x > w / 2)
                c = ((x * 255 / w) << 16) | ((y * 255 / h) << 8) | 0x40;
            else if ((y % 18) < 12 && ((x / 7 + y / 18) % 9) != 0 && ((x * 31 + y * 17) % 5) < 2)
                c = 0x202020;
            px[static_cast<size_t>(y) * w + x] = c;
        }
    return px;
}

// Counts what arrives, or keeps it for the decode pass.
class BenchSink final : public IDataTransmitter {
  public:
    bool keep = false;
    std::vector<std::vector<BYTE>> kept;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) noexcept override {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return 2; }
    ULONG STDMETHODCALLTYPE Release() noexcept override { return 1; }
    HRESULT STDMETHODCALLTYPE Transfer(void* data, unsigned long cb, long) noexcept override {
        if (keep) {
            const BYTE* p = static_cast<const BYTE*>(data);
            kept.emplace_back(p, p + cb);
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Flush() noexcept override { return S_OK; }
};

class NoWindowOwner : public StreamDecoder::Owner {};

LRESULT CALLBACK PaintProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
    if (msg == WM_PAINT) {
        PaintDc dc(hwnd);
        RECT rc;
        GetClientRect(hwnd, &rc);
        const std::vector<uint32_t> px = Content(rc.right, rc.bottom);
        BITMAPINFO bmi{};
        bmi.bmiHeader = {
            sizeof(BITMAPINFOHEADER), rc.right, -rc.bottom, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
        SetDIBitsToDevice(dc.get(), 0, 0, rc.right, rc.bottom, 0, 0, 0, rc.bottom, px.data(), &bmi,
                          DIB_RGB_COLORS);
        return 0;
    }
    return DefWindowProcA(hwnd, msg, wp, lp);
}

UniqueHwnd ShowDesktopWindow() {
    WNDCLASSA wc{};
    wc.lpfnWndProc = PaintProc;
    wc.hInstance = GetModuleHandleA(nullptr);
    wc.lpszClassName = "VantrelBenchDesktop";
    RegisterClassA(&wc);
    UniqueHwnd window(CreateWindowExA(WS_EX_TOPMOST, wc.lpszClassName, "", WS_POPUP | WS_VISIBLE, 0,
                                      0, GetSystemMetrics(SM_CXSCREEN),
                                      GetSystemMetrics(SM_CYSCREEN), nullptr, nullptr, wc.hInstance,
                                      nullptr));
    UpdateWindow(window.get());
    for (int i = 0; i < 50; ++i) {
        MSG msg;
        while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE))
            DispatchMessageA(&msg);
        Sleep(10);
    }
    return window;
}

struct Result {
    std::string name;
    bool grabbed;
    StreamEncoder::Timings encode;
    double encodeMs, encodeMbps;
    StreamDecoder::Timings decode;
    double decodeMs, decodeMbps;
};

Result Run(const std::string& name, DesktopImage& image, IScreenCodec* codec, bool grabbed) {
    Result result{name, grabbed, {}, 0, 0, {}, 0, 0};
    SinkTable sinks;
    BenchSink sink;
    sinks.RegisterDataTransmitter(&sink);
    StreamEncoder encoder(image, sinks);
    encoder.SetCodec(codec);
    RECT all;
    image.GetScreenRect(&all);
    encoder.EncodeUpdate(&all, 1);  // warm-up
    encoder.ResetTimings();
    const LONGLONG start = Now();
    for (int i = 0; i < kFrames; ++i)
        encoder.EncodeUpdate(&all, 1);
    result.encodeMs = Ms(Now() - start) / kFrames;
    result.encode = encoder.GetTimings();
    // Raw pixels at the image's own depth.
    result.encodeMbps = image.GetRectBytes(&all) / (1024.0 * 1024.0) / (result.encodeMs / 1000.0);

    sink.keep = true;
    encoder.EncodeUpdate(&all, 1);
    sinks.UnregisterDataTransmitter(&sink);
    DesktopImage received;
    NoWindowOwner owner;
    StreamDecoder decoder(received, owner);
    decoder.SetCodec(codec);
    for (const auto& p : sink.kept)
        decoder.Decode(p.data(), static_cast<uint32_t>(p.size()));
    decoder.ResetTimings();
    const LONGLONG decodeStart = Now();
    for (int i = 0; i < kFrames; ++i)
        for (const auto& p : sink.kept)
            decoder.Decode(p.data(), static_cast<uint32_t>(p.size()));
    result.decodeMs = Ms(Now() - decodeStart) / kFrames;
    result.decode = decoder.GetTimings();
    // Decoded pixels, at the stream's depth.
    result.decodeMbps =
        received.GetRectBytes(&all) / (1024.0 * 1024.0) / (result.decodeMs / 1000.0);
    return result;
}

void Print(const std::vector<Result>& results) {
    std::printf(
        "Encode: full-screen update, %d frames each, ms per frame; MB/s of raw pixels at "
        "the image's depth\n",
        kFrames);
    std::printf("%-22s %7s %7s %8s %9s %8s %8s %8s %10s\n", "source", "total", "grab", "convert",
                "compress", "deliver", "MB/s", "packets", "bytes");
    for (const Result& r : results) {
        char grab[16] = "-";
        if (r.grabbed)
            std::snprintf(grab, sizeof grab, "%.2f", Ms(r.encode.grab) / kFrames);
        std::printf("%-22s %7.2f %7s %8.2f %9.2f %8.2f %8.1f %8u %10.0f\n", r.name.c_str(),
                    r.encodeMs, grab, Ms(r.encode.convert) / kFrames,
                    Ms(r.encode.compress) / kFrames, Ms(r.encode.deliver) / kFrames, r.encodeMbps,
                    r.encode.packets / kFrames,
                    static_cast<double>(r.encode.packetBytes) / kFrames);
    }
    std::printf("\nDecode: the same packets, ms per frame; MB/s of decoded 16-bit pixels\n");
    std::printf("%-22s %7s %10s %7s %8s\n", "source", "total", "decompress", "write", "MB/s");
    for (const Result& r : results)
        std::printf("%-22s %7.2f %10.2f %7.2f %8.1f\n", r.name.c_str(), r.decodeMs,
                    Ms(r.decode.decompress) / kFrames, Ms(r.decode.write) / kFrames, r.decodeMbps);
}

}  // namespace

int main() {
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)))
        return 1;
    PixmendInit();
    ComPtr<IScreenCodec> codec;
    if (FAILED(CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER, IID_IScreenCodec,
                                codec.PutVoid()))) {
        std::printf("ScreenCodec is not registered\n");
        return 1;
    }
    std::vector<Result> results;
    {
        UniqueHwnd window = ShowDesktopWindow();
        DesktopImage screen;
        if (screen.OpenFromScreen()) {
            RECT r;
            screen.GetScreenRect(&r);
            results.push_back(Run("screen " + std::to_string(r.right) + "x" +
                                      std::to_string(r.bottom) + "x" +
                                      std::to_string(screen.GetBitsPixel()),
                                  screen, codec.Get(), true));
        }
    }
    {
        const int w = 1920, h = 1080;
        BITMAPINFO bmi{};
        bmi.bmiHeader = {sizeof(BITMAPINFOHEADER), w, -h, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
        DesktopImage image;
        if (image.CreateFromBitmapInfo(&bmi)) {
            const std::vector<uint32_t> px = Content(w, h);
            const RECT all{0, 0, w, h};
            image.PutRows(&all, px.data());
            results.push_back(Run("image 1920x1080x32", image, codec.Get(), false));
        }
    }
    Print(results);
    codec.Reset();
    CoUninitialize();
    return 0;
}
