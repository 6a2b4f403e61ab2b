// A student process of bench_cast, made of registered COM objects only:
//   student <group> <port> <stop> <ready>   DesktopReceiver -> a counting sink until the named
//                                           event <stop> is set; releases the named semaphore
//                                           <ready> once it runs
// Exit code: packets received (0 is a failure); 2 usage, 3 COM, 4 an object could not be made.
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
    // A student whose parent died ends by itself.
    test::WaitUntil([&] { return WaitForSingleObject(stop.get(), 0) != WAIT_TIMEOUT; },
                    10 * 60 * 1000, 50);
    receiver->Stop();
    receiver->LeaveSession();
    receiver->UnregisterDataTransmitter(&sink);
    return static_cast<int>(sink.PacketCount());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6 || strcmp(argv[1], "student")) {
        std::fprintf(stderr, "usage: cast_peer student <group> <port> <stop> <ready>\n");
        return 2;
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)))
        return 3;
    const int rc = Student(argv[2], static_cast<USHORT>(atoi(argv[3])), argv[4], argv[5]);
    CoUninitialize();
    return rc;
}
