// DesktopCapture: settings and state checks of the capture object.
#include "capture/DesktopCapture.h"

#include "platform/Result.h"

namespace vantrel {

DesktopCapture::DesktopCapture(IUnknown* outer) noexcept : ComObjectRoot(outer) {}

HRESULT DesktopCapture::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(DesktopCapture, IDesktopCapture), {}};
    return QISearch(this, rows, riid, ppv);
}

HRESULT DesktopCapture::Run() noexcept {
    RETURN_HR_IF(E_FAIL, running_);
    return E_NOTIMPL;  // needs the capture engine
}

HRESULT DesktopCapture::Stop() noexcept {
    RETURN_HR_IF(E_FAIL, !running_);
    return E_NOTIMPL;  // needs the capture engine
}

HRESULT DesktopCapture::SetCompatibleMode(long) noexcept {
    return S_OK;
}

HRESULT DesktopCapture::GetCompatibleMode(long* pbCompatibleMode) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pbCompatibleMode);
    *pbCompatibleMode = compatibleMode_;
    return S_OK;
}

HRESULT DesktopCapture::RegisterDataTransmitter(IDataTransmitter*) noexcept {
    return E_NOTIMPL;  // needs the sink table
}

HRESULT DesktopCapture::UnregisterDataTransmitter(IDataTransmitter*) noexcept {
    return E_NOTIMPL;  // needs the sink table
}

// Before Run and after Stop there is no event and the request is dropped.
HRESULT DesktopCapture::RequestFullScreen() noexcept {
    if (fullScreenEvent_)
        SetEvent(fullScreenEvent_.get());
    return S_OK;
}

// Run applies the stored priority to every new capture thread.
HRESULT DesktopCapture::SetCapturePriority(int nPriority) noexcept {
    capturePriority_ = nPriority;
    if (captureThread_)
        SetThreadPriority(captureThread_.get(), nPriority);
    return S_OK;
}

HRESULT DesktopCapture::SetIdleFlushTimeout(unsigned long dwTimeout) noexcept {
    RETURN_HR_IF(E_FAIL, dwTimeout < kMinIdleFlushTimeout);
    idleFlushTimeout_ = dwTimeout;
    return S_OK;
}

HRESULT DesktopCapture::SetRecordLogo(HBITMAP) noexcept {
    return E_NOTIMPL;  // needs the desktop image, which draws the logo
}

}  // namespace vantrel
