// Where an encoder's or a decoder's time goes, for the benchmarks: QueryPerformanceCounter
// ticks summed into slots.
#pragma once

#include <windows.h>

namespace vantrel {

// Adds the time since the last lap (or since construction) to *slot.
class Lap {
  public:
    Lap() noexcept : last_(Now()) {}
    void To(LONGLONG* slot) noexcept {
        const LONGLONG t = Now();
        if (slot)
            *slot += t - last_;
        last_ = t;
    }

  private:
    static LONGLONG Now() noexcept {
        LARGE_INTEGER t;
        QueryPerformanceCounter(&t);
        return t.QuadPart;
    }

    LONGLONG last_;
};

}  // namespace vantrel
