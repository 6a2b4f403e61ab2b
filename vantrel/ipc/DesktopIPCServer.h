// DesktopIPCServer: a sink of the desktop stream that publishes it to the viewers of every
// session on this machine through the shared-memory channel. IDataTransmitter is its identity;
// IDesktopIPCServer is called through its vtable only (no IDispatch behind it).
#pragma once

#include <windows.h>

#include <atomic>

#include "Vantrel.h"
#include "wincom/ComObjectRoot.h"

namespace vantrel {

class DesktopIPCServer final : public ComObjectRoot,
                               public IDataTransmitter,
                               public IDesktopIPCServer {
  public:
    explicit DesktopIPCServer(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

    // IDataTransmitter
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;
    HRESULT STDMETHODCALLTYPE Flush() noexcept override;

    // IDesktopIPCServer
    HRESULT STDMETHODCALLTYPE StopIPCServer() noexcept override;
    HRESULT STDMETHODCALLTYPE SetMaxIPCClients(int nMaxClients) noexcept override;
    HRESULT STDMETHODCALLTYPE StartIPCServer() noexcept override;

  private:
    ~DesktopIPCServer() override = default;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

    bool running_ = false;
    // Client ids 0 .. maxClients - 1 are polled per pass; no range check, a value of 0 or less
    // polls none. Read by the notification thread at each pass.
    std::atomic<int> maxClients_{256};
};

}  // namespace vantrel
