#include "MulticastReceiver.h"

#include <cstring>
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
    RETURN_HR_IF(E_INVALIDARG,
                 !ParseEndpoint(lpszLocalAddress, lpszGroupAddress, wPort, &local, &group));
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
    // A socket bound to the port hears every group this machine joined on it (Linux, and Wine
    // on it, which binds the port alone even when asked for the group); each datagram's
    // destination tells ours apart. Without it, all are delivered.
    recvMsg_ = nullptr;
    GUID id = WSAID_WSARECVMSG;
    LPFN_WSARECVMSG recvMsg = nullptr;
    DWORD bytes = 0;
    const DWORD on = 1;
    if (setsockopt(s.get(), IPPROTO_IP, IP_PKTINFO, reinterpret_cast<const char*>(&on),
                   sizeof on) == 0 &&
        WSAIoctl(s.get(), SIO_GET_EXTENSION_FUNCTION_POINTER, &id, sizeof id, &recvMsg,
                 sizeof recvMsg, &bytes, nullptr, nullptr) == 0)
        recvMsg_ = recvMsg;
    group_ = group;
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

// One datagram into buffer_: its length, or -1 with the Winsock error set. *to is left alone
// when the system does not tell the destination.
int MulticastReceiver::Receive(sockaddr_in* from, in_addr* to) noexcept {
    int fromLength = sizeof *from;
    if (!recvMsg_)
        return recvfrom(socket_.get(), buffer_.data(), static_cast<int>(buffer_.size()), 0,
                        reinterpret_cast<sockaddr*>(from), &fromLength);
    WSABUF data = {static_cast<ULONG>(buffer_.size()), buffer_.data()};
    alignas(WSACMSGHDR) char control[64];
    WSAMSG message{};
    message.name = reinterpret_cast<sockaddr*>(from);
    message.namelen = fromLength;
    message.lpBuffers = &data;
    message.dwBufferCount = 1;
    message.Control = {sizeof control, control};
    DWORD n = 0;
    if (recvMsg_(socket_.get(), &message, &n, nullptr, nullptr) != 0)
        return -1;
    for (WSACMSGHDR* c = WSA_CMSG_FIRSTHDR(&message); c; c = WSA_CMSG_NXTHDR(&message, c)) {
        if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO &&
            c->cmsg_len >= WSA_CMSG_LEN(sizeof(IN_PKTINFO))) {
            IN_PKTINFO info;
            std::memcpy(&info, WSA_CMSG_DATA(c), sizeof info);
            *to = info.ipi_addr;
        }
    }
    return static_cast<int>(n);
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
            in_addr to = group_;
            const int n = Receive(&from, &to);
            if (n < 0) {
                const int err = WSAGetLastError();
                if (err == WSAEWOULDBLOCK)
                    break;
                if (err == WSAEMSGSIZE || err == WSAECONNRESET)
                    continue;  // one oversized or refused datagram; the socket still works
                return;
            }
            if (to.s_addr != group_.s_addr)
                continue;  // another group on this port
            std::lock_guard<vantrel::CriticalSection> hold(callbackLock_);
            if (callback_)
                callback_(context_, from.sin_addr.s_addr, 0, buffer_.data(), static_cast<ULONG>(n));
        }
    }
}

}  // namespace transport
