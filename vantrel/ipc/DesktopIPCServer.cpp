// DesktopIPCServer: server state and settings; decoding and publishing come with the channel.
#include "ipc/DesktopIPCServer.h"

#include "wincom/Result.h"

namespace vantrel {

DesktopIPCServer::DesktopIPCServer(IUnknown* outer) noexcept : ComObjectRoot(outer) {}

HRESULT DesktopIPCServer::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {
        QITABENT(DesktopIPCServer, IDataTransmitter),
        QITABENT(DesktopIPCServer, IDesktopIPCServer),
        {},
    };
    return QISearch(this, rows, riid, ppv);
}

HRESULT DesktopIPCServer::Transfer(void*, unsigned long, long) noexcept {
    return E_NOTIMPL;  // needs the decoder, the desktop image and the shared-memory channel
}

HRESULT DesktopIPCServer::Flush() noexcept {
    return S_OK;
}

HRESULT DesktopIPCServer::StopIPCServer() noexcept {
    RETURN_HR_IF(E_FAIL, !running_);
    return E_NOTIMPL;  // needs the notification thread
}

HRESULT DesktopIPCServer::SetMaxIPCClients(int nMaxClients) noexcept {
    maxClients_ = nMaxClients;
    return S_OK;
}

HRESULT DesktopIPCServer::StartIPCServer() noexcept {
    RETURN_HR_IF(E_FAIL, running_);
    return E_NOTIMPL;  // needs the shared-memory channel and the notification thread
}

}  // namespace vantrel
