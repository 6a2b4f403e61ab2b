// What the casting tests share: deterministic packet bytes, a multicast session of their own per
// test (a group of 239.255.x.x and a port, on the loopback interface of the harness's private
// network) and the teacher process (cast_peer).
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "wincom/ChildProcess.h"
#include "wincom/KernelObjects.h"

namespace vantrel::test {

using Bytes = std::vector<BYTE>;

inline Bytes Pattern(size_t length, uint32_t seed) {
    Bytes v(length);
    for (auto& b : v)
        b = static_cast<BYTE>((seed = seed * 1664525u + 1013904223u) >> 24);
    return v;
}

// A group and port that no other test process of this run uses.
struct Session {
    std::string group;
    USHORT port;
    LPSTR Group() { return &group[0]; }
    static LPSTR Local() { return const_cast<LPSTR>("127.0.0.1"); }
    std::string Address() const { return group + ":" + std::to_string(port); }

    static Session Next() {
        static LONG counter = 0;
        const DWORD pid = GetCurrentProcessId();
        const LONG n = InterlockedIncrement(&counter);
        return Session{
            "239.255." + std::to_string(100 + pid % 100) + "." + std::to_string(n % 250 + 1),
            static_cast<USHORT>(20000 + (pid * 7 + n) % 30000)};
    }
};

// The teacher in a second process: its DesktopCapture feeds its DesktopCaster on the session
// until Finish (or the end of the object).
class TeacherProcess {
  public:
    TeacherProcess(const Session& s, int fec) {
        const std::string stop = UniqueObjectName("VantrelCastStop");
        process_.Start("cast_peer.exe",
                       "teacher " + s.group + " " + std::to_string(s.port) + " " +
                           std::to_string(fec) + " " + stop,
                       CreateNamedEvent(stop.c_str(), true, false));
    }
    bool Started() const { return process_.Started(); }
    // Stops the teacher; its exit code (0 when it ran and stopped well), or 0xFFFFFFFF.
    DWORD Finish() { return process_.Finish(30000); }

  private:
    ChildProcess process_;
};

}  // namespace vantrel::test
