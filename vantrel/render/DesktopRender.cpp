// DesktopRender: the picture's life from packets, and what a reader takes back out of it. What
// needs the decoder, the desktop image or the codec waits for them.
#include "render/DesktopRender.h"

#include "wincom/Result.h"

namespace vantrel {

DesktopRender::DesktopRender(IUnknown* outer) noexcept : ComObjectRoot(outer) {}

HRESULT DesktopRender::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {
        QITABENT(DesktopRender, IDesktopRender),
        QITABENT(DesktopRender, IDataTransmitter),
        QITABENT(DesktopRender, IFrameBuffer),
        {},
    };
    return QISearch(this, rows, riid, ppv);
}

// Drops the picture's rectangle so that the next frame packet builds the picture anew.
HRESULT DesktopRender::Run() noexcept {
    SetRectEmpty(&imageRect_);
    bitsPixel_ = 0;
    pictureComplete_ = false;
    SetRectEmpty(&receivedArea_);
    return S_OK;
}

HRESULT DesktopRender::Stop() noexcept {
    return S_OK;
}

// Only a shared-memory viewer has a session.
HRESULT DesktopRender::SetSessionId(int) noexcept {
    return S_OK;
}

HRESULT DesktopRender::Transfer(void*, unsigned long, long) noexcept {
    return E_NOTIMPL;  // needs the decoder, the desktop image and the render window
}

HRESULT DesktopRender::Flush() noexcept {
    return S_OK;
}

HRESULT DesktopRender::GetFullScreenData(void* lpvData, unsigned long* pcbData, long) noexcept {
    RETURN_HR_IF(E_POINTER, !lpvData || !pcbData);
    RETURN_HR_IF(E_FAIL, !HasPicture());
    return E_NOTIMPL;  // needs the desktop image and the codec
}

HRESULT DesktopRender::GetFullScreenDataUncompressed(void* lpvData,
                                                     unsigned long* pcbData) noexcept {
    RETURN_HR_IF(E_POINTER, !lpvData || !pcbData);
    RETURN_HR_IF(E_FAIL, !HasPicture());
    return E_NOTIMPL;  // needs the desktop image
}

HRESULT DesktopRender::GetBitmapInfo(void**) noexcept {
    return E_NOTIMPL;  // needs the desktop image
}

}  // namespace vantrel
