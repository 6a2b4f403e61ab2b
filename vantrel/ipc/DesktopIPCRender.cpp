// DesktopIPCRender: the session and the picture's life from the shared image. What needs the
// shared-memory channel or the client thread waits for them.
#include "ipc/DesktopIPCRender.h"

#include <mutex>

#include "wincom/Result.h"

namespace vantrel {

DesktopIPCRender::DesktopIPCRender(IUnknown* outer) noexcept : ComObjectRoot(outer) {
    CreateRenderWindow();
}

DesktopIPCRender::~DesktopIPCRender() {
    DestroyRenderWindow();
}

RECT DesktopIPCRender::PictureRect() const noexcept {
    std::lock_guard<CriticalSection> guard(pictureLock_);
    return imageRect_;
}

HRESULT DesktopIPCRender::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {
        QITABENT(DesktopIPCRender, IDataTransmitter),
        QITABENT(DesktopIPCRender, IDesktopRender),
        QITABENT(DesktopIPCRender, IFrameBuffer),
        {},
    };
    return QISearch(this, rows, riid, ppv);
}

HRESULT DesktopIPCRender::Run() noexcept {
    return E_NOTIMPL;  // needs the shared-memory channel and the client thread
}

HRESULT DesktopIPCRender::Stop() noexcept {
    return E_NOTIMPL;  // needs the shared-memory channel and the client thread
}

// -1 stands for the default session 0.
HRESULT DesktopIPCRender::SetSessionId(int nId) noexcept {
    sessionId_ = nId == -1 ? 0 : nId;
    return S_OK;
}

// The picture comes from the shared image, never from packets.
HRESULT DesktopIPCRender::Transfer(void*, unsigned long, long) noexcept {
    return S_OK;
}

HRESULT DesktopIPCRender::Flush() noexcept {
    return S_OK;
}

// A viewer has no picture of its own to hand out; the arguments stay untouched.
HRESULT DesktopIPCRender::GetFullScreenData(void*, unsigned long*, long) noexcept {
    return E_FAIL;
}

HRESULT DesktopIPCRender::GetFullScreenDataUncompressed(void*, unsigned long*) noexcept {
    return E_FAIL;
}

HRESULT DesktopIPCRender::GetBitmapInfo(void**) noexcept {
    return E_FAIL;
}

}  // namespace vantrel
