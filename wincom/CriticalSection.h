// A re-entrant lock (Win32 critical section) usable with std::lock_guard / std::unique_lock.
#pragma once

#include <windows.h>

namespace vantrel {

class CriticalSection {
  public:
    CriticalSection() noexcept { InitializeCriticalSection(&cs_); }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;
    ~CriticalSection() { DeleteCriticalSection(&cs_); }

    void lock() noexcept { EnterCriticalSection(&cs_); }
    void unlock() noexcept { LeaveCriticalSection(&cs_); }
    bool try_lock() noexcept { return TryEnterCriticalSection(&cs_) != FALSE; }

  private:
    CRITICAL_SECTION cs_;
};

}  // namespace vantrel
