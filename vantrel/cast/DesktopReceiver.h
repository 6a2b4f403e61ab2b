// DesktopReceiver: a source of the desktop stream on the students' side. It joins a multicast
// session, restores and reassembles the packets and hands them to its sinks.
#pragma once

#include <windows.h>

#include <atomic>

#include "Vantrel.h"
#include "wincom/ComObjectRoot.h"
#include "stream/SinkTable.h"

namespace vantrel {

class DesktopReceiver final : public ComObjectRoot, public IDesktopReceiver {
  public:
    explicit DesktopReceiver(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

    // IDesktopReceiver
    HRESULT STDMETHODCALLTYPE JoinSession(LPSTR lpszLocalIpAddress, LPSTR lpszIpAddress,
                                          unsigned short wPort) noexcept override;
    HRESULT STDMETHODCALLTYPE LeaveSession() noexcept override;
    HRESULT STDMETHODCALLTYPE Run() noexcept override;
    HRESULT STDMETHODCALLTYPE Stop() noexcept override;
    HRESULT STDMETHODCALLTYPE
    RegisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept override;
    HRESULT STDMETHODCALLTYPE
    UnregisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept override;
    HRESULT STDMETHODCALLTYPE SetSourceFilter(unsigned long dwSourceFilter) noexcept override;

  private:
    ~DesktopReceiver() override = default;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

    // 0 accepts every source. Written by the host's thread, read by the transport's.
    std::atomic<DWORD> sourceFilter_{0};
    SinkTable sinks_;
};

}  // namespace vantrel
