// Codec and converter benchmark (scripts/bench codec). Reads the screen corpus (ScreenCorpus.h:
// screenshots of real programs on the virtual display at 5-5-5), cuts each into the payloads
// Vantrel's encoder would hand the codec (BITMAPINFOHEADER + band rows), and times ScreenCodec
// in both modes beside zlib levels 1, 6 and 9 and bare zstd on the same bytes in the same run,
// then prints the codec's size and speed against zlib's beside the targets. Times are this
// thread's CPU time (less disturbed by other work on a shared machine than the clock), the
// median of several passes. Prints tables; there are no pass/fail thresholds.
#include <windows.h>

#include <ScreenCodec.h>
#include <zlib.h>
#include <zstd.h>

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
#include "common/ScreenCorpus.h"
#include "wincom/ComPtr.h"
#include "contracts/Pixmend.h"
#include "wincom/UniqueHandle.h"

using Bytes = std::vector<std::uint8_t>;
using vantrel::ComPtr;
using vantrel::bench::SecondsPerCall;

namespace {

const ULONG kBuffer = 0x180000;

// What the encoder hands the codec for a rectangle: desktop header, then the rectangle's rows.
Bytes Payload(const vantrel::bench::Screenshot& d, const RECT& r) {
    BITMAPINFOHEADER h{};
    h.biSize = sizeof h;
    h.biWidth = d.width;
    h.biHeight = -d.height;
    h.biPlanes = 1;
    h.biBitCount = 16;
    Bytes out(reinterpret_cast<std::uint8_t*>(&h), reinterpret_cast<std::uint8_t*>(&h) + sizeof h);
    for (int y = r.top; y < r.bottom; ++y) {
        const auto* row =
            reinterpret_cast<const std::uint8_t*>(d.pixels.data() + y * d.width + r.left);
        out.insert(out.end(), row, row + 2 * (r.right - r.left));
    }
    return out;
}

// A screenshot as the encoder sends it: the whole screen in bands of as many rows as fit the
// buffer, then two window-sized updates.
std::vector<Bytes> Payloads(const vantrel::bench::Screenshot& d) {
    std::vector<Bytes> out;
    const int rows = static_cast<int>((kBuffer - 40) / (2 * d.width));
    for (int top = 0; top < d.height; top += rows)
        out.push_back(Payload(d, {0, top, d.width, std::min(d.height, top + rows)}));
    out.push_back(Payload(d, {d.width / 8, d.height / 8, d.width / 2, d.height / 2}));
    out.push_back(Payload(d, {d.width / 2, d.height / 3, d.width - 40, d.height - 40}));
    return out;
}

double ThreadCpuSeconds() {
    FILETIME created, exited, kernel, user;
    GetThreadTimes(GetCurrentThread(), &created, &exited, &kernel, &user);
    auto v = [](const FILETIME& f) {
        return static_cast<double>((static_cast<ULONGLONG>(f.dwHighDateTime) << 32) |
                                   f.dwLowDateTime);
    };
    return (v(kernel) + v(user)) / 1e7;
}

// CPU seconds of one pass. The platform counts thread time in clock ticks of 10 ms or more, so
// passes are timed in runs of at least 0.6 s of CPU (an error of a few per cent at most); the
// median of three runs.
double MedianPass(const std::function<void()>& pass) {
    std::vector<double> perPass;
    while (perPass.size() < 3) {
        const double start = ThreadCpuSeconds();
        int passes = 0;
        double spent = 0;
        do {
            pass();
            ++passes;
            spent = ThreadCpuSeconds() - start;
        } while (spent < 0.6);
        perPass.push_back(spent / passes);
    }
    std::sort(perPass.begin(), perPass.end());
    return perPass[1];
}

struct Result {
    double bytes = 0, ratio = 0, compressMBs = 0, decompressMBs = 0;
};

// One method over a set of payloads: total size ratio and throughput over the original bytes.
using CompressFn = std::function<ULONG(const Bytes&, Bytes*)>;
using DecompressFn = std::function<bool(const Bytes&, ULONG, Bytes*)>;

Result Measure(const std::vector<Bytes>& payloads, const CompressFn& compress,
               const DecompressFn& decompress) {
    Result r;
    double original = 0, compressed = 0;
    std::vector<Bytes> blocks(payloads.size(), Bytes(kBuffer));
    std::vector<ULONG> sizes(payloads.size());
    Bytes restored(kBuffer);
    for (std::size_t i = 0; i < payloads.size(); ++i) {
        sizes[i] = compress(payloads[i], &blocks[i]);
        if (!sizes[i] || !decompress(blocks[i], sizes[i], &restored) ||
            std::memcmp(restored.data(), payloads[i].data(), payloads[i].size()) != 0) {
            std::printf("  ! round trip failed\n");
            return r;
        }
        original += payloads[i].size();
        compressed += sizes[i];
    }
    const double tc = MedianPass([&] {
        for (std::size_t i = 0; i < payloads.size(); ++i)
            compress(payloads[i], &blocks[i]);
    });
    const double td = MedianPass([&] {
        for (std::size_t i = 0; i < payloads.size(); ++i)
            decompress(blocks[i], sizes[i], &restored);
    });
    r.bytes = compressed;
    r.ratio = original / compressed;
    r.compressMBs = original / tc / 1e6;
    r.decompressMBs = original / td / 1e6;
    return r;
}

void CodecTable(IScreenCodec* codec, const std::vector<vantrel::bench::Screenshot>& shots) {
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
    auto zlibCompress = [](int level) -> CompressFn {
        return [level](const Bytes& p, Bytes* out) {
            uLongf cb = kBuffer - 48;
            return compress2(out->data(), &cb, p.data(), static_cast<uLong>(p.size()), level) ==
                           Z_OK
                       ? static_cast<ULONG>(cb)
                       : 0;
        };
    };
    DecompressFn zlibDecompress = [](const Bytes& b, ULONG cb, Bytes* out) {
        uLongf n = kBuffer;
        return uncompress(out->data(), &n, b.data(), cb) == Z_OK;
    };
    // zstd alone on the same bytes, no filter, no block header: what the codec adds or costs.
    auto zstdCompress = [](int level) -> CompressFn {
        return [level](const Bytes& p, Bytes* out) {
            const std::size_t cb =
                ZSTD_compress(out->data(), kBuffer - 48, p.data(), p.size(), level);
            return ZSTD_isError(cb) ? 0 : static_cast<ULONG>(cb);
        };
    };
    DecompressFn zstdDecompress = [](const Bytes& b, ULONG cb, Bytes* out) {
        return !ZSTD_isError(ZSTD_decompress(out->data(), kBuffer, b.data(), cb));
    };

    enum { kZlib1, kZlib6, kZlib9, kZstd1, kMode2, kMode1, kMethods };
    struct Method {
        std::string name;
        CompressFn compress;
        DecompressFn decompress;
    };
    const Method methods[kMethods] = {
        {"zlib level 1", zlibCompress(1), zlibDecompress},
        {"zlib level 6", zlibCompress(6), zlibDecompress},
        {"zlib level 9", zlibCompress(9), zlibDecompress},
        {"zstd level 1 (bare)", zstdCompress(1), zstdDecompress},
        {"codec mode 2 (live)", codecCompress(2), codecDecompress},
        {"codec mode 1 (export)", codecCompress(1), codecDecompress},
    };

    // Totals over the corpus: bytes, and seconds per original byte summed per scene.
    double original = 0, bytes[kMethods] = {}, cTime[kMethods] = {}, dTime[kMethods] = {};
    // Per scene, the codec's size against zlib's, for a mean in which every scene counts once
    // (the photograph's bytes would otherwise outweigh everything else).
    double logSize2 = 0, logSize1 = 0;
    std::string perScene2, perScene1;
    for (const auto& shot : shots) {
        const std::vector<Bytes> payloads = Payloads(shot);
        double total = 0;
        for (const Bytes& p : payloads)
            total += static_cast<double>(p.size());
        original += total;
        std::printf("\n%s (%dx%d): %zu payloads, %.0f bytes\n", shot.name.c_str(), shot.width,
                    shot.height, payloads.size(), total);
        std::printf("  %-24s %8s %14s %16s\n", "method", "ratio", "compress MB/s",
                    "decompress MB/s");
        Result results[kMethods];
        for (int m = 0; m < kMethods; ++m) {
            const Result r = Measure(payloads, methods[m].compress, methods[m].decompress);
            std::printf("  %-24s %8.2f %14.1f %16.1f\n", methods[m].name.c_str(), r.ratio,
                        r.compressMBs, r.decompressMBs);
            bytes[m] += r.bytes;
            char scene[64];
            if (m == kMode2) {
                const double size = r.bytes * results[kZlib1].ratio / total;
                logSize2 += std::log(size);
                std::snprintf(scene, sizeof scene, " %s %.2fx", shot.name.c_str(), size);
                perScene2 += scene;
            }
            if (m == kMode1) {
                const double size = r.bytes * results[kZlib9].ratio / total;
                logSize1 += std::log(size);
                std::snprintf(scene, sizeof scene, " %s %.2fx", shot.name.c_str(), size);
                perScene1 += scene;
            }
            results[m] = r;
            cTime[m] += r.compressMBs > 0 ? total / (r.compressMBs * 1e6) : 0;
            dTime[m] += r.decompressMBs > 0 ? total / (r.decompressMBs * 1e6) : 0;
        }
    }

    std::printf("\nwhole corpus: %.0f bytes\n", original);
    std::printf("  %-24s %8s %14s %16s\n", "method", "ratio", "compress MB/s", "decompress MB/s");
    for (int m = 0; m < kMethods; ++m)
        std::printf("  %-24s %8.2f %14.1f %16.1f\n", methods[m].name.c_str(), original / bytes[m],
                    original / cTime[m] / 1e6, original / dTime[m] / 1e6);
    const double scenes = static_cast<double>(shots.size());
    const double size2 = std::exp(logSize2 / scenes), size1 = std::exp(logSize1 / scenes);
    std::printf("\ncodec against zlib in this run (sizes: smaller is better; speeds: larger)\n");
    std::printf("  %-52s %9s %9s\n", "", "measured", "target");
    auto row = [](const char* what, double value, const char* target) {
        std::printf("  %-52s %8.2fx %9s\n", what, value, target);
    };
    row("mode 2 size / zlib-1's, geometric mean of the scenes", size2, "<= 0.50x");
    row("mode 2 size / zlib-1's, all bytes together", bytes[kMode2] / bytes[kZlib1], "");
    row("mode 2 compression speed / zlib-1's", cTime[kZlib1] / cTime[kMode2], ">= 3x");
    row("mode 2 decompression speed / zlib-1's", dTime[kZlib1] / dTime[kMode2], ">= 2x");
    row("mode 1 size / zlib-9's, geometric mean of the scenes", size1, "<= 0.70x");
    row("mode 1 size / zlib-9's, all bytes together", bytes[kMode1] / bytes[kZlib9], "");
    row("mode 1 compression speed / zlib-9's", cTime[kZlib9] / cTime[kMode1], ">= 1x");
    row("mode 1 decompression speed / zlib-9's", dTime[kZlib9] / dTime[kMode1], "");
    std::printf("  speeds over the whole corpus (CPU time of all scenes together)\n");
    std::printf("  mode 2 / zlib-1 per scene:%s\n", perScene2.c_str());
    std::printf("  mode 1 / zlib-9 per scene:%s\n", perScene1.c_str());
}

void ConverterTable(const char* title) {
    const int kWidth = 1920, kHeight = 1080;
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
        const std::vector<vantrel::bench::Screenshot> shots = vantrel::bench::LoadScreenCorpus();
        if (FAILED(CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_IScreenCodec, codec.PutVoid()))) {
            std::printf("ScreenCodec is not registered\n");
            rc = 1;
        } else if (shots.empty()) {
            std::printf("the screen corpus is missing beside this program (corpus\\*.555.zst)\n");
            rc = 1;
        } else {
            CodecTable(codec.Get(), shots);
        }
    }
    CoUninitialize();
    return rc;
}
