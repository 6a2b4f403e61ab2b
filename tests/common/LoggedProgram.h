// A program started beside this one with its standard output and error in a log file that is
// read while it runs, and stopped through the named event of its stop option, as Ctrl+C would
// stop it. The host's tests run vantrel.exe this way; the classroom demo runs its teacher, its
// students and the relay so.
#pragma once

#include <windows.h>

#include <string>

#include "wincom/ChildProcess.h"

namespace vantrel::test {

class LoggedProgram {
  public:
    // name: what reports call it; log: the output's file (empty: a temporary file, removed
    // again by the destructor).
    explicit LoggedProgram(std::string name = "program", std::string log = std::string());
    LoggedProgram(const LoggedProgram&) = delete;
    LoggedProgram& operator=(const LoggedProgram&) = delete;
    ~LoggedProgram();

    // Starts program with args; stopOption ("--stop-event", "--stop"), when given, is followed
    // on the command line by the name of the event that Stop sets.
    bool Start(const std::string& program, const std::string& args,
               const char* stopOption = "--stop-event");
    // Its output so far.
    std::string Output() const;
    bool Said(const std::string& text) const { return Output().find(text) != std::string::npos; }
    // Pumps this thread's messages until the output holds text (true), the program ends or ms
    // pass.
    bool WaitFor(const std::string& text, DWORD ms) const;
    bool Running() const;
    // Waits up to ms for the program to end by itself: its exit code, or kNoExitCode.
    DWORD Wait(DWORD ms);
    // Sets the stop event and waits up to ms (then ends it by force): its exit code, or
    // kNoExitCode.
    DWORD Stop(DWORD ms);
    // Ends it at once, as a crash or a power cut would.
    void Kill();

    const std::string& Name() const noexcept { return name_; }

  private:
    std::string name_, log_;
    bool ownLog_ = false;
    ChildProcess process_;
    DWORD exitCode_ = ChildProcess::kNoExitCode;
};

}  // namespace vantrel::test
