// Casting benchmark (scripts/bench cast): the teacher's cost of a class. This process is the
// teacher: DesktopCapture -> DesktopCaster (8 correction datagrams per group, checksums on)
// while a window animates the whole screen; 1 and then 30 student processes (cast_peer
// student: DesktopReceiver -> counting sink) receive the session. Multicast sends each datagram
// once whatever the class size, so the teacher's CPU per second must not grow with the class;
// the cost per MiB sent is shown too, as a loaded machine captures fewer frames. Prints a
// table; no thresholds.
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <string>
#include <vector>

#include "common/Animation.h"
#include "common/BenchClock.h"
#include "Vantrel.h"
#include "common/FakeSink.h"
#include "wincom/ChildProcess.h"
#include "wincom/ComPtr.h"
#include "wincom/KernelObjects.h"
#include "wincom/UniqueHandle.h"

using namespace vantrel;

namespace {

constexpr DWORD kWarmUpMs = 2000;
constexpr DWORD kMeasureMs = 10000;
constexpr DWORD kFrameMs = 33;
constexpr int kFec = 8;

double ProcessCpuSeconds() {
    FILETIME created, exited, kernel, user;
    GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user);
    auto v = [](const FILETIME& f) {
        return (static_cast<ULONGLONG>(f.dwHighDateTime) << 32) | f.dwLowDateTime;
    };
    return static_cast<double>(v(kernel) + v(user)) / 1e7;
}

struct Row {
    int students = 0;
    double cpuPerSecond = 0, mibPerSecond = 0, packetsPerSecond = 0, cpuPerMib = 0;
    double received = 0;  // mean packets per student, as a share of those sent while they ran
    bool ok = false;
};

Row RunClass(int students) {
    Row row;
    row.students = students;
    const std::string group = "239.255.200." + std::to_string(students);
    const USHORT port = static_cast<USHORT>(31000 + students);
    const std::string tag = std::to_string(GetCurrentProcessId()) + "_" + std::to_string(students);
    UniqueEvent stop = CreateNamedEvent(("VantrelCastBenchStop" + tag).c_str(), true, false);
    const std::string readyName = "VantrelCastBenchReady" + tag;
    UniqueHandle ready(CreateSemaphoreA(nullptr, 0, students, readyName.c_str()));
    if (!stop || !ready)
        return row;

    std::vector<ChildProcess> peers(students);
    for (auto& peer : peers)
        if (!peer.Start("cast_peer.exe", "student " + group + " " + std::to_string(port) +
                                             " VantrelCastBenchStop" + tag + " " + readyName))
            break;
    int started = 0, joined = 0;
    while (started < students && peers[started].Started())
        ++started;
    while (joined < started && WaitForSingleObject(ready.get(), 120000) == WAIT_OBJECT_0)
        ++joined;

    ComPtr<IDesktopCapture> capture;
    ComPtr<IDesktopCaster> caster;
    ComPtr<IDataTransmitter> casterSink;
    test::FakeSink sent;  // beside the caster on the capture: what the teacher sends
    sent.KeepPackets(false);
    char local[] = "127.0.0.1";
    std::string groupText = group;
    if (joined == students &&
        SUCCEEDED(CoCreateInstance(CLSID_DesktopCapture, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_IDesktopCapture, capture.PutVoid())) &&
        SUCCEEDED(CoCreateInstance(CLSID_DesktopCaster, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_IDesktopCaster, caster.PutVoid())) &&
        SUCCEEDED(caster.As(&casterSink)) &&
        caster->CreateSession(local, &groupText[0], port, kFec, TRUE) == S_OK) {
        const RECT screen{0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
        bench::Animation animation(screen);
        caster->Run();
        capture->RegisterDataTransmitter(casterSink.Get());
        capture->RegisterDataTransmitter(&sent);
        capture->Run();
        auto animate = [&](DWORD ms) {
            const DWORD t0 = GetTickCount();
            DWORD next = t0;
            while (GetTickCount() - t0 < ms) {
                animation.Step();
                next += kFrameMs;
                const LONG wait = static_cast<LONG>(next - GetTickCount());
                if (wait > 0)
                    Sleep(static_cast<DWORD>(wait));
            }
        };
        animate(kWarmUpMs);
        const uint64_t packets0 = sent.PacketCount(), bytes0 = sent.ByteCount();
        const double cpu0 = ProcessCpuSeconds(), t0 = bench::Seconds();
        animate(kMeasureMs);
        const double cpu = ProcessCpuSeconds() - cpu0, seconds = bench::Seconds() - t0;
        const uint64_t packets1 = sent.PacketCount(), bytes1 = sent.ByteCount();
        capture->Stop();
        capture->UnregisterDataTransmitter(casterSink.Get());
        capture->UnregisterDataTransmitter(&sent);
        caster->DestroySession();

        const double mib = static_cast<double>(bytes1 - bytes0) / (1024.0 * 1024.0);
        row.cpuPerSecond = 1000.0 * cpu / seconds;
        row.mibPerSecond = mib / seconds;
        row.packetsPerSecond = static_cast<double>(packets1 - packets0) / seconds;
        row.cpuPerMib = mib > 0 ? 1000.0 * cpu / mib : 0;
        row.ok = true;
        Sleep(500);  // the last datagrams reach the students
        SetEvent(stop.get());
        double total = 0;
        for (auto& p : peers) {
            const DWORD code = p.Wait(60000);
            total += code == ChildProcess::kNoExitCode ? 0 : code;
        }
        row.received = packets1 ? total / students / static_cast<double>(packets1) : 0;
    }
    SetEvent(stop.get());
    for (auto& p : peers)
        p.Finish(30000);
    return row;
}

}  // namespace

int main() {
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)))
        return 1;
    SetCursorPos(GetSystemMetrics(SM_CXSCREEN) - 4, GetSystemMetrics(SM_CYSCREEN) - 4);
    std::printf(
        "Teacher casting a whole-screen animation (%lu frames/s), FEC %d + checksums, "
        "%lu s each\n",
        1000ul / kFrameMs, kFec, kMeasureMs / 1000ul);
    std::printf("%9s %16s %10s %10s %14s %14s\n", "students", "teacher CPU ms/s", "packets/s",
                "MiB/s", "CPU ms per MiB", "received/sent");
    Row rows[2];
    const int classes[2] = {1, 30};
    int rc = 0;
    for (int i = 0; i < 2; ++i) {
        rows[i] = RunClass(classes[i]);
        if (!rows[i].ok) {
            std::printf("%9d  could not run (are Vantrel.dll and Transport.dll registered?)\n",
                        classes[i]);
            rc = 1;
            continue;
        }
        std::printf("%9d %16.1f %10.1f %10.2f %14.1f %13.1f%%\n", rows[i].students,
                    rows[i].cpuPerSecond, rows[i].packetsPerSecond, rows[i].mibPerSecond,
                    rows[i].cpuPerMib, 100.0 * rows[i].received);
    }
    if (rows[0].ok && rows[1].ok && rows[0].cpuPerSecond > 0)
        std::printf("teacher CPU per second, 30 students / 1 student: %.2f\n",
                    rows[1].cpuPerSecond / rows[0].cpuPerSecond);
    CoUninitialize();
    return rc;
}
