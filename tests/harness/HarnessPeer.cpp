// Second process for the harness checks. Commands:
//   mcast-send <group> <port> <text>   sends <text> as one datagram, from 127.0.0.1
//   ipc-reply <name>                   opens section <name> and event <name>.Done, appends
//                                      " seen" to the text in the section, sets the event
// Exit code 0 on success.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "wincom/KernelObjects.h"
#include "wincom/Socket.h"

using namespace vantrel;

namespace {

int MulticastSend(const char* group, int port, const char* text) {
    WinsockSession wsa;
    UniqueSocket s(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
    if (!wsa.ok() || !s)
        return 10;
    in_addr local{};
    local.s_addr = inet_addr("127.0.0.1");
    setsockopt(s.get(), IPPROTO_IP, IP_MULTICAST_IF, reinterpret_cast<const char*>(&local),
               sizeof local);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<u_short>(port));
    to.sin_addr.s_addr = inet_addr(group);
    // A few copies: the receiver may join a moment after we start.
    for (int i = 0; i < 20; ++i, Sleep(50))
        if (sendto(s.get(), text, static_cast<int>(strlen(text)), 0,
                   reinterpret_cast<sockaddr*>(&to), sizeof to) < 0)
            return 12;
    return 0;
}

int IpcReply(const std::string& name) {
    UniqueMapping section = TryOpenNamedSection(name.c_str());
    UniqueViewOfFile view = section ? MapWholeSection(section.get()) : UniqueViewOfFile();
    UniqueEvent done = TryOpenNamedEvent((name + ".Done").c_str());
    if (!view || !done)
        return 20;
    strcat(static_cast<char*>(view.get()), " seen");
    return SetEvent(done.get()) ? 0 : 23;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && !strcmp(argv[1], "mcast-send"))
        return MulticastSend(argv[2], atoi(argv[3]), argv[4]);
    if (argc == 3 && !strcmp(argv[1], "ipc-reply"))
        return IpcReply(argv[2]);
    std::fprintf(stderr,
                 "usage: harness_peer mcast-send <group> <port> <text> | ipc-reply <name>\n");
    return 2;
}
