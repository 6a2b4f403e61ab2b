// The demo's live capture (see CaptureStep.h).
#include "CaptureStep.h"

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "AnimatedBoard.h"
#include "Vantrel.h"
#include "common/FakeSink.h"
#include "common/Screen.h"
#include "wincom/ComPtr.h"

namespace vantrel::host {

namespace {

constexpr DWORD kAnimationMs = 3000;
constexpr DWORD kFrameMs = 40;
constexpr DWORD kQuietMs = 1000;
constexpr DWORD kSettleLimitMs = 8000;

// Every packet of the stream opens with a magic and its own length (little-endian words).
constexpr uint32_t kFrameMagic = 0x46524D48;   // "HMRF"
constexpr uint32_t kCursorMagic = 0x43555248;  // "HRUC"
constexpr uint32_t kHeadSize = 12;

// Empty when the packet opens as the stream's packets do; else what is wrong with it.
std::string HeadProblem(const test::FakeSink::Packet& p) {
    if (p.cbData < kHeadSize || p.bytes.size() != p.cbData)
        return "a packet shorter than its head";
    uint32_t magic, length;
    std::memcpy(&magic, p.bytes.data(), 4);
    std::memcpy(&length, p.bytes.data() + 4, 4);
    if (magic != kFrameMagic && magic != kCursorMagic)
        return "a packet without a packet magic";
    if (length != p.cbData)
        return "a packet whose length field is not its size";
    return {};
}

bool IsFrame(const test::FakeSink::Packet& p) {
    uint32_t magic = 0;
    std::memcpy(&magic, p.bytes.data(), 4);
    return magic == kFrameMagic;
}

}  // namespace

bool CaptureStep::Run(std::FILE* out, std::string* failure) noexcept {
    try {
        return RunChecked(out, failure);
    } catch (const std::bad_alloc&) {
        *failure = "out of memory";
        return false;
    }
}

bool CaptureStep::RunChecked(std::FILE* out, std::string* failure) {
    ComPtr<IDesktopCapture> capture;
    HRESULT hr = CoCreateInstance(CLSID_DesktopCapture, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_IDesktopCapture, capture.PutVoid());
    if (FAILED(hr)) {
        *failure =
            HResultText("DesktopCapture could not be created: is Vantrel.dll registered?", hr);
        return false;
    }
    test::FakeSink sink("demo");
    hr = capture->RegisterDataTransmitter(&sink);
    if (FAILED(hr)) {
        *failure = HResultText("the sink could not be registered", hr);
        return false;
    }

    const int width = GetSystemMetrics(SM_CXSCREEN), height = GetSystemMetrics(SM_CYSCREEN);
    AnimatedBoard board(RECT{width / 4, height / 4, width * 3 / 4, height * 3 / 4});
    hr = board.IsOpen() ? capture->Run() : E_FAIL;
    size_t animated = 0;
    bool quiet = false;
    if (SUCCEEDED(hr)) {
        for (const DWORD start = GetTickCount(); GetTickCount() - start < kAnimationMs;) {
            board.Step();
            test::PumpFor(kFrameMs);
        }
        animated = sink.PacketCount();
        // Once the screen is still, the capture has nothing more to send.
        size_t count = sink.PacketCount();
        DWORD since = GetTickCount();
        quiet = test::WaitUntil(
            [&] {
                if (sink.PacketCount() != count) {
                    count = sink.PacketCount();
                    since = GetTickCount();
                }
                return GetTickCount() - since > kQuietMs;
            },
            kSettleLimitMs);
        capture->Stop();
    }
    capture->UnregisterDataTransmitter(&sink);
    if (FAILED(hr)) {
        *failure = HResultText(board.IsOpen() ? "Run failed" : "no window to animate", hr);
        return false;
    }

    const std::vector<test::FakeSink::Packet> packets = sink.Packets();
    size_t frames = 0;
    for (const auto& p : packets) {
        const std::string problem = HeadProblem(p);
        if (!problem.empty()) {
            *failure = problem;
            return false;
        }
        frames += IsFrame(p);
    }
    std::fprintf(out, "  %.1f s of a %dx%d screen with an animated window\n", kAnimationMs / 1000.0,
                 width, height);
    std::fprintf(
        out, "  counting sink: %zu packets (%zu frames, %zu cursors), %llu bytes, %ld flushes\n",
        packets.size(), frames, packets.size() - frames,
        static_cast<unsigned long long>(sink.ByteCount()), sink.Flushes());
    if (!sink.Faults().empty()) {
        *failure = "the capture broke the sink's reference rules: " + sink.Faults().front();
        return false;
    }
    if (packets.empty() || !IsFrame(packets.front())) {
        *failure = "the stream did not begin with a frame";
        return false;
    }
    if (animated < 2 * kAnimationMs / 1000) {
        *failure = "the animation brought hardly any packets";
        return false;
    }
    if (!quiet) {
        *failure = "packets kept coming after the screen was still";
        return false;
    }
    std::fprintf(out, "  every packet opens with its magic and length; quiet once the screen is\n");
    return true;
}

}  // namespace vantrel::host
