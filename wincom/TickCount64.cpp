// GetTickCount64 for the threads runtime that every DLL links statically (winpthread): it times
// its waits with GetTickCount64, which kernel32 exports only from Vista on, so a DLL importing
// it does not load on XP. This file defines the import slot that runtime calls through, so the
// kernel32 import is never linked; vantrel_dll compiles it into every DLL (a static library
// member would be looked at before the runtime asks for the symbol, and never be linked).
#include <windows.h>

namespace {

// High half: the wraps of GetTickCount seen so far; low half: its last value seen.
unsigned long long g_last = 0;

ULONGLONG WINAPI TickCount64() noexcept {
    unsigned long long seen = __atomic_load_n(&g_last, __ATOMIC_ACQUIRE);
    for (;;) {
        // Read after seen: the count only grows, so a smaller value means it wrapped.
        const DWORD now = GetTickCount();
        unsigned long long high = seen & 0xFFFFFFFF00000000ull;
        if (now < static_cast<DWORD>(seen))
            high += 1ull << 32;
        const unsigned long long next = high | now;
        if (next == seen || __atomic_compare_exchange_n(&g_last, &seen, next, false,
                                                        __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE))
            return next;
    }
}

}  // namespace

// The name a dllimport call of GetTickCount64 goes through on i686.
using TickCountFn = ULONGLONG(WINAPI*)();
extern "C" const TickCountFn vantrel_GetTickCount64_slot __asm__("__imp__GetTickCount64@0");
const TickCountFn vantrel_GetTickCount64_slot = TickCount64;
