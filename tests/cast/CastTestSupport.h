// What the casting tests share: deterministic packet bytes and a multicast session of their own
// per test (a group of 239.255.x.x and a port, on the loopback interface of the harness's private
// network).
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

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

}  // namespace vantrel::test
