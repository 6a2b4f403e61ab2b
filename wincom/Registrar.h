// Registration of in-process COM classes and of a type library held as a DLL resource.
// ComServer calls these for the rows of its table.
#pragma once

#include <windows.h>

#include <cstddef>

namespace vantrel {

struct ComClass;

// Writes, under HKEY_CLASSES_ROOT, both ProgID keys (default value the description, subkey
// CLSID) and CLSID\{clsid} (description; ProgID, VersionIndependentProgID, InprocServer32 with
// the module's full path and ThreadingModel). The class's CLSID key is replaced whole.
HRESULT RegisterComClass(HMODULE module, const ComClass& row) noexcept;

// Removes the class's CLSID key and both ProgID keys, whole. The CLSID parent key stays.
// Removing what is not there succeeds.
HRESULT UnregisterComClass(const ComClass& row) noexcept;

// The module's TYPELIB resource 1.
HRESULT RegisterModuleTypeLib(HMODULE module) noexcept;
HRESULT UnregisterModuleTypeLib(HMODULE module) noexcept;

// "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}" into buf (at least 39 chars).
void GuidToRegistryString(REFGUID guid, char* buf, std::size_t size) noexcept;

}  // namespace vantrel
