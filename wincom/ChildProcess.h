// A program that this one starts and later ends: politely, through a named stop event whose
// name the caller put on the child's command line, or by force when it does not end in time.
// The host's demo, the relay's owner, the multi-process tests and benchmarks use it.
#pragma once

#include <windows.h>

#include <string>

#include "UniqueHandle.h"

namespace vantrel {

// The full path of fileName in the folder of this program's executable.
std::string ProgramBeside(const std::string& fileName);

// prefix followed by this process's id and a per-process counter: a name no other process
// and no earlier call of this process uses (for named events handed to a child).
std::string UniqueObjectName(const std::string& prefix);

class ChildProcess {
  public:
    static constexpr DWORD kNoExitCode = 0xFFFFFFFF;

    ChildProcess() noexcept = default;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ChildProcess(ChildProcess&&) noexcept = default;
    ChildProcess& operator=(ChildProcess&&) noexcept;
    ~ChildProcess() { Finish(10000); }

    // Starts program (a full path, or a file name beside this program) with args; the child
    // shares this console, or, with outputFile, writes its standard output and error into that
    // file (created anew; readable while the child runs) and reads nothing. stopEvent, when
    // given, is what Finish sets. False on failure.
    bool Start(const std::string& program, const std::string& args,
               UniqueEvent stopEvent = UniqueEvent(),
               const std::string& outputFile = std::string()) noexcept;
    bool Started() const noexcept { return static_cast<bool>(process_); }
    HANDLE Handle() const noexcept { return process_.get(); }
    DWORD Id() const noexcept { return id_; }

    // Waits up to timeoutMs for the child to end by itself: its exit code, or kNoExitCode
    // when it is still running (it is left running).
    DWORD Wait(DWORD timeoutMs) noexcept;

    // Sets the stop event (if any), waits up to timeoutMs, then ends the child by force.
    // The exit code of a child that ended in time, else kNoExitCode. Forgets the child.
    DWORD Finish(DWORD timeoutMs) noexcept;

  private:
    UniqueHandle process_;
    UniqueEvent stop_;
    DWORD id_ = 0;
};

}  // namespace vantrel
