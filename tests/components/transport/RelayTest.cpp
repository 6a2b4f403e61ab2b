// The whole transport as the caster and receiver use it, through the lossy relay: FecCoder
// encodes, MulticastSender sends to the relay's group, the relay drops, repeats and reorders
// with a fixed seed, MulticastReceiver hears its output and a second FecCoder decodes.
#include <winsock2.h>
#include <windows.h>

#include <Transport.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "RelayProcess.h"
#include "wincom/ComPtr.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr char kLocal[] = "127.0.0.1";

template <typename T>
vantrel::ComPtr<T> Create(REFCLSID clsid, REFIID iid) {
    vantrel::ComPtr<T> p;
    EXPECT_HRESULT_SUCCEEDED(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid,
                                              reinterpret_cast<void**>(p.Put())));
    return p;
}

// The receiving end: decodes on the transport's thread and keeps every fragment.
struct Student {
    vantrel::ComPtr<IMulticastReceiver> receiver =
        Create<IMulticastReceiver>(CLSID_MulticastReceiver, IID_IMulticastReceiver);
    vantrel::ComPtr<IFecCoder> coder = Create<IFecCoder>(CLSID_FecCoder, IID_IFecCoder);
    std::mutex lock;
    std::vector<Bytes> fragments;
    int datagrams = 0;

    static LONG __cdecl Callback(void* context, ULONG, ULONG, const void* data, ULONG length) {
        auto* self = static_cast<Student*>(context);
        FecBuffer list[33];
        LONG count = 0;
        self->coder->Decode(data, length, list, &count);
        std::lock_guard<std::mutex> hold(self->lock);
        ++self->datagrams;
        for (LONG i = 0; i < count; ++i)
            self->fragments.emplace_back(list[i].pbData, list[i].pbData + list[i].cbData);
        return 0;
    }
};

class Relay : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_HRESULT_SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    }
    void TearDown() override { CoUninitialize(); }
};

// Sends 48 packets of 8 fragments (1,412 bytes, serial numbers in front) through FEC k and
// the relay; the fragments the student got, and how many datagrams it heard.
std::vector<Bytes> RunThroughRelay(LONG k, const vantrel::test::RelayRates& rates, USHORT port,
                                   std::vector<Bytes>* sent, int* heard) {
    const std::string in = "239.255.42.1:" + std::to_string(port);
    const std::string out = "239.255.42.2:" + std::to_string(port + 1);
    vantrel::test::RelayProcess relay(in, out, rates);
    EXPECT_TRUE(relay.Started());
    Student student;
    EXPECT_EQ(S_OK, student.coder->Configure(32, 0, 1412));
    EXPECT_EQ(S_OK, student.receiver->Join(kLocal, "239.255.42.2", static_cast<USHORT>(port + 1)));
    EXPECT_EQ(S_OK, student.receiver->SetCallback(Student::Callback, &student));
    EXPECT_EQ(S_OK, student.receiver->Start());

    auto sender = Create<IMulticastSender>(CLSID_MulticastSender, IID_IMulticastSender);
    auto coder = Create<IFecCoder>(CLSID_FecCoder, IID_IFecCoder);
    EXPECT_EQ(S_OK, sender->Open(kLocal, "239.255.42.1", port));
    EXPECT_EQ(S_OK, coder->Configure(32, k, 1412));
    EXPECT_EQ(S_OK, coder->SetChecksum(TRUE));
    FecBuffer list[64];
    LONG count = 0;
    int datagrams = 0;
    auto send = [&] {
        for (LONG i = 0; i < count; ++i) {
            sender->Send(list[i].pbData, static_cast<USHORT>(list[i].cbData));
            if (++datagrams % 8 == 0)
                Sleep(2);  // the caster's pace
        }
    };
    for (int packet = 0; packet < 48; ++packet) {
        for (int f = 0; f < 8; ++f) {
            Bytes fragment(1412);
            for (std::size_t i = 0; i < fragment.size(); ++i)
                fragment[i] = static_cast<std::uint8_t>(i * 31 + packet * 7 + f);
            const int serial = packet * 8 + f;
            std::memcpy(fragment.data(), &serial, 4);
            sent->push_back(fragment);
            coder->Encode(fragment.data(), 1412, list, &count);
            send();
        }
        if (packet % 3 == 2) {  // a burst ends: the source flushes
            coder->Drain(list, &count);
            send();
        }
    }
    coder->Drain(list, &count);
    send();
    Sleep(200);
    EXPECT_EQ(0u, relay.Finish());
    Sleep(100);
    EXPECT_EQ(S_OK, student.receiver->Leave());
    *heard = student.datagrams;
    return student.fragments;
}

TEST_F(Relay, LossRepeatsAndReorderingAreRepairedOrCostOnlyWhatIsLost) {
    struct Case {
        LONG k;
        vantrel::test::RelayRates rates;
        bool whole;  // every fragment must arrive
    };
    const Case cases[] = {
        {0, {0, 0, 0, 1}, true},    // a clean link
        {8, {5, 2, 2, 11}, true},   // 5 % loss with FEC 8
        {0, {5, 2, 2, 11}, false},  // and without: losses, but nothing damaged or repeated
    };
    USHORT port = 42100;
    for (const Case& c : cases) {
        std::vector<Bytes> sent;
        int heard = 0;
        const std::vector<Bytes> got = RunThroughRelay(c.k, c.rates, port, &sent, &heard);
        port += 2;
        std::set<Bytes> unique(got.begin(), got.end());
        EXPECT_EQ(unique.size(), got.size()) << "a fragment came twice, k " << c.k;
        for (const Bytes& f : got)
            EXPECT_TRUE(std::find(sent.begin(), sent.end(), f) != sent.end()) << "damaged";
        if (c.whole) {
            EXPECT_EQ(sent.size(), got.size()) << "k " << c.k << " heard " << heard;
        } else {
            EXPECT_LT(got.size(), sent.size());
            EXPECT_GT(got.size(), sent.size() * 85 / 100);
        }
    }
}

}  // namespace
