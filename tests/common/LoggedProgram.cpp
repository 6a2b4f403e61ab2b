// A program with its output in a log file (see LoggedProgram.h).
#include "LoggedProgram.h"

#include <cstdio>

#include "Screen.h"
#include "wincom/KernelObjects.h"

namespace vantrel::test {

LoggedProgram::LoggedProgram(std::string name, std::string log)
    : name_(std::move(name)), log_(std::move(log)) {
    if (log_.empty()) {
        char dir[MAX_PATH];
        GetTempPathA(MAX_PATH, dir);
        log_ = std::string(dir) + UniqueObjectName("vantrel-program-") + ".log";
        ownLog_ = true;
    }
}

LoggedProgram::~LoggedProgram() {
    process_.Finish(10000);
    if (ownLog_)
        DeleteFileA(log_.c_str());
}

bool LoggedProgram::Start(const std::string& program, const std::string& args,
                          const char* stopOption) {
    UniqueEvent stopEvent;
    std::string line = args;
    if (stopOption) {
        const std::string stop = UniqueObjectName("VantrelProgramStop");
        stopEvent = CreateNamedEvent(stop.c_str(), true, false);
        line += std::string(" ") + stopOption + " " + stop;
    }
    exitCode_ = ChildProcess::kNoExitCode;
    return process_.Start(program, line, std::move(stopEvent), log_);
}

std::string LoggedProgram::Output() const {
    std::string text;
    if (FILE* f = std::fopen(log_.c_str(), "rb")) {
        char buffer[4096];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;)
            text.append(buffer, n);
        std::fclose(f);
    }
    return text;
}

bool LoggedProgram::Running() const {
    return process_.Started() && WaitForSingleObject(process_.Handle(), 0) == WAIT_TIMEOUT;
}

bool LoggedProgram::WaitFor(const std::string& text, DWORD ms) const {
    WaitUntil([&] { return Said(text) || !Running(); }, ms, 20);
    return Said(text);
}

DWORD LoggedProgram::Wait(DWORD ms) {
    if (exitCode_ == ChildProcess::kNoExitCode)
        exitCode_ = process_.Wait(ms);
    return exitCode_;
}

DWORD LoggedProgram::Stop(DWORD ms) {
    if (exitCode_ == ChildProcess::kNoExitCode && process_.Started())
        exitCode_ = process_.Finish(ms);
    return exitCode_;
}

void LoggedProgram::Kill() {
    if (process_.Started())
        TerminateProcess(process_.Handle(), 9);
    process_.Finish(5000);
}

}  // namespace vantrel::test
