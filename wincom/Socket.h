// Winsock ownership: a socket handle that closes itself, and the WSAStartup/WSACleanup pair.
// Header-only; users link ws2_32. Used by Transport.dll and the test relay.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>

#include "UniqueHandle.h"

namespace vantrel {

namespace detail {
struct SocketTraits {
    using pointer = SOCKET;
    static pointer invalid() noexcept { return INVALID_SOCKET; }
    static bool close(pointer s) noexcept { return closesocket(s) == 0; }
};
}  // namespace detail

using UniqueSocket = UniqueAny<detail::SocketTraits>;

// Winsock 2.2 for the owner's life; ok() is false when WSAStartup failed.
class WinsockSession {
  public:
    WinsockSession() noexcept {
        WSADATA data;
        ok_ = WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }
    WinsockSession(const WinsockSession&) = delete;
    WinsockSession& operator=(const WinsockSession&) = delete;
    ~WinsockSession() {
        if (ok_)
            WSACleanup();
    }
    bool ok() const noexcept { return ok_; }

  private:
    bool ok_ = false;
};

// The last Winsock error as an HRESULT, never S_OK.
inline HRESULT HResultFromWsaError() noexcept {
    const int err = WSAGetLastError();
    return err ? HRESULT_FROM_WIN32(static_cast<DWORD>(err)) : E_FAIL;
}

}  // namespace vantrel
