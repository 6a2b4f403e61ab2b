#include "ClassFactory.h"

#include <mutex>
#include <new>

#include "ModuleLock.h"

namespace vantrel {

HRESULT ClassFactory::QueryInterface(REFIID riid, void** ppv) noexcept {
    if (!ppv)
        return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
        *ppv = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

// The table holds one reference for the module's life; the module stays locked only while a
// client holds another.
ULONG ClassFactory::AddRef() noexcept {
    const LONG refs = InterlockedIncrement(&refs_);
    if (refs == 2)
        ModuleLock::Increment();
    return static_cast<ULONG>(refs);
}

ULONG ClassFactory::Release() noexcept {
    const LONG refs = InterlockedDecrement(&refs_);
    if (refs == 1)
        ModuleLock::Decrement();
    if (refs == 0)
        delete this;
    return static_cast<ULONG>(refs);
}

HRESULT ClassFactory::CreateInstance(IUnknown* outer, REFIID riid, void** ppv) noexcept {
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    return create_(outer, riid, ppv);
}

HRESULT ClassFactory::LockServer(BOOL lock) noexcept {
    if (lock)
        ModuleLock::Increment();
    else
        ModuleLock::Decrement();
    return S_OK;
}

ClassTable::ClassTable(const ClassTableEntry* entries, std::size_t count) noexcept
    : entries_(entries), count_(count < kMaxClasses ? count : kMaxClasses) {}

ClassTable::~ClassTable() {
    ReleaseAll();
}

HRESULT ClassTable::GetClassObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept {
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    for (std::size_t i = 0; i < count_; ++i) {
        if (!IsEqualCLSID(clsid, *entries_[i].clsid))
            continue;
        ClassFactory* factory;
        {
            std::lock_guard<CriticalSection> guard(lock_);
            if (!cache_[i])
                cache_[i] = new (std::nothrow) ClassFactory(entries_[i].create);
            factory = cache_[i];
        }
        if (!factory)
            return E_OUTOFMEMORY;
        return factory->QueryInterface(riid, ppv);
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

void ClassTable::ReleaseAll() noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    for (auto& factory : cache_) {
        if (factory)
            factory->Release();
        factory = nullptr;
    }
}

HRESULT CanUnloadModule() noexcept {
    return ModuleLock::Count() == 0 ? S_OK : S_FALSE;
}

}  // namespace vantrel
