#include "ComServer.h"

#include <mutex>
#include <new>

#include "ModuleLock.h"
#include "Registrar.h"

namespace vantrel {
namespace {

HRESULT FirstFailure(HRESULT first, HRESULT next) noexcept {
    return FAILED(first) ? first : next;
}

}  // namespace

ComServer::~ComServer() {
    std::lock_guard<CriticalSection> guard(lock_);
    for (auto& factory : cache_) {
        if (factory)
            factory->Release();
        factory = nullptr;
    }
}

HRESULT ComServer::GetClassObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept {
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    for (std::size_t i = 0; i < count_; ++i) {
        if (!IsEqualCLSID(clsid, *classes_[i].clsid))
            continue;
        ClassFactory* factory;
        {
            std::lock_guard<CriticalSection> guard(lock_);
            if (!cache_[i])
                cache_[i] = new (std::nothrow) ClassFactory(classes_[i].create);
            factory = cache_[i];
        }
        if (!factory)
            return E_OUTOFMEMORY;
        return factory->QueryInterface(riid, ppv);
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT ComServer::CanUnloadNow() noexcept {
    return ModuleLock::Count() == 0 ? S_OK : S_FALSE;
}

HRESULT ComServer::Register() noexcept {
    const HMODULE module = ThisModule();
    HRESULT hr = S_OK;
    for (std::size_t i = 0; i < count_; ++i)
        hr = FirstFailure(hr, RegisterComClass(module, classes_[i]));
    if (typeLib_ == TypeLib::Resource1)
        hr = FirstFailure(hr, RegisterModuleTypeLib(module));
    return hr;
}

HRESULT ComServer::Unregister() noexcept {
    HRESULT hr = S_OK;
    for (std::size_t i = 0; i < count_; ++i)
        hr = FirstFailure(hr, UnregisterComClass(classes_[i]));
    if (typeLib_ == TypeLib::Resource1)
        hr = FirstFailure(hr, UnregisterModuleTypeLib(ThisModule()));
    return hr;
}

}  // namespace vantrel
