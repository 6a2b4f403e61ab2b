// What the host's tests share: vantrel.exe (or a sample) run as a real program to its end, its
// output and exit code.
#pragma once

#include <windows.h>

#include <string>

#include <gtest/gtest.h>

#include "common/LoggedProgram.h"
#include "common/Screen.h"
#include "record/RecordTestSupport.h"
#include "wincom/Png.h"

namespace vantrel::test {

// The exit codes vantrel.exe documents, 0 to 8.
enum HostExit : DWORD {
    kOk,
    kFailed,
    kUsage,
    kNotRegistered,
    kFileError,
    kDamaged,
    kUnclosed,
    kNetwork,
    kNoServer
};

struct Ran {
    DWORD code;
    std::string out;
};

// Runs program (beside the test) with args to its end, or kills it after 30 s.
inline Ran RunVantrel(const std::string& args, const std::string& program = "vantrel.exe") {
    LoggedProgram run(program);
    if (!run.Start(program, args, nullptr))
        return Ran{ChildProcess::kNoExitCode, "(not started)"};
    const DWORD code = run.Wait(30000);
    if (code == ChildProcess::kNoExitCode)
        run.Kill();
    return Ran{code, run.Output()};
}

inline std::string Quote(const std::string& path) {
    return "\"" + path + "\"";
}

}  // namespace vantrel::test
