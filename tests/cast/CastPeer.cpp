// A second process for the casting tests and benchmarks, made of registered COM objects only.
//   teacher <group> <port> <fec> <stop>   DesktopCapture -> DesktopCaster (checksums on) until
//                                         the named event <stop> is set; exit code 0
//   student <group> <port> <stop> <ready> DesktopReceiver -> a counting sink until <stop> is
//                                         set; releases the named semaphore <ready> once it
//                                         runs; exit code: packets received (0 is a failure)
// Other exit codes: 2 usage, 3 COM, 4 an object or a session could not be made.
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Vantrel.h"
#include "common/FakeSink.h"
#include "common/Screen.h"
#include "wincom/ComPtr.h"
#include "wincom/KernelObjects.h"
#include "wincom/UniqueHandle.h"

using namespace vantrel;

namespace {

constexpr DWORD kLifetimeMs = 10 * 60 * 1000;  // a peer whose parent died ends by itself

// Waits for the event, pumping this apartment's messages meanwhile.
void WaitPumping(HANDLE event) {
    test::WaitUntil([event] { return WaitForSingleObject(event, 0) != WAIT_TIMEOUT; }, kLifetimeMs,
                    50);
}

int Teacher(char* group, USHORT port, int fec, const char* stopName) {
    UniqueEvent stop = TryOpenNamedEvent(stopName);
    ComPtr<IDesktopCapture> capture;
    ComPtr<IDesktopCaster> caster;
    ComPtr<IDataTransmitter> casterSink;
    if (!stop ||
        FAILED(CoCreateInstance(CLSID_DesktopCapture, nullptr, CLSCTX_INPROC_SERVER,
                                IID_IDesktopCapture, capture.PutVoid())) ||
        FAILED(CoCreateInstance(CLSID_DesktopCaster, nullptr, CLSCTX_INPROC_SERVER,
                                IID_IDesktopCaster, caster.PutVoid())) ||
        FAILED(caster.As(&casterSink)))
        return 4;
    char local[] = "127.0.0.1";
    if (caster->CreateSession(local, group, port, fec, TRUE) != S_OK || caster->Run() != S_OK ||
        capture->RegisterDataTransmitter(casterSink.Get()) != S_OK || capture->Run() != S_OK)
        return 4;
    WaitPumping(stop.get());
    capture->Stop();
    capture->UnregisterDataTransmitter(casterSink.Get());
    caster->DestroySession();
    return 0;
}

int Student(char* group, USHORT port, const char* stopName, const char* readyName) {
    UniqueEvent stop = TryOpenNamedEvent(stopName);
    UniqueHandle ready(OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, readyName));
    ComPtr<IDesktopReceiver> receiver;
    test::FakeSink sink;
    sink.KeepPackets(false);
    if (!stop || !ready ||
        FAILED(CoCreateInstance(CLSID_DesktopReceiver, nullptr, CLSCTX_INPROC_SERVER,
                                IID_IDesktopReceiver, receiver.PutVoid())))
        return 4;
    char local[] = "127.0.0.1";
    receiver->JoinSession(local, group, port);
    receiver->RegisterDataTransmitter(&sink);
    receiver->Run();
    ReleaseSemaphore(ready.get(), 1, nullptr);
    WaitPumping(stop.get());
    receiver->Stop();
    receiver->LeaveSession();
    receiver->UnregisterDataTransmitter(&sink);
    return static_cast<int>(sink.PacketCount());
}

}  // namespace

int main(int argc, char** argv) {
    const bool teacher = argc == 6 && !strcmp(argv[1], "teacher");
    const bool student = argc == 6 && !strcmp(argv[1], "student");
    if (!teacher && !student) {
        std::fprintf(stderr,
                     "usage: cast_peer teacher <group> <port> <fec> <stop> | "
                     "student <group> <port> <stop> <ready>\n");
        return 2;
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)))
        return 3;
    const USHORT port = static_cast<USHORT>(atoi(argv[3]));
    const int rc = teacher ? Teacher(argv[2], port, atoi(argv[4]), argv[5])
                           : Student(argv[2], port, argv[4], argv[5]);
    CoUninitialize();
    return rc;
}
