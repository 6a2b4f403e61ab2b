// The picture a benchmark watches, painted by a child process: this program started again with
// "--paint <what> <left> <top> <right> <bottom> <stop event>". The teacher's programs paint in
// processes of their own, and under Wine a process that paints large windows itself also makes
// its own screen reads cheaper (its C library's allocator keeps the big blocks the painting
// freed), so a capture measured beside its own painting would be flattered.
#pragma once

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "wincom/ChildProcess.h"
#include "wincom/KernelObjects.h"

namespace vantrel::bench {

class ChildPainter {
  public:
    // Starts the child and gives its window time to show.
    ChildPainter(const char* program, const char* what, const RECT& where) {
        const std::string stop = UniqueObjectName("VantrelBenchPainterStop");
        char args[160];
        std::snprintf(args, sizeof args, "--paint %s %ld %ld %ld %ld %s", what, where.left,
                      where.top, where.right, where.bottom, stop.c_str());
        ok_ =
            child_.Start(ProgramBeside(program), args, CreateNamedEvent(stop.c_str(), true, false));
        if (ok_)
            Sleep(1500);
    }
    bool ok() const noexcept { return ok_; }

  private:
    ChildProcess child_;
    bool ok_ = false;
};

// In the child: when the command line asks for painting, calls paint(what, where, stop) (which
// paints until the stop event is set) and returns true.
template <class Paint>
bool RunAsChildPainter(int argc, char** argv, Paint paint) {
    if (argc != 8 || std::strcmp(argv[1], "--paint") != 0)
        return false;
    const RECT where{std::atol(argv[3]), std::atol(argv[4]), std::atol(argv[5]),
                     std::atol(argv[6])};
    const UniqueEvent stop = TryOpenNamedEvent(argv[7]);
    if (stop)
        paint(std::string(argv[2]), where, stop.get());
    return true;
}

}  // namespace vantrel::bench
