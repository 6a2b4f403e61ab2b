// Base of every COM class of this project: reference count, module lock, table-driven
// QueryInterface and aggregation.
//
// A class derives from its interfaces and from ComObjectRoot, puts VANTREL_COM_IUNKNOWN in its
// body (its IUnknown methods then go to the controlling unknown) and implements
// InternalQueryInterface with a QITAB whose first row is the object's identity:
//
//   HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override {
//       static const QITAB rows[] = {QITABENT(DesktopCapture, IDesktopCapture), {}};
//       return QISearch(this, rows, riid, ppv);
//   }
//
// Without an outer object the controlling unknown is the object's own inner unknown, so
// IUnknown answers with the first row's pointer. Aggregated, the controlling unknown is the
// outer object's, and the inner unknown (what the aggregator holds) answers IID_IUnknown with
// itself and everything else from the table.
#pragma once

#include <windows.h>
#include <shlwapi.h>
#include <unknwn.h>

#include <new>

namespace vantrel {

class ComObjectRoot {
  public:
    ComObjectRoot(const ComObjectRoot&) = delete;
    ComObjectRoot& operator=(const ComObjectRoot&) = delete;

    // The non-delegating IUnknown, owner of the reference count.
    IUnknown* InnerUnknown() noexcept { return &inner_; }

    // Second construction step for work that can fail; the object is destroyed if it does.
    virtual HRESULT FinalConstruct() noexcept { return S_OK; }

  protected:
    explicit ComObjectRoot(IUnknown* outer) noexcept;
    virtual ~ComObjectRoot();

    virtual HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept = 0;

    // shlwapi's QISearch, which XP exports by ordinal only: the row whose IID is riid, or the
    // first row for IID_IUnknown; the pointer found is AddRef'ed. Derived classes call it
    // unqualified and find this one first.
    static HRESULT QISearch(void* that, const QITAB* rows, REFIID riid, void** ppv) noexcept;

    // Where the interfaces' own IUnknown methods go: the aggregator, or inner_.
    IUnknown* const outer_;

  private:
    class Inner final : public IUnknown {
      public:
        explicit Inner(ComObjectRoot* owner) noexcept : owner_(owner) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) noexcept override;
        ULONG STDMETHODCALLTYPE AddRef() noexcept override;
        ULONG STDMETHODCALLTYPE Release() noexcept override;

      private:
        ComObjectRoot* owner_;
        volatile LONG refs_ = 0;
    };

    Inner inner_;
    const bool aggregated_;
};

// Creates a T (a ComObjectRoot-derived class constructible from its outer IUnknown) and
// queries it for riid. The creator every class-table row uses.
template <typename T>
HRESULT CreateComObject(IUnknown* outer, REFIID riid, void** ppv) noexcept {
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    if (outer && !IsEqualIID(riid, IID_IUnknown))
        return CLASS_E_NOAGGREGATION;
    T* object = nullptr;
    try {
        object = new (std::nothrow) T(outer);
    } catch (...) {
        object = nullptr;
    }
    if (!object)
        return E_OUTOFMEMORY;
    IUnknown* inner = object->InnerUnknown();
    inner->AddRef();
    HRESULT hr = object->FinalConstruct();
    if (SUCCEEDED(hr))
        hr = inner->QueryInterface(riid, ppv);
    inner->Release();  // on failure this destroys the object
    return hr;
}

}  // namespace vantrel

// IUnknown of a class's interfaces: everything goes to the controlling unknown.
#define VANTREL_COM_IUNKNOWN                                                              \
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) noexcept override { \
        return outer_->QueryInterface(riid, ppv);                                         \
    }                                                                                     \
    ULONG STDMETHODCALLTYPE AddRef() noexcept override {                                  \
        return outer_->AddRef();                                                          \
    }                                                                                     \
    ULONG STDMETHODCALLTYPE Release() noexcept override {                                 \
        return outer_->Release();                                                         \
    }
