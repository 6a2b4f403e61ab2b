#include "ComObjectRoot.h"

#include "ModuleLock.h"

namespace vantrel {

ComObjectRoot::ComObjectRoot(IUnknown* outer) noexcept
    : outer_(outer ? outer : &inner_), inner_(this), aggregated_(outer != nullptr) {
    ModuleLock::Increment();
}

ComObjectRoot::~ComObjectRoot() {
    ModuleLock::Decrement();
}

HRESULT ComObjectRoot::QISearch(void* that, const QITAB* rows, REFIID riid, void** ppv) noexcept {
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    if (!that || !rows || !rows->piid)
        return E_NOINTERFACE;
    const QITAB* found = IsEqualIID(riid, IID_IUnknown) ? rows : nullptr;
    for (const QITAB* row = rows; !found && row->piid; ++row) {
        if (IsEqualIID(riid, *row->piid))
            found = row;
    }
    if (!found)
        return E_NOINTERFACE;
    auto* unknown = reinterpret_cast<IUnknown*>(static_cast<BYTE*>(that) + found->dwOffset);
    unknown->AddRef();
    *ppv = unknown;
    return S_OK;
}

HRESULT ComObjectRoot::Inner::QueryInterface(REFIID riid, void** ppv) noexcept {
    if (!ppv)
        return E_POINTER;
    if (owner_->aggregated_ && IsEqualIID(riid, IID_IUnknown)) {
        *ppv = static_cast<IUnknown*>(this);
        AddRef();
        return S_OK;
    }
    const HRESULT hr = owner_->InternalQueryInterface(riid, ppv);
    if (FAILED(hr))
        *ppv = nullptr;
    return hr;
}

ULONG ComObjectRoot::Inner::AddRef() noexcept {
    return InterlockedIncrement(&refs_);
}

ULONG ComObjectRoot::Inner::Release() noexcept {
    const LONG refs = InterlockedDecrement(&refs_);
    if (refs == 0) {
        // A destructor that hands out and drops a reference to itself must not delete twice.
        refs_ = 1;
        delete owner_;
    }
    return static_cast<ULONG>(refs);
}

}  // namespace vantrel
