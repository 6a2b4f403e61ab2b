// Starts vantrel_relay.exe (next to the calling program) for one test or benchmark and stops
// it again. Header-only; for tests/ and bench/.
#pragma once

#include <windows.h>

#include <cstdio>
#include <string>

#include "wincom/KernelObjects.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::test {

struct RelayRates {
    double lossPercent = 0;
    double dupPercent = 0;
    double reorderPercent = 0;
    unsigned seed = 1;
};

class RelayProcess {
  public:
    // from and to: "239.255.a.b:port", different ports.
    RelayProcess(const std::string& from, const std::string& to, const RelayRates& rates) {
        static LONG counter = 0;
        const std::string tag = std::to_string(GetCurrentProcessId()) + "_" +
                                std::to_string(InterlockedIncrement(&counter));
        const std::string stop = "VantrelRelayStop" + tag, ready = "VantrelRelayReady" + tag;
        stop_ = CreateNamedEvent(stop.c_str(), true, false);
        UniqueEvent readyEvent = CreateNamedEvent(ready.c_str(), true, false);
        if (!stop_ || !readyEvent)
            return;
        char path[MAX_PATH];
        GetModuleFileNameA(nullptr, path, MAX_PATH);
        std::string exe(path);
        exe = exe.substr(0, exe.find_last_of('\\') + 1) + "vantrel_relay.exe";
        char rateText[128];
        std::snprintf(rateText, sizeof rateText, " --loss %g --dup %g --reorder %g --seed %u",
                      rates.lossPercent, rates.dupPercent, rates.reorderPercent, rates.seed);
        std::string cmd = "\"" + exe + "\" --from " + from + " --to " + to + rateText + " --stop " +
                          stop + " --ready " + ready;
        STARTUPINFOA si{};
        si.cb = sizeof si;
        PROCESS_INFORMATION pi{};
        if (!CreateProcessA(nullptr, &cmd[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si,
                            &pi))
            return;
        CloseHandle(pi.hThread);
        process_.reset(pi.hProcess);
        const HANDLE waits[] = {readyEvent.get(), process_.get()};
        if (WaitForMultipleObjects(2, waits, FALSE, 10000) != WAIT_OBJECT_0)
            Finish();
    }
    RelayProcess(const RelayProcess&) = delete;
    RelayProcess& operator=(const RelayProcess&) = delete;
    ~RelayProcess() { Finish(); }

    // True once the relay has joined its group and is forwarding.
    bool Started() const { return static_cast<bool>(process_); }

    // Stops the relay (it sends what it holds back first); its exit code, or 0xFFFFFFFF.
    DWORD Finish() {
        if (!process_)
            return 0xFFFFFFFF;
        SetEvent(stop_.get());
        DWORD code = 0xFFFFFFFF;
        if (WaitForSingleObject(process_.get(), 10000) == WAIT_OBJECT_0)
            GetExitCodeProcess(process_.get(), &code);
        else
            TerminateProcess(process_.get(), 1);
        process_.reset();
        return code;
    }

  private:
    UniqueEvent stop_;
    UniqueHandle process_;
};

}  // namespace vantrel::test
