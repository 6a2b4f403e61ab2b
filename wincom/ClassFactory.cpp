#include "ClassFactory.h"

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

}  // namespace vantrel
