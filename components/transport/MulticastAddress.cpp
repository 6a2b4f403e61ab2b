#include "MulticastAddress.h"

namespace transport {
namespace {

// Four decimal parts of 0 to 255, dotted, nothing else (InetPtonA's rule; it is Vista's).
bool ParseIpv4(const char* text, in_addr* address) noexcept {
    if (!text || !address)
        return false;
    unsigned long value = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0 && *text++ != '.')
            return false;
        unsigned n = 0;
        int digits = 0;
        for (; *text >= '0' && *text <= '9'; ++text, ++digits) {
            n = n * 10 + static_cast<unsigned>(*text - '0');
            if (digits == 3 || n > 255)
                return false;
        }
        if (digits == 0)
            return false;
        value = value << 8 | n;
    }
    if (*text != '\0')
        return false;
    address->s_addr = htonl(value);
    return true;
}

bool IsMulticast(const in_addr& address) noexcept {
    return (ntohl(address.s_addr) >> 28) == 0xE;
}

}  // namespace

bool ParseEndpoint(const char* localText, const char* groupText, unsigned short port,
                   in_addr* local, in_addr* group) noexcept {
    return ParseIpv4(localText, local) && ParseIpv4(groupText, group) && IsMulticast(*group) &&
           port != 0;
}

}  // namespace transport
