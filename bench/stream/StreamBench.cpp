// Stream encode/decode benchmark (scripts/bench stream). A full-screen update through the
// capture's encoder and back through the shared decoder: the real 1024 x 768 screen with a
// desktop-like window painted over it, and a 1920 x 1080 32-bit image built from a BITMAPINFO
// with the same kind of synthetic content (nothing to grab there). Times come from the encoder's
// and decoder's own phase counters. Prints tables; no thresholds.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "common/BenchClock.h"
#include "common/BenchStream.h"
#include "stream/StreamDecoder.h"

using namespace vantrel;

namespace {

constexpr int kFrames = 20;

double Ms(LONGLONG ticks) {
    return bench::TicksToMs(ticks);
}

class NoWindowOwner : public StreamDecoder::Owner {};

// The bench's desktop over the whole screen, shown before the screen is grabbed.
std::unique_ptr<test::PaintedWindow> ShowDesktopWindow() {
    auto window = std::make_unique<test::PaintedWindow>(
        RECT{0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)},
        [](HDC dc, const RECT& client) {
            const std::vector<uint32_t> px = bench::DesktopPicture(client.right, client.bottom);
            test::PaintPixels(dc, client.right, client.bottom, px.data());
        });
    test::PumpFor(500);
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
    test::FakeSink sink;
    sink.KeepPackets(false);
    sinks.RegisterDataTransmitter(&sink);
    StreamEncoder encoder(image, sinks);
    encoder.SetCodec(codec);
    RECT all;
    image.GetScreenRect(&all);
    encoder.EncodeUpdate(&all, 1);  // warm-up
    encoder.ResetTimings();
    const double start = test::Seconds();
    for (int i = 0; i < kFrames; ++i)
        encoder.EncodeUpdate(&all, 1);
    result.encodeMs = (test::Seconds() - start) * 1000.0 / kFrames;
    result.encode = encoder.GetTimings();
    // Raw pixels at the image's own depth.
    result.encodeMbps = image.GetRectBytes(&all) / (1024.0 * 1024.0) / (result.encodeMs / 1000.0);

    sink.KeepPackets(true);
    encoder.EncodeUpdate(&all, 1);
    sinks.UnregisterDataTransmitter(&sink);
    DesktopImage received;
    NoWindowOwner owner;
    StreamDecoder decoder(received, owner);
    decoder.SetCodec(codec);
    const std::vector<test::FakeSink::Packet> kept = sink.Packets();
    for (const auto& p : kept)
        decoder.Decode(p.bytes.data(), p.cbData);
    decoder.ResetTimings();
    const double decodeStart = test::Seconds();
    for (int i = 0; i < kFrames; ++i)
        for (const auto& p : kept)
            decoder.Decode(p.bytes.data(), p.cbData);
    result.decodeMs = (test::Seconds() - decodeStart) * 1000.0 / kFrames;
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
    ComPtr<IScreenCodec> codec = bench::OpenCodec();
    if (!codec)
        return 1;
    std::vector<Result> results;
    {
        const auto window = ShowDesktopWindow();
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
            const std::vector<uint32_t> px = bench::DesktopPicture(w, h);
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
