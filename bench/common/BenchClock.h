// Timing for the benchmarks: the performance counter in seconds, and the time one call takes
// when repeated for long enough to read well on a shared, noisy machine.
#pragma once

#include <windows.h>

#include <functional>

#include "common/Screen.h"

namespace vantrel::bench {

using test::Seconds;

// Performance-counter ticks (as StreamEncoder and StreamDecoder count them) in milliseconds.
inline double TicksToMs(LONGLONG ticks) noexcept {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return 1000.0 * static_cast<double>(ticks) / static_cast<double>(frequency.QuadPart);
}

// Seconds per call of fn: one warm-up call, then calls until at least minSeconds have passed.
inline double SecondsPerCall(const std::function<void()>& fn, double minSeconds = 0.25) {
    fn();
    int runs = 0;
    const double start = Seconds();
    double elapsed = 0;
    do {
        fn();
        ++runs;
        elapsed = Seconds() - start;
    } while (elapsed < minSeconds);
    return elapsed / runs;
}

}  // namespace vantrel::bench
