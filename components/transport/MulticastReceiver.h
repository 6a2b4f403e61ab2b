// The COM class MulticastReceiver of Transport.dll: one UDP socket bound to the group's port and
// joined to the group on the local interface, and a receive thread (between Start and Stop)
// that hands every datagram to the callback with the sender's IPv4 address as source.
// Locks: lock_ guards the socket and the thread (host's calls); callbackLock_ is held around
// each callback, so SetCallback never swaps the callback under a running call.
#pragma once

#include <Transport.h>

#include <vector>

#include "wincom/ComObjectRoot.h"
#include "wincom/CriticalSection.h"
#include "wincom/Socket.h"
#include "wincom/UniqueHandle.h"

#include <mswsock.h>

namespace transport {

class MulticastReceiver final : public IMulticastReceiver, public vantrel::ComObjectRoot {
  public:
    explicit MulticastReceiver(IUnknown* outer) noexcept : ComObjectRoot(outer) {}
    ~MulticastReceiver() override;

    VANTREL_COM_IUNKNOWN

    HRESULT STDMETHODCALLTYPE Join(LPCSTR lpszLocalAddress, LPCSTR lpszGroupAddress,
                                   USHORT wPort) noexcept override;
    HRESULT STDMETHODCALLTYPE Leave() noexcept override;
    HRESULT STDMETHODCALLTYPE Start() noexcept override;
    HRESULT STDMETHODCALLTYPE Stop() noexcept override;
    HRESULT STDMETHODCALLTYPE SetCallback(DatagramCallback pfnCallback,
                                          void* pvContext) noexcept override;

    HRESULT FinalConstruct() noexcept override;

  protected:
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

  private:
    static DWORD WINAPI ThreadMain(void* self) noexcept;
    void ReceiveLoop() noexcept;
    int Receive(sockaddr_in* from, in_addr* to) noexcept;
    HRESULT StopLocked() noexcept;

    vantrel::WinsockSession winsock_;
    vantrel::CriticalSection lock_;
    vantrel::UniqueSocket socket_;
    in_addr group_{};
    // WSARecvMsg, when the socket reports each datagram's destination; else recvfrom.
    LPFN_WSARECVMSG recvMsg_ = nullptr;
    vantrel::UniqueEvent readable_;  // FD_READ of socket_
    vantrel::UniqueEvent stop_;      // manual reset; ends the receive thread
    vantrel::UniqueThread thread_;
    DWORD threadId_ = 0;
    std::vector<char> buffer_;  // the receive thread's, one datagram of up to 64 KB

    vantrel::CriticalSection callbackLock_;
    DatagramCallback callback_ = nullptr;
    void* context_ = nullptr;
};

}  // namespace transport
