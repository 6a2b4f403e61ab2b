// DesktopReceiver: the source filter; the session and the receive path come with the transport.
#include "cast/DesktopReceiver.h"

namespace vantrel {

DesktopReceiver::DesktopReceiver(IUnknown* outer) noexcept : ComObjectRoot(outer) {}

HRESULT DesktopReceiver::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(DesktopReceiver, IDesktopReceiver), {}};
    return QISearch(this, rows, riid, ppv);
}

HRESULT DesktopReceiver::JoinSession(LPSTR, LPSTR, unsigned short) noexcept {
    return E_NOTIMPL;  // needs the multicast receiver
}

HRESULT DesktopReceiver::LeaveSession() noexcept {
    return E_NOTIMPL;  // needs the multicast receiver
}

HRESULT DesktopReceiver::Run() noexcept {
    return E_NOTIMPL;  // needs the receive queue, the coder and the multicast receiver
}

HRESULT DesktopReceiver::Stop() noexcept {
    return E_NOTIMPL;  // needs the receive queue, the coder and the multicast receiver
}

HRESULT DesktopReceiver::RegisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept {
    return sinks_.RegisterDataTransmitter(pDataTransmitter);
}

HRESULT DesktopReceiver::UnregisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept {
    return sinks_.UnregisterDataTransmitter(pDataTransmitter);
}

// A later JoinSession clears the filter again.
HRESULT DesktopReceiver::SetSourceFilter(unsigned long dwSourceFilter) noexcept {
    sourceFilter_ = dwSourceFilter;
    return S_OK;
}

}  // namespace vantrel
