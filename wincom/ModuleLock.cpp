#include "ModuleLock.h"

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

}  // namespace vantrel
