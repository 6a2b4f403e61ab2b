// Parsing of the ANSI dotted addresses that the host hands to Open and Join.
#pragma once

#include "wincom/Socket.h"

namespace transport {

// An IPv4 address in dotted form into *address (network order); false when it does not parse.
bool ParseIpv4(const char* text, in_addr* address) noexcept;
bool IsMulticast(const in_addr& address) noexcept;

}  // namespace transport
