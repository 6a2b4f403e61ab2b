// DesktopCapture: the COM object a host creates to share the local screen, the first source of
// every desktop stream. The capture engine runs behind Run and Stop; the methods here hold the
// settings the engine reads.
#pragma once

#include <windows.h>

#include <atomic>

#include "Vantrel.h"
#include "platform/ComObjectRoot.h"
#include "platform/UniqueHandle.h"

namespace vantrel {

class DesktopCapture final : public ComObjectRoot, public IDesktopCapture {
  public:
    explicit DesktopCapture(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

    // IDesktopCapture
    HRESULT STDMETHODCALLTYPE Run() noexcept override;
    HRESULT STDMETHODCALLTYPE Stop() noexcept override;
    HRESULT STDMETHODCALLTYPE SetCompatibleMode(long bCompatibleMode) noexcept override;
    HRESULT STDMETHODCALLTYPE GetCompatibleMode(long* pbCompatibleMode) noexcept override;
    HRESULT STDMETHODCALLTYPE
    RegisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept override;
    HRESULT STDMETHODCALLTYPE
    UnregisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept override;
    HRESULT STDMETHODCALLTYPE RequestFullScreen() noexcept override;
    HRESULT STDMETHODCALLTYPE SetCapturePriority(int nPriority) noexcept override;
    HRESULT STDMETHODCALLTYPE SetIdleFlushTimeout(unsigned long dwTimeout) noexcept override;
    HRESULT STDMETHODCALLTYPE SetRecordLogo(HBITMAP hBmp) noexcept override;

  private:
    ~DesktopCapture() override = default;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

    static constexpr DWORD kMinIdleFlushTimeout = 150;

    const long compatibleMode_ = 0;  // reported, never changed
    bool running_ = false;
    // Read by the capture thread at each wait; written by the host's thread.
    std::atomic<DWORD> idleFlushTimeout_{250};
    std::atomic<int> capturePriority_{0};
    // Exist only between Run and Stop.
    UniqueThread captureThread_;
    UniqueEvent fullScreenEvent_;
};

}  // namespace vantrel
