// DesktopCaster and DesktopReceiver through COM with the registered transport, through the
// relay losing, repeating and reordering datagrams: with 8 corrections per group every packet
// arrives whole and in order; without, a loss costs whole packets, never a damaged or stale one.
#include <windows.h>

#include <vector>

#include <gtest/gtest.h>

#include "CastTestSupport.h"
#include "RelayProcess.h"
#include "Vantrel.h"
#include "common/ComTest.h"
#include "common/FakeSink.h"
#include "common/Screen.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

using Cast = ComTest;

// The edges of the fragment size and the largest packet first (the empty one sends nothing),
// then no pause: one Flush at the end, as a capture flushes when the screen falls quiet.
TEST_F(Cast, ThroughTheLossyRelayCorrectionRestoresEveryPacket) {
    for (int fec : {8, 0}) {
        SCOPED_TRACE(fec);
        Session upstream = Session::Next(), relayed = Session::Next();
        RelayProcess relay(upstream.Address(), relayed.Address(),
                           RelayRates{5, 2, 2, static_cast<unsigned>(7 + fec)});
        ASSERT_TRUE(relay.Started());
        FakeSink sink("student");
        ComPtr<IDesktopReceiver> receiver = Create<IDesktopReceiver>(CLSID_DesktopReceiver);
        ComPtr<IDesktopCaster> caster = Create<IDesktopCaster>(CLSID_DesktopCaster);
        ComPtr<IDataTransmitter> casterSink;
        ASSERT_TRUE(receiver && caster && SUCCEEDED(caster.As(&casterSink)));
        ASSERT_EQ(S_OK, receiver->JoinSession(Session::Local(), relayed.Group(), relayed.port));
        ASSERT_EQ(S_OK, receiver->RegisterDataTransmitter(&sink));
        ASSERT_EQ(S_OK, receiver->Run());
        ASSERT_EQ(S_OK, caster->CreateSession(Session::Local(), upstream.Group(), upstream.port,
                                              fec, TRUE));
        ASSERT_EQ(S_OK, caster->Run());
        std::vector<size_t> lengths = {12, 1400, 1401, 0, 0x180000, 13};
        for (uint32_t i = 0; i < 160; ++i)
            lengths.push_back(200 + (i * 7919) % 9000);  // 1 to 7 fragments
        std::vector<Bytes> sent;
        for (size_t i = 0; i < lengths.size(); ++i) {
            const Bytes packet = Pattern(lengths[i], static_cast<uint32_t>(i + 100));
            Bytes copy = packet;
            EXPECT_EQ(S_OK, casterSink->Transfer(copy.data(),
                                                 static_cast<unsigned long>(copy.size()), FALSE));
            if (!packet.empty())
                sent.push_back(packet);
        }
        ASSERT_EQ(S_OK, casterSink->Flush());
        if (fec) {
            EXPECT_TRUE(WaitUntil([&] { return sink.PacketCount() >= sent.size(); }, 20000))
                << sink.PacketCount() << " of " << sent.size() << " packets arrived";
        }
        Sleep(500);
        EXPECT_EQ(0u, relay.Finish());
        const auto got = sink.Packets();
        EXPECT_EQ(S_OK, receiver->Stop());
        EXPECT_EQ(S_OK, receiver->LeaveSession());
        EXPECT_EQ(S_OK, receiver->UnregisterDataTransmitter(&sink));
        EXPECT_EQ(S_OK, caster->DestroySession());
        EXPECT_EQ(0, sink.Refs());
        EXPECT_EQ(std::vector<std::string>(), sink.Faults());
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
