// DesktopReader through COM: validation on Open, the state rules, paced delivery at two speed
// factors, the idle flush, a held factor, full-screen requests, damaged records, and the last
// Release of a playing reader.
#include <algorithm>

#include "RecordTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

// The tests read times with GetTickCount, which may advance in steps this large; the reader
// paces by a finer clock.
constexpr int kTickStep = 16;

// A reader with a lesson file, a sink and a notify window, made as a host makes them.
class ReaderTest : public RecordTest {
  protected:
    void SetUp() override {
        RecordTest::SetUp();
        reader_ = NewReader();
        ASSERT_TRUE(reader_);
        ASSERT_EQ(S_OK, reader_->SetNotifyWindow(notify_.Handle(), kNotifyMessage, 5));
    }
    void TearDown() override {
        reader_->Stop();
        while (!registered_.empty())
            Forget(registered_.back());
        reader_->UnregisterFrameBuffer();
        reader_->Close();
        reader_.Reset();
        RecordTest::TearDown();
    }
    void Load(const Bytes& lesson) {
        reader_->Close();
        ASSERT_TRUE(file_.Write(lesson));
        ASSERT_EQ(S_OK, reader_->Open(file_.Name()));
    }
    void Register(FakeSink* sink) {
        ASSERT_EQ(S_OK, reader_->RegisterDataTransmitter(sink));
        registered_.push_back(sink);
    }
    // Stopped, unregistered and checked before the sink goes.
    void Forget(FakeSink* sink) {
        reader_->Stop();
        EXPECT_EQ(S_OK, reader_->UnregisterDataTransmitter(sink));
        EXPECT_EQ(std::vector<std::string>(), sink->Faults()) << sink->Name();
        EXPECT_EQ(0, sink->Refs()) << sink->Name();
        registered_.erase(std::find(registered_.begin(), registered_.end(), sink));
    }
    // Runs and waits for the first notification; its tick, or 0.
    DWORD RunToTheEnd(DWORD* started) {
        notify_.Clear();
        *started = GetTickCount();
        EXPECT_EQ(S_OK, reader_->Run());
        if (!WaitUntil([&] { return !notify_.Notes().empty(); }, kPatience, 2))
            return 0;
        return notify_.Notes().front().tick;
    }
    DWORD Position() {
        unsigned long p = 0xdeadbeef;
        EXPECT_EQ(S_OK, reader_->GetCurrentPosition(&p));
        return p;
    }

    TempFile file_{"play"};
    NotifyWindow notify_{kNotifyMessage};
    ComPtr<IDesktopReader> reader_;
    // Sinks outlive the reader's registrations: TearDown unregisters what a test left.
    FakeSink sink_{"sink"}, second_{"second"};
    FakeRender render_;
    std::vector<FakeSink*> registered_;
};

}  // namespace

TEST_F(ReaderTest, OpenValidatesAndStateRulesHoldWithoutPlayback) {
    const Bytes good = Lesson({Record(0), Record(10)}, 1234);
    Bytes badMagic = good;
    badMagic[3] = 's';
    // (The header checks themselves: the lesson format tests.)
    const Bytes refused[] = {badMagic, Lesson({Record(0)}, 0, 12)};
    for (const Bytes& bytes : refused) {
        SCOPED_TRACE(bytes.size());
        ASSERT_TRUE(file_.Write(bytes));
        EXPECT_EQ(E_FAIL, reader_->Open(file_.Name()));
        EXPECT_EQ(E_FAIL, reader_->Run()) << "no file is open";
    }
    TempFile missing("missing");
    EXPECT_EQ(E_FAIL, reader_->Open(missing.Name()));
    EXPECT_EQ(E_FAIL, reader_->Stop());
    Load(good);
    unsigned long duration = 0xdeadbeef;
    EXPECT_EQ(S_OK, reader_->GetDuration(&duration));
    EXPECT_EQ(1234u, duration);
    EXPECT_EQ(E_POINTER, reader_->GetDuration(nullptr));
    EXPECT_EQ(E_FAIL, reader_->Pause());

    EXPECT_EQ(E_FAIL, reader_->SetCurrentPosition(1));
    EXPECT_EQ(0u, Position());
    EXPECT_EQ(E_FAIL, reader_->SetIdleFlushTimeout(249));
    EXPECT_EQ(S_OK, reader_->SetIdleFlushTimeout(250));

    // One frame buffer at a time, with a reference; also one that does not answer for IUnknown.
    for (bool identity : {true, false}) {
        FakeRender render(identity);
        EXPECT_EQ(E_POINTER, reader_->RegisterFrameBuffer(nullptr));
        EXPECT_EQ(S_OK, reader_->RegisterFrameBuffer(render.AsFrameBuffer()));
        EXPECT_EQ(1, render.Refs());
        EXPECT_EQ(E_FAIL, reader_->RegisterFrameBuffer(render.AsFrameBuffer()));
        EXPECT_EQ(S_OK, reader_->UnregisterFrameBuffer());
        EXPECT_EQ(S_OK, reader_->UnregisterFrameBuffer());
        EXPECT_EQ(0, render.Refs());
        EXPECT_EQ(std::vector<std::string>(), render.Faults());
    }
}

// Records at 0, 400 and 1400 of a 1450 ms recording: each goes out once the position has passed
// its time and the end is told at the duration, f times sooner at factor f. With an idle flush
// timeout of 500 (the default) the gap of 1000 ms flushes every sink once, right after the record
// before it, and the gap of 400 ms does not; a timeout of 1000 flushes neither.
TEST_F(ReaderTest, RecordsComeAtTheirTimesDividedByTheFactorAndIdleGapsFlush) {
    const std::vector<Bytes> records = {Record(0), Record(400, 200, kHruc), Record(1400, 90)};
    Load(Lesson(records, 1450));
    Register(&sink_);
    Register(&second_);
    for (DWORD factor : {1ul, 4ul}) {
        SCOPED_TRACE(factor);
        EXPECT_EQ(factor == 1 ? S_FALSE : S_OK, reader_->SetSpeedFactor(factor));
        ASSERT_EQ(S_OK, reader_->SetIdleFlushTimeout(factor == 1 ? 500 : 1000));
        const size_t before = sink_.PacketCount(), flushesBefore = sink_.FlushTicks().size();
        DWORD started = 0;
        const DWORD end = RunToTheEnd(&started);
        ASSERT_NE(0u, end) << "no end notification";
        EXPECT_EQ(1, notify_.Count(0, 0));
        const auto ticks = Ticks(sink_);
        ASSERT_EQ(before + 3, ticks.size());
        for (size_t i = 0; i < 3; ++i) {
            const int due = static_cast<int>(TimeOf(records[i]) / factor);
            const int at = static_cast<int>(ticks[before + i] - started);
            EXPECT_GE(at, due - kTickStep) << "record " << i;
            EXPECT_LE(at, due + 120) << "record " << i;
        }
        EXPECT_GE(static_cast<int>(end - started), static_cast<int>(1450 / factor) - kTickStep);
        EXPECT_LE(static_cast<int>(end - started), static_cast<int>(1450 / factor) + 150);
        EXPECT_GE(Position(), 1450u);
        const auto received = Received(sink_);
        EXPECT_EQ(records, std::vector<Bytes>(received.begin() + before, received.end()));
        const auto flushes = sink_.FlushTicks();
        ASSERT_EQ(flushesBefore + (factor == 1), flushes.size());
        EXPECT_EQ(flushes.size(), second_.FlushTicks().size());
        if (factor == 1) {
            EXPECT_GE(flushes.back(), ticks[before + 1]);
            EXPECT_LE(flushes.back() - ticks[before + 1], 30u);
        }
        // Ended by itself: Run refuses until Stop, which starts over.
        EXPECT_EQ(E_FAIL, reader_->Run());
        EXPECT_EQ(S_OK, reader_->Stop());
        EXPECT_EQ(0u, Position());
        EXPECT_EQ(1u, notify_.Notes().size());
    }
}

// A speed factor of 0 holds playback until another factor is set. (Pause freezing the
// position: the player's keys in the host tests.)
TEST_F(ReaderTest, FactorZeroHoldsThePosition) {
    Load(Lesson({Record(0), Record(1200)}, 1300));
    Register(&sink_);
    ASSERT_EQ(S_OK, reader_->Run());
    ASSERT_TRUE(WaitUntil([&] { return sink_.PacketCount() == 1; }));
    ASSERT_EQ(S_OK, reader_->SetSpeedFactor(0));
    PumpFor(60);
    const DWORD held = Position();
    PumpFor(700);
    EXPECT_EQ(held, Position());
    EXPECT_EQ(1u, sink_.PacketCount());
    ASSERT_EQ(S_OK, reader_->SetSpeedFactor(4));
    ASSERT_TRUE(WaitUntil([&] { return sink_.PacketCount() == 2; }));
}

// Full-screen requests are served from the registered frame buffer to every sink but the frame
// buffer's own object, which is recognised by identity (its IDataTransmitter pointer differs);
// a request made before Run waits for it; without a frame buffer the request is dropped.
TEST_F(ReaderTest, FullScreenPicturesSkipTheFrameBuffersOwnSink) {
    const std::vector<Bytes> records = {Record(0), Record(700)};
    const std::vector<Bytes> pictures = {Record(0xAAAA, 300), Record(0xBBBB, 40),
                                         Record(0xCCCC, 1000)};
    Load(Lesson(records, 800));
    FakeRender& render = render_;
    render.pictures = pictures;
    ASSERT_NE(static_cast<void*>(render.AsFrameBuffer()),
              static_cast<void*>(static_cast<IDataTransmitter*>(&render)));
    Register(&render);
    Register(&sink_);
    ASSERT_EQ(S_OK, reader_->RegisterFrameBuffer(render.AsFrameBuffer()));
    ASSERT_EQ(S_OK, reader_->RequestFullScreen());
    PumpFor(100);
    EXPECT_TRUE(render.Firsts().empty()) << "served before Run";

    ASSERT_EQ(S_OK, reader_->Run());
    ASSERT_TRUE(WaitUntil([&] { return sink_.PacketCount() == 4; }));
    EXPECT_EQ((std::vector<long>{TRUE, FALSE, FALSE, FALSE}), render.Firsts());
    EXPECT_EQ((std::vector<Bytes>{pictures[0], pictures[1], pictures[2], records[0]}),
              Received(sink_));
    ASSERT_EQ(S_OK, reader_->RequestFullScreen());
    ASSERT_TRUE(WaitUntil([&] { return notify_.Notes().size() == 1; }));
    EXPECT_EQ(8u, sink_.PacketCount());
    EXPECT_EQ(records, Received(render));
    ASSERT_EQ(S_OK, reader_->Stop());

    // No frame buffer: the request goes, nothing is sent.
    ASSERT_EQ(S_OK, reader_->UnregisterFrameBuffer());
    EXPECT_EQ(S_OK, reader_->RequestFullScreen());
    const size_t before = sink_.PacketCount();
    DWORD started = 0;
    ASSERT_NE(0u, RunToTheEnd(&started));
    EXPECT_EQ(before + 2, sink_.PacketCount());
    EXPECT_EQ(8u, render.Firsts().size());
}

// A record that no player could hold ends playback silently; a record shorter than its own head
// or one that runs past the end of the file is a file error (wParam 1); fewer than 12 bytes after
// the last record are the end of the recording (wParam 0), told at the duration.
TEST_F(ReaderTest, DamagedRecordsEndPlaybackWithTheirNotification) {
    Bytes trailing = Lesson({Record(0), Record(50)}, 300, 12 + 2 * 64 + 5);
    trailing.insert(trailing.end(), {1, 2, 3, 4, 5});
    const struct {
        const char* name;
        Bytes file;
        size_t delivered;
        int note;  // wParam, -1: none
    } cases[] = {
        {"too long", Lesson({Record(0), WithLength(Record(50), 0x180001), Record(60)}, 300), 1, -1},
        {"too short", Lesson({Record(0), WithLength(Record(50), 8), Record(60)}, 300), 1, 1},
        {"trailing bytes", trailing, 2, 0},
    };
    Register(&sink_);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const size_t before = sink_.PacketCount();
        notify_.Clear();
        Load(c.file);
        const DWORD started = GetTickCount();
        ASSERT_EQ(S_OK, reader_->Run());
        PumpFor(600);
        EXPECT_EQ(c.delivered, sink_.PacketCount() - before);
        ASSERT_EQ(c.note < 0 ? 0u : 1u, notify_.Notes().size());
        if (c.note >= 0) {
            EXPECT_EQ(1, notify_.Count(static_cast<WPARAM>(c.note), 0));
            if (c.note == 0) {
                EXPECT_GE(notify_.Notes()[0].tick - started, 300u);
            }
        }
        EXPECT_EQ(E_FAIL, reader_->Run()) << "ended by itself: playing until Stop";
        EXPECT_EQ(S_OK, reader_->Stop());
    }
}

// Close during playback ends it first, as Stop would; so does the last Release, before the
// object goes. The sinks keep the references the host did not unregister.
TEST_F(ReaderTest, CloseOrLastReleaseWhilePlayingEndsPlayback) {
    const Bytes lesson = Lesson({Record(0), Record(300), Record(5000)}, 6000);
    Load(lesson);
    Register(&sink_);
    ASSERT_EQ(S_OK, reader_->Run());
    ASSERT_TRUE(WaitUntil([&] { return sink_.PacketCount() == 1; }));
    EXPECT_EQ(S_OK, reader_->Close());
    EXPECT_EQ(E_FAIL, reader_->Stop()) << "not playing any more";
    EXPECT_EQ(E_FAIL, reader_->Run()) << "no file";
    EXPECT_EQ(0u, Position());
    PumpFor(400);
    EXPECT_EQ(1u, sink_.PacketCount()) << "the record at 300 ms stayed in the file";

    Load(lesson);
    FakeSink kept("kept");
    ASSERT_EQ(S_OK, reader_->RegisterDataTransmitter(&kept));
    ASSERT_EQ(S_OK, reader_->Run());
    ASSERT_TRUE(WaitUntil([&] { return kept.PacketCount() == 2; }));
    Forget(&sink_);
    const DWORD before = GetTickCount();
    reader_.Reset();
    EXPECT_LT(GetTickCount() - before, 500u);
    PumpFor(200);
    EXPECT_EQ(2u, kept.PacketCount());
    EXPECT_EQ(1, kept.Refs());
    EXPECT_FALSE(kept.InCall());
    reader_ = NewReader();  // for TearDown
}
