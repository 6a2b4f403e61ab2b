#include "MulticastAddress.h"

namespace transport {

bool ParseIpv4(const char* text, in_addr* address) noexcept {
    return text && InetPtonA(AF_INET, text, address) == 1;
}

bool IsMulticast(const in_addr& address) noexcept {
    return (ntohl(address.s_addr) >> 28) == 0xE;
}

}  // namespace transport
