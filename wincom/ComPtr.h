// Owner of one counted COM interface reference.
#pragma once

#include <unknwn.h>

#include <utility>

namespace vantrel {

template <typename T>
class ComPtr {
  public:
    ComPtr() noexcept = default;
    ComPtr(std::nullptr_t) noexcept {}
    // Takes a new reference on p.
    explicit ComPtr(T* p) noexcept : p_(p) {
        if (p_)
            p_->AddRef();
    }
    ComPtr(const ComPtr& other) noexcept : ComPtr(other.p_) {}
    ComPtr(ComPtr&& other) noexcept : p_(other.Detach()) {}
    ComPtr& operator=(const ComPtr& other) noexcept {
        ComPtr(other).Swap(*this);
        return *this;
    }
    ComPtr& operator=(ComPtr&& other) noexcept {
        ComPtr(std::move(other)).Swap(*this);
        return *this;
    }
    ComPtr& operator=(std::nullptr_t) noexcept {
        Reset();
        return *this;
    }
    ~ComPtr() { Reset(); }

    T* Get() const noexcept { return p_; }
    T* operator->() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

    void Reset() noexcept {
        if (T* p = Detach())
            p->Release();
    }
    // Adopts a reference the caller already owns.
    void Attach(T* p) noexcept {
        Reset();
        p_ = p;
    }
    [[nodiscard]] T* Detach() noexcept {
        T* p = p_;
        p_ = nullptr;
        return p;
    }
    // Out parameter for creation and query calls; releases what was held.
    T** Put() noexcept {
        Reset();
        return &p_;
    }
    void** PutVoid() noexcept { return reinterpret_cast<void**>(Put()); }
    void Swap(ComPtr& other) noexcept { std::swap(p_, other.p_); }

    template <typename U>
    HRESULT As(ComPtr<U>* out) const noexcept {
        return p_ ? p_->QueryInterface(__uuidof(U), out->PutVoid()) : E_POINTER;
    }
    // Hands a new reference to a caller's out parameter.
    HRESULT CopyTo(T** out) const noexcept {
        if (!out)
            return E_POINTER;
        *out = p_;
        if (p_)
            p_->AddRef();
        return S_OK;
    }

  private:
    T* p_ = nullptr;
};

}  // namespace vantrel
