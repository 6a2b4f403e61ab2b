// DesktopCaster and DesktopReceiver through COM on the loopback interface of the harness's
// private network, with the registered transport: the session arguments, the fragments and
// their numbering as a listener hears them, the pacing, whole packets delivered by the
// receiver, the source filter, and Stop.
#include <winsock2.h>
#include <windows.h>

#include <climits>
#include <thread>

#include "CastTestSupport.h"
#include "RelayProcess.h"

using namespace vantrel;
using namespace vantrel::test;

TEST_F(CastTest, CreateSessionRefusesCorrectionCountsOutsideZeroToThirtyTwo) {
    const struct {
        int fec;
        HRESULT hr;
    } cases[] = {{-1, E_FAIL}, {33, E_FAIL}, {INT_MIN, E_FAIL}, {INT_MAX, E_FAIL},
                 {0, S_OK},    {7, S_OK},    {32, S_OK}};
    const auto packet = Bytes(3000, 1);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fec);
        Session s = Session::Next();
        ComPtr<IDesktopCaster> caster;
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopCaster, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopCaster, caster.PutVoid()));
        ComPtr<IDataTransmitter> sink;
        ASSERT_EQ(S_OK, caster.As(&sink));
        Probe probe(s);
        EXPECT_EQ(c.hr, caster->CreateSession(Session::Local(), s.Group(), s.port, c.fec, 0));
        EXPECT_EQ(S_OK, caster->Run());
        EXPECT_EQ(S_OK, sink->Transfer(const_cast<uint8_t*>(packet.data()), 3000, FALSE));
        EXPECT_EQ(S_OK, sink->Flush());
        if (c.hr == S_OK) {
            // Three fragments, plus the repair datagrams of the drained group.
            const size_t expected = 3 + static_cast<size_t>(c.fec);
            EXPECT_TRUE(WaitUntil([&] { return probe.Datagrams() >= expected; }));
            EXPECT_EQ(3u, probe.Fragments().size());
        } else {
            Sleep(300);
            EXPECT_EQ(0u, probe.Datagrams()) << "a refused session must open nothing";
        }
        EXPECT_EQ(S_OK, caster->DestroySession());
        EXPECT_EQ(S_OK, caster->Stop());
    }
}

TEST_F(CastTest, FragmentsCarryMessageNumberOffsetAndTotalLength) {
    struct Expected {
        uint32_t message, offset, total, length;
    };
    const std::vector<Expected> expected = {
        {0, 0, 3000, 1412},
        {0, 1400, 3000, 1412},
        {0, 2800, 3000, 212},  // 3,000 bytes
        /* message 1: an empty packet sends nothing */
        {2, 0, 1, 13},       // 1 byte
        {3, 0, 1400, 1412},  // 1,400 bytes
        {4, 0, 1401, 1412},
        {4, 1400, 1401, 13},  // 1,401 bytes
        {0, 0, 5, 17},        // after Run numbering starts again
    };
    const struct {
        int fec;
        long checksum;
    } modes[] = {{0, 0}, {8, 1}, {32, 0}};
    for (const auto& mode : modes) {
        SCOPED_TRACE(mode.fec);
        Session s = Session::Next();
        Probe probe(s);
        ASSERT_EQ(S_OK, caster_->CreateSession(Session::Local(), s.Group(), s.port, mode.fec,
                                               mode.checksum));
        ASSERT_EQ(S_OK, caster_->Run());
        std::vector<std::vector<uint8_t>> packets;
        for (size_t length : {3000, 0, 1, 1400, 1401}) {
            packets.push_back(Bytes(length, static_cast<uint32_t>(length)));
            Send(packets.back());
        }
        ASSERT_EQ(S_OK, caster_->Run());
        packets.push_back(Bytes(5, 5));
        Send(packets.back());
        ASSERT_EQ(S_OK, casterSink_->Flush());

        ASSERT_TRUE(WaitUntil([&] { return probe.Fragments().size() >= expected.size(); }));
        Sleep(100);
        const auto heard = probe.Fragments();
        ASSERT_EQ(expected.size(), heard.size());
        const int packetOf[] = {0, 0, 0, 2, 3, 4, 4, 5};
        for (size_t i = 0; i < heard.size(); ++i) {
            SCOPED_TRACE(i);
            const auto& h = heard[i];
            EXPECT_EQ(expected[i].message, h.header.messageNumber);
            EXPECT_EQ(expected[i].offset, h.header.offset);
            EXPECT_EQ(expected[i].total, h.header.totalLength);
            ASSERT_EQ(expected[i].length, h.bytes.size());
            const auto& p = packets[packetOf[i]];
            EXPECT_TRUE(
                std::equal(h.bytes.begin() + 12, h.bytes.end(), p.begin() + h.header.offset));
        }
        ASSERT_EQ(S_OK, caster_->DestroySession());
    }
}

// The pause follows the correction count (2, 4, 6, 8, 10 ms per step of 8) and comes after
// every eighth datagram since Run, repair datagrams included. Only lower bounds: a loaded
// machine may sleep longer, never shorter.
TEST_F(CastTest, SendingPausesAfterEveryEighthDatagram) {
    const struct {
        int fec;
        size_t fragments;
        size_t datagrams;
        double minMs;
    } cases[] = {
        {0, 64, 64, 8 * 2.0},  {7, 25, 25 + 7, 4 * 2.0}, {8, 32, 40, 5 * 4.0},
        {16, 32, 48, 6 * 6.0}, {24, 32, 56, 7 * 8.0},    {32, 32, 64, 8 * 10.0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fec);
        Session s = Session::Next();
        Probe probe(s);
        ASSERT_EQ(S_OK, caster_->CreateSession(Session::Local(), s.Group(), s.port, c.fec, FALSE));
        ASSERT_EQ(S_OK, caster_->Run());
        const auto packet = Bytes(c.fragments * 1400, 3);
        const double start = Seconds();
        Send(packet);
        ASSERT_EQ(S_OK, casterSink_->Flush());
        const double ms = 1000.0 * (Seconds() - start);
        EXPECT_GE(ms, c.minMs - 1.0);
        EXPECT_TRUE(WaitUntil([&] { return probe.Datagrams() >= c.datagrams; }));
        Sleep(50);
        EXPECT_EQ(c.datagrams, probe.Datagrams());
        EXPECT_EQ(c.fragments, probe.Fragments().size());
        ASSERT_EQ(S_OK, caster_->DestroySession());
    }
}

// Packets of every size up to the largest, the empty one using up a message number.
TEST_F(CastTest, ReceiverDeliversEveryPacketWholeInOrder) {
    const struct {
        int fec;
        long checksum;
    } modes[] = {{0, 0}, {8, 1}};
    for (const auto& mode : modes) {
        SCOPED_TRACE(mode.fec);
        Session s = Session::Next();
        ComPtr<IDesktopReceiver> receiver;
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopReceiver, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopReceiver, receiver.PutVoid()));
        FakeSink sink("student");
        ASSERT_EQ(S_OK, receiver->JoinSession(Session::Local(), s.Group(), s.port));
        ASSERT_EQ(S_OK, receiver->RegisterDataTransmitter(&sink));
        ASSERT_EQ(S_OK, receiver->Run());
        ASSERT_EQ(S_OK, caster_->CreateSession(Session::Local(), s.Group(), s.port, mode.fec,
                                               mode.checksum));
        ASSERT_EQ(S_OK, caster_->Run());
        std::vector<std::vector<uint8_t>> sent;
        uint32_t seed = 1;
        for (size_t length : {12, 1400, 1401, 0, 3000, 100000, 0x180000, 13}) {
            const auto packet = Bytes(length, seed++);
            Send(packet);
            if (length)
                sent.push_back(packet);
        }
        ASSERT_EQ(S_OK, casterSink_->Flush());
        EXPECT_TRUE(WaitUntil([&] { return sink.PacketCount() >= sent.size(); }))
            << sink.PacketCount() << " packets arrived";
        const auto got = sink.Packets();
        EXPECT_EQ(S_OK, receiver->Stop());
        EXPECT_EQ(S_OK, receiver->LeaveSession());
        EXPECT_EQ(S_OK, receiver->UnregisterDataTransmitter(&sink));
        EXPECT_EQ(S_OK, caster_->DestroySession());
        EXPECT_EQ(std::vector<std::string>(), sink.Faults());
        ASSERT_EQ(sent.size(), got.size());
        for (size_t i = 0; i < sent.size(); ++i) {
            EXPECT_EQ(sent[i].size(), got[i].cbData) << "packet " << i;
            EXPECT_TRUE(sent[i] == got[i].bytes) << "packet " << i;
            EXPECT_EQ(FALSE, got[i].bAsync);
        }
    }
}

TEST_F(CastTest, SourceFilterAdmitsOnlyItsSourceUntilTheNextJoin) {
    const ULONG loopback = inet_addr("127.0.0.1");
    const struct {
        ULONG filter;
        bool rejoin;  // JoinSession after SetSourceFilter clears the filter
        bool arrives;
    } cases[] = {{0, false, true}, {loopback, false, true}, {7, false, false}, {7, true, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.filter);
        SCOPED_TRACE(c.rejoin);
        Session s = Session::Next();
        ComPtr<IDesktopReceiver> receiver;
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopReceiver, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopReceiver, receiver.PutVoid()));
        FakeSink sink("filtered");
        ASSERT_EQ(S_OK, receiver->JoinSession(Session::Local(), s.Group(), s.port));
        ASSERT_EQ(S_OK, receiver->SetSourceFilter(c.filter));
        if (c.rejoin) {
            ASSERT_EQ(S_OK, receiver->JoinSession(Session::Local(), s.Group(), s.port));
        }
        ASSERT_EQ(S_OK, receiver->RegisterDataTransmitter(&sink));
        ASSERT_EQ(S_OK, receiver->Run());
        ASSERT_EQ(S_OK, caster_->CreateSession(Session::Local(), s.Group(), s.port, 0, 0));
        for (int i = 0; i < 3; ++i)
            Send(Bytes(2000, i));
        if (c.arrives) {
            EXPECT_TRUE(WaitUntil([&] { return sink.PacketCount() == 3; }));
        } else {
            Sleep(500);
        }
        EXPECT_EQ(c.arrives ? 3u : 0u, sink.PacketCount());
        EXPECT_EQ(S_OK, receiver->Stop());
        EXPECT_EQ(S_OK, receiver->LeaveSession());
        EXPECT_EQ(S_OK, receiver->UnregisterDataTransmitter(&sink));
        EXPECT_EQ(0, sink.Refs());
        EXPECT_EQ(S_OK, caster_->DestroySession());
    }
}

// Stop waits for a sink inside Transfer; once it has returned no sink is called, whatever
// arrives. A second Run starts over.
TEST_F(CastTest, StopWaitsForTheReceiversThreadAndNoSinkIsCalledAfterIt) {
    Connect(0, 0);
    sink_.HoldTransfers();
    Send(Bytes(5000, 1));
    ASSERT_TRUE(sink_.WaitHeld(10000));
    Send(Bytes(5000, 2));  // queued behind the held one

    HANDLE stopped = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::thread stopper([&] {
        receiver_->Stop();
        SetEvent(stopped);
    });
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(stopped, 300)) << "Stop did not wait for the sink";
    sink_.Unblock();
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(stopped, 10000));
    stopper.join();
    CloseHandle(stopped);
    const size_t atStop = sink_.PacketCount();
    EXPECT_LE(atStop, 2u);
    EXPECT_FALSE(sink_.InCall());

    Send(Bytes(5000, 3));
    Sleep(400);
    EXPECT_EQ(atStop, sink_.PacketCount()) << "a sink was called after Stop returned";
    EXPECT_EQ(S_OK, receiver_->Stop()) << "a second Stop";

    // What the socket held meanwhile may come after the next Run; the new packet must.
    ASSERT_EQ(S_OK, receiver_->Run());
    const auto again = Bytes(4000, 4);
    Send(again);
    EXPECT_TRUE(WaitUntil([&] { return again == sink_.Packets().back().bytes; }));
}

// Datagrams that no caster of this session made, oversized ones and damaged copies of real ones
// are dropped on the way; the packets around them arrive whole.
TEST_F(CastTest, ForeignOversizedAndDamagedDatagramsAreDropped) {
    Connect(0, TRUE);
    ComPtr<IMulticastSender> raw;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_MulticastSender, nullptr, CLSCTX_INPROC_SERVER,
                                     IID_IMulticastSender, raw.PutVoid()));
    ASSERT_EQ(S_OK, raw->Open(kLocal, session_.group.c_str(), session_.port));
    // A coder of our own makes real datagrams to damage.
    ComPtr<IFecCoder> coder;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_FecCoder, nullptr, CLSCTX_INPROC_SERVER, IID_IFecCoder,
                                     coder.PutVoid()));
    ASSERT_EQ(S_OK, coder->Configure(32, 0, 1412));
    ASSERT_EQ(S_OK, coder->SetChecksum(TRUE));

    const auto first = Bytes(2500, 1), second = Bytes(700, 2);
    Send(first);
    uint8_t fragment[1412];
    cast::WriteFragmentHeader(fragment, cast::FragmentHeader{1000, 0, 1400});
    memcpy(fragment + 12, Bytes(1400, 3).data(), 1400);
    FecBuffer list[33];
    LONG count = 0;
    ASSERT_EQ(S_OK, coder->Encode(fragment, sizeof fragment, list, &count));
    ASSERT_EQ(1, count);
    const std::vector<uint8_t> real(list[0].pbData, list[0].pbData + list[0].cbData);

    std::vector<std::vector<uint8_t>> junk = {
        {},
        {0x42},
        Bytes(100, 4),
        Bytes(1501, 5),
        Bytes(4000, 6),
        Bytes(1500, 7),
        std::vector<uint8_t>(real.begin(), real.begin() + real.size() / 2),  // truncated
    };
    for (size_t bit : {0u, 40u, 200u, 8u * 700u}) {  // bit flips in header and body
        auto flipped = real;
        flipped[bit / 8 % flipped.size()] ^= static_cast<uint8_t>(1u << (bit % 8));
        junk.push_back(flipped);
    }
    for (const auto& j : junk)
        raw->Send(j.data(), static_cast<USHORT>(j.size()));
    Send(second);
    ASSERT_TRUE(WaitUntil([&] { return sink_.PacketCount() >= 2; }));
    Sleep(300);
    const auto got = sink_.Packets();
    ASSERT_EQ(2u, got.size());
    EXPECT_TRUE(first == got[0].bytes);
    EXPECT_TRUE(second == got[1].bytes);
    raw->Close();
}

// A lossy link between caster and receiver: the relay drops 5 % of the datagrams; with 8
// correction datagrams per group the coder restores them and every packet arrives whole. Each
// packet is a burst of its own, flushed as a source flushes at the end of a burst: the coder
// hands a restored fragment on only once its group's correction datagrams are in, and a
// fragment of the next packet arriving before that would make the receiver give the packet up.
TEST_F(CastTest, ThroughTheRelayAtFivePercentLossEveryPacketArrivesWithFec8) {
    Session upstream = Session::Next(), relayed = Session::Next();
    RelayProcess relay(upstream.group + ":" + std::to_string(upstream.port),
                       relayed.group + ":" + std::to_string(relayed.port), RelayRates{5, 0, 0, 7});
    ASSERT_TRUE(relay.Started());
    ASSERT_EQ(S_OK, receiver_->JoinSession(Session::Local(), relayed.Group(), relayed.port));
    ASSERT_EQ(S_OK, receiver_->RegisterDataTransmitter(&sink_));
    ASSERT_EQ(S_OK, receiver_->Run());
    ASSERT_EQ(S_OK,
              caster_->CreateSession(Session::Local(), upstream.Group(), upstream.port, 8, TRUE));
    ASSERT_EQ(S_OK, caster_->Run());

    std::vector<std::vector<uint8_t>> sent;
    size_t fragments = 0;
    for (uint32_t i = 0; i < 120; ++i) {
        const size_t length = 200 + (i * 7919) % 9000;  // 1 to 7 fragments
        sent.push_back(Bytes(length, i + 100));
        fragments += (length + 1399) / 1400;
        Send(sent.back());
        ASSERT_EQ(S_OK, casterSink_->Flush());
    }
    EXPECT_TRUE(WaitUntil([&] { return sink_.PacketCount() >= sent.size(); }, 20000))
        << sink_.PacketCount() << " of " << sent.size() << " packets (" << fragments
        << " fragments) arrived";
    relay.Finish();
    const auto got = sink_.Packets();
    ASSERT_EQ(sent.size(), got.size());
    for (size_t i = 0; i < sent.size(); ++i)
        EXPECT_TRUE(sent[i] == got[i].bytes) << "packet " << i;
}
