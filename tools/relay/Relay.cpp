// vantrel_relay.exe: the lossy link of the tests, benchmarks and demo. It joins one multicast
// group and re-sends every datagram to another, dropping, duplicating and holding back (to
// reorder) datagrams at the given rates, decided by a seeded generator: the same input gives
// the same damage. It runs until its stop event is signalled, then prints what it did.
//
//   vantrel_relay --from 239.255.a.b:port --to 239.255.c.d:port [--local 127.0.0.1]
//                 [--loss %] [--dup %] [--reorder %] [--seed n] [--stop event] [--ready event]
//
// Only 239.255.x.x groups on 127.0.0.1: it is meant for the harness's private namespace.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "wincom/KernelObjects.h"
#include "wincom/Socket.h"

namespace {

struct Options {
    std::string local = "127.0.0.1";
    sockaddr_in from{};
    sockaddr_in to{};
    double loss = 0, dup = 0, reorder = 0;
    unsigned seed = 1;
    std::string stop, ready;
};

bool ParseGroup(const char* text, sockaddr_in* out) {
    const char* colon = std::strrchr(text, ':');
    if (!colon)
        return false;
    const std::string host(text, colon);
    const int port = std::atoi(colon + 1);
    in_addr a{};
    if (InetPtonA(AF_INET, host.c_str(), &a) != 1 || port <= 0 || port > 65535 ||
        (ntohl(a.s_addr) >> 16) != 0xEFFF)  // 239.255.0.0/16 only
        return false;
    *out = {};
    out->sin_family = AF_INET;
    out->sin_addr = a;
    out->sin_port = htons(static_cast<u_short>(port));
    return true;
}

bool ParseOptions(int argc, char** argv, Options* o) {
    bool haveFrom = false, haveTo = false;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string key = argv[i];
        const char* value = argv[i + 1];
        if (key == "--from")
            haveFrom = ParseGroup(value, &o->from);
        else if (key == "--to")
            haveTo = ParseGroup(value, &o->to);
        else if (key == "--local")
            o->local = value;
        else if (key == "--loss")
            o->loss = std::atof(value) / 100;
        else if (key == "--dup")
            o->dup = std::atof(value) / 100;
        else if (key == "--reorder")
            o->reorder = std::atof(value) / 100;
        else if (key == "--seed")
            o->seed = static_cast<unsigned>(std::strtoul(value, nullptr, 10));
        else if (key == "--stop")
            o->stop = value;
        else if (key == "--ready")
            o->ready = value;
        else
            return false;
    }
    return haveFrom && haveTo && o->local == "127.0.0.1" &&
           o->from.sin_port != o->to.sin_port;  // one port would hear its own output
}

struct Counts {
    unsigned long received = 0, sent = 0, dropped = 0, duplicated = 0, reordered = 0;
};

class Relay {
  public:
    explicit Relay(const Options& o) : o_(o), rng_(o.seed) {}

    bool Open() {
        in_addr local{};
        InetPtonA(AF_INET, o_.local.c_str(), &local);
        in_.reset(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
        out_.reset(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
        if (!in_ || !out_)
            return false;
        const BOOL reuse = TRUE;
        const int buffer = 4 << 20;
        setsockopt(in_.get(), SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&reuse),
                   sizeof reuse);
        setsockopt(in_.get(), SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&buffer),
                   sizeof buffer);
        sockaddr_in bindIn{};
        bindIn.sin_family = AF_INET;
        bindIn.sin_port = o_.from.sin_port;
        ip_mreq m{};
        m.imr_multiaddr = o_.from.sin_addr;
        m.imr_interface = local;
        sockaddr_in bindOut{};
        bindOut.sin_family = AF_INET;
        bindOut.sin_addr = local;
        const DWORD ttl = 1, loop = 1;
        return bind(in_.get(), reinterpret_cast<sockaddr*>(&bindIn), sizeof bindIn) == 0 &&
               setsockopt(in_.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP,
                          reinterpret_cast<const char*>(&m), sizeof m) == 0 &&
               bind(out_.get(), reinterpret_cast<sockaddr*>(&bindOut), sizeof bindOut) == 0 &&
               setsockopt(out_.get(), IPPROTO_IP, IP_MULTICAST_IF,
                          reinterpret_cast<const char*>(&local), sizeof local) == 0 &&
               setsockopt(out_.get(), IPPROTO_IP, IP_MULTICAST_TTL,
                          reinterpret_cast<const char*>(&ttl), sizeof ttl) == 0 &&
               setsockopt(out_.get(), IPPROTO_IP, IP_MULTICAST_LOOP,
                          reinterpret_cast<const char*>(&loop), sizeof loop) == 0 &&
               readable_ && WSAEventSelect(in_.get(), readable_.get(), FD_READ) == 0;
    }

    // Until stop is signalled (or, without one, forever).
    void Run(HANDLE stop) {
        std::vector<char> buffer(65536);
        const HANDLE waits[] = {stop ? stop : readable_.get(), readable_.get()};
        for (;;) {
            // A held datagram goes out after the next one, or when the link falls quiet.
            const DWORD woke =
                WaitForMultipleObjects(2, waits, FALSE, held_.empty() ? INFINITE : 5);
            if (woke == WAIT_TIMEOUT) {
                FlushHeld();
                continue;
            }
            if (stop && woke == WAIT_OBJECT_0)
                break;
            for (;;) {
                const int n = recv(in_.get(), buffer.data(), static_cast<int>(buffer.size()), 0);
                if (n < 0)
                    break;
                ++counts_.received;
                Forward(buffer.data(), n);
            }
        }
        FlushHeld();
    }

    const Counts& counts() const { return counts_; }

  private:
    bool Chance(double p) {
        return p > 0 && std::uniform_real_distribution<double>(0, 1)(rng_) < p;
    }

    void Send(const char* data, int n) {
        if (sendto(out_.get(), data, n, 0, reinterpret_cast<const sockaddr*>(&o_.to),
                   sizeof o_.to) == n)
            ++counts_.sent;
    }

    void FlushHeld() {
        if (held_.empty())
            return;
        Send(held_.data(), static_cast<int>(held_.size()));
        held_.clear();
    }

    void Forward(const char* data, int n) {
        // Every decision is drawn for every datagram, so one rate does not shift another's.
        const bool lose = Chance(o_.loss), twice = Chance(o_.dup), hold = Chance(o_.reorder);
        if (lose) {
            ++counts_.dropped;
            return;
        }
        if (hold && held_.empty()) {
            held_.assign(data, data + n);
            ++counts_.reordered;
            return;
        }
        Send(data, n);
        if (twice) {
            Send(data, n);
            ++counts_.duplicated;
        }
        FlushHeld();
    }

    Options o_;
    std::mt19937 rng_;
    vantrel::UniqueSocket in_, out_;
    vantrel::UniqueEvent readable_{CreateEventA(nullptr, FALSE, FALSE, nullptr)};
    std::vector<char> held_;
    Counts counts_;
};

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!ParseOptions(argc, argv, &o)) {
        std::fprintf(stderr,
                     "usage: vantrel_relay --from 239.255.a.b:port --to 239.255.c.d:port "
                     "[--local 127.0.0.1] [--loss %%] [--dup %%] [--reorder %%] [--seed n] "
                     "[--stop event] [--ready event]\n");
        return 2;
    }
    vantrel::WinsockSession winsock;
    Relay relay(o);
    if (!winsock.ok() || !relay.Open()) {
        std::fprintf(stderr, "relay: cannot open the groups (%d)\n", WSAGetLastError());
        return 1;
    }
    vantrel::UniqueEvent stop;
    if (!o.stop.empty() && !(stop = vantrel::TryOpenNamedEvent(o.stop.c_str()))) {
        std::fprintf(stderr, "relay: no stop event %s\n", o.stop.c_str());
        return 1;
    }
    if (!o.ready.empty()) {
        vantrel::UniqueEvent ready = vantrel::TryOpenNamedEvent(o.ready.c_str());
        if (ready)
            SetEvent(ready.get());
    }
    relay.Run(stop.get());
    const Counts& c = relay.counts();
    std::printf("relay: received %lu sent %lu dropped %lu duplicated %lu reordered %lu\n",
                c.received, c.sent, c.dropped, c.duplicated, c.reordered);
    return 0;
}
