// The class objects of a COM server DLL: one generic IClassFactory, and a table that maps
// each CLSID to its creator and caches one class object per class for the module's life.
#pragma once

#include <windows.h>
#include <unknwn.h>

#include <cstddef>

#include "ComPtr.h"
#include "CriticalSection.h"

namespace vantrel {

using CreatorFunction = HRESULT (*)(IUnknown* outer, REFIID riid, void** ppv);

class ClassFactory final : public IClassFactory {
  public:
    explicit ClassFactory(CreatorFunction create) noexcept : create_(create) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) noexcept override;
    ULONG STDMETHODCALLTYPE AddRef() noexcept override;
    ULONG STDMETHODCALLTYPE Release() noexcept override;
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid,
                                             void** ppv) noexcept override;
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) noexcept override;

  private:
    ~ClassFactory() = default;

    CreatorFunction create_;
    volatile LONG refs_ = 1;
};

struct ClassTableEntry {
    const CLSID* clsid;
    CreatorFunction create;
};

class ClassTable {
  public:
    // entries must outlive the table (a static array).
    ClassTable(const ClassTableEntry* entries, std::size_t count) noexcept;
    ClassTable(const ClassTable&) = delete;
    ClassTable& operator=(const ClassTable&) = delete;
    ~ClassTable();

    // DllGetClassObject: CLASS_E_CLASSNOTAVAILABLE for a CLSID not in the table.
    HRESULT GetClassObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept;
    // Drops the cached class objects (module unload).
    void ReleaseAll() noexcept;

  private:
    static constexpr std::size_t kMaxClasses = 16;

    const ClassTableEntry* entries_;
    std::size_t count_;
    CriticalSection lock_;  // guards the first creation of each cached class object
    ClassFactory* cache_[kMaxClasses] = {};
};

// DllCanUnloadNow for a DLL whose only state is its ModuleLock.
HRESULT CanUnloadModule() noexcept;

}  // namespace vantrel
