// Parsing of the ANSI dotted addresses that the host hands to Open and Join.
#pragma once

#include "wincom/Socket.h"

namespace transport {

// The interface, group and port that Open and Join take, addresses in network order; false when
// an address does not parse as dotted IPv4, the group is not a multicast one or the port is 0.
bool ParseEndpoint(const char* localText, const char* groupText, unsigned short port,
                   in_addr* local, in_addr* group) noexcept;

}  // namespace transport
