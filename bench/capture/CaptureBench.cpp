// Live capture benchmark (scripts/bench capture): DesktopCapture through COM, as a host runs it,
// captures the virtual screen for about 10 s per scenario while a window of another process
// (ChildPainter.h) animates a region or the whole screen at 30 frames a second (bars and a
// gradient, or a page of the screen corpus scrolling, for real content). A counting sink measures
// passes (updates: a frame packet that neither continues the previous band nor follows it closely
// starts one), packets and bytes per second, and the capture thread's CPU time (GetThreadTimes on
// the thread that calls Transfer: grab, convert, compress and deliver, on one core), in windows of
// 2 s whose median is printed, since the machine is shared. The change detector's own cost is
// bench_pavlex's. Prints a table and the whole-screen figures beside the targets; no thresholds.
#include <windows.h>
#include <objbase.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <vector>

#include "Vantrel.h"
#include "common/Animation.h"
#include "common/ChildPainter.h"
#include "common/ScreenCorpus.h"
#include "common/DeskPrefOverride.h"
#include "common/FakeSink.h"
#include "wincom/ComPtr.h"
#include "wincom/CriticalSection.h"
#include "wincom/UniqueHandle.h"
#include "stream/Packet.h"

using namespace vantrel;

namespace {

constexpr DWORD kMeasureMs = 10000;
constexpr DWORD kWindowMs = 2000;  // CPU is read per window; the median window is printed
constexpr DWORD kFrameMs = 33;     // the animation's pace, about 30 frames a second

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
        lastFrame_ = 0;
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
            // A pass is one update: its bands and rectangles follow each other closely, while
            // passes are paced a frame interval apart.
            const double now = test::Seconds();
            const bool continues = h.band.top == last_.bottom && h.band.left == last_.left &&
                                   h.band.right == last_.right;
            counts_.passes += !continues && now - lastFrame_ > 0.008;
            last_ = h.band;
            lastFrame_ = now;
        } else {
            ++counts_.cursors;
        }
        counts_.bytes += cb;
    }

  private:
    CriticalSection lock_;
    Counts counts_;
    RECT last_{};
    double lastFrame_ = 0;
    UniqueHandle thread_;  // the capture thread, seen at its first Transfer
};

struct Scenario {
    const char* name;
    RECT area;
    LONG fps;          // registry "FPS"; -1 leaves it alone
    bool realContent;  // a corpus page scrolling instead of bars
};

struct Figures {
    double passesPerSecond = 0, cpuMsPerPass = 0, cpuPercent = 0;
};

// The corpus's web page, tiled over w x 2h 32-bit pixels; empty without the corpus.
std::vector<uint32_t> CorpusPage(int w, int h) {
    const std::vector<bench::Screenshot> shots = bench::LoadScreenCorpus();
    auto page = std::find_if(shots.begin(), shots.end(),
                             [](const bench::Screenshot& s) { return s.name == "web page"; });
    if (page == shots.end())
        return {};
    std::vector<uint32_t> pixels(static_cast<size_t>(w) * h * 2);
    for (int y = 0; y < 2 * h; ++y)
        for (int x = 0; x < w; ++x) {
            const uint32_t p =
                page->pixels[static_cast<size_t>(y % page->height) * page->width + x % page->width];
            pixels[static_cast<size_t>(y) * w + x] =
                ((p >> 10) & 0x1F) << 19 | ((p >> 5) & 0x1F) << 11 | (p & 0x1F) << 3;
        }
    return pixels;
}

double Median(std::vector<double> v) {
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

Figures RunScenario(IDesktopCapture* capture, PassCounter& sink, const Scenario& s) {
    std::optional<test::DeskPrefOverride> fps;
    if (s.fps >= 0)
        fps.emplace("FPS", static_cast<DWORD>(s.fps));
    bench::ChildPainter painter("bench_capture.exe", s.realContent ? "page" : "bars", s.area);
    sink.Reset();
    if (!painter.ok() || FAILED(capture->Run())) {
        std::printf("%-28s  %s failed\n", s.name, painter.ok() ? "Run" : "the painter");
        return {};
    }
    // The first picture and the pointer's first record are not part of the measurement.
    Sleep(1000);
    const PassCounter::Counts start = sink.Take();
    std::vector<double> msPerPass, percent;
    PassCounter::Counts windowStart = start;
    ULONGLONG windowCpu = sink.Cpu();
    DWORD windowTick = GetTickCount();
    const DWORD t0 = windowTick;
    while (GetTickCount() - t0 < kMeasureMs) {
        Sleep(kWindowMs - std::min(kWindowMs, GetTickCount() - windowTick));
        if (GetTickCount() - windowTick >= kWindowMs) {
            const PassCounter::Counts now = sink.Take();
            const ULONGLONG cpu = sink.Cpu();
            const double cpuMs = static_cast<double>(cpu - windowCpu) / 10000.0;
            const double passes = static_cast<double>(now.passes - windowStart.passes);
            msPerPass.push_back(passes > 0 ? cpuMs / passes : 0.0);
            percent.push_back(100.0 * cpuMs / (GetTickCount() - windowTick));
            windowStart = now;
            windowCpu = cpu;
            windowTick = GetTickCount();
        }
    }
    const PassCounter::Counts end = sink.Take();
    const double seconds = (GetTickCount() - t0) / 1000.0;
    capture->Stop();

    Figures f;
    f.passesPerSecond = static_cast<double>(end.passes - start.passes) / seconds;
    f.cpuMsPerPass = Median(msPerPass);
    f.cpuPercent = Median(percent);
    const double packets =
        static_cast<double>(end.frames - start.frames + end.cursors - start.cursors);
    const double bytes = static_cast<double>(end.bytes - start.bytes);
    std::printf("%-34s %9.1f %10.1f %10.1f %13.2f %9.1f\n", s.name, f.passesPerSecond,
                packets / seconds, bytes / seconds / 1024.0, f.cpuMsPerPass, f.cpuPercent);
    return f;
}

// The child's part: the animation at about 30 frames a second until the parent stops it.
void Animate(const std::string& what, const RECT& a, HANDLE stop) {
    bench::Animation animation(a, what == "page" ? CorpusPage(a.right - a.left, a.bottom - a.top)
                                                 : std::vector<uint32_t>{});
    for (DWORD next = GetTickCount(); WaitForSingleObject(stop, 0) == WAIT_TIMEOUT;) {
        animation.Step();
        next += kFrameMs;
        const LONG wait = static_cast<LONG>(next - GetTickCount());
        if (wait > 0)
            Sleep(static_cast<DWORD>(wait));
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (bench::RunAsChildPainter(argc, argv, Animate))
        return 0;
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
            std::printf("%-34s %9s %10s %10s %13s %9s\n", "scenario", "passes/s", "packets/s",
                        "KiB/s", "CPU ms/pass", "CPU %");
            const Scenario scenarios[] = {
                {"region 256x192", RECT{384, 288, 640, 480}, 0, false},
                {"region 256x192, FPS 2", RECT{384, 288, 640, 480}, 2, false},
                {"whole screen", RECT{0, 0, w, h}, 0, false},
                {"whole screen, real content", RECT{0, 0, w, h}, 0, true},
            };
            Figures whole[2];
            for (const Scenario& s : scenarios) {
                const Figures f = RunScenario(capture.Get(), sink, s);
                if (s.area.right == w && s.area.bottom == h)
                    whole[s.realContent ? 1 : 0] = f;
            }
            std::printf("\n%-52s %9s %9s %9s\n", "whole screen against the targets", "bars", "real",
                        "target");
            if (w == 1024 && h == 768)
                std::printf("%-52s %8.1f%% %8.1f%% %9s\n",
                            "capture thread CPU at about 30 passes/s", whole[0].cpuPercent,
                            whole[1].cpuPercent, "<= 15%");
            std::printf("%-52s %7.2fms %7.2fms %9s\n",
                        "one full-screen pass: grab to delivery, CPU of one core",
                        whole[0].cpuMsPerPass, whole[1].cpuMsPerPass,
                        w == 1920 && h == 1080 ? "< 33ms" : "");
            capture->UnregisterDataTransmitter(&sink);
        }
    }
    CoUninitialize();
    return rc;
}
