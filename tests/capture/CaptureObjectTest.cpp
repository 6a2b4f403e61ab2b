// DesktopCapture's methods through COM: state rules, argument checks, the sink table, the
// thread priority as the delivering thread has it, and the last Release of a running capture.
#include <atomic>

#include "common/ScreenTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

// The sink table's rules are the stream tests' and, through every source, the module tests'.
TEST_F(CaptureTest, StoppedObjectRefusesStopAndBadArguments) {
    EXPECT_EQ(E_FAIL, capture_->Stop());
    EXPECT_EQ(E_FAIL, capture_->SetIdleFlushTimeout(149));
    EXPECT_EQ(S_OK, capture_->SetIdleFlushTimeout(150));
    long mode = static_cast<long>(0xdeadbeef);
    EXPECT_EQ(S_OK, capture_->SetCompatibleMode(1));
    EXPECT_EQ(S_OK, capture_->GetCompatibleMode(&mode));
    EXPECT_EQ(0, mode);
    EXPECT_EQ(E_POINTER, capture_->GetCompatibleMode(nullptr));
}

TEST_F(CaptureTest, RunOnceAtATimeWithStoredPriorityAndNoEarlyOrLateFullScreen) {
    DebugOutput debug;
    EXPECT_EQ(S_OK, capture_->RequestFullScreen());
    EXPECT_EQ(S_OK, capture_->SetCapturePriority(THREAD_PRIORITY_BELOW_NORMAL));
    NoiseBox box(RECT{300, 300, 420, 380}, 21);
    ASSERT_TRUE(box.Shown());
    RunAndWaitForPicture();
    EXPECT_EQ(E_FAIL, capture_->Run());
    EXPECT_EQ(THREAD_PRIORITY_BELOW_NORMAL, sink_->Arrivals().front().priority);

    // The second Run changed nothing: the capture goes on.
    ASSERT_TRUE(box.Repaint(22));
    EXPECT_TRUE(Converges());
    ASSERT_TRUE(Settle());
    EXPECT_EQ(0u, debug.Count("Request Full Screen\n")) << "a request before Run was kept";

    // Applied to the running thread at once.
    EXPECT_EQ(S_OK, capture_->SetCapturePriority(THREAD_PRIORITY_ABOVE_NORMAL));
    size_t from = sink_->Count();
    EXPECT_EQ(S_OK, capture_->RequestFullScreen());
    ASSERT_TRUE(WaitUntil([&] { return debug.Count("Request Full Screen\n") == 1; }));
    auto all = sink_->Arrivals();
    ASSERT_GT(all.size(), from);
    EXPECT_EQ(THREAD_PRIORITY_ABOVE_NORMAL, all.back().priority);

    EXPECT_EQ(S_OK, capture_->Stop());
    EXPECT_EQ(E_FAIL, capture_->Stop());
    from = sink_->Count();
    EXPECT_EQ(S_OK, capture_->RequestFullScreen());
    PumpFor(500);
    EXPECT_EQ(from, sink_->Count()) << "a request after Stop produced packets";

    // The stored priority goes to the next thread too.
    ASSERT_EQ(S_OK, capture_->Run());
    ASSERT_TRUE(WaitUntil([&] { return sink_->Count() > from; }));
    EXPECT_EQ(THREAD_PRIORITY_ABOVE_NORMAL, sink_->Arrivals()[from].priority);
    EXPECT_EQ(S_OK, capture_->Stop());
    EXPECT_EQ(1u, debug.Count("Request Full Screen\n"));
}

TEST_F(CaptureTest, LastReleaseWhileRunningStopsTheCaptureAndLeavesSinksRegistered) {
    RunAndWaitForPicture();
    capture_.Reset();  // the only reference
    const auto all = sink_->Arrivals();
    ASSERT_TRUE(all.back().IsFrame());
    EXPECT_EQ((RECT{0, 0, 8, 8}), all.back().band);
    PumpFor(300);
    EXPECT_EQ(all.size(), sink_->Count());
    EXPECT_EQ(1, sink_->Refs());
    EXPECT_EQ(0, sink_->Releases());
}

namespace {

// A sink that lets go of its source from inside a call on the capture thread, as a host that
// unhooks everything from a callback does: it unregisters itself and drops the only reference.
class ReleasingSink : public FakeSink {
  public:
    ReleasingSink(IDesktopCapture* capture, bool inFlush)
        : FakeSink("releasing"), capture_(capture), inFlush_(inFlush) {}
    HRESULT STDMETHODCALLTYPE Flush() noexcept override {
        const HRESULT hr = FakeSink::Flush();
        if (inFlush_)
            LetGo();
        return hr;
    }
    bool LetGoDone() const { return capture_.load() == nullptr; }

  protected:
    void Received(const void*, uint32_t) noexcept override {
        if (!inFlush_)
            LetGo();
    }

  private:
    void LetGo() {
        if (IDesktopCapture* capture = capture_.exchange(nullptr)) {
            capture->UnregisterDataTransmitter(this);
            capture->Release();
        }
    }
    std::atomic<IDesktopCapture*> capture_;
    const bool inFlush_;
};

}  // namespace

TEST_F(CaptureTest, LastReleaseInsideTransferOrFlushEndsTheThreadAndLetsTheModuleGo) {
    capture_.Reset();
    for (const bool inFlush : {false, true}) {
        SCOPED_TRACE(inFlush ? "inside Flush" : "inside Transfer");
        ComPtr<IDesktopCapture> capture;
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopCapture, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopCapture, capture.PutVoid()));
        ASSERT_TRUE(GetModuleHandleA("Vantrel.dll"));
        ReleasingSink sink(capture.Get(), inFlush);
        ASSERT_EQ(S_OK, capture->RegisterDataTransmitter(&sink));
        ASSERT_EQ(S_OK, capture->SetIdleFlushTimeout(150));
        ASSERT_EQ(S_OK, capture->Run());
        static_cast<void>(capture.Detach());  // from here the reference is the sink's
        ASSERT_TRUE(WaitUntil([&] { return sink.LetGoDone(); }));
        // The thread frees what the object left it and gives the module back as it ends.
        EXPECT_TRUE(WaitUntil([] {
            CoFreeUnusedLibrariesEx(0, 0);
            return GetModuleHandleA("Vantrel.dll") == nullptr;
        })) << "Vantrel.dll stays loaded";
        EXPECT_EQ(0, sink.Refs());
        EXPECT_EQ(std::vector<std::string>(), sink.Faults());
    }
}

// The hook library closing its events under a running capture makes every wait fail at once;
// the thread must end with a message instead of spinning, and Stop and the next Run still work.
TEST_F(CaptureTest, FailedWaitEndsTheThreadWithAMessage) {
    DebugOutput debug;
    RunAndWaitForPicture();
    using DoneCapture = BOOL(WINAPI*)();
    const auto done = reinterpret_cast<DoneCapture>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("Pavlex.dll"), "DispDoneCapture")));
    ASSERT_TRUE(done);
    ASSERT_TRUE(done());
    EXPECT_TRUE(WaitUntil([&] { return debug.Count("capture wait failed\n") == 1; }));
    PumpFor(300);
    EXPECT_EQ(1u, debug.Count("capture wait failed\n"));
    EXPECT_EQ(S_OK, capture_->Stop());

    const size_t before = sink_->Count();
    ASSERT_EQ(S_OK, capture_->Run());
    EXPECT_TRUE(WaitUntil([&] { return sink_->Count() > before; })) << "no capture after it";
    EXPECT_EQ(S_OK, capture_->Stop());
}

// The change detector serves one capture per process: a second one fails its thread's start-up,
// which leaves it running without packets until Stop, and must not disturb the first.
TEST_F(CaptureTest, CaptureWhoseThreadCannotStartSendsNothingStopsAndSparesTheOther) {
    NoiseBox box(RECT{300, 200, 420, 300}, 31);
    ASSERT_TRUE(box.Shown());
    RunAndWaitForPicture();
    ComPtr<IDesktopCapture> second;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopCapture, nullptr, CLSCTX_INPROC_SERVER,
                                     IID_IDesktopCapture, second.PutVoid()));
    FakeSink idle("idle");
    ASSERT_EQ(S_OK, second->RegisterDataTransmitter(&idle));
    ASSERT_EQ(S_OK, second->Run());
    PumpFor(500);
    EXPECT_EQ(S_OK, second->Stop());
    EXPECT_EQ(E_FAIL, second->Stop());
    EXPECT_EQ(0u, idle.PacketCount());
    EXPECT_EQ(S_OK, second->UnregisterDataTransmitter(&idle));

    ASSERT_TRUE(box.Repaint(32));
    EXPECT_TRUE(Converges());
}
