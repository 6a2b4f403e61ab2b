// DesktopCapture through COM on the 24-bit virtual display, as a host wires it: the decoded
// stream must match the screen at 5-5-5; full-screen requests, idle flushes, "FPS" pacing,
// pointer packets, the logo, the last Release and a thread that cannot start or wait beside it.
#include <algorithm>
#include <atomic>

#include "common/ScreenTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

RECT ScreenRect() {
    return RECT{0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
}

// Length of the whole-screen sweep that starts at arrival i: full-width frames, each beginning
// where the last ended, down to the bottom of the screen; 0 when none starts there.
size_t SweepAt(const std::vector<Arrival>& all, size_t i) {
    const RECT screen = ScreenRect();
    LONG next = 0;
    for (size_t n = i; n < all.size(); ++n) {
        const RECT& b = all[n].band;
        if (!all[n].IsFrame() || !(b == RECT{0, next, screen.right, b.bottom}) || b.bottom <= next)
            return 0;
        if ((next = b.bottom) == screen.bottom)
            return n + 1 - i;
    }
    return 0;
}

}  // namespace

TEST_F(CaptureTest, DecodedStreamFollowsAWindowThatDrawsMovesAndClosesAndEndsWithTheCorner) {
    NoiseBox box(RECT{100, 80, 340, 260}, 1);
    ASSERT_TRUE(box.Shown());
    RunAndWaitForPicture();
    EXPECT_NE(0u, SweepAt(sink_->Arrivals(), 0)) << "the first packets do not cover the screen";
    EXPECT_TRUE(Converges());
    ASSERT_TRUE(box.MoveTo(520, 410));
    EXPECT_TRUE(Converges()) << "after a move";
    ASSERT_TRUE(box.Close());
    EXPECT_TRUE(Converges()) << "after closing";

    // The last Release of a running capture stops it and leaves its sinks registered.
    capture_.Reset();
    const auto all = sink_->Arrivals();
    EXPECT_TRUE(std::all_of(all.begin(), all.end(),
                            [](const Arrival& a) { return a.IsFrame() || a.IsCursor(); }));
    ASSERT_TRUE(all.back().IsFrame());
    EXPECT_EQ((RECT{0, 0, 8, 8}), all.back().band);
    PumpFor(300);
    EXPECT_EQ(all.size(), sink_->Count()) << "packets after the last Release returned";
    EXPECT_EQ(1, sink_->Refs());
    EXPECT_EQ(0, sink_->Releases());
}

// A change made as soon as Run returns reaches the sinks: the detector's reference is taken
// when the capture registers, not later by its own thread, so a change that the first picture
// missed cannot slip into it. Repeated, as the window for the race is short.
TEST_F(CaptureTest, ChangeMadeRightAfterRunReachesTheSinks) {
    NoiseBox box(RECT{140, 120, 300, 240}, 40);
    ASSERT_TRUE(box.Shown());
    ASSERT_EQ(S_OK, capture_->RegisterDataTransmitter(sink_.get()));
    for (uint32_t run = 0; run < 4; ++run) {
        ASSERT_EQ(S_OK, capture_->Run());
        ASSERT_TRUE(box.Repaint(41 + run, 1));
        EXPECT_TRUE(Converges()) << "run " << run;
        ASSERT_EQ(S_OK, capture_->Stop());
    }
}

// A request before Run is not kept. While running, the resent bands must be exactly the
// picture the sink already holds: the window is repainted just before the request, so a resend
// that grabbed the screen would carry the new pixels ahead of the update that reports them. The
// priority reaches the running thread at once and the next one too.
TEST_F(CaptureTest, RequestFullScreenResendsTheCurrentImageWithoutGrabbing) {
    DebugOutput debug;
    EXPECT_EQ(E_FAIL, capture_->Stop());
    EXPECT_EQ(E_FAIL, capture_->SetIdleFlushTimeout(149));
    EXPECT_EQ(E_POINTER, capture_->GetCompatibleMode(nullptr));
    EXPECT_EQ(S_OK, capture_->RequestFullScreen());
    EXPECT_EQ(S_OK, capture_->SetCapturePriority(THREAD_PRIORITY_BELOW_NORMAL));
    NoiseBox box(RECT{200, 152, 456, 344}, 7);
    ASSERT_TRUE(box.Shown());
    RunAndWaitForPicture();
    EXPECT_EQ(E_FAIL, capture_->Run());
    EXPECT_EQ(THREAD_PRIORITY_BELOW_NORMAL, sink_->Arrivals().front().priority);
    ASSERT_TRUE(box.Repaint(22));
    ASSERT_TRUE(Converges());
    ASSERT_TRUE(Settle());
    EXPECT_EQ(0u, debug.Count("Request Full Screen\n")) << "a request before Run was kept";
    const size_t before = sink_->Count();

    EXPECT_EQ(S_OK, capture_->SetCapturePriority(THREAD_PRIORITY_ABOVE_NORMAL));
    ASSERT_TRUE(box.Repaint(8, 0));
    ASSERT_EQ(S_OK, capture_->RequestFullScreen());
    ASSERT_TRUE(WaitUntil([&] { return debug.Count("Request Full Screen\n") == 1; }));
    EXPECT_TRUE(Converges());
    const auto all = sink_->Arrivals();
    EXPECT_EQ(THREAD_PRIORITY_ABOVE_NORMAL, all.back().priority);
    size_t sweep = before;
    while (sweep < all.size() && !SweepAt(all, sweep))
        ++sweep;
    ASSERT_LT(sweep, all.size()) << "no resend arrived";
    const size_t end = sweep + SweepAt(all, sweep);
    bool repaintArrived = false;
    for (size_t i = before; i < all.size(); ++i) {
        const bool resent = i >= sweep && i < end;
        EXPECT_FALSE(resent && all[i].changedPicture)
            << "resent band " << all[i].band << " grabbed";
        EXPECT_TRUE(i < end || !SweepAt(all, i)) << "a second resend at " << i;
        repaintArrived = repaintArrived || (!resent && all[i].changedPicture);
    }
    EXPECT_TRUE(repaintArrived);

    EXPECT_EQ(S_OK, capture_->Stop());
    const size_t from = sink_->Count();
    ASSERT_EQ(S_OK, capture_->Run());
    ASSERT_TRUE(WaitUntil([&] { return sink_->Count() > from; }));
    EXPECT_EQ(THREAD_PRIORITY_ABOVE_NORMAL, sink_->Arrivals()[from].priority);
    EXPECT_EQ(S_OK, capture_->Stop());
    EXPECT_EQ(1u, debug.Count("Request Full Screen\n"));
}

TEST_F(CaptureTest, EverySinkIsFlushedOncePerQuietPeriodAndNotWithoutPackets) {
    constexpr DWORD kIdle = 300;
    ASSERT_EQ(S_OK, capture_->SetIdleFlushTimeout(kIdle));
    NoiseBox box(RECT{600, 100, 760, 220}, 11);
    ASSERT_TRUE(box.Shown());
    RunAndWaitForPicture();
    // Whatever the start brought (the pointer's first record) has been flushed once it is quiet.
    ASSERT_TRUE(Settle(3 * kIdle));
    const LONG idleFlushes = sink_->Flushes();
    const size_t idlePackets = sink_->Count();
    PumpFor(4 * kIdle);
    EXPECT_EQ(idlePackets, sink_->Count());
    EXPECT_EQ(idleFlushes, sink_->Flushes()) << "a flush without packets";

    const LONG flushesBefore = sink_->Flushes();
    for (uint32_t seed = 100; seed < 103; ++seed) {
        ASSERT_TRUE(box.Repaint(seed));
        PumpFor(60);
    }
    ASSERT_TRUE(WaitUntil([&] { return sink_->Flushes() > flushesBefore; }));
    PumpFor(4 * kIdle);
    const auto flushes = sink_->FlushTicks();
    ASSERT_EQ(static_cast<size_t>(flushesBefore + 1), flushes.size()) << "one flush per burst";
    DWORD lastPacket = 0;
    for (const Arrival& a : sink_->Arrivals())
        if (static_cast<LONG>(flushes.back() - a.tick) >= 0)
            lastPacket = a.tick;
    EXPECT_GE(flushes.back() - lastPacket, kIdle - 20) << "flushed before the quiet period";
}

// A 40 x 40 window repainted about 60 times a second: with "FPS" 1 at most one pass per 200 ms
// goes out, and capturing goes on (the unpaced rate is the capture bench's).
TEST_F(CaptureTest, FpsSettingBoundsThePassesPerSecond) {
    DeskPrefOverride fps("FPS", 1);
    ASSERT_TRUE(fps.Ok());
    NoiseBox box(RECT{96, 96, 136, 136}, 1);
    ASSERT_EQ(S_OK, capture_->RegisterDataTransmitter(sink_.get()));
    ASSERT_EQ(S_OK, capture_->Run());
    ASSERT_TRUE(Settle());
    const size_t from = sink_->Count();
    const DWORD start = GetTickCount();
    for (uint32_t seed = 2; GetTickCount() - start < 2000; ++seed) {
        ASSERT_TRUE(box.Repaint(seed));
        PumpFor(15);
    }
    const DWORD limit = (GetTickCount() - start) / 200 + 2;
    ASSERT_TRUE(Settle());
    ASSERT_EQ(S_OK, capture_->Stop());
    const auto all = sink_->Arrivals();
    // Less the closing block.
    const size_t passes =
        std::count_if(all.begin() + from, all.end(), [](const Arrival& a) { return a.IsFrame(); }) -
        1;
    EXPECT_LE(passes, limit) << "FPS 1 let more than one pass per 200 ms through";
    EXPECT_GE(passes, 3u) << "FPS 1 stopped capturing";
}

// The platform reports the pointer of the foreground window's thread: the window is activated.
TEST_F(CaptureTest, PointerMovesAndShapesArriveAsCursorPackets) {
    NoiseBox box(RECT{100, 100, 500, 300}, 3, true);
    box.SplitPointer();
    SetCursorPos(700, 600);
    RunAndWaitForPicture();
    // Moves the pointer and waits for a cursor packet from then on that satisfies seen.
    auto moveAndWait = [&](POINT to, const std::function<bool(const Arrival&)>& seen) {
        const size_t from = sink_->Count();
        SetCursorPos(to.x, to.y);
        return WaitUntil([&] {
            const auto all = sink_->Arrivals();
            return std::any_of(all.begin() + from, all.end(),
                               [&](const Arrival& a) { return a.IsCursor() && seen(a); });
        });
    };
    EXPECT_TRUE(moveAndWait(POINT{20, 30}, [](const Arrival& a) {
        return (a.cursor.flags & packet::kCursorNewPosition) && a.cursor.x == 20 &&
               a.cursor.y == 30;
    })) << "no position packet";

    std::vector<BYTE> shapes[2];
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(moveAndWait(POINT{i == 0 ? 150 : 450, 200},
                                [&](const Arrival& a) {
                                    shapes[i] = a.shape;
                                    return !a.shape.empty();
                                }))
            << "no shape packet over the " << (i == 0 ? "cross" : "arrow");
    EXPECT_NE(shapes[0], shapes[1]);
}

TEST_F(CaptureTest, LogoIsStampedBottomLeftFromTheNextRun) {
    const RECT screen = ScreenRect();
    constexpr int kW = 40, kH = 24;
    constexpr uint32_t kColour = 0x3060C0;
    const std::vector<uint32_t> pixels(kW * kH, kColour);
    UniqueBitmap logo(CreateBitmap(kW, kH, 1, 32, pixels.data()));
    ASSERT_TRUE(logo);
    NoiseBox corner(RECT{0, screen.bottom - 64, 96, screen.bottom}, 5);
    ASSERT_TRUE(corner.Shown());

    RunAndWaitForPicture();
    ASSERT_EQ(S_OK, capture_->SetRecordLogo(logo.get()));
    ASSERT_TRUE(corner.Repaint(6));
    EXPECT_TRUE(Converges()) << "a logo set while running showed at once";
    ASSERT_EQ(S_OK, capture_->Stop());

    ASSERT_EQ(S_OK, capture_->Run());
    ASSERT_TRUE(WaitUntil([&] { return sink_->PixelAt(0, screen.bottom - 1) == To555(kColour); }))
        << "no logo after the next Run";
    EXPECT_EQ(To555(kColour), sink_->PixelAt(kW - 1, screen.bottom - kH));
    // No logo at all stops the stamping at once.
    ASSERT_EQ(S_OK, capture_->SetRecordLogo(nullptr));
    ASSERT_TRUE(corner.Repaint(7));
    EXPECT_TRUE(Converges()) << "the logo stayed";
    // Released before the bitmap, which its image may still hold selected.
    ASSERT_EQ(S_OK, capture_->Stop());
    capture_->UnregisterDataTransmitter(sink_.get());
    capture_.Reset();
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
