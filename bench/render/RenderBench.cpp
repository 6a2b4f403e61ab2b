// Render benchmark (scripts/bench render). A synthetic 16-bit desktop (1024 x 768, and
// 1920 x 1080, which the 1024 x 768 display can only show in part or scaled) is encoded once
// into frame packets; a DesktopRender made through COM, embedded in a host window that covers
// the display, decodes and paints them. Prints per-frame costs and the latency from Transfer to
// the pixels on the screen, each cost also as a ratio to a reference measured in the same run
// (the codec and one GDI copy, without a render). No thresholds.
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "ScreenCodec.h"
#include "Vantrel.h"
#include "common/BenchClock.h"
#include "common/BenchStream.h"
#include "wincom/ComPtr.h"
#include "wincom/UniqueHandle.h"
#include "wincom/Window.h"

using namespace vantrel;

namespace {

constexpr int kScreenW = 1024, kScreenH = 768;

// Frame packets of a w x h desktop: the whole screen, in bands, and a 64 x 64 update.
struct Stream {
    bench::Packets full;
    std::vector<BYTE> small;
};

Stream Encode(IScreenCodec* codec, int w, int h, int shift) {
    DesktopImage image;
    bench::OpenDesktopImage(image, w, h, shift);
    Stream s;
    s.full = bench::EncodeRegion(image, codec, RECT{0, 0, w, h});
    const bench::Packets small =
        bench::EncodeRegion(image, codec, RECT{w / 2, h / 2, w / 2 + 64, h / 2 + 64});
    s.small = small.empty() ? std::vector<BYTE>() : small.front();
    return s;
}

struct Render {
    ComPtr<IDesktopRender> render;
    ComPtr<IDataTransmitter> in;
    HWND hwnd = nullptr;
};

Render MakeRender(HWND host, const RECT& where) {
    Render r;
    CoCreateInstance(CLSID_DesktopRender, nullptr, CLSCTX_INPROC_SERVER, IID_IDesktopRender,
                     r.render.PutVoid());
    if (!r.render)
        return r;
    r.render.As(&r.in);
    r.render->SetParentWindow(host);
    r.render->SetScrollMode(0);  // the host places the view
    r.render->SetWindowPosition(where.left, where.top, where.right, where.bottom);
    r.render->SetVisible(TRUE);
    r.render->GetWindowHandle(&r.hwnd);
    return r;
}

// Transfer of every packet, then the paint the window owes, flushed to the display.
void DecodeAndPaint(const Render& r, const std::vector<std::vector<BYTE>>& packets) {
    for (const auto& p : packets)
        r.in->Transfer(const_cast<BYTE*>(p.data()), static_cast<ULONG>(p.size()), FALSE);
    UpdateWindow(r.hwnd);
    GdiFlush();
}

void Row(const char* what, double seconds) {
    std::printf("  %-52s %8.2f ms\n", what, seconds * 1000.0);
}

void Ratio(const char* what, double seconds, double reference) {
    std::printf("  %-52s %8.2f ms  %5.2f x reference\n", what, seconds * 1000.0,
                reference > 0 ? seconds / reference : 0.0);
}

// The floor of a decode and paint, measured on the same machine in the same run: the codec
// restores every packet of the frame, and one DIB of the desktop's size goes to the host window
// as the view needs it (BitBlt 1:1, StretchBlt scaled), without a render.
double Reference(IScreenCodec* codec, const std::vector<std::vector<BYTE>>& packets, HWND host,
                 int w, int h, const RECT& where, bool stretch) {
    DesktopImage image;
    bench::OpenDesktopImage(image, w, h);
    std::vector<BYTE> out(packet::kBufferSize);
    WindowDc dc(host);
    const RECT view{0, 0, std::min<LONG>(w, where.right), std::min<LONG>(h, where.bottom)};
    const RECT whole{0, 0, w, h};
    return bench::SecondsPerCall([&] {
        for (const auto& p : packets) {
            ULONG size = packet::kBufferSize;
            codec->Decompress(const_cast<BYTE*>(p.data()) + packet::kFrameHeaderSize,
                              static_cast<ULONG>(p.size() - packet::kFrameHeaderSize), out.data(),
                              &size);
        }
        if (stretch) {
            SetStretchBltMode(dc.get(), COLORONCOLOR);
            image.StretchBltTo(dc.get(), &where, &whole);
        } else {
            image.BltTo(dc.get(), 0, 0, &view);
        }
        GdiFlush();
    });
}

// One pixel of the screen as 0x00RRGGBB.
COLORREF ScreenPixel(int x, int y) {
    WindowDc screen(nullptr);
    return GetPixel(screen.get(), x, y);
}

}  // namespace

int main() {
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)))
        return 1;
    ComPtr<IScreenCodec> codec = bench::OpenCodec();
    if (!codec)
        return 1;
    Window host;
    WindowClassInfo cls;
    cls.name = "VantrelBenchHost";
    host.Create(cls, WS_EX_TOPMOST | WS_EX_NOACTIVATE, "bench", WS_POPUP | WS_VISIBLE, 0, 0,
                kScreenW, kScreenH);

    const struct {
        int w, h;
        const char* name;
    } desktops[] = {{1024, 768, "1024 x 768"}, {1920, 1080, "1920 x 1080"}};
    for (const auto& d : desktops) {
        const Stream a = Encode(codec.Get(), d.w, d.h, 0);
        const Stream b = Encode(codec.Get(), d.w, d.h, 1);
        size_t bytes = 0;
        for (const auto& p : a.full)
            bytes += p.size();
        std::printf("%s desktop, 16 bpp: %zu packets, %zu bytes per full frame\n", d.name,
                    a.full.size(), bytes);
        // 1:1: the client shows the top-left part at its own size; stretched: the whole desktop
        // scaled into 800 x 600.
        const struct {
            const char* view;
            RECT where;
            bool stretch;
        } views[] = {{"1:1", {0, 0, kScreenW, kScreenH}, false},
                     {"stretched into 800 x 600", {0, 0, 800, 600}, true}};
        for (const auto& v : views) {
            Render r = MakeRender(host.Handle(), v.where);
            if (!r.render) {
                std::printf("DesktopRender is not registered\n");
                return 1;
            }
            if (!v.stretch)
                r.render->SetSourcePosition(0, 0, v.where.right, v.where.bottom);
            test::PumpMessages();
            int flip = 0;
            const double full = bench::SecondsPerCall([&] {
                DecodeAndPaint(r, (++flip & 1) ? a.full : b.full);
                test::PumpMessages();
            });
            std::printf(" %s\n", v.view);
            Ratio("full frame: decode and paint", full,
                  Reference(codec.Get(), a.full, host.Handle(), d.w, d.h, v.where, v.stretch));
            const double small = bench::SecondsPerCall([&] {
                DecodeAndPaint(r, {a.small});
                test::PumpMessages();
            });
            Ratio("64 x 64 update: decode and paint", small,
                  Reference(codec.Get(), {a.small}, host.Handle(), 64, 64, {0, 0, 64, 64}, false));
            r.render->SetVisible(FALSE);
            test::PumpMessages();
            const double decodeOnly = bench::SecondsPerCall([&] {
                DecodeAndPaint(r, (++flip & 1) ? a.full : b.full);
                test::PumpMessages();
            });
            Row("full frame: decode only (window hidden)", decodeOnly);
            r.render.Reset();
            r.in.Reset();
            test::PumpMessages();
        }
    }

    // Latency: a band that changes the colour under a watched pixel, from Transfer until the
    // screen shows it (the window's thread paints; the display server puts it on the screen).
    {
        const Stream a = Encode(codec.Get(), 1024, 768, 0);
        const Stream b = Encode(codec.Get(), 1024, 768, 1);
        Render r = MakeRender(host.Handle(), {0, 0, kScreenW, kScreenH});
        r.render->SetSourcePosition(0, 0, kScreenW, kScreenH);
        DecodeAndPaint(r, a.full);
        test::PumpMessages();
        std::vector<double> ms;
        const int x = 512 + 10, y = 384 + 10;  // inside the small update
        for (int i = 0; i < 30; ++i) {
            const std::vector<BYTE>& p = (i & 1) ? a.small : b.small;
            const COLORREF before = ScreenPixel(x, y);
            const double start = bench::Seconds();
            r.in->Transfer(const_cast<BYTE*>(p.data()), static_cast<ULONG>(p.size()), FALSE);
            double elapsed = 0;
            do {
                test::PumpMessages();
                elapsed = bench::Seconds() - start;
            } while (ScreenPixel(x, y) == before && elapsed < 2.0);
            ms.push_back(elapsed * 1000.0);
        }
        std::sort(ms.begin(), ms.end());
        std::printf("Transfer of a 64 x 64 band to its pixels on the screen (1:1, 30 runs)\n");
        std::printf("  median %8.2f ms   min %8.2f ms   max %8.2f ms\n", ms[ms.size() / 2],
                    ms.front(), ms.back());
    }
    codec.Reset();
    CoUninitialize();
    return 0;
}
