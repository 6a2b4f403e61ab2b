// Recording and playback benchmark (scripts/bench record). A 1024 x 768 16-bit desktop with
// desktop-like content is cut into frame packets by the stream's own band export; the recorder
// (through COM) stores that full-screen stream again and again, and the reader plays a lesson
// of such packets back at speed factors 1 and 4 while a sink notes when each packet came.
// Prints tables; no thresholds.
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ScreenCodec.h"
#include "Vantrel.h"
#include "common/BenchClock.h"
#include "common/BenchStream.h"
#include "lesson/LessonFormat.h"
#include "stream/Packet.h"
#include "wincom/ComPtr.h"

using namespace vantrel;
using Bytes = std::vector<BYTE>;

namespace {

constexpr int kWidth = 1024, kHeight = 768;

// The full-screen stream of the benchmarks' desktop-like picture, as a render exports it.
std::vector<Bytes> FullScreenPackets(IScreenCodec* codec) {
    DesktopImage image;
    if (!bench::OpenDesktopImage(image, kWidth, kHeight))
        return {};
    std::vector<Bytes> packets;
    Bytes staging(packet::kBufferSize), out(packet::kBufferSize);
    for (uint32_t row = 0; row < kHeight;) {
        const uint32_t length =
            StreamEncoder::ExportBand(image, codec, 16, staging.data(), out.data(), &row);
        if (length == 0)
            break;
        packets.emplace_back(out.begin(), out.begin() + length);
    }
    return packets;
}

std::string TempName(const char* tag) {
    char dir[MAX_PATH];
    GetTempPathA(MAX_PATH, dir);
    return std::string(dir) + "vantrel-bench-" + tag + ".lsn";
}

// Recording: the full-screen stream `rounds` times through Transfer, each packet stamped with
// the tick as a capture does; against plain WriteFile of the same bytes.
void RecordingThroughput(const std::vector<Bytes>& screen) {
    constexpr int kRounds = 60;
    size_t screenBytes = 0;
    for (const Bytes& p : screen)
        screenBytes += p.size();
    std::string name = TempName("record");
    ComPtr<IDesktopRecorder> recorder;
    ComPtr<IDataTransmitter> sink;
    if (FAILED(CoCreateInstance(CLSID_DesktopRecorder, nullptr, CLSCTX_INPROC_SERVER,
                                IID_IDesktopRecorder, recorder.PutVoid())) ||
        FAILED(recorder.As(&sink)) || recorder->Open(&name[0], FALSE) != S_OK) {
        std::printf("recorder unavailable\n");
        return;
    }
    recorder->Run();
    std::vector<Bytes> packets = screen;
    std::vector<double> calls;
    const double start = bench::Seconds();
    for (int round = 0; round < kRounds; ++round)
        for (Bytes& p : packets) {
            packet::SetTime(p.data(), GetTickCount());
            const double t = bench::Seconds();
            sink->Transfer(p.data(), static_cast<unsigned long>(p.size()), FALSE);
            calls.push_back(bench::Seconds() - t);
        }
    const double recordSeconds = bench::Seconds() - start;
    recorder->Stop();
    recorder->Close();
    DeleteFileA(name.c_str());

    HANDLE file = CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    const double plainStart = bench::Seconds();
    DWORD written = 0;
    for (int round = 0; round < kRounds; ++round)
        for (const Bytes& p : packets)
            WriteFile(file, p.data(), static_cast<DWORD>(p.size()), &written, nullptr);
    FlushFileBuffers(file);
    const double plainSeconds = bench::Seconds() - plainStart;
    CloseHandle(file);
    DeleteFileA(name.c_str());

    const double mb = static_cast<double>(screenBytes) * kRounds / (1024.0 * 1024.0);
    std::sort(calls.begin(), calls.end());
    double sum = 0;
    for (double c : calls)
        sum += c;
    std::printf("full screen %dx%d 16-bit: %zu packets, %.1f KiB compressed\n", kWidth, kHeight,
                screen.size(), screenBytes / 1024.0);
    std::printf("%-28s %10s %10s %12s %12s %12s\n", "recording", "MiB", "MiB/s", "Transfer ms",
                "p99 ms", "max ms");
    std::printf("%-28s %10.1f %10.1f %12.3f %12.3f %12.3f\n", "DesktopRecorder (COM)", mb,
                mb / recordSeconds, 1000 * sum / calls.size(),
                1000 * calls[calls.size() * 99 / 100], 1000 * calls.back());
    std::printf("%-28s %10.1f %10.1f\n", "plain WriteFile + flush", mb, mb / plainSeconds);
    std::printf("recorder / plain throughput: %.2f\n\n",
                (mb / recordSeconds) / (mb / plainSeconds));
}

// A sink that notes when each packet came, in performance-counter seconds.
class ClockSink : public test::FakeSink {
  public:
    ClockSink() { KeepPackets(false); }
    struct Arrival {
        double at;
        uint32_t time;
    };
    std::vector<Arrival> arrivals;  // read once the reader has stopped

  protected:
    void Received(const void* data, uint32_t) noexcept override {
        arrivals.push_back({bench::Seconds(), packet::ReadHead(data).time});
    }
};

// Playback: a 6-second lesson, the full-screen stream every 500 ms and small packets every
// 40 ms between, played at factors 1 and 4; lateness is the arrival against Run + time / factor.
void PlaybackAccuracy(const std::vector<Bytes>& screen) {
    constexpr uint32_t kDuration = 6000;
    Bytes file(lesson::kHeaderSize);
    auto add = [&](Bytes p, uint32_t time) {
        packet::SetTime(p.data(), time);
        file.insert(file.end(), p.begin(), p.end());
    };
    Bytes small(200, 0x55);
    packet::WriteHead(small.data(), packet::Head{packet::kCursorMagic, 200, 0});
    size_t records = 0;
    for (uint32_t t = 0; t < kDuration; t += 40) {
        if (t % 500 == 0)
            for (const Bytes& p : screen) {
                add(p, t);
                ++records;
            }
        else {
            add(small, t);
            ++records;
        }
    }
    lesson::WriteHeader(
        file.data(), lesson::Header{lesson::kMagic, static_cast<uint32_t>(file.size()), kDuration});
    std::string name = TempName("play");
    HANDLE h = CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    WriteFile(h, file.data(), static_cast<DWORD>(file.size()), &written, nullptr);
    CloseHandle(h);

    // The clock the reader paces by: its smallest visible step.
    DWORD step = 0xFFFFFFFF;
    for (int i = 0; i < 20; ++i) {
        const DWORD a = GetTickCount();
        DWORD b;
        while ((b = GetTickCount()) == a) {
        }
        step = std::min(step, b - a);
    }
    double slept = bench::Seconds();
    for (int i = 0; i < 20; ++i)
        Sleep(5);
    slept = (bench::Seconds() - slept) * 1000 / 20;
    std::printf("GetTickCount step: %lu ms; Sleep(5) takes %.1f ms\n", step, slept);
    std::printf("playback: %zu records, %.1f MiB, %u ms\n", records,
                file.size() / (1024.0 * 1024.0), kDuration);
    std::printf("%-8s %8s %12s %12s %12s %12s\n", "factor", "records", "mean late ms",
                "p95 late ms", "worst ms", "end ms");
    for (DWORD factor : {1ul, 4ul}) {
        ComPtr<IDesktopReader> reader;
        ClockSink sink;
        if (FAILED(CoCreateInstance(CLSID_DesktopReader, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_IDesktopReader, reader.PutVoid())) ||
            reader->Open(&name[0]) != S_OK) {
            std::printf("reader unavailable\n");
            break;
        }
        reader->RegisterDataTransmitter(&sink);
        reader->SetSpeedFactor(factor);
        sink.arrivals.reserve(records);
        const double start = bench::Seconds();
        reader->Run();
        // The end is reached once the position passes the duration.
        unsigned long position = 0;
        while (reader->GetCurrentPosition(&position) == S_OK && position <= kDuration &&
               bench::Seconds() - start < 30)
            Sleep(5);
        Sleep(50);
        const double end = bench::Seconds() - start;
        reader->Stop();
        reader->UnregisterDataTransmitter(&sink);
        std::vector<double> late;
        for (const auto& a : sink.arrivals)
            late.push_back(1000 * (a.at - start) - static_cast<double>(a.time) / factor);
        std::sort(late.begin(), late.end());
        double sum = 0;
        for (double l : late)
            sum += l;
        if (late.empty())
            late.push_back(0);
        std::printf("%-8lu %8zu %12.2f %12.2f %12.2f %12.0f\n", factor, sink.arrivals.size(),
                    sum / late.size(), late[late.size() * 95 / 100], late.back(), 1000 * end);
    }
    DeleteFileA(name.c_str());
}

}  // namespace

int main() {
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)))
        return 1;
    {
        ComPtr<IScreenCodec> codec = bench::OpenCodec();
        if (!codec)
            return 1;
        const std::vector<Bytes> screen = FullScreenPackets(codec.Get());
        if (screen.empty()) {
            std::printf("no full-screen packets\n");
            return 1;
        }
        RecordingThroughput(screen);
        PlaybackAccuracy(screen);
    }
    CoUninitialize();
    return 0;
}
