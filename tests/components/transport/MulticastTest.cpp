// MulticastSender and MulticastReceiver through CoCreateInstance over loopback multicast in the
// harness's namespace (groups 239.255.x.x on 127.0.0.1).
#include <winsock2.h>
#include <windows.h>

#include <Transport.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/ComTest.h"
#include "common/Screen.h"
#include "wincom/ComPtr.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr char kLocal[] = "127.0.0.1";
constexpr char kGroup[] = "239.255.41.1";

// What the callback saw, and whether one is running right now.
struct Collector {
    std::mutex lock;
    std::vector<Bytes> datagrams;
    std::vector<ULONG> sources;
    std::atomic<int> inside{0};
    std::atomic<int> calls{0};
    DWORD delayMs = 0;

    static LONG __cdecl Callback(void* context, ULONG source, ULONG reserved, const void* data,
                                 ULONG length) {
        auto* self = static_cast<Collector*>(context);
        self->inside++;
        EXPECT_EQ(0u, reserved);
        {
            std::lock_guard<std::mutex> hold(self->lock);
            const auto* p = static_cast<const std::uint8_t*>(data);
            self->datagrams.emplace_back(p, p + length);
            self->sources.push_back(source);
        }
        if (self->delayMs)
            Sleep(self->delayMs);
        self->calls++;
        self->inside--;
        return 0;
    }

    std::size_t Count() {
        std::lock_guard<std::mutex> hold(lock);
        return datagrams.size();
    }
    bool WaitFor(std::size_t n) {
        return vantrel::test::WaitUntil([&] { return Count() >= n; }, 5000);
    }
};

class Multicast : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_HRESULT_SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        ASSERT_TRUE(sender_ = vantrel::test::Create<IMulticastSender>(CLSID_MulticastSender));
        ASSERT_TRUE(receiver_ = vantrel::test::Create<IMulticastReceiver>(CLSID_MulticastReceiver));
    }
    void TearDown() override {
        if (receiver_)
            receiver_->Leave();
        sender_ = nullptr;
        receiver_ = nullptr;
        CoUninitialize();
    }

    static void Connect(IMulticastReceiver* receiver, IMulticastSender* sender, const char* group,
                        USHORT port, Collector* collector) {
        ASSERT_EQ(S_OK, receiver->Join(kLocal, group, port));
        ASSERT_EQ(S_OK, receiver->SetCallback(Collector::Callback, collector));
        ASSERT_EQ(S_OK, receiver->Start());
        ASSERT_EQ(S_OK, sender->Open(kLocal, group, port));
    }
    void Connect(USHORT port, Collector* collector) {
        Connect(receiver_.Get(), sender_.Get(), kGroup, port, collector);
    }

    vantrel::ComPtr<IMulticastSender> sender_;
    vantrel::ComPtr<IMulticastReceiver> receiver_;
};

Bytes Datagram(int serial, std::size_t length) {
    Bytes d(length);
    for (std::size_t i = 0; i < length; ++i)
        d[i] = static_cast<std::uint8_t>(serial * 7 + i);
    if (length >= 4)
        std::memcpy(d.data(), &serial, 4);
    return d;
}

// Two groups on one port: each receiver hears its own group only, though this machine has
// joined both (a socket bound to the port alone would hear both).
TEST_F(Multicast, DatagramsArriveWholeInOrderFromTheSenderInTheJoinedGroupOnly) {
    constexpr USHORT kPort = 41001;
    Collector mine, theirs;
    Connect(kPort, &mine);
    const auto neighbour = vantrel::test::Create<IMulticastReceiver>(CLSID_MulticastReceiver);
    const auto stranger = vantrel::test::Create<IMulticastSender>(CLSID_MulticastSender);
    ASSERT_TRUE(neighbour && stranger);
    Connect(neighbour.Get(), stranger.Get(), "239.255.41.2", kPort, &theirs);
    std::vector<Bytes> ours, others;
    const std::size_t lengths[] = {1, 13, 1412, 1438, 1500, 4, 8000, 600};
    for (int i = 0; i < 400; ++i) {
        ours.push_back(Datagram(i, lengths[i % 8]));
        ASSERT_EQ(S_OK, sender_->Send(ours.back().data(), static_cast<USHORT>(ours.back().size())));
        if (i % 8 == 7) {
            others.push_back(Datagram(1000 + i, 100));
            ASSERT_EQ(S_OK, stranger->Send(others.back().data(), 100));
            Sleep(1);
        }
    }
    ASSERT_TRUE(mine.WaitFor(ours.size())) << mine.Count();
    ASSERT_TRUE(theirs.WaitFor(others.size())) << theirs.Count();
    Sleep(100);
    ASSERT_EQ(S_OK, neighbour->Leave());
    ASSERT_EQ(S_OK, receiver_->Stop());
    EXPECT_EQ(ours, mine.datagrams);
    EXPECT_EQ(others, theirs.datagrams);
    EXPECT_EQ(std::vector<ULONG>(ours.size(), inet_addr(kLocal)), mine.sources);
}

TEST_F(Multicast, NoCallbackRunsOnceStopOrLeaveReturns) {
    for (bool leave : {false, true}) {
        Collector collector;
        collector.delayMs = 3;
        Connect(41002, &collector);
        const Bytes d = Datagram(1, 100);
        // Keep datagrams coming from another thread while Stop (or Leave) is called.
        std::atomic<bool> sending{true};
        IMulticastSender* sender = sender_.Get();
        std::thread feeder([sender, &sending] {
            const Bytes d = Datagram(2, 200);
            while (sending) {
                sender->Send(d.data(), static_cast<USHORT>(d.size()));
                Sleep(1);
            }
        });
        ASSERT_TRUE(collector.WaitFor(10));
        ASSERT_EQ(S_OK, leave ? receiver_->Leave() : receiver_->Stop());
        EXPECT_EQ(0, collector.inside.load());
        const int calls = collector.calls.load();
        Sleep(50);
        EXPECT_EQ(calls, collector.calls.load()) << "leave " << leave;
        sending = false;
        feeder.join();
        // Started again (after Leave, joined again), it delivers again.
        if (leave) {
            ASSERT_EQ(S_OK, receiver_->Join(kLocal, kGroup, 41002));
        }
        ASSERT_EQ(S_OK, receiver_->Start());
        ASSERT_EQ(S_OK, sender_->Send(d.data(), static_cast<USHORT>(d.size())));
        EXPECT_TRUE(collector.WaitFor(calls + 1));
        ASSERT_EQ(S_OK, receiver_->Leave());
    }
}

TEST_F(Multicast, ArgumentsAndOrderAreChecked) {
    const Bytes d = Datagram(1, 10);
    const std::pair<const char*, const char*> bad[] = {
        {nullptr, kGroup}, {"127.0.0", kGroup}, {kLocal, "10.0.0.1"}};  // local, group
    for (const auto& [local, group] : bad) {
        EXPECT_EQ(E_INVALIDARG, sender_->Open(local, group, 41003));
        EXPECT_EQ(E_INVALIDARG, receiver_->Join(local, group, 41003));
    }
    EXPECT_EQ(E_FAIL, sender_->Send(d.data(), 10));  // not open
    EXPECT_EQ(E_FAIL, receiver_->Start());           // not joined
    EXPECT_EQ(S_OK, receiver_->Leave());
    ASSERT_EQ(S_OK, sender_->Open(kLocal, kGroup, 41003));
    EXPECT_EQ(E_POINTER, sender_->Send(nullptr, 10));
    ASSERT_EQ(S_OK, receiver_->Join(kLocal, kGroup, 41003));
    EXPECT_EQ(S_OK, receiver_->Start());
    EXPECT_EQ(S_FALSE, receiver_->Start());  // already running
}

}  // namespace
