// The COM class MulticastSender of Transport.dll: one UDP socket bound to the local interface
// address, sending to one multicast group (TTL 1: the classroom's link; loopback on, so a
// receiver on the same machine hears it too). Vantrel's caster sends on the source's thread
// and opens and closes on the host's; the lock keeps the socket alive across a Send.
#pragma once

#include <Transport.h>

#include "wincom/ComObjectRoot.h"
#include "wincom/CriticalSection.h"
#include "wincom/Socket.h"

namespace transport {

class MulticastSender final : public IMulticastSender, public vantrel::ComObjectRoot {
  public:
    explicit MulticastSender(IUnknown* outer) noexcept : ComObjectRoot(outer) {}

    VANTREL_COM_IUNKNOWN

    HRESULT STDMETHODCALLTYPE Open(LPCSTR lpszLocalAddress, LPCSTR lpszGroupAddress,
                                   USHORT wPort) noexcept override;
    HRESULT STDMETHODCALLTYPE Close() noexcept override;
    HRESULT STDMETHODCALLTYPE Send(const void* pvData, USHORT cbData) noexcept override;

    HRESULT FinalConstruct() noexcept override;

  protected:
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

  private:
    vantrel::WinsockSession winsock_;
    vantrel::CriticalSection lock_;  // guards socket_ and group_
    vantrel::UniqueSocket socket_;
    sockaddr_in group_{};
};

}  // namespace transport
