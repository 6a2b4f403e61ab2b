#include "MulticastReceiver.h"

#include <mutex>

#include "MulticastAddress.h"
#include "wincom/Result.h"

namespace transport {
namespace {
constexpr int kReceiveBuffer = 4 << 20;
constexpr std::size_t kLargestDatagram = 65536;
}  // namespace

MulticastReceiver::~MulticastReceiver() {
    Leave();
}

HRESULT MulticastReceiver::FinalConstruct() noexcept {
    RETURN_HR_IF(E_FAIL, !winsock_.ok());
    readable_.reset(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    stop_.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    RETURN_LAST_ERROR_IF(!readable_ || !stop_);
    try {
        buffer_.resize(kLargestDatagram);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT MulticastReceiver::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(MulticastReceiver, IMulticastReceiver), {}};
    return QISearch(this, rows, riid, ppv);
}

HRESULT MulticastReceiver::Join(LPCSTR lpszLocalAddress, LPCSTR lpszGroupAddress,
                                USHORT wPort) noexcept {
    in_addr local{}, group{};
    RETURN_HR_IF(E_INVALIDARG, !ParseIpv4(lpszLocalAddress, &local) ||
                                   !ParseIpv4(lpszGroupAddress, &group) || !IsMulticast(group) ||
                                   wPort == 0);
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    RETURN_IF_FAILED(StopLocked());
    socket_.reset();

    vantrel::UniqueSocket s(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
    RETURN_HR_IF(vantrel::HResultFromWsaError(), !s);
    // Several receivers of one machine (the students of a terminal server) share the port.
    const BOOL reuse = TRUE;
    setsockopt(s.get(), SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&reuse),
               sizeof reuse);
    setsockopt(s.get(), SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&kReceiveBuffer),
               sizeof kReceiveBuffer);
    sockaddr_in bindTo{};
    bindTo.sin_family = AF_INET;
    bindTo.sin_addr.s_addr = htonl(INADDR_ANY);
    bindTo.sin_port = htons(wPort);
    RETURN_HR_IF(vantrel::HResultFromWsaError(),
                 bind(s.get(), reinterpret_cast<sockaddr*>(&bindTo), sizeof bindTo) != 0);
    ip_mreq membership{};
    membership.imr_multiaddr = group;
    membership.imr_interface = local;
    RETURN_HR_IF(vantrel::HResultFromWsaError(),
                 setsockopt(s.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP,
                            reinterpret_cast<const char*>(&membership), sizeof membership) != 0);
    RETURN_HR_IF(vantrel::HResultFromWsaError(),
                 WSAEventSelect(s.get(), readable_.get(), FD_READ) != 0);
    socket_ = std::move(s);
    return S_OK;
}

HRESULT MulticastReceiver::Leave() noexcept {
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    RETURN_IF_FAILED(StopLocked());
    socket_.reset();  // closing the socket drops the membership
    return S_OK;
}

HRESULT MulticastReceiver::Start() noexcept {
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    RETURN_HR_IF(E_FAIL, !socket_);
    RETURN_HR_IF(S_FALSE, thread_);
    ResetEvent(stop_.get());
    thread_.reset(CreateThread(nullptr, 0, ThreadMain, this, 0, &threadId_));
    RETURN_LAST_ERROR_IF(!thread_);
    return S_OK;
}

HRESULT MulticastReceiver::Stop() noexcept {
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    return StopLocked();
}

HRESULT MulticastReceiver::StopLocked() noexcept {
    if (!thread_)
        return S_OK;
    // From inside a callback the wait below could never end.
    RETURN_HR_IF(HRESULT_FROM_WIN32(ERROR_POSSIBLE_DEADLOCK), GetCurrentThreadId() == threadId_);
    SetEvent(stop_.get());
    WaitForSingleObject(thread_.get(), INFINITE);
    thread_.reset();
    threadId_ = 0;
    return S_OK;
}

HRESULT MulticastReceiver::SetCallback(DatagramCallback pfnCallback, void* pvContext) noexcept {
    std::lock_guard<vantrel::CriticalSection> hold(callbackLock_);
    callback_ = pfnCallback;
    context_ = pvContext;
    return S_OK;
}

DWORD WINAPI MulticastReceiver::ThreadMain(void* self) noexcept {
    static_cast<MulticastReceiver*>(self)->ReceiveLoop();
    return 0;
}

// socket_ cannot change while this runs: Join and Leave stop the thread first.
void MulticastReceiver::ReceiveLoop() noexcept {
    const HANDLE waits[] = {stop_.get(), readable_.get()};
    for (;;) {
        const DWORD woke = WaitForMultipleObjects(2, waits, FALSE, INFINITE);
        if (woke != WAIT_OBJECT_0 + 1)
            return;
        // The event is re-armed by each recvfrom; read until the socket is empty.
        for (;;) {
            if (WaitForSingleObject(stop_.get(), 0) == WAIT_OBJECT_0)
                return;
            sockaddr_in from{};
            int fromLength = sizeof from;
            const int n = recvfrom(socket_.get(), buffer_.data(), static_cast<int>(buffer_.size()),
                                   0, reinterpret_cast<sockaddr*>(&from), &fromLength);
            if (n < 0) {
                const int err = WSAGetLastError();
                if (err == WSAEWOULDBLOCK)
                    break;
                if (err == WSAEMSGSIZE || err == WSAECONNRESET)
                    continue;  // one oversized or refused datagram; the socket still works
                return;
            }
            std::lock_guard<vantrel::CriticalSection> hold(callbackLock_);
            if (callback_)
                callback_(context_, from.sin_addr.s_addr, 0, buffer_.data(), static_cast<ULONG>(n));
        }
    }
}

}  // namespace transport
