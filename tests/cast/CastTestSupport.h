// What the casting tests share: a multicast session of their own per test (a group of
// 239.255.x.x and a port, on the loopback interface of the harness's private network), a probe
// that listens to a session through the transport component and decodes what it hears back
// into fragments, and the COM objects a host would make.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Transport.h"
#include "Vantrel.h"
#include "cast/Fragment.h"
#include "common/FakeSink.h"
#include "common/Screen.h"
#include "wincom/ChildProcess.h"
#include "wincom/ComPtr.h"
#include "wincom/CriticalSection.h"
#include "wincom/KernelObjects.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::test {

constexpr char kLocal[] = "127.0.0.1";

// A group and port that no other test process of this run uses.
struct Session {
    std::string group;
    USHORT port;
    LPSTR Group() { return &group[0]; }
    static LPSTR Local() { return const_cast<LPSTR>(kLocal); }

    static Session Next() {
        static LONG counter = 0;
        const DWORD pid = GetCurrentProcessId();
        const LONG n = InterlockedIncrement(&counter);
        return Session{
            "239.255." + std::to_string(100 + pid % 100) + "." + std::to_string(n % 250 + 1),
            static_cast<USHORT>(20000 + (pid * 7 + n) % 30000)};
    }
};

// A fragment as a receiving coder gives it back, with its header read.
struct HeardFragment {
    cast::FragmentHeader header;
    std::vector<uint8_t> bytes;  // the whole fragment
};

// Listens to a session with the transport's own receiver and a coder configured as a
// DesktopReceiver configures it; decodes on the transport's thread.
class Probe {
  public:
    explicit Probe(Session& s) {
        EXPECT_EQ(S_OK, CoCreateInstance(CLSID_MulticastReceiver, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IMulticastReceiver, transport_.PutVoid()));
        EXPECT_EQ(S_OK, CoCreateInstance(CLSID_FecCoder, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IFecCoder, coder_.PutVoid()));
        if (!transport_ || !coder_)
            return;
        coder_->Configure(32, 0, cast::kMaxFragmentSize);
        EXPECT_EQ(S_OK, transport_->Join(kLocal, s.group.c_str(), s.port));
        transport_->SetCallback(Heard, this);
        EXPECT_EQ(S_OK, transport_->Start());
    }
    ~Probe() {
        if (transport_) {
            transport_->Stop();
            transport_->Leave();
        }
    }
    std::vector<HeardFragment> Fragments() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return fragments_;
    }
    size_t Datagrams() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return datagrams_;
    }

  private:
    static LONG __cdecl Heard(void* context, ULONG, ULONG, const void* data, ULONG length) {
        auto* self = static_cast<Probe*>(context);
        std::lock_guard<CriticalSection> guard(self->lock_);
        ++self->datagrams_;
        FecBuffer list[33];
        LONG count = 0;
        self->coder_->Decode(data, length, list, &count);
        for (LONG i = 0; i < count && i < 33; ++i) {
            HeardFragment f{};
            cast::ReadFragmentHeader(list[i].pbData, list[i].cbData, &f.header);
            f.bytes.assign(list[i].pbData, list[i].pbData + list[i].cbData);
            self->fragments_.push_back(std::move(f));
        }
        return 0;
    }

    ComPtr<IMulticastReceiver> transport_;
    ComPtr<IFecCoder> coder_;
    mutable CriticalSection lock_;
    size_t datagrams_ = 0;
    std::vector<HeardFragment> fragments_;
};

// COM on the test's thread, and the two objects as a host makes them.
class CastTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopCaster, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopCaster, caster_.PutVoid()));
        ASSERT_EQ(S_OK, caster_.As(&casterSink_));
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopReceiver, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopReceiver, receiver_.PutVoid()));
    }
    void TearDown() override {
        if (receiver_) {
            receiver_->Stop();
            receiver_->LeaveSession();
            receiver_->UnregisterDataTransmitter(&sink_);
        }
        if (caster_)
            caster_->DestroySession();
        EXPECT_EQ(std::vector<std::string>(), sink_.Faults());
        casterSink_.Reset();
        caster_.Reset();
        receiver_.Reset();
        CoUninitialize();
    }
    // Caster and receiver on one session, the fake sink behind the receiver.
    void Connect(int fec, long checksum) {
        ASSERT_EQ(S_OK, receiver_->JoinSession(Session::Local(), session_.Group(), session_.port));
        ASSERT_EQ(S_OK, receiver_->RegisterDataTransmitter(&sink_));
        ASSERT_EQ(S_OK, receiver_->Run());
        ASSERT_EQ(S_OK, caster_->CreateSession(Session::Local(), session_.Group(), session_.port,
                                               fec, checksum));
        ASSERT_EQ(S_OK, caster_->Run());
    }
    void Send(const std::vector<uint8_t>& packet) {
        EXPECT_EQ(S_OK, casterSink_->Transfer(const_cast<uint8_t*>(packet.data()),
                                              static_cast<unsigned long>(packet.size()), FALSE));
    }

    Session session_ = Session::Next();
    ComPtr<IDesktopCaster> caster_;
    ComPtr<IDataTransmitter> casterSink_;
    ComPtr<IDesktopReceiver> receiver_;
    FakeSink sink_{"student"};
};

// The teacher in a second process: its DesktopCapture feeds its DesktopCaster on the session
// until Finish (or the end of the object).
class TeacherProcess {
  public:
    TeacherProcess(Session& s, int fec) {
        const std::string stop = UniqueObjectName("VantrelCastStop");
        process_.Start("cast_peer.exe",
                       "teacher " + s.group + " " + std::to_string(s.port) + " " +
                           std::to_string(fec) + " " + stop,
                       CreateNamedEvent(stop.c_str(), true, false));
    }
    bool Started() const { return process_.Started(); }
    // Stops the teacher; its exit code (0 when it ran and stopped well), or 0xFFFFFFFF.
    DWORD Finish() { return process_.Finish(30000); }

  private:
    ChildProcess process_;
};

// Deterministic bytes for packets.
inline std::vector<uint8_t> Bytes(size_t length, uint32_t seed) {
    std::vector<uint8_t> v(length);
    for (auto& b : v)
        b = static_cast<uint8_t>((seed = seed * 1664525u + 1013904223u) >> 24);
    return v;
}

}  // namespace vantrel::test
