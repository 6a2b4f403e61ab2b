// The command's message loop and its stop signals (see EventLoop.h).
#include "EventLoop.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "wincom/KernelObjects.h"

namespace vantrel::host {

namespace {

// Set by the console handler (another thread); the process's one stop request.
HANDLE g_interrupt = nullptr;
// Set when the command has cleaned up: a console that is being closed waits for it.
HANDLE g_cleanedUp = nullptr;
std::atomic<DWORD> g_signal{0xFFFFFFFF};

BOOL WINAPI OnConsoleSignal(DWORD signal) {
    g_signal = signal;
    SetEvent(g_interrupt);
    // The console ends the process once this returns from these three: give the command time
    // to stop its objects and close its lesson file.
    if (signal == CTRL_CLOSE_EVENT || signal == CTRL_LOGOFF_EVENT || signal == CTRL_SHUTDOWN_EVENT)
        WaitForSingleObject(g_cleanedUp, 10000);
    return TRUE;
}

const char* SignalName(DWORD signal) {
    switch (signal) {
        case CTRL_C_EVENT:
            return "Ctrl+C";
        case CTRL_BREAK_EVENT:
            return "Ctrl+Break";
        case CTRL_CLOSE_EVENT:
            return "console closed";
        default:
            return "logoff or shutdown";
    }
}

}  // namespace

void Say(const char* format, ...) noexcept {
    va_list args;
    va_start(args, format);
    std::vfprintf(stdout, format, args);
    va_end(args);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

EventLoop::EventLoop() noexcept {
    if (!g_interrupt) {
        g_interrupt = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        g_cleanedUp = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        SetConsoleCtrlHandler(OnConsoleSignal, TRUE);
    }
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    if (input && input != INVALID_HANDLE_VALUE && GetConsoleMode(input, &mode))
        console_ = input;
}

EventLoop::~EventLoop() {
    SetEvent(g_cleanedUp);
}

Outcome EventLoop::Prepare(const RunOptions& options) {
    seconds_ = options.seconds;
    if (!options.stopEvent.empty()) {
        stopEvent_ = TryOpenNamedEvent(options.stopEvent.c_str());
        if (!stopEvent_)
            return Outcome::Fail(kExitUsage, "there is no event named " + options.stopEvent +
                                                 " (--stop-event names one its caller made)");
    }
    return Outcome::Success();
}

void EventLoop::Quit(const std::string& why) {
    if (quit_.empty())
        quit_ = why;
}

void EventLoop::ReadConsoleKeys() noexcept {
    INPUT_RECORD records[16];
    DWORD count = 0;
    while (GetNumberOfConsoleInputEvents(console_, &count) && count > 0 &&
           ReadConsoleInputA(console_, records, 16, &count)) {
        for (DWORD i = 0; i < count; ++i)
            if (records[i].EventType == KEY_EVENT && records[i].Event.KeyEvent.bKeyDown && onKey_)
                onKey_(records[i].Event.KeyEvent.wVirtualKeyCode);
    }
}

std::string EventLoop::Run(DWORD tickMs, const std::function<void()>& tick) {
    const DWORD start = GetTickCount();
    DWORD nextTick = start + tickMs;
    HANDLE waits[3] = {g_interrupt};
    DWORD count = 1;
    if (stopEvent_)
        waits[count++] = stopEvent_.get();
    const DWORD consoleIndex = count;
    if (console_)
        waits[count++] = console_;
    for (;;) {
        if (!quit_.empty())
            return quit_;
        const DWORD now = GetTickCount();
        if (seconds_ && now - start >= seconds_ * 1000)
            return "--seconds " + std::to_string(seconds_);
        const LONG untilTick = static_cast<LONG>(nextTick - now);
        if (untilTick <= 0) {
            nextTick = now + tickMs;
            if (tick)
                tick();
            continue;
        }
        const DWORD woke = MsgWaitForMultipleObjects(count, waits, FALSE,
                                                     static_cast<DWORD>(untilTick), QS_ALLINPUT);
        if (woke == WAIT_OBJECT_0)
            return SignalName(g_signal);
        if (stopEvent_ && woke == WAIT_OBJECT_0 + 1)
            return "stop event";
        if (console_ && woke == WAIT_OBJECT_0 + consoleIndex)
            ReadConsoleKeys();
        DispatchPending();
    }
}

void DispatchPending() noexcept {
    MSG msg;
    while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&msg);
        DispatchMessageA(&msg);
    }
}

}  // namespace vantrel::host
