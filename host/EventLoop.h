// The one thread of a long-running command: it created the render windows, so it pumps their
// messages, and it waits for whatever ends the command. Ctrl+C, Ctrl+Break and closing the
// console (SetConsoleCtrlHandler), the --seconds limit, the named event of --stop-event, and
// Quit (the window was closed, the lesson ended) all end Run the same way, so every command
// then stops its objects in order and closes its lesson file properly.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

#include "CommandLine.h"
#include "Outcome.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::host {

// Prints a line to the standard output at once (scripts and tests read it while we run).
void Say(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));

// Dispatches every message waiting for this thread's windows.
void DispatchPending() noexcept;

class EventLoop {
  public:
    EventLoop() noexcept;
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;
    ~EventLoop();

    // Opens the stop event that --stop-event names (its creator made it).
    Outcome Prepare(const RunOptions& options);
    // Keys typed into the console (virtual-key codes), when the standard input is one.
    void OnKey(std::function<void(WORD key)> handler) { onKey_ = std::move(handler); }
    // Pumps messages until something ends the command; tick runs every tickMs meanwhile.
    // Returns what ended it ("Ctrl+C", "--seconds", ...).
    std::string Run(DWORD tickMs, const std::function<void()>& tick);
    void Quit(const std::string& why);

  private:
    void ReadConsoleKeys() noexcept;

    DWORD seconds_ = 0;
    UniqueEvent stopEvent_;
    HANDLE console_ = nullptr;  // the standard input when it is a console, else null
    std::function<void(WORD)> onKey_;
    std::string quit_;
};

}  // namespace vantrel::host
