// DesktopCaster and DesktopReceiver made through COM as a host makes them, over recording
// stand-ins for the transport classes registered in this process. Nothing goes over the network.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CastTestSupport.h"
#include "Transport.h"
#include "Vantrel.h"
#include "common/ComTest.h"
#include "common/FakeSink.h"
#include "common/Screen.h"
#include "stream/Packet.h"
#include "wincom/ClassFactory.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/ComPtr.h"
#include "wincom/CriticalSection.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

// One stand-in for the three transport classes: it notes every call, keeps what Send was
// given, and answers `answer`. Encode and Drain report perEncode and perDrain entries
// (the fragment first), with high bits in the length words that a sender must not send. A
// datagram given to Decode is a script: fragments, each behind its 32-bit length, handed back
// as Decode's list.
class FakeTransport final : public IMulticastSender,
                            public IMulticastReceiver,
                            public IFecCoder,
                            public ComObjectRoot {
  public:
    struct State {
        CallJournal calls;
        CriticalSection lock;  // guards sent and sendMs
        std::vector<Bytes> sent;
        std::vector<double> sendMs;
        LONG perEncode = 1, perDrain = 0;
        HRESULT answer = S_OK;
        DatagramCallback callback = nullptr;
        void* context = nullptr;

        std::vector<std::string> Calls() { return calls.Entries(); }
        size_t Count(const std::string& what) {
            const auto c = Calls();
            return static_cast<size_t>(std::count(c.begin(), c.end(), what));
        }
        void Clear() {
            calls.Clear();
            std::lock_guard<CriticalSection> guard(lock);
            sent.clear();
            sendMs.clear();
        }
    };
    static State* state;

    explicit FakeTransport(IUnknown* outer) noexcept : ComObjectRoot(outer) {}
    VANTREL_COM_IUNKNOWN
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override {
        static const QITAB rows[] = {QITABENT(FakeTransport, IMulticastSender),
                                     QITABENT(FakeTransport, IMulticastReceiver),
                                     QITABENT(FakeTransport, IFecCoder),
                                     {}};
        return QISearch(this, rows, riid, ppv);
    }

    HRESULT STDMETHODCALLTYPE Open(LPCSTR a, LPCSTR g, USHORT p) noexcept override {
        return Note(std::string("Open ") + a + " " + g + " " + std::to_string(p));
    }
    HRESULT STDMETHODCALLTYPE Close() noexcept override { return Note("Close"); }
    HRESULT STDMETHODCALLTYPE Send(const void* data, USHORT length) noexcept override {
        std::lock_guard<CriticalSection> guard(state->lock);
        state->sent.emplace_back(static_cast<const BYTE*>(data),
                                 static_cast<const BYTE*>(data) + length);
        state->sendMs.push_back(Seconds() * 1000);
        return state->answer;
    }
    HRESULT STDMETHODCALLTYPE Join(LPCSTR a, LPCSTR g, USHORT p) noexcept override {
        return Note(std::string("Join ") + a + " " + g + " " + std::to_string(p));
    }
    HRESULT STDMETHODCALLTYPE Leave() noexcept override { return Note("Leave"); }
    HRESULT STDMETHODCALLTYPE Start() noexcept override { return Note("Start"); }
    HRESULT STDMETHODCALLTYPE Stop() noexcept override { return Note("Stop"); }
    HRESULT STDMETHODCALLTYPE SetCallback(DatagramCallback f, void* context) noexcept override {
        state->callback = f;
        state->context = context;
        return Note(context ? "SetCallback" : "SetCallback null");
    }
    HRESULT STDMETHODCALLTYPE Configure(LONG group, LONG fec, LONG max) noexcept override {
        return Note("Configure " + std::to_string(group) + " " + std::to_string(fec) + " " +
                    std::to_string(max));
    }
    HRESULT STDMETHODCALLTYPE Reset() noexcept override { return Note("Reset"); }
    HRESULT STDMETHODCALLTYPE SetChecksum(LONG on) noexcept override {
        return Note("SetChecksum " + std::to_string(on));
    }
    HRESULT STDMETHODCALLTYPE Encode(const void* fragment, ULONG length, FecBuffer* list,
                                     LONG* count) noexcept override {
        return List(list, *count = state->perEncode, static_cast<const BYTE*>(fragment), length);
    }
    HRESULT STDMETHODCALLTYPE Drain(FecBuffer* list, LONG* count) noexcept override {
        Note("Drain");
        return List(list, *count = state->perDrain, nullptr, 0);
    }
    HRESULT STDMETHODCALLTYPE Decode(const void* datagram, ULONG length, FecBuffer* list,
                                     LONG* count) noexcept override {
        const auto* p = static_cast<const BYTE*>(datagram);
        ULONG left = length;
        for (*count = 0; left >= 4 && *count < 33; ++*count) {
            list[*count] = {p + 4, std::min<ULONG>(packet::LoadU32(p), left - 4)};
            left -= 4 + list[*count].cbData;
            p += 4 + list[*count].cbData;
        }
        return Note("Decode " + std::to_string(length));
    }

  private:
    HRESULT Note(const std::string& call) {
        state->calls.Add(call);
        return state->answer;
    }
    HRESULT List(FecBuffer* list, LONG n, const BYTE* first, ULONG length) {
        static const BYTE kRepair[16] = {};
        for (LONG i = 0; i < n; ++i)
            list[i] = {i == 0 && first ? first : kRepair,
                       (i == 0 && first ? length : 16) | 0x30000};
        return state->answer;
    }
};
FakeTransport::State* FakeTransport::state = nullptr;

// A fragment as a caster cuts it: header of three little-endian words, then n bytes of the
// packet (Pattern(total, 1)) from offset on.
Bytes Fragment(uint32_t message, uint32_t offset, uint32_t total, uint32_t n) {
    Bytes f(12);
    packet::StoreU32(&f[0], message);
    packet::StoreU32(&f[4], offset);
    packet::StoreU32(&f[8], total);
    const Bytes packet = Pattern(std::max<size_t>(total, offset + n), 1);
    f.insert(f.end(), packet.begin() + offset, packet.begin() + offset + n);
    return f;
}

// A Decode script handing back these fragments.
Bytes Script(const std::vector<Bytes>& fragments) {
    Bytes d;
    for (const Bytes& f : fragments) {
        BYTE length[4];
        packet::StoreU32(length, static_cast<uint32_t>(f.size()));
        d.insert(d.end(), length, length + 4);
        d.insert(d.end(), f.begin(), f.end());
    }
    return d;
}

// Notes the priority of the thread that delivers.
struct PrioritySink : FakeSink {
    std::atomic<int> priority{0};
    HRESULT STDMETHODCALLTYPE Transfer(void* data, unsigned long cb, long async) noexcept override {
        priority = GetThreadPriority(GetCurrentThread());
        return FakeSink::Transfer(data, cb, async);
    }
};

class CastComponents : public ComTest {
  protected:
    void SetUp() override {
        ComTest::SetUp();
        FakeTransport::state = &recorder_;
        for (REFCLSID clsid : {CLSID_MulticastSender, CLSID_MulticastReceiver, CLSID_FecCoder}) {
            DWORD cookie = 0;
            ASSERT_EQ(S_OK, CoRegisterClassObject(clsid, factory_, CLSCTX_INPROC_SERVER,
                                                  REGCLS_MULTIPLEUSE, &cookie));
            cookies_.push_back(cookie);
        }
        caster_ = Create<IDesktopCaster>(CLSID_DesktopCaster);
        receiver_ = Create<IDesktopReceiver>(CLSID_DesktopReceiver);
        ASSERT_TRUE(caster_ && receiver_);
        ASSERT_EQ(S_OK, caster_.As(&casterSink_));
        EXPECT_EQ(std::vector<std::string>(), recorder_.Calls()) << "constructors call nothing";
    }
    void TearDown() override {
        if (receiver_) {
            receiver_->Stop();
            receiver_->UnregisterDataTransmitter(&sink_);
        }
        receiver_.Reset();
        casterSink_.Reset();
        caster_.Reset();
        EXPECT_EQ(std::vector<std::string>(), sink_.Faults());
        for (DWORD cookie : cookies_)
            CoRevokeClassObject(cookie);
        factory_->Release();
        FakeTransport::state = nullptr;
        ComTest::TearDown();
    }

    void Send(const Bytes& packet) {
        Bytes copy = packet;
        EXPECT_EQ(S_OK, casterSink_->Transfer(copy.data(), static_cast<unsigned long>(copy.size()),
                                              FALSE));
    }
    // The receiver joined, sinking into sink_, running.
    void Listen() {
        char local[] = "127.0.0.1", group[] = "239.255.7.7";
        ASSERT_EQ(S_OK, receiver_->JoinSession(local, group, 4000));
        ASSERT_EQ(S_OK, receiver_->RegisterDataTransmitter(&sink_));
        ASSERT_EQ(S_OK, receiver_->Run());
        ASSERT_TRUE(recorder_.callback && recorder_.context);
    }
    // The transport's thread hands over a datagram.
    void Deliver(const Bytes& datagram, ULONG source = 0x0100007F) {
        recorder_.callback(recorder_.context, source, 0, datagram.data(),
                           static_cast<ULONG>(datagram.size()));
    }
    // Every datagram delivered so far has been decoded and reassembled.
    void Sync(ULONG source = 0x0100007F) {
        const size_t before = recorder_.Count("Decode 0");
        Deliver({}, source);
        ASSERT_TRUE(WaitUntil([&] { return recorder_.Count("Decode 0") > before; }));
    }

    FakeTransport::State recorder_;
    ClassFactory* factory_ = new ClassFactory(&CreateComObject<FakeTransport>);
    std::vector<DWORD> cookies_;
    ComPtr<IDesktopCaster> caster_;
    ComPtr<IDataTransmitter> casterSink_;
    ComPtr<IDesktopReceiver> receiver_;
    PrioritySink sink_;
};

using Calls = std::vector<std::string>;

// The session's calls, the correction count's range and the pause it sets (2 ms per step of 8,
// plus 2) after every eighth datagram since Run, drained ones included; checked from below only.
TEST_F(CastComponents, CasterSessionConfiguresTheComponentsAndPacesTheDatagrams) {
    char local[] = "127.0.0.1", group[] = "239.255.9.9";
    for (int fec : {-1, 33})
        EXPECT_EQ(E_FAIL, caster_->CreateSession(local, group, 4321, fec, TRUE)) << fec;
    EXPECT_EQ(Calls(), recorder_.Calls()) << "a refused session calls nothing";

    recorder_.perEncode = 2;
    recorder_.perDrain = 3;
    for (int fec : {0, 7, 8, 32}) {
        SCOPED_TRACE(fec);
        recorder_.Clear();
        ASSERT_EQ(S_OK, caster_->CreateSession(local, group, 4321, fec, fec % 2));
        ASSERT_EQ(S_OK, caster_->Run());
        EXPECT_EQ((Calls{"Open 127.0.0.1 239.255.9.9 4321",
                         "Configure 32 " + std::to_string(fec) + " 1412",
                         "SetChecksum " + std::to_string(fec % 2)}),
                  recorder_.Calls());
        // 7 fragments of 2 datagrams, then 3 drained: 17 datagrams, pauses after 8 and 16.
        Send(Pattern(7 * 1400, fec + 1));
        ASSERT_EQ(S_OK, casterSink_->Flush());
        std::vector<double> at;
        {
            std::lock_guard<CriticalSection> guard(recorder_.lock);
            at = recorder_.sendMs;
        }
        ASSERT_EQ(17u, at.size());
        EXPECT_EQ(1412u, recorder_.sent[0].size()) << "the first fragment, whole";
        const double pause = (fec / 8) * 2 + 2;
        EXPECT_GE(at[8] - at[7], pause - 1) << "after the 8th";
        EXPECT_GE(at[16] - at[15], pause - 1) << "after the 16th, a drained one";
        ASSERT_EQ(S_OK, caster_->DestroySession());
        const Calls calls = recorder_.Calls();
        EXPECT_EQ((Calls{"Drain", "Close", "Reset"}), Calls(calls.end() - 3, calls.end()));
    }
    // Stop changes nothing; the components' failures are not the host's business.
    recorder_.Clear();
    EXPECT_EQ(S_OK, caster_->Stop());
    EXPECT_EQ(Calls(), recorder_.Calls());
    recorder_.answer = E_FAIL;
    EXPECT_EQ(S_OK, caster_->CreateSession(local, group, 1, 3, 0));
    Send(Pattern(100, 1));
    EXPECT_EQ(S_OK, casterSink_->Flush());
    EXPECT_EQ(S_OK, caster_->DestroySession());
    EXPECT_EQ(5u, recorder_.sent.size()) << "the coder's list is sent whatever it answers";
}

// The session's calls, and the callback's filter: 0 takes every source, any other value only
// its own; JoinSession clears it; a datagram above 1,500 bytes is dropped before the queue.
TEST_F(CastComponents, ReceiverCallsTheComponentsInOrderAndFiltersSources) {
    Listen();
    EXPECT_EQ(
        (Calls{"Join 127.0.0.1 239.255.7.7 4000", "SetCallback", "Configure 32 0 1412", "Start"}),
        recorder_.Calls());
    const Bytes packet = Script({Fragment(1, 0, 20, 20)});
    struct Case {
        ULONG filter;
        bool rejoin;
        ULONG source;
        size_t length;
        bool decoded;
    };
    const Case cases[] = {{0, false, 8, 0, true},    {7, false, 7, 0, true},
                          {7, false, 8, 0, false},   {7, true, 8, 0, true},
                          {0, false, 7, 1500, true}, {0, false, 7, 1501, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.filter << " " << c.rejoin << " " << c.source << " " << c.length);
        ASSERT_EQ(S_OK, receiver_->SetSourceFilter(c.filter));
        if (c.rejoin) {
            char local[] = "127.0.0.1", group[] = "239.255.7.7";
            ASSERT_EQ(S_OK, receiver_->JoinSession(local, group, 4000));
        }
        Bytes datagram = c.length ? Bytes(c.length, 0) : packet;
        recorder_.Clear();
        Deliver(datagram, c.source);
        Sync(c.filter && !c.rejoin ? c.filter : c.source);
        EXPECT_EQ(c.decoded ? 1u : 0u,
                  recorder_.Count("Decode " + std::to_string(datagram.size())));
    }
    EXPECT_EQ(1u, sink_.PacketCount());  // the scripted packets share one message number
    recorder_.Clear();
    ASSERT_EQ(S_OK, receiver_->Stop());
    ASSERT_EQ(S_OK, receiver_->LeaveSession());
    EXPECT_EQ((Calls{"Stop", "Reset", "Leave"}), recorder_.Calls());
}

// Reassembly by counting data bytes of the current message: a newer message gives the current
// one up, duplicates count twice. Any order and fragments that do not fit: the fragment fuzz
// target.
TEST_F(CastComponents, ReceiverReassemblesByCountingTheCurrentMessagesBytes) {
    Listen();
    struct Step {
        std::vector<Bytes> fragments;     // one datagram
        std::vector<uint32_t> delivered;  // lengths of the packets it completes
        bool restart = false;             // Stop and Run before it
    };
    struct Scenario {
        const char* name;
        std::vector<Step> steps;
    };
    const Scenario scenarios[] = {
        {"a newer message gives the half-gathered one up; a late fragment restarts it",
         {{{Fragment(4, 0, 3000, 1400)}, {}},
          {{Fragment(5, 0, 2000, 1400)}, {}},
          {{Fragment(4, 1400, 3000, 1400)}, {}},
          {{Fragment(4, 2800, 3000, 200)}, {}},
          {{Fragment(4, 0, 3000, 1400)}, {3000}}}},
        {"a repeated fragment counts twice: early, then never again",
         {{{Fragment(6, 0, 800, 400), Fragment(6, 0, 800, 400)}, {800}},
          {{Fragment(6, 400, 800, 400)}, {}}}},
        {"Run starts the count afresh",
         {{{Fragment(9, 0, 8, 4)}, {}},
          {{Fragment(9, 4, 8, 4)}, {}, true},
          {{Fragment(9, 0, 8, 4)}, {8}}}},
    };
    for (const Scenario& s : scenarios) {
        SCOPED_TRACE(s.name);
        for (size_t i = 0; i < s.steps.size(); ++i) {
            if (s.steps[i].restart) {
                ASSERT_EQ(S_OK, receiver_->Stop());
                ASSERT_EQ(S_OK, receiver_->Run());
            }
            const size_t before = sink_.PacketCount();
            Deliver(Script(s.steps[i].fragments));
            Sync();
            const auto packets = sink_.Packets();
            std::vector<uint32_t> got;
            for (size_t j = before; j < packets.size(); ++j)
                got.push_back(packets[j].cbData);
            EXPECT_EQ(s.steps[i].delivered, got) << "step " << i;
        }
        if (&s == scenarios) {  // the only one whose packet arrived whole
            const auto last = sink_.Packets().back();
            EXPECT_TRUE(last.bytes == Pattern(last.cbData, 1)) << "bytes of the packet";
            EXPECT_EQ(FALSE, last.bAsync);
            EXPECT_EQ(THREAD_PRIORITY_ABOVE_NORMAL, sink_.priority) << "the receiver's thread";
        }
    }
}

// A full queue (2,048) makes the transport's thread wait 100 ms, then drop; Stop hands out no
// filled slot and calls no sink after it returns; Run starts the queue again.
TEST_F(CastComponents, ReceiverQueueDropsWhenFullAndStopCallsNoSinkAfterIt) {
    Listen();
    sink_.HoldTransfers();
    Deliver(Script({Fragment(0, 0, 4, 4)}));
    ASSERT_TRUE(sink_.WaitHeld(10000));
    // The held slot is the receiver's; 2,047 more fill the queue.
    for (uint32_t i = 1; i < 2048; ++i)
        Deliver(Script({Fragment(i, 0, 4, 4)}));
    const double start = Seconds() * 1000;
    Deliver(Script({Fragment(5000, 0, 4, 4), Bytes(3)}));  // one more, of another length
    const double waited = Seconds() * 1000 - start;
    EXPECT_GE(waited, 95.0);
    EXPECT_LT(waited, 5000.0);
    sink_.Unblock();
    Sync();
    EXPECT_EQ(2048u, sink_.PacketCount());
    EXPECT_EQ(0u, recorder_.Count("Decode " + std::to_string(4 + 16 + 4 + 3)));

    sink_.HoldTransfers();
    Deliver(Script({Fragment(1, 0, 4, 4)}));
    ASSERT_TRUE(sink_.WaitHeld(10000));
    Deliver(Script({Fragment(2, 0, 4, 4)}));  // queued behind the held one
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
    EXPECT_EQ(2049u, sink_.PacketCount()) << "a filled slot came out of a stopped queue";
    EXPECT_FALSE(sink_.InCall());
    Deliver(Script({Fragment(3, 0, 4, 4)}));  // a late callback finds no queue
    Sleep(100);
    EXPECT_EQ(2049u, sink_.PacketCount());
    EXPECT_EQ(S_OK, receiver_->Stop());

    recorder_.Clear();
    ASSERT_EQ(S_OK, receiver_->Run());
    EXPECT_EQ((Calls{"Configure 32 0 1412", "Start"}), recorder_.Calls());
    Deliver(Script({Fragment(0, 0, 4, 4)}));
    Sync();
    EXPECT_EQ(2050u, sink_.PacketCount());
}

}  // namespace
