#include "Registrar.h"

#include <oleauto.h>

#include <cstdio>
#include <string>

#include "ComPtr.h"
#include "ComServer.h"
#include "Result.h"
#include "UniqueHandle.h"

namespace vantrel {
namespace {

LONG SetKeyValue(HKEY parent, const std::string& subkey, const char* valueName,
                 const char* value) noexcept {
    UniqueHkey key;
    LONG err = RegCreateKeyExA(parent, subkey.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                               KEY_WRITE, nullptr, key.put(), nullptr);
    if (err != ERROR_SUCCESS)
        return err;
    return RegSetValueExA(key.get(), valueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(value),
                          static_cast<DWORD>(strlen(value) + 1));
}

// RegDeleteTreeA is Vista's: subkeys go one by one, deepest first.
LONG DeleteTree(HKEY parent, const std::string& subkey) noexcept {
    {
        UniqueHkey key;
        LONG err = RegOpenKeyExA(parent, subkey.c_str(), 0, KEY_READ | KEY_WRITE, key.put());
        if (err == ERROR_FILE_NOT_FOUND)
            return ERROR_SUCCESS;
        if (err != ERROR_SUCCESS)
            return err;
        char name[256];
        for (;;) {
            DWORD size = sizeof name;
            err = RegEnumKeyExA(key.get(), 0, name, &size, nullptr, nullptr, nullptr, nullptr);
            if (err == ERROR_NO_MORE_ITEMS)
                break;
            if (err != ERROR_SUCCESS)
                return err;
            err = DeleteTree(key.get(), name);
            if (err != ERROR_SUCCESS)
                return err;
        }
    }
    const LONG err = RegDeleteKeyA(parent, subkey.c_str());
    return err == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : err;
}

HRESULT FromWin32(LONG err) noexcept {
    return err == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(err);
}

HRESULT WriteProgId(const char* progId, const ComClass& row, const char* clsid) noexcept {
    if (!progId)
        return S_OK;
    LONG err = DeleteTree(HKEY_CLASSES_ROOT, progId);
    if (err == ERROR_SUCCESS)
        err = SetKeyValue(HKEY_CLASSES_ROOT, progId, nullptr, row.description);
    if (err == ERROR_SUCCESS)
        err = SetKeyValue(HKEY_CLASSES_ROOT, std::string(progId) + "\\CLSID", nullptr, clsid);
    return FromWin32(err);
}

bool ModuleFileNameW(HMODULE module, wchar_t* path, DWORD size) noexcept {
    const DWORD n = GetModuleFileNameW(module, path, size);
    return n != 0 && n < size;
}

// The type library in the module's resources; path (MAX_PATH) receives the module's file name.
HRESULT LoadModuleTypeLib(HMODULE module, wchar_t* path, ComPtr<ITypeLib>* typeLib) noexcept {
    if (!ModuleFileNameW(module, path, MAX_PATH))
        return E_FAIL;
    return LoadTypeLibEx(path, REGKIND_NONE, typeLib->Put());
}

}  // namespace

void GuidToRegistryString(REFGUID g, char* buf, std::size_t size) noexcept {
    snprintf(buf, size, "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
             static_cast<unsigned long>(g.Data1), g.Data2, g.Data3, g.Data4[0], g.Data4[1],
             g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
}

HRESULT RegisterComClass(HMODULE module, const ComClass& row) noexcept {
    try {
        char clsid[40];
        GuidToRegistryString(*row.clsid, clsid, sizeof clsid);
        char path[MAX_PATH];
        const DWORD n = GetModuleFileNameA(module, path, sizeof path);
        if (n == 0 || n >= sizeof path)
            return E_FAIL;

        HRESULT hr = WriteProgId(row.progId, row, clsid);
        if (SUCCEEDED(hr))
            hr = WriteProgId(row.versionIndependentProgId, row, clsid);
        if (FAILED(hr))
            return hr;

        const std::string key = std::string("CLSID\\") + clsid;
        LONG err = DeleteTree(HKEY_CLASSES_ROOT, key);
        if (err == ERROR_SUCCESS)
            err = SetKeyValue(HKEY_CLASSES_ROOT, key, nullptr, row.description);
        if (err == ERROR_SUCCESS && row.progId)
            err = SetKeyValue(HKEY_CLASSES_ROOT, key + "\\ProgID", nullptr, row.progId);
        if (err == ERROR_SUCCESS && row.versionIndependentProgId)
            err = SetKeyValue(HKEY_CLASSES_ROOT, key + "\\VersionIndependentProgID", nullptr,
                              row.versionIndependentProgId);
        if (err == ERROR_SUCCESS)
            err = SetKeyValue(HKEY_CLASSES_ROOT, key + "\\InprocServer32", nullptr, path);
        if (err == ERROR_SUCCESS && row.threadingModel)
            err = SetKeyValue(HKEY_CLASSES_ROOT, key + "\\InprocServer32", "ThreadingModel",
                              row.threadingModel);
        return FromWin32(err);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT UnregisterComClass(const ComClass& row) noexcept {
    try {
        char clsid[40];
        GuidToRegistryString(*row.clsid, clsid, sizeof clsid);
        LONG err = DeleteTree(HKEY_CLASSES_ROOT, std::string("CLSID\\") + clsid);
        if (err == ERROR_SUCCESS && row.progId)
            err = DeleteTree(HKEY_CLASSES_ROOT, row.progId);
        if (err == ERROR_SUCCESS && row.versionIndependentProgId)
            err = DeleteTree(HKEY_CLASSES_ROOT, row.versionIndependentProgId);
        return FromWin32(err);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT RegisterModuleTypeLib(HMODULE module) noexcept {
    wchar_t path[MAX_PATH];
    ComPtr<ITypeLib> typeLib;
    RETURN_IF_FAILED(LoadModuleTypeLib(module, path, &typeLib));
    return RegisterTypeLib(typeLib.Get(), path, nullptr);
}

HRESULT UnregisterModuleTypeLib(HMODULE module) noexcept {
    wchar_t path[MAX_PATH];
    ComPtr<ITypeLib> typeLib;
    RETURN_IF_FAILED(LoadModuleTypeLib(module, path, &typeLib));
    TLIBATTR* attr = nullptr;
    HRESULT hr = typeLib->GetLibAttr(&attr);
    if (SUCCEEDED(hr)) {
        // Unregistering twice is harmless. What UnRegisterTypeLib returns for a library that is
        // not registered differs between systems (Wine: E_INVALIDARG), so ask first.
        BSTR registeredPath = nullptr;
        if (SUCCEEDED(QueryPathOfRegTypeLib(attr->guid, attr->wMajorVerNum, attr->wMinorVerNum,
                                            attr->lcid, &registeredPath))) {
            SysFreeString(registeredPath);
            hr = UnRegisterTypeLib(attr->guid, attr->wMajorVerNum, attr->wMinorVerNum, attr->lcid,
                                   attr->syskind);
        }
        typeLib->ReleaseTLibAttr(attr);
    }
    return hr;
}

}  // namespace vantrel
