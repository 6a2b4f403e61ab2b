// The class object of every COM class of a server DLL (ComServer caches one per class): a
// generic IClassFactory around the class's creator.
#pragma once

#include <windows.h>
#include <unknwn.h>

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

}  // namespace vantrel
