// Named kernel objects that other processes (other sessions) open: the null-DACL security
// descriptor is made here and only here.
#pragma once

#include <windows.h>

#include "UniqueHandle.h"

namespace vantrel {

// Security attributes whose descriptor has a null DACL: any process may open the object.
class NullDaclSecurity {
  public:
    NullDaclSecurity() noexcept;
    NullDaclSecurity(const NullDaclSecurity&) = delete;
    NullDaclSecurity& operator=(const NullDaclSecurity&) = delete;
    SECURITY_ATTRIBUTES* get() noexcept { return ok_ ? &attributes_ : nullptr; }

  private:
    SECURITY_DESCRIPTOR descriptor_{};
    SECURITY_ATTRIBUTES attributes_{};
    bool ok_ = false;
};

// create: alreadyExists (optional) is read from GetLastError right after the call.
UniqueEvent CreateNamedEvent(const char* name, bool manualReset, bool initialState,
                             bool* alreadyExists = nullptr) noexcept;
UniqueEvent TryOpenNamedEvent(const char* name) noexcept;
UniqueHandle CreateNamedMutex(const char* name, bool* alreadyExists = nullptr) noexcept;
UniqueHandle TryOpenNamedMutex(const char* name) noexcept;
// A page-file-backed read/write section of size bytes.
UniqueMapping CreateNamedSection(const char* name, DWORD size,
                                 bool* alreadyExists = nullptr) noexcept;
UniqueMapping TryOpenNamedSection(const char* name) noexcept;
UniqueViewOfFile MapWholeSection(HANDLE section) noexcept;

}  // namespace vantrel
