// What the host's tests share: vantrel.exe run as a real program (its output and exit code),
// and a lesson recorded by `vantrel share --record` while a box of noise changes on the screen.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/LoggedProgram.h"
#include "common/Screen.h"
#include "record/RecordTestSupport.h"
#include "wincom/Png.h"

namespace vantrel::test {

// The exit codes vantrel.exe documents.
enum HostExit : DWORD {
    kOk = 0,
    kFailed = 1,
    kUsage = 2,
    kNotRegistered = 3,
    kFileError = 4,
    kDamaged = 5,
    kUnclosed = 6,
    kNetwork = 7,
    kNoServer = 8
};

struct Ran {
    DWORD code;
    std::string out;
};

// Runs program (beside the test) with args to its end, or kills it after ms.
inline Ran RunProgram(const std::string& program, const std::string& args, DWORD ms = 30000) {
    LoggedProgram run(program);
    if (!run.Start(program, args, nullptr))
        return Ran{ChildProcess::kNoExitCode, "(not started)"};
    const DWORD code = run.Wait(ms);
    if (code == ChildProcess::kNoExitCode)
        run.Kill();
    return Ran{code, run.Output()};
}

// Runs vantrel.exe args to its end, or kills it after ms.
inline Ran RunVantrel(const std::string& args, DWORD ms = 30000) {
    return RunProgram("vantrel.exe", args, ms);
}

inline std::string Quote(const std::string& path) {
    return "\"" + path + "\"";
}

// The screen's box and its noise while a lesson was being recorded.
struct RecordedState {
    uint32_t seed;
    std::vector<uint16_t> box;  // the box at 5-5-5
};

// Records seconds of the screen into path with `vantrel share --record`; while it runs the
// NoiseBox at box shows seeds one after another, each held holdMs. args adds options.
inline std::vector<RecordedState> RecordLesson(const std::string& path, const RECT& box,
                                               const std::vector<uint32_t>& seeds, DWORD holdMs,
                                               const std::string& args = std::string()) {
    std::vector<RecordedState> states;
    NoiseBox noise(box, seeds.front());
    EXPECT_TRUE(noise.Shown());
    LoggedProgram share("share");
    EXPECT_TRUE(share.Start("vantrel.exe", "share --record " + Quote(path) + " " + args));
    EXPECT_TRUE(share.WaitFor("share: running", kPatience)) << share.Output();
    for (uint32_t seed : seeds) {
        if (seed != seeds.front()) {
            EXPECT_TRUE(noise.Repaint(seed));
        }
        states.push_back(RecordedState{seed, GrabScreen555(box)});
        PumpFor(holdMs);
    }
    EXPECT_EQ(0u, share.Stop(30000)) << share.Output();
    EXPECT_TRUE(share.Said("lesson")) << share.Output();
    return states;
}

// The pixels of a PNG file at 5-5-5 within r.
inline std::vector<uint16_t> Png555(const std::string& path, const RECT& r) {
    Pixels picture;
    if (FAILED(ReadPng(path.c_str(), &picture)))
        return {};
    const Pixels part = picture.Crop(r);
    std::vector<uint16_t> out(part.data.size());
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = To555(part.data[i]);
    return out;
}

}  // namespace vantrel::test
