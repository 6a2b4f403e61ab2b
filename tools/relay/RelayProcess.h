// Starts vantrel_relay.exe (next to the calling program) for one test or benchmark and stops
// it again. Header-only; for tests/ and bench/.
#pragma once

#include <windows.h>

#include <cstdio>
#include <string>

#include "wincom/ChildProcess.h"
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
        const std::string stop = UniqueObjectName("VantrelRelayStop");
        const std::string ready = UniqueObjectName("VantrelRelayReady");
        UniqueEvent readyEvent = CreateNamedEvent(ready.c_str(), true, false);
        if (!readyEvent)
            return;
        char rateText[128];
        std::snprintf(rateText, sizeof rateText, " --loss %g --dup %g --reorder %g --seed %u",
                      rates.lossPercent, rates.dupPercent, rates.reorderPercent, rates.seed);
        if (!process_.Start("vantrel_relay.exe",
                            "--from " + from + " --to " + to + rateText + " --stop " + stop +
                                " --ready " + ready,
                            CreateNamedEvent(stop.c_str(), true, false)))
            return;
        const HANDLE waits[] = {readyEvent.get(), process_.Handle()};
        if (WaitForMultipleObjects(2, waits, FALSE, 10000) != WAIT_OBJECT_0)
            Finish();
    }
    RelayProcess(const RelayProcess&) = delete;
    RelayProcess& operator=(const RelayProcess&) = delete;

    // True once the relay has joined its group and is forwarding.
    bool Started() const { return process_.Started(); }

    // Stops the relay (it sends what it holds back first); its exit code, or 0xFFFFFFFF.
    DWORD Finish() { return process_.Finish(10000); }

  private:
    ChildProcess process_;
};

}  // namespace vantrel::test
