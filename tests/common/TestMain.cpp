// Entry of every test program. A crash must end the process with a failure code at once:
// under Wine an unhandled fault would otherwise start the debugger and the test would hang.
#include <windows.h>

#include <cstdio>

#include <gtest/gtest.h>

namespace {
LONG WINAPI ReportCrash(EXCEPTION_POINTERS* info) {
    std::fprintf(stderr, "\n*** unhandled exception 0x%08lX at %p\n",
                 static_cast<unsigned long>(info->ExceptionRecord->ExceptionCode),
                 info->ExceptionRecord->ExceptionAddress);
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), 3);
    return EXCEPTION_EXECUTE_HANDLER;
}
}  // namespace

int main(int argc, char** argv) {
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    SetUnhandledExceptionFilter(ReportCrash);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
