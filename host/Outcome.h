// How a vantrel.exe command ends: its exit code and, when it failed, one sentence that says why
// in words. Every code has one meaning, so that scripts can tell the failures apart.
#pragma once

#include <windows.h>

#include <cstdio>
#include <string>

namespace vantrel::host {

enum ExitCode : int {
    kExitOk = 0,
    kExitFailed = 1,         // an object refused to work (the message says which and why)
    kExitUsage = 2,          // bad command line
    kExitNotRegistered = 3,  // a COM class (or the DLL behind it) is not registered
    kExitFile = 4,           // a file cannot be opened, created or written
    kExitDamaged = 5,        // a lesson file is damaged or is not a lesson file
    kExitUnclosed = 6,       // a lesson file whose recording was never closed: `repair` it
    kExitNetwork = 7,        // an address that is not of this machine, or not a group
    kExitNoServer = 8,       // no shared-memory server runs on this machine
};

struct Outcome {
    int code = kExitOk;
    std::string message;

    bool Ok() const noexcept { return code == kExitOk; }
    static Outcome Success() { return Outcome{}; }
    static Outcome Fail(int code, std::string message) { return Outcome{code, std::move(message)}; }
};

// "what (0x80004005)".
inline std::string WithCode(const std::string& what, HRESULT hr) {
    char text[24];
    std::snprintf(text, sizeof text, " (0x%08lX)", static_cast<unsigned long>(hr));
    return what + text;
}

}  // namespace vantrel::host
