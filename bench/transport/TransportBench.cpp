// bench_transport: FEC encode and decode speed for groups of 32 + k at 1,412-byte fragments
// with k losses per group, SSSE3 beside scalar; datagrams and payload per second through
// loopback multicast with and without FEC; packets delivered whole from a DesktopCaster to a
// DesktopReceiver through the lossy relay at 1, 5 and 10 % loss with FEC 0, 4 and 8. Needs the
// registered Transport.dll and Vantrel.dll and runs in the harness's namespace (groups
// 239.255.43.x on 127.0.0.1).
#include <winsock2.h>
#include <windows.h>

#include <Transport.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "FecDecoder.h"
#include "FecEncoder.h"
#include "Gf256.h"
#include "RelayProcess.h"
#include "Vantrel.h"
#include "common/FakeSink.h"
#include "common/BenchClock.h"
#include "wincom/ComPtr.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::size_t kFragment = 1412;
constexpr char kLocal[] = "127.0.0.1";

template <typename T>
vantrel::ComPtr<T> Create(REFCLSID clsid, REFIID iid) {
    vantrel::ComPtr<T> p;
    CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, reinterpret_cast<void**>(p.Put()));
    return p;
}

// One group of 32 fragments through the encoder, then through the decoder with its first k
// data datagrams lost (the most restoring work): MB/s of fragment payload for each.
void FecSpeed(int k, double* encodeMBs, double* decodeMBs) {
    using namespace transport;
    std::vector<Bytes> fragments(32, Bytes(kFragment));
    for (std::size_t i = 0; i < fragments.size(); ++i)
        for (std::size_t j = 0; j < kFragment; ++j)
            fragments[i][j] = static_cast<std::uint8_t>(i * 131 + j * 7);
    FecEncoder encoder;
    encoder.Configure(32, k, static_cast<int>(kFragment), 1);
    FecSpan out[FecEncoder::kMaxEncodeOutput];
    std::vector<Bytes> datagrams;
    for (const Bytes& f : fragments) {
        const int n = encoder.Encode(f.data(), f.size(), out);
        for (int i = 0; i < n; ++i)
            datagrams.emplace_back(out[i].data, out[i].data + out[i].length);
    }
    const double groupMB = 32.0 * kFragment / 1e6;
    *encodeMBs = groupMB / vantrel::bench::SecondsPerCall([&] {
                     for (const Bytes& f : fragments)
                         encoder.Encode(f.data(), f.size(), out);
                 });

    // Each round from a fresh decoder state, so the same group is news again.
    FecDecoder decoder;
    decoder.Configure(static_cast<int>(kFragment));
    FecSpan got[FecDecoder::kMaxDecodeOutput];
    *decodeMBs = groupMB / vantrel::bench::SecondsPerCall([&] {
                     decoder.Reset();
                     int delivered = 0, n = 0;
                     for (std::size_t i = k; i < datagrams.size(); ++i) {
                         decoder.Decode(datagrams[i].data(), datagrams[i].size(), got, &n);
                         delivered += n;
                     }
                     if (delivered != 32)
                         std::printf("  (decode delivered %d of 32)\n", delivered);
                 });
}

void FecTable() {
    using transport::GfKernel;
    std::printf("FEC, groups of 32 + k, %zu-byte fragments, k data datagrams lost per group\n",
                kFragment);
    std::printf("  %3s  %14s %14s  %14s %14s  %7s %7s\n", "k", "encode SSSE3", "encode scalar",
                "decode SSSE3", "decode scalar", "enc x", "dec x");
    const bool ssse3 = transport::CpuHasSsse3();
    for (int k : {0, 4, 8, 16, 32}) {
        double e[2] = {}, d[2] = {};
        if (ssse3) {
            transport::SelectGfKernel(GfKernel::kSsse3);
            FecSpeed(k, &e[0], &d[0]);
        }
        transport::SelectGfKernel(GfKernel::kScalar);
        FecSpeed(k, &e[1], &d[1]);
        std::printf("  %3d  %9.0f MB/s %9.0f MB/s  %9.0f MB/s %9.0f MB/s  %6.1fx %6.1fx\n", k, e[0],
                    e[1], d[0], d[1], e[1] > 0 ? e[0] / e[1] : 0, d[1] > 0 ? d[0] / d[1] : 0);
    }
    transport::SelectGfKernel(ssse3 ? GfKernel::kSsse3 : GfKernel::kScalar);
}

// The receiving end: decodes on the transport's thread, counts fragments and their bytes.
struct Student {
    vantrel::ComPtr<IMulticastReceiver> receiver =
        Create<IMulticastReceiver>(CLSID_MulticastReceiver, IID_IMulticastReceiver);
    vantrel::ComPtr<IFecCoder> coder = Create<IFecCoder>(CLSID_FecCoder, IID_IFecCoder);
    std::atomic<long> datagrams{0}, fragments{0};
    std::atomic<long long> bytes{0};
    std::vector<std::uint8_t> seen;  // by fragment serial
    double first = 0, last = 0;

    static LONG __cdecl Callback(void* context, ULONG, ULONG, const void* data, ULONG length) {
        auto* self = static_cast<Student*>(context);
        const double now = vantrel::bench::Seconds();
        if (self->datagrams++ == 0)
            self->first = now;
        self->last = now;
        FecBuffer list[33];
        LONG count = 0;
        self->coder->Decode(data, length, list, &count);
        for (LONG i = 0; i < count; ++i) {
            std::uint32_t serial = 0;
            std::memcpy(&serial, list[i].pbData, 4);
            if (serial < self->seen.size())
                self->seen[serial] = 1;
            self->fragments++;
            self->bytes += list[i].cbData;
        }
        return 0;
    }
    bool Listen(const char* group, USHORT port, std::size_t serials) {
        seen.assign(serials, 0);
        return coder && receiver && coder->Configure(32, 0, kFragment) == S_OK &&
               receiver->Join(kLocal, group, port) == S_OK &&
               receiver->SetCallback(Callback, this) == S_OK && receiver->Start() == S_OK;
    }
};

struct Sent {
    long datagrams = 0;
    double seconds = 0;
};

// Fragments with serial numbers through FEC k into the sender; paced as the caster paces
// (pauseMs after every eighth datagram), unpaced with pauseMs 0. Drains every 24 fragments
// (a burst). Returns datagrams sent and the time it took.
Sent SendFragments(const char* group, USHORT port, int k, int fragments, DWORD pauseMs) {
    auto sender = Create<IMulticastSender>(CLSID_MulticastSender, IID_IMulticastSender);
    auto coder = Create<IFecCoder>(CLSID_FecCoder, IID_IFecCoder);
    Sent s;
    if (!sender || !coder || sender->Open(kLocal, group, port) != S_OK)
        return s;
    coder->Configure(32, k, kFragment);
    coder->SetChecksum(TRUE);
    FecBuffer list[64];
    LONG count = 0;
    auto send = [&] {
        for (LONG i = 0; i < count; ++i) {
            sender->Send(list[i].pbData, static_cast<USHORT>(list[i].cbData));
            if (++s.datagrams % 8 == 0 && pauseMs)
                Sleep(pauseMs);
        }
    };
    Bytes fragment(kFragment);
    for (std::size_t j = 0; j < kFragment; ++j)
        fragment[j] = static_cast<std::uint8_t>(j * 13);
    const double start = vantrel::bench::Seconds();
    for (int i = 0; i < fragments; ++i) {
        std::memcpy(fragment.data(), &i, 4);
        coder->Encode(fragment.data(), kFragment, list, &count);
        send();
        if (i % 24 == 23) {
            coder->Drain(list, &count);
            send();
        }
    }
    coder->Drain(list, &count);
    send();
    s.seconds = vantrel::bench::Seconds() - start;
    return s;
}

void LoopbackTable() {
    std::printf("\nLoopback multicast, %zu-byte fragments, sender -> receiver in one process\n",
                kFragment);
    std::printf("  %-22s %12s %12s %12s %10s\n", "", "sent dgram/s", "recv dgram/s", "payload MB/s",
                "delivered");
    struct Row {
        const char* name;
        int k;
        DWORD pause;
    };
    const Row rows[] = {{"no FEC, unpaced", 0, 0},
                        {"FEC 8, unpaced", 8, 0},
                        {"no FEC, caster pace", 0, 2},
                        {"FEC 8, caster pace", 8, 2}};
    USHORT port = 43000;
    for (const Row& r : rows) {
        const int fragments = r.pause ? 4000 : 20000;
        Student student;
        if (!student.Listen("239.255.43.1", port, fragments)) {
            std::printf("  %-22s cannot join\n", r.name);
            continue;
        }
        const Sent s = SendFragments("239.255.43.1", port, r.k, fragments, r.pause);
        Sleep(300);
        student.receiver->Leave();
        ++port;
        const double span = student.last - student.first;
        long whole = 0;
        for (std::uint8_t b : student.seen)
            whole += b;
        std::printf("  %-22s %12.0f %12.0f %12.1f %9.2f%%\n", r.name, s.datagrams / s.seconds,
                    span > 0 ? student.datagrams / span : 0,
                    span > 0 ? student.bytes / span / 1e6 : 0, 100.0 * whole / fragments);
    }
}

// A continuous stream of packets of 1 to 7 fragments (one Flush at its end, as a capture
// flushes when the screen falls quiet) from a DesktopCaster through the relay to a
// DesktopReceiver: the share of packets delivered whole.
void RelayTable() {
    std::printf(
        "\nThrough the relay (2 %% duplicated, 2 %% reordered), DesktopCaster -> "
        "DesktopReceiver, 600 packets, delivered whole\n");
    std::printf("  %6s %10s %10s %10s\n", "loss", "FEC 0", "FEC 4", "FEC 8");
    USHORT port = 43100;
    for (double loss : {1.0, 5.0, 10.0}) {
        std::string row;  // printed whole: the relay reports on this console too
        for (int k : {0, 4, 8}) {
            const int packets = 600;
            std::string in = "239.255.43.2", out = "239.255.43.3";
            vantrel::test::RelayProcess relay(in + ":" + std::to_string(port),
                                              out + ":" + std::to_string(port + 1),
                                              {loss, 2, 2, 7});
            auto caster = Create<IDesktopCaster>(CLSID_DesktopCaster, IID_IDesktopCaster);
            auto receiver = Create<IDesktopReceiver>(CLSID_DesktopReceiver, IID_IDesktopReceiver);
            vantrel::ComPtr<IDataTransmitter> casterSink;
            vantrel::test::FakeSink sink("student");
            char local[] = "127.0.0.1";
            if (!relay.Started() || !caster || !receiver || FAILED(caster.As(&casterSink)) ||
                receiver->JoinSession(local, &out[0], static_cast<USHORT>(port + 1)) != S_OK ||
                receiver->RegisterDataTransmitter(&sink) != S_OK || receiver->Run() != S_OK ||
                caster->CreateSession(local, &in[0], port, k, TRUE) != S_OK) {
                row += "     failed";
                continue;
            }
            std::vector<Bytes> sent;
            for (int i = 0; i < packets; ++i) {
                Bytes p(200 + (i * 7919) % 9000);
                for (std::size_t j = 0; j < p.size(); ++j)
                    p[j] = static_cast<std::uint8_t>(j * 31 + i);
                std::memcpy(p.data(), &i, 4);
                casterSink->Transfer(p.data(), static_cast<unsigned long>(p.size()), FALSE);
                sent.push_back(std::move(p));
            }
            casterSink->Flush();
            Sleep(500);
            relay.Finish();
            receiver->Stop();
            receiver->LeaveSession();
            receiver->UnregisterDataTransmitter(&sink);
            caster->DestroySession();
            port += 2;
            long whole = 0;
            for (const auto& got : sink.Packets()) {
                int serial = -1;
                if (got.bytes.size() >= 4)
                    std::memcpy(&serial, got.bytes.data(), 4);
                whole += serial >= 0 && serial < packets && got.bytes == sent[serial];
            }
            char cell[16];
            std::snprintf(cell, sizeof cell, " %9.2f%%", 100.0 * whole / packets);
            row += cell;
        }
        std::printf("  %5.0f%%%s\n", loss, row.c_str());
    }
}

}  // namespace

int main() {
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 1;
    std::printf("GF(256) kernel in use: %s\n",
                transport::ActiveGfKernel() == transport::GfKernel::kSsse3 ? "SSSE3" : "scalar");
    FecTable();
    LoopbackTable();
    RelayTable();
    CoUninitialize();
    return 0;
}
