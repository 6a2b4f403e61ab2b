// Live capture benchmark (scripts/bench capture): DesktopCapture through COM, as a host runs it,
// captures the virtual screen for about 10 s per scenario while a window animates a region or
// redraws the whole screen. A counting sink measures passes (runs of bands: a frame packet that
// does not continue the previous band starts a pass), packets and bytes per second, and the
// capture thread's CPU time per pass (GetThreadTimes on the thread that calls Transfer). The
// change detector's own cost per poll is bench_pavlex's. Prints a table; no thresholds.
#include <windows.h>
#include <objbase.h>

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <vector>

#include "Vantrel.h"
#include "common/Animation.h"
#include "common/DeskPrefOverride.h"
#include "common/FakeSink.h"
#include "wincom/ComPtr.h"
#include "wincom/CriticalSection.h"
#include "wincom/UniqueHandle.h"
#include "stream/Packet.h"

using namespace vantrel;

namespace {

constexpr DWORD kMeasureMs = 10000;
constexpr DWORD kFrameMs = 33;  // the animation's pace, about 30 frames a second

ULONGLONG CpuTime(HANDLE thread) {
    FILETIME created, exited, kernel, user;
    if (!thread || !GetThreadTimes(thread, &created, &exited, &kernel, &user))
        return 0;
    auto v = [](const FILETIME& f) {
        return (static_cast<ULONGLONG>(f.dwHighDateTime) << 32) | f.dwLowDateTime;
    };
    return v(kernel) + v(user);  // 100 ns units
}

// Counts passes on the capture thread and notes that thread; the bench thread reads under
// lock_.
class PassCounter final : public test::FakeSink {
  public:
    struct Counts {
        uint64_t passes = 0, frames = 0, cursors = 0, bytes = 0;
    };
    PassCounter() { KeepPackets(false); }
    Counts Take() {
        std::lock_guard<CriticalSection> guard(lock_);
        return counts_;
    }
    ULONGLONG Cpu() {
        std::lock_guard<CriticalSection> guard(lock_);
        return CpuTime(thread_.get());
    }
    void Reset() {
        std::lock_guard<CriticalSection> guard(lock_);
        counts_ = Counts{};
        last_ = RECT{};
        thread_.reset();
    }

  protected:
    void Received(const void* data, uint32_t cb) noexcept override {
        std::lock_guard<CriticalSection> guard(lock_);
        if (!thread_)
            thread_.reset(OpenThread(THREAD_QUERY_INFORMATION, FALSE, GetCurrentThreadId()));
        packet::FrameHeader h;
        if (packet::ReadFrameHeader(data, cb, &h)) {
            ++counts_.frames;
            const bool continues = h.band.top == last_.bottom && h.band.left == last_.left &&
                                   h.band.right == last_.right;
            counts_.passes += !continues;
            last_ = h.band;
        } else {
            ++counts_.cursors;
        }
        counts_.bytes += cb;
    }

  private:
    CriticalSection lock_;
    Counts counts_;
    RECT last_{};
    UniqueHandle thread_;  // the capture thread, seen at its first Transfer
};

struct Scenario {
    const char* name;
    RECT area;
    LONG fps;  // registry "FPS"; -1 leaves it alone
};

void RunScenario(IDesktopCapture* capture, PassCounter& sink, const Scenario& s) {
    std::optional<test::DeskPrefOverride> fps;
    if (s.fps >= 0)
        fps.emplace("FPS", static_cast<DWORD>(s.fps));
    bench::Animation animation(s.area);
    sink.Reset();
    if (FAILED(capture->Run())) {
        std::printf("%-28s  Run failed\n", s.name);
        return;
    }
    // The first picture and the pointer's first record are not part of the measurement.
    for (int i = 0; i < 30; ++i) {
        animation.Step();
        Sleep(kFrameMs);
    }
    const PassCounter::Counts start = sink.Take();
    const ULONGLONG cpuStart = sink.Cpu();
    const DWORD t0 = GetTickCount();
    DWORD next = t0;
    while (GetTickCount() - t0 < kMeasureMs) {
        animation.Step();
        next += kFrameMs;
        const LONG wait = static_cast<LONG>(next - GetTickCount());
        if (wait > 0)
            Sleep(static_cast<DWORD>(wait));
    }
    const PassCounter::Counts end = sink.Take();
    const ULONGLONG cpu = sink.Cpu() - cpuStart;
    const double seconds = (GetTickCount() - t0) / 1000.0;
    capture->Stop();

    const double passes = static_cast<double>(end.passes - start.passes);
    const double packets =
        static_cast<double>(end.frames - start.frames + end.cursors - start.cursors);
    const double bytes = static_cast<double>(end.bytes - start.bytes);
    const double cpuMs = static_cast<double>(cpu) / 10000.0;
    std::printf("%-28s %9.1f %10.1f %10.1f %13.2f %9.1f\n", s.name, passes / seconds,
                packets / seconds, bytes / seconds / 1024.0, passes > 0 ? cpuMs / passes : 0.0,
                100.0 * cpuMs / (seconds * 1000.0));
}

}  // namespace

int main() {
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)))
        return 1;
    int rc = 0;
    {
        ComPtr<IDesktopCapture> capture;
        PassCounter sink;
        if (FAILED(CoCreateInstance(CLSID_DesktopCapture, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_IDesktopCapture, capture.PutVoid())) ||
            FAILED(capture->RegisterDataTransmitter(&sink))) {
            std::printf("DesktopCapture could not be created: is Vantrel.dll registered?\n");
            rc = 1;
        } else {
            const int w = GetSystemMetrics(SM_CXSCREEN), h = GetSystemMetrics(SM_CYSCREEN);
            SetCursorPos(w - 4, h - 4);
            std::printf("DesktopCapture, %dx%d screen, animation at %lu frames/s, %lu s each\n", w,
                        h, 1000ul / kFrameMs, kMeasureMs / 1000ul);
            std::printf("%-28s %9s %10s %10s %13s %9s\n", "scenario", "passes/s", "packets/s",
                        "KiB/s", "CPU ms/pass", "CPU %");
            const Scenario scenarios[] = {
                {"region 256x192", RECT{384, 288, 640, 480}, 0},
                {"region 256x192, FPS 2", RECT{384, 288, 640, 480}, 2},
                {"whole screen", RECT{0, 0, w, h}, 0},
            };
            for (const Scenario& s : scenarios)
                RunScenario(capture.Get(), sink, s);
            capture->UnregisterDataTransmitter(&sink);
        }
    }
    CoUninitialize();
    return rc;
}
