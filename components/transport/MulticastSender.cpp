#include "MulticastSender.h"

#include <mutex>

#include "MulticastAddress.h"
#include "wincom/Result.h"

namespace transport {

HRESULT MulticastSender::FinalConstruct() noexcept {
    return winsock_.ok() ? S_OK : E_FAIL;
}

HRESULT MulticastSender::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(MulticastSender, IMulticastSender), {}};
    return QISearch(this, rows, riid, ppv);
}

HRESULT MulticastSender::Open(LPCSTR lpszLocalAddress, LPCSTR lpszGroupAddress,
                              USHORT wPort) noexcept {
    in_addr local{}, group{};
    RETURN_HR_IF(E_INVALIDARG,
                 !ParseEndpoint(lpszLocalAddress, lpszGroupAddress, wPort, &local, &group));
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    socket_.reset();

    vantrel::UniqueSocket s(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
    RETURN_HR_IF(vantrel::HResultFromWsaError(), !s);
    // Bound to the interface address, so receivers see it as the source.
    sockaddr_in bindTo{};
    bindTo.sin_family = AF_INET;
    bindTo.sin_addr = local;
    RETURN_HR_IF(vantrel::HResultFromWsaError(),
                 bind(s.get(), reinterpret_cast<sockaddr*>(&bindTo), sizeof bindTo) != 0);
    const DWORD ttl = 1, loop = 1;
    const int sendBuffer = 1 << 20;
    RETURN_HR_IF(vantrel::HResultFromWsaError(),
                 setsockopt(s.get(), IPPROTO_IP, IP_MULTICAST_IF,
                            reinterpret_cast<const char*>(&local), sizeof local) != 0 ||
                     setsockopt(s.get(), IPPROTO_IP, IP_MULTICAST_TTL,
                                reinterpret_cast<const char*>(&ttl), sizeof ttl) != 0 ||
                     setsockopt(s.get(), IPPROTO_IP, IP_MULTICAST_LOOP,
                                reinterpret_cast<const char*>(&loop), sizeof loop) != 0);
    // A larger buffer only absorbs bursts; the default still works.
    setsockopt(s.get(), SOL_SOCKET, SO_SNDBUF, reinterpret_cast<const char*>(&sendBuffer),
               sizeof sendBuffer);

    group_ = {};
    group_.sin_family = AF_INET;
    group_.sin_addr = group;
    group_.sin_port = htons(wPort);
    socket_ = std::move(s);
    return S_OK;
}

HRESULT MulticastSender::Close() noexcept {
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    socket_.reset();
    return S_OK;
}

HRESULT MulticastSender::Send(const void* pvData, USHORT cbData) noexcept {
    RETURN_HR_IF(E_POINTER, !pvData && cbData);
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    RETURN_HR_IF(E_FAIL, !socket_);
    const int sent = sendto(socket_.get(), static_cast<const char*>(pvData), cbData, 0,
                            reinterpret_cast<const sockaddr*>(&group_), sizeof group_);
    RETURN_HR_IF(vantrel::HResultFromWsaError(), sent != cbData);
    return S_OK;
}

}  // namespace transport
