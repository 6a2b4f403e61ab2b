// The demo's live capture (see CaptureStep.h).
#include "CaptureStep.h"

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "AnimatedBoard.h"
#include "DemoScreen.h"
#include "CountingSink.h"
#include "DecodingSink.h"
#include "Vantrel.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::host {

namespace {

constexpr DWORD kAnimationMs = 3000;
constexpr DWORD kFrameMs = 40;
constexpr DWORD kShowMs = 200;
constexpr DWORD kSettleLimitMs = 8000;

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
    ComPtr<IDataTransmitter> counterSink, decoderSink;
    CountingSink* counter = nullptr;
    DecodingSink* decoder = nullptr;
    hr = MakeSink(&counterSink, &counter);
    if (SUCCEEDED(hr))
        hr = MakeSink(&decoderSink, &decoder);
    if (FAILED(hr)) {
        *failure = HResultText("sinks could not be made", hr);
        return false;
    }
    decoder->SetCodec(codec_.Get());
    if (FAILED(capture->RegisterDataTransmitter(counterSink.Get())) ||
        FAILED(capture->RegisterDataTransmitter(decoderSink.Get()))) {
        *failure = "sinks could not be registered";
        return false;
    }

    const int width = GetSystemMetrics(SM_CXSCREEN), height = GetSystemMetrics(SM_CYSCREEN);
    AnimatedBoard board(RECT{width / 4, height / 4, width * 3 / 4, height * 3 / 4});
    hr = board.IsOpen() ? capture->Run() : E_FAIL;
    bool equal = false;
    DWORD settled = 0;
    if (SUCCEEDED(hr)) {
        for (const DWORD start = GetTickCount(); GetTickCount() - start < kAnimationMs;) {
            board.Step();
            PumpFor(kFrameMs);
        }
        // The last frame stays on the screen until the decoded picture has caught up with it;
        // the platform shows what a window painted a little later, so the comparison waits.
        PumpFor(kShowMs);
        for (const DWORD start = GetTickCount();
             !equal && (settled = GetTickCount() - start) < kSettleLimitMs; PumpFor(100))
            equal = decoder->Picture() == ScreenAt555(width, height);
        capture->Stop();
    }
    capture->UnregisterDataTransmitter(counterSink.Get());
    capture->UnregisterDataTransmitter(decoderSink.Get());
    if (FAILED(hr)) {
        *failure = HResultText(board.IsOpen() ? "Run failed" : "no window to animate", hr);
        return false;
    }

    std::fprintf(out, "  %.1f s of a %dx%d screen with an animated window\n", kAnimationMs / 1000.0,
                 width, height);
    std::fprintf(out, "  counting sink: %u frames, %u cursors, %llu bytes, %u flush\n",
                 counter->Frames(), counter->Cursors(),
                 static_cast<unsigned long long>(counter->Bytes()), counter->Flushes());
    std::fprintf(out, "  decoding sink: %u frames, %u cursors decoded, %u refused\n",
                 decoder->Frames(), decoder->Cursors(), decoder->Refused());
    if (!decoder->Problems().empty()) {
        *failure = "decoder: " + decoder->Problems();
        return false;
    }
    if (counter->Frames() == 0 || decoder->Frames() != counter->Frames()) {
        *failure = "the decoding sink did not see every frame";
        return false;
    }
    if (!equal) {
        *failure = "the decoded picture differs from the screen";
        return false;
    }
    std::fprintf(out,
                 "  decoded picture equals the screen at 5-5-5 (%lu ms after the last frame)\n",
                 static_cast<unsigned long>(kShowMs + settled));
    return true;
}

}  // namespace vantrel::host
