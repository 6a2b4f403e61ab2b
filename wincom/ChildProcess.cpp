#include "ChildProcess.h"

#include <atomic>

namespace vantrel {

std::string ProgramBeside(const std::string& fileName) {
    char path[MAX_PATH];
    const DWORD n = GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string dir(path, n < MAX_PATH ? n : 0);
    const auto slash = dir.find_last_of("\\/");
    dir.resize(slash == std::string::npos ? 0 : slash + 1);
    return dir + fileName;
}

std::string UniqueObjectName(const std::string& prefix) {
    static std::atomic<unsigned> counter{0};
    return prefix + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++counter);
}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    if (this != &other) {
        Finish(10000);
        process_ = std::move(other.process_);
        stop_ = std::move(other.stop_);
        id_ = other.id_;
    }
    return *this;
}

bool ChildProcess::Start(const std::string& program, const std::string& args, UniqueEvent stopEvent,
                         const std::string& outputFile) noexcept {
    Finish(10000);
    try {
        const bool bare = program.find_first_of("\\/:") == std::string::npos;
        std::string cmd = "\"" + (bare ? ProgramBeside(program) : program) + "\"";
        if (!args.empty())
            cmd += " " + args;
        STARTUPINFOA si{};
        si.cb = sizeof si;
        // The child's ends of a redirection: inherited, closed here once it has them.
        UniqueFile output, input;
        if (!outputFile.empty()) {
            SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
            const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
            output.reset(CreateFileA(outputFile.c_str(), GENERIC_WRITE, share, &inherit,
                                     CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
            input.reset(
                CreateFileA("NUL", GENERIC_READ, share, &inherit, OPEN_EXISTING, 0, nullptr));
            if (!output || !input)
                return false;
            si.dwFlags = STARTF_USESTDHANDLES;
            si.hStdInput = input.get();
            si.hStdOutput = si.hStdError = output.get();
        }
        PROCESS_INFORMATION pi{};
        if (!CreateProcessA(nullptr, &cmd[0], nullptr, nullptr, output ? TRUE : FALSE, 0, nullptr,
                            nullptr, &si, &pi))
            return false;
        CloseHandle(pi.hThread);
        process_.reset(pi.hProcess);
        id_ = pi.dwProcessId;
        stop_ = std::move(stopEvent);
        return true;
    } catch (...) {
        return false;
    }
}

DWORD ChildProcess::Wait(DWORD timeoutMs) noexcept {
    if (!process_ || WaitForSingleObject(process_.get(), timeoutMs) != WAIT_OBJECT_0)
        return kNoExitCode;
    DWORD code = kNoExitCode;
    GetExitCodeProcess(process_.get(), &code);
    return code;
}

DWORD ChildProcess::Finish(DWORD timeoutMs) noexcept {
    if (!process_)
        return kNoExitCode;
    if (stop_)
        SetEvent(stop_.get());
    const DWORD code = Wait(timeoutMs);
    if (code == kNoExitCode) {
        TerminateProcess(process_.get(), 1);
        WaitForSingleObject(process_.get(), 5000);
    }
    process_.reset();
    stop_.reset();
    id_ = 0;
    return code;
}

}  // namespace vantrel
