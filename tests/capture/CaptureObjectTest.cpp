// DesktopCapture's life through COM: the last Release from inside a sink's call, a capture
// whose thread cannot start, and a thread whose waits fail.
#include <atomic>

#include "common/ScreenTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

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
        ComPtr<IDesktopCapture> capture = Create<IDesktopCapture>(CLSID_DesktopCapture);
        ASSERT_TRUE(capture);
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

// The change detector serves one capture per process: a second one fails its thread's start-up,
// which leaves it running without packets until Stop, and must not disturb the first. The hook
// library closing its events under a running capture makes every wait fail at once; the thread
// must end with a message instead of spinning, and Stop and the next Run still work.
TEST_F(CaptureTest, CaptureWhoseThreadCannotStartOrWhoseWaitFailsEndsQuietly) {
    NoiseBox box(RECT{300, 200, 420, 300}, 31);
    ASSERT_TRUE(box.Shown());
    RunAndWaitForPicture();
    const auto second = Create<IDesktopCapture>(CLSID_DesktopCapture);
    ASSERT_TRUE(second);
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

    DebugOutput debug;
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
