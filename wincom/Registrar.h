// Registration of in-process COM classes and of a type library held as a DLL resource.
// Shared by Vantrel.dll and the component DLLs: each describes its classes in a table of
// ClassRegistration rows and calls these from DllRegisterServer / DllUnregisterServer.
#pragma once

#include <windows.h>

#include <cstddef>

namespace vantrel {

struct ClassRegistration {
    const CLSID* clsid;
    const char* description;
    const char* progId;                    // version-dependent, e.g. "Vantrel.DesktopCapture.1"
    const char* versionIndependentProgId;  // e.g. "Vantrel.DesktopCapture"
    const char* threadingModel;            // "both", "Apartment", ...
};

// Writes, under HKEY_CLASSES_ROOT, both ProgID keys (default value the description, subkey
// CLSID) and CLSID\{clsid} (description; ProgID, VersionIndependentProgID, InprocServer32 with
// the module's full path and ThreadingModel). The class's CLSID key is replaced whole.
HRESULT RegisterComClass(HMODULE module, const ClassRegistration& row) noexcept;

// Removes the class's CLSID key and both ProgID keys, whole. The CLSID parent key stays.
// Removing what is not there succeeds.
HRESULT UnregisterComClass(const ClassRegistration& row) noexcept;

// Every row in order; the first failure is returned, the remaining rows are still written.
HRESULT RegisterClasses(HMODULE module, const ClassRegistration* rows, std::size_t count) noexcept;
HRESULT UnregisterClasses(const ClassRegistration* rows, std::size_t count) noexcept;

// The module's TYPELIB resource 1.
HRESULT RegisterModuleTypeLib(HMODULE module) noexcept;
HRESULT UnregisterModuleTypeLib(HMODULE module) noexcept;

// "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}" into buf (at least 39 chars).
void GuidToRegistryString(REFGUID guid, char* buf, std::size_t size) noexcept;

}  // namespace vantrel
