#include "ModuleLock.h"

// The linker's symbol at the start of the image being linked.
extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace vantrel {
namespace {
volatile LONG g_lockCount = 0;
}

void ModuleLock::Increment() noexcept {
    InterlockedIncrement(&g_lockCount);
}
void ModuleLock::Decrement() noexcept {
    InterlockedDecrement(&g_lockCount);
}
LONG ModuleLock::Count() noexcept {
    return InterlockedCompareExchange(&g_lockCount, 0, 0);
}

HMODULE ThisModule() noexcept {
    return reinterpret_cast<HMODULE>(&__ImageBase);
}

}  // namespace vantrel
