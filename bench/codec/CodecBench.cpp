// Codec and converter benchmark (scripts/bench codec). Draws a 1920 x 1080 desktop with GDI
// into a 5-5-5 DIB section (a text window, UI flats, gradients, a photograph-like area), cuts
// it into the payloads Vantrel's encoder would hand the codec (BITMAPINFOHEADER + band rows),
// and times ScreenCodec in both modes beside raw zlib at levels 1 and 6 on the same bytes.
// Prints tables; there are no pass/fail thresholds.
#include <windows.h>

#include <ScreenCodec.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "common/BenchClock.h"
#include "wincom/ComPtr.h"
#include "contracts/Pixmend.h"
#include "wincom/UniqueHandle.h"

using Bytes = std::vector<std::uint8_t>;
using vantrel::ComPtr;
using vantrel::bench::SecondsPerCall;

namespace {

const int kWidth = 1920, kHeight = 1080;
const ULONG kBuffer = 0x180000;

struct Desktop {
    vantrel::UniqueBitmap bitmap;
    vantrel::UniqueHdc dc;          // declared last: deleted first, while the bitmap is selected
    std::uint16_t* bits = nullptr;  // top-down, 5-5-5, rows of kWidth pixels (no padding)
};

void Fill(HDC dc, int l, int t, int r, int b, COLORREF c) {
    vantrel::UniqueBrush brush(CreateSolidBrush(c));
    RECT rc = {l, t, r, b};
    FillRect(dc, &rc, brush.get());
}

void Gradient(HDC dc, int l, int t, int r, int b, COLORREF from, COLORREF to, bool horizontal) {
    TRIVERTEX v[2] = {
        {l, t, static_cast<COLOR16>(GetRValue(from) << 8),
         static_cast<COLOR16>(GetGValue(from) << 8), static_cast<COLOR16>(GetBValue(from) << 8), 0},
        {r, b, static_cast<COLOR16>(GetRValue(to) << 8), static_cast<COLOR16>(GetGValue(to) << 8),
         static_cast<COLOR16>(GetBValue(to) << 8), 0}};
    GRADIENT_RECT g = {0, 1};
    GradientFill(dc, v, 2, &g, 1, horizontal ? GRADIENT_FILL_RECT_H : GRADIENT_FILL_RECT_V);
}

const RECT kTextArea = {40, 80, 1000, 880};
const RECT kUiArea = {1040, 40, 1880, 200};
const RECT kGradientArea = {1040, 200, 1880, 440};
const RECT kPhotoArea = {1120, 460, 1760, 940};

bool DrawDesktop(Desktop* d) {
    BITMAPINFO bi{};
    bi.bmiHeader.biSize = sizeof bi.bmiHeader;
    bi.bmiHeader.biWidth = kWidth;
    bi.bmiHeader.biHeight = -kHeight;
    bi.bmiHeader.biPlanes = 1;
    bi.bmiHeader.biBitCount = 16;
    bi.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    d->dc.reset(CreateCompatibleDC(nullptr));
    d->bitmap.reset(CreateDIBSection(d->dc.get(), &bi, DIB_RGB_COLORS, &bits, nullptr, 0));
    if (!d->dc || !d->bitmap)
        return false;
    d->bits = static_cast<std::uint16_t*>(bits);
    HDC dc = d->dc.get();
    SelectObject(dc, d->bitmap.get());

    Fill(dc, 0, 0, kWidth, kHeight, RGB(0, 128, 128));
    Fill(dc, 0, 1040, kWidth, kHeight, RGB(30, 30, 40));
    for (int i = 0; i < 14; ++i)
        Fill(dc, 8 + i * 56, 1046, 56 + i * 56, 1074, RGB(70, 80, 110));

    // Text editor window: title bar, white page, lines of text.
    Fill(dc, 32, 40, 1008, 1008, RGB(240, 240, 240));
    Gradient(dc, 32, 40, 1008, 72, RGB(0, 70, 160), RGB(120, 170, 230), true);
    Fill(dc, kTextArea.left, kTextArea.top, kTextArea.right, kTextArea.bottom, RGB(255, 255, 255));
    vantrel::UniqueAny<vantrel::detail::GdiObjectTraits<HFONT>> font(CreateFontA(
        -14, 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, ANTIALIASED_QUALITY, 0, "Tahoma"));
    HGDIOBJ oldFont = SelectObject(dc, font.get());
    SetBkMode(dc, TRANSPARENT);
    const char* words[] = {"the",    "screen", "codec",     "compresses", "rows",
                           "of",     "pixels", "classroom", "teacher",    "students",
                           "window", "update", "band",      "Vantrel",    "while",
                           "each",   "packet", "stands",    "alone,",     "and"};
    std::mt19937 rng(1);
    for (int y = kTextArea.top + 6; y < kTextArea.bottom - 18; y += 18) {
        std::string line;
        const int count = 4 + rng() % 14;
        for (int i = 0; i < count; ++i)
            line += std::string(words[rng() % 20]) + " ";
        SetTextColor(dc, rng() % 9 ? RGB(0, 0, 0) : RGB(0, 0, 200));
        TextOutA(dc, kTextArea.left + 8, y, line.c_str(), static_cast<int>(line.size()));
    }

    // Dialog-like flats: toolbar, buttons with 3-D borders, labels.
    Fill(dc, kUiArea.left, kUiArea.top, kUiArea.right, kUiArea.bottom, RGB(212, 208, 200));
    for (int i = 0; i < 8; ++i) {
        RECT b = {kUiArea.left + 10 + i * 102, kUiArea.top + 20, kUiArea.left + 100 + i * 102,
                  kUiArea.top + 50};
        Fill(dc, b.left, b.top, b.right, b.bottom, RGB(212, 208, 200));
        DrawEdge(dc, &b, EDGE_RAISED, BF_RECT);
        SetTextColor(dc, RGB(0, 0, 0));
        TextOutA(dc, b.left + 12, b.top + 8, "Button", 6);
    }
    Fill(dc, kUiArea.left + 10, kUiArea.top + 70, kUiArea.right - 10, kUiArea.bottom - 10,
         RGB(255, 255, 255));
    SelectObject(dc, oldFont);

    Gradient(dc, kGradientArea.left, kGradientArea.top, kGradientArea.right, 320,
             RGB(255, 255, 255), RGB(40, 90, 200), false);
    Gradient(dc, kGradientArea.left, 320, kGradientArea.right, kGradientArea.bottom,
             RGB(200, 30, 30), RGB(30, 200, 60), true);
    GdiFlush();

    // Photograph-like area: smooth shapes with sensor noise, written straight into the bits.
    std::normal_distribution<double> noise(0, 5);
    auto clamp = [](double v) { return v < 0 ? 0 : v > 255 ? 255 : static_cast<int>(v); };
    for (int y = kPhotoArea.top; y < kPhotoArea.bottom; ++y) {
        for (int x = kPhotoArea.left; x < kPhotoArea.right; ++x) {
            const double u = (x - kPhotoArea.left) / 640.0, v = (y - kPhotoArea.top) / 480.0;
            const int r =
                clamp(120 + 70 * std::sin(5 * u + 2 * v) + 30 * std::cos(11 * u * v) + noise(rng));
            const int g = clamp(110 + 60 * std::sin(3 * u - 4 * v) + noise(rng));
            const int b =
                clamp(90 + 50 * std::cos(4 * u + 6 * v) + 25 * std::sin(15 * u) + noise(rng));
            d->bits[y * kWidth + x] =
                static_cast<std::uint16_t>(((r >> 3) << 10) | ((g >> 3) << 5) | (b >> 3));
        }
    }
    return true;
}

// What the encoder hands the codec for a rectangle: desktop header, then the rectangle's rows.
Bytes Payload(const Desktop& d, const RECT& r) {
    BITMAPINFOHEADER h{};
    h.biSize = sizeof h;
    h.biWidth = kWidth;
    h.biHeight = -kHeight;
    h.biPlanes = 1;
    h.biBitCount = 16;
    Bytes out(reinterpret_cast<std::uint8_t*>(&h), reinterpret_cast<std::uint8_t*>(&h) + sizeof h);
    for (int y = r.top; y < r.bottom; ++y) {
        const auto* row = reinterpret_cast<const std::uint8_t*>(d.bits + y * kWidth + r.left);
        out.insert(out.end(), row, row + 2 * (r.right - r.left));
    }
    return out;
}

struct Result {
    double ratio = 0, compressMBs = 0, decompressMBs = 0;
};

// One method over a set of payloads: total size ratio and throughput over the original bytes.
using CompressFn = std::function<ULONG(const Bytes&, Bytes*)>;
using DecompressFn = std::function<bool(const Bytes&, ULONG, Bytes*)>;

Result Measure(const std::vector<Bytes>& payloads, const CompressFn& compress,
               const DecompressFn& decompress) {
    Result r;
    double original = 0, compressed = 0, tc = 0, td = 0;
    Bytes block(kBuffer), restored(kBuffer);
    for (const Bytes& p : payloads) {
        ULONG cb = 0;
        tc += SecondsPerCall([&] { cb = compress(p, &block); });
        if (!cb || !decompress(block, cb, &restored) ||
            std::memcmp(restored.data(), p.data(), p.size()) != 0) {
            std::printf("  ! round trip failed\n");
            return r;
        }
        td += SecondsPerCall([&] { decompress(block, cb, &restored); });
        original += p.size();
        compressed += cb;
    }
    r.ratio = original / compressed;
    r.compressMBs = original / tc / 1e6;
    r.decompressMBs = original / td / 1e6;
    return r;
}

void CodecTable(IScreenCodec* codec, const Desktop& d) {
    struct Set {
        const char* name;
        std::vector<Bytes> payloads;
    };
    std::vector<Set> sets = {{"text", {Payload(d, kTextArea)}},
                             {"ui flats", {Payload(d, kUiArea)}},
                             {"gradients", {Payload(d, kGradientArea)}},
                             {"photo-like", {Payload(d, kPhotoArea)}},
                             {"full screen", {}}};
    // A full screen in the bands the encoder cuts: as many 3840-byte rows as fit 0x180000.
    const int rows = static_cast<int>((kBuffer - 40) / (2 * kWidth));
    for (int top = 0; top < kHeight; top += rows)
        sets.back().payloads.push_back(Payload(d, {0, top, kWidth, std::min(kHeight, top + rows)}));

    auto codecCompress = [codec](ULONG mode) -> CompressFn {
        return [codec, mode](const Bytes& p, Bytes* out) {
            ULONG cb = kBuffer - 48;
            return codec->Compress(p.data(), static_cast<ULONG>(p.size()), out->data(), &cb,
                                   mode) == S_OK
                       ? cb
                       : 0;
        };
    };
    DecompressFn codecDecompress = [codec](const Bytes& b, ULONG cb, Bytes* out) {
        ULONG n = kBuffer;
        return codec->Decompress(b.data(), cb, out->data(), &n) == S_OK;
    };
    auto zlibCompress = [](ULONG level) -> CompressFn {
        return [level](const Bytes& p, Bytes* out) {
            uLongf cb = kBuffer - 48;
            return compress2(out->data(), &cb, p.data(), static_cast<uLong>(p.size()),
                             static_cast<int>(level)) == Z_OK
                       ? static_cast<ULONG>(cb)
                       : 0;
        };
    };
    DecompressFn zlibDecompress = [](const Bytes& b, ULONG cb, Bytes* out) {
        uLongf n = kBuffer;
        return uncompress(out->data(), &n, b.data(), cb) == Z_OK;
    };

    // Each codec mode beside raw zlib at the level the mode uses.
    ULONG fastLevel = 0, strongLevel = 0;
    codec->GetLevel(2, &fastLevel);
    codec->GetLevel(1, &strongLevel);
    struct Method {
        std::string name;
        CompressFn compress;
        DecompressFn decompress;
    };
    const std::vector<Method> methods = {
        {"zlib level " + std::to_string(fastLevel), zlibCompress(fastLevel), zlibDecompress},
        {"codec mode 2 (level " + std::to_string(fastLevel) + ")", codecCompress(2),
         codecDecompress},
        {"zlib level " + std::to_string(strongLevel), zlibCompress(strongLevel), zlibDecompress},
        {"codec mode 1 (level " + std::to_string(strongLevel) + ")", codecCompress(1),
         codecDecompress},
    };

    for (const Set& set : sets) {
        std::size_t total = 0;
        for (const Bytes& p : set.payloads)
            total += p.size();
        std::printf("\n%s: %zu payload(s), %zu bytes\n", set.name, set.payloads.size(), total);
        std::printf("  %-26s %8s %14s %16s\n", "method", "ratio", "compress MB/s",
                    "decompress MB/s");
        for (const Method& m : methods) {
            const Result r = Measure(set.payloads, m.compress, m.decompress);
            std::printf("  %-26s %8.2f %14.1f %16.1f\n", m.name.c_str(), r.ratio, r.compressMBs,
                        r.decompressMBs);
        }
    }
}

void ConverterTable(const char* title) {
    const int pixels = kWidth * kHeight;
    Bytes source(static_cast<std::size_t>(pixels) * 4), dest(static_cast<std::size_t>(pixels) * 2);
    std::mt19937 rng(3);
    for (auto& b : source)
        b = static_cast<std::uint8_t>(rng());
    struct Conv {
        const char* name;
        UINT(WINAPI* fn)(const void*, void*, UINT);
        UINT bytesPerPixel;
    } convs[] = {{"ConvertRow32To555", ConvertRow32To555, 4},
                 {"ConvertRow24To555", ConvertRow24To555, 3},
                 {"ConvertRow565To555", ConvertRow565To555, 2}};
    std::printf("\nconverters, %s: 1080 rows of 1920 pixels\n", title);
    std::printf("  %-20s %14s\n", "converter", "Mpixels/s");
    for (const Conv& c : convs) {
        const UINT row = kWidth * c.bytesPerPixel;
        const double t = SecondsPerCall([&] {
            for (int y = 0; y < kHeight; ++y)
                c.fn(source.data() + y * row, dest.data() + y * kWidth * 2, row);
        });
        std::printf("  %-20s %14.1f\n", c.name, pixels / t / 1e6);
    }
}

}  // namespace

int main() {
    // Before PixmendInit the DLL runs its portable kernels; after it, the ones it picked.
    ConverterTable("before PixmendInit");
    PixmendInit();
    ConverterTable("after PixmendInit");

    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 1;
    int rc = 0;
    {
        ComPtr<IScreenCodec> codec;
        Desktop desktop;
        if (FAILED(CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_IScreenCodec, codec.PutVoid()))) {
            std::printf("ScreenCodec is not registered\n");
            rc = 1;
        } else if (!DrawDesktop(&desktop)) {
            std::printf("cannot draw the desktop\n");
            rc = 1;
        } else {
            CodecTable(codec.Get(), desktop);
        }
    }
    CoUninitialize();
    return rc;
}
