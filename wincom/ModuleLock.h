// The count that keeps a COM server DLL loaded: live objects, server locks and class objects
// held by clients. Each DLL that links the platform library has its own count.
#pragma once

#include <windows.h>

namespace vantrel {

class ModuleLock {
  public:
    static void Increment() noexcept;
    static void Decrement() noexcept;
    static LONG Count() noexcept;
};

// The module (DLL or EXE) this code is linked into.
HMODULE ThisModule() noexcept;

}  // namespace vantrel
