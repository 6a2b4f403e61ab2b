// DesktopCaster and DesktopReceiver through COM with the registered transport, on loopback
// multicast inside the harness's private network, through the relay losing, repeating and
// reordering datagrams while junk shares the session: with 8 correction datagrams per group
// every packet of every size arrives whole and in order; without, a loss costs whole packets,
// never a damaged, repeated or stale one.
#include <windows.h>

#include <vector>

#include <gtest/gtest.h>

#include "CastTestSupport.h"
#include "RelayProcess.h"
#include "Transport.h"
#include "Vantrel.h"
#include "common/ComTest.h"
#include "common/FakeSink.h"
#include "common/Screen.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

class Cast : public ComTest {
  protected:
    void SetUp() override {
        ComTest::SetUp();
        caster_ = Create<IDesktopCaster>(CLSID_DesktopCaster);
        ASSERT_TRUE(caster_);
        ASSERT_EQ(S_OK, caster_.As(&casterSink_));
    }
    void TearDown() override {
        casterSink_.Reset();
        caster_.Reset();
        ComTest::TearDown();
    }
    // A receiver on listen feeding sink, the caster sending to send.
    ComPtr<IDesktopReceiver> Connect(Session& listen, Session& send, int fec, long checksum,
                                     FakeSink* sink) {
        ComPtr<IDesktopReceiver> receiver = Create<IDesktopReceiver>(CLSID_DesktopReceiver);
        if (!receiver)
            return receiver;
        EXPECT_EQ(S_OK, receiver->JoinSession(Session::Local(), listen.Group(), listen.port));
        EXPECT_EQ(S_OK, receiver->RegisterDataTransmitter(sink));
        EXPECT_EQ(S_OK, receiver->Run());
        EXPECT_EQ(S_OK,
                  caster_->CreateSession(Session::Local(), send.Group(), send.port, fec, checksum));
        EXPECT_EQ(S_OK, caster_->Run());
        return receiver;
    }
    void Disconnect(ComPtr<IDesktopReceiver>& receiver, FakeSink* sink) {
        EXPECT_EQ(S_OK, receiver->Stop());
        EXPECT_EQ(S_OK, receiver->LeaveSession());
        EXPECT_EQ(S_OK, receiver->UnregisterDataTransmitter(sink));
        EXPECT_EQ(S_OK, caster_->DestroySession());
        EXPECT_EQ(0, sink->Refs());
        EXPECT_EQ(std::vector<std::string>(), sink->Faults());
    }
    void Send(const Bytes& packet) {
        Bytes copy = packet;
        EXPECT_EQ(S_OK, casterSink_->Transfer(copy.data(), static_cast<unsigned long>(copy.size()),
                                              FALSE));
    }

    ComPtr<IDesktopCaster> caster_;
    ComPtr<IDataTransmitter> casterSink_;
};

// A stranger sends datagrams no caster of the session made into the relayed group: empty,
// short, random, oversized, and real datagrams of a checksumming coder cut short or with a bit
// flipped. The stream starts with the edges of the fragment size and the largest packet (the
// empty one sends nothing), then goes on without a pause (one Flush at its end, as a capture
// flushes only when the screen falls quiet).
TEST_F(Cast, ThroughTheLossyRelayCorrectionRestoresEveryPacket) {
    ComPtr<IFecCoder> coder = Create<IFecCoder>(CLSID_FecCoder);
    ASSERT_TRUE(coder);
    ASSERT_EQ(S_OK, coder->Configure(32, 0, 1412));
    ASSERT_EQ(S_OK, coder->SetChecksum(TRUE));
    Bytes fragment = Pattern(1412, 3);
    FecBuffer list[33];
    LONG count = 0;
    ASSERT_EQ(S_OK, coder->Encode(fragment.data(), 1412, list, &count));
    ASSERT_EQ(1, count);
    const Bytes real(list[0].pbData, list[0].pbData + list[0].cbData);
    std::vector<Bytes> junk = {{},
                               {0x42},
                               Pattern(100, 4),
                               Pattern(1500, 7),
                               Pattern(1501, 5),
                               Pattern(4000, 6),
                               Bytes(real.begin(), real.begin() + real.size() / 2)};
    for (size_t bit : {0u, 40u, 200u, 8u * 700u}) {
        Bytes flipped = real;
        flipped[bit / 8] ^= static_cast<BYTE>(1u << (bit % 8));
        junk.push_back(flipped);
    }

    for (int fec : {8, 0}) {
        SCOPED_TRACE(fec);
        Session upstream = Session::Next(), relayed = Session::Next();
        RelayProcess relay(upstream.Address(), relayed.Address(),
                           RelayRates{5, 2, 2, static_cast<unsigned>(7 + fec)});
        ASSERT_TRUE(relay.Started());
        FakeSink sink("student");
        ComPtr<IDesktopReceiver> receiver = Connect(relayed, upstream, fec, TRUE, &sink);
        ASSERT_TRUE(receiver);
        ComPtr<IMulticastSender> stranger = Create<IMulticastSender>(CLSID_MulticastSender);
        ASSERT_TRUE(stranger);
        ASSERT_EQ(S_OK, stranger->Open(Session::Local(), relayed.Group(), relayed.port));
        std::vector<size_t> lengths = {12, 1400, 1401, 0, 0x180000, 13};
        for (uint32_t i = 0; i < 160; ++i)
            lengths.push_back(200 + (i * 7919) % 9000);  // 1 to 7 fragments
        std::vector<Bytes> sent;
        for (size_t i = 0; i < lengths.size(); ++i) {
            const Bytes packet = Pattern(lengths[i], static_cast<uint32_t>(i + 100));
            Send(packet);
            if (!packet.empty())
                sent.push_back(packet);
            if (i % 20 < 2) {
                for (const Bytes& j : junk)
                    stranger->Send(j.data(), static_cast<USHORT>(j.size()));
            }
        }
        ASSERT_EQ(S_OK, casterSink_->Flush());
        if (fec) {
            EXPECT_TRUE(WaitUntil([&] { return sink.PacketCount() >= sent.size(); }, 20000))
                << sink.PacketCount() << " of " << sent.size() << " packets arrived";
        }
        Sleep(500);
        EXPECT_EQ(0u, relay.Finish());
        const auto got = sink.Packets();
        Disconnect(receiver, &sink);
        size_t next = 0;
        for (size_t i = 0; i < got.size(); ++i) {
            while (next < sent.size() && sent[next] != got[i].bytes)
                ++next;
            ASSERT_LT(next++, sent.size()) << "packet " << i << " is damaged, repeated or stale";
        }
        if (fec) {
            EXPECT_EQ(sent.size(), got.size());
        } else {
            EXPECT_LT(got.size(), sent.size());
            EXPECT_GT(got.size(), sent.size() / 2);
        }
    }
}

}  // namespace
