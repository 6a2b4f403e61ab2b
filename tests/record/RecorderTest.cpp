// DesktopRecorder through COM: the file it writes, the recording clock across Run/Stop, the
// append rules, write failures, and the file's sharing with readers.
#include "RecordTestSupport.h"
#include "lesson/LessonFile.h"

using namespace vantrel;
using namespace vantrel::test;

TEST_F(RecordTest, RecorderWritesTheHeaderOnOpenAndCloseOnlyAndRecordsOnlyWhileRunning) {
    TempFile file("new");
    auto recorder = NewRecorder();
    auto sink = SinkOf(recorder);
    unsigned long duration = 0xdeadbeef;
    EXPECT_EQ(E_FAIL, recorder->Run());
    EXPECT_EQ(E_POINTER, recorder->GetDuration(nullptr));
    char missingDir[] = "Z:\\no\\such\\folder\\x.lsn";
    EXPECT_EQ(E_FAIL, recorder->Open(missingDir, FALSE));

    ASSERT_EQ(S_OK, recorder->Open(file.Name(), FALSE));
    EXPECT_EQ(E_FAIL, recorder->Open(file.Name(), FALSE)) << "a second Open while one is open";
    ASSERT_EQ(S_OK, recorder->Close());
    EXPECT_EQ(Lesson({}, 0), file.Read());

    ASSERT_EQ(S_OK, recorder->Open(file.Name(), FALSE));
    Bytes early = Record(GetTickCount());
    EXPECT_EQ(S_FALSE, Send(sink.Get(), early));
    ASSERT_EQ(S_OK, recorder->Run());
    Bytes shortLength = WithLength(Record(GetTickCount()), 63);
    Bytes tooLong = Record(GetTickCount(), lesson::kMaxRecordLength + 1);
    Bytes headOnly = Record(GetTickCount(), 12);
    struct Broken {
        void* data;
        unsigned long size;
        HRESULT hr;
    } broken[] = {
        {nullptr, 64, E_POINTER},
        {shortLength.data(), 64, E_INVALIDARG},
        {tooLong.data(), static_cast<unsigned long>(tooLong.size()), E_INVALIDARG},
    };
    for (const Broken& b : broken)
        EXPECT_EQ(b.hr, sink->Transfer(b.data, b.size, FALSE));
    EXPECT_EQ(S_OK, Send(sink.Get(), headOnly));  // the shortest packet there is
    // Closed while recording: the header gets the time the recording has reached; the object's
    // own duration waits for Stop, and packets now fail to be written.
    Sleep(100);
    EXPECT_EQ(S_OK, recorder->Close());
    const Bytes written = file.Read();
    ASSERT_EQ(2u * 12, written.size());
    EXPECT_EQ(24u, HeaderOf(written).fileLength);
    EXPECT_GE(HeaderOf(written).duration, 80u);
    EXPECT_LT(HeaderOf(written).duration, 5000u);
    EXPECT_EQ(S_FALSE, Send(sink.Get(), early));
    EXPECT_EQ(S_OK, recorder->Stop());
    EXPECT_EQ(S_OK, recorder->GetDuration(&duration));
    EXPECT_GE(duration, HeaderOf(written).duration);
    EXPECT_EQ(E_FAIL, recorder->Run());
    EXPECT_EQ(written, file.Read());
}

// Run at T, packets stamped T+100 and T+250, Stop at T+400; the time while stopped is not
// counted; a packet stamped after the stop tick pushes the duration to its own time. The
// rewritten time stays in the caller's buffer.
TEST_F(RecordTest, RecordTimesContinueAcrossRunStopRun) {
    TempFile file("times");
    auto recorder = NewRecorder();
    auto sink = SinkOf(recorder);
    ASSERT_EQ(S_OK, recorder->Open(file.Name(), FALSE));
    ASSERT_EQ(S_OK, recorder->Run());
    const DWORD t = GetTickCount();
    Bytes a = Record(t + 100), b = Record(t + 250);
    ASSERT_EQ(S_OK, Send(sink.Get(), a));
    EXPECT_NEAR(100, static_cast<int>(TimeOf(a)), 2) << "rewritten in the caller's buffer";
    ASSERT_EQ(S_OK, Send(sink.Get(), b));
    Sleep(t + 400 - GetTickCount());
    ASSERT_EQ(S_OK, recorder->Stop());
    unsigned long first = 0;
    ASSERT_EQ(S_OK, recorder->GetDuration(&first));
    EXPECT_NEAR(400, static_cast<int>(first), 25);
    EXPECT_EQ(S_OK, recorder->Stop()) << "a second Stop";

    Sleep(300);
    ASSERT_EQ(S_OK, recorder->Run());
    Bytes c = Record(GetTickCount() + 50);
    ASSERT_EQ(S_OK, Send(sink.Get(), c));
    Sleep(200);
    ASSERT_EQ(S_OK, recorder->Stop());
    unsigned long total = 0;
    ASSERT_EQ(S_OK, recorder->GetDuration(&total));
    EXPECT_NEAR(static_cast<int>(first) + 200, static_cast<int>(total), 25);

    ASSERT_EQ(S_OK, recorder->Run());
    Bytes skewed = Record(GetTickCount() + 5000);
    ASSERT_EQ(S_OK, Send(sink.Get(), skewed));
    ASSERT_EQ(S_OK, recorder->Stop());
    ASSERT_EQ(S_OK, recorder->GetDuration(&total));
    EXPECT_EQ(TimeOf(skewed), total);
    ASSERT_EQ(S_OK, recorder->Close());

    const Bytes written = file.Read();
    EXPECT_EQ(written.size(), HeaderOf(written).fileLength);
    EXPECT_EQ(total, HeaderOf(written).duration);
    EXPECT_EQ((std::vector<Bytes>{a, b, c, skewed}), RecordsOf(written));
    EXPECT_NEAR(static_cast<int>(first) + 50, static_cast<int>(TimeOf(c)), 25);
}

// Appending: the stored duration starts the clock again, new records go after the last byte;
// the check is the header's length (not its magic); a refused file is closed untouched.
TEST_F(RecordTest, AppendRulesAndClosingRestoresTheMagic) {
    const Bytes closed = Lesson({Record(0), Record(100)}, 300);
    Bytes damagedMagic = closed;
    damagedMagic[1] = 'X';
    struct Case {
        const char* name;
        Bytes before;
        long append;
        HRESULT open;
        uint32_t duration;   // GetDuration after Open
        size_t keptRecords;  // records of the old file still there after Close
    } cases[] = {
        {"closed", closed, TRUE, S_OK, 300, 2},
        {"damaged magic", damagedMagic, TRUE, S_OK, 300, 2},
        {"empty", Bytes(), TRUE, S_OK, 0, 0},
        {"not appending empties it", closed, FALSE, S_OK, 0, 0},
        {"never closed", Lesson({Record(0), Record(100)}, 0, 12), TRUE, S_FALSE, 0, 0},
        {"length too large", Lesson({Record(0)}, 300, 1000), TRUE, S_FALSE, 0, 0},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempFile file("append");
        ASSERT_TRUE(file.Write(c.before));
        auto recorder = NewRecorder();
        auto sink = SinkOf(recorder);
        ASSERT_EQ(c.open, recorder->Open(file.Name(), c.append));
        if (c.open != S_OK) {
            EXPECT_EQ(E_FAIL, recorder->Run());
            EXPECT_EQ(E_FAIL, recorder->Close());
            EXPECT_EQ(c.before, file.Read());
            continue;
        }
        unsigned long duration = 0xdeadbeef;
        EXPECT_EQ(S_OK, recorder->GetDuration(&duration));
        EXPECT_EQ(c.duration, duration);
        ASSERT_EQ(S_OK, recorder->Run());
        Bytes added = Record(GetTickCount() + 20);
        ASSERT_EQ(S_OK, Send(sink.Get(), added));
        ASSERT_EQ(S_OK, recorder->Stop());
        ASSERT_EQ(S_OK, recorder->Close());
        const Bytes after = file.Read();
        EXPECT_EQ(lesson::HeaderCheck::Ok, lesson::CheckForPlayback(after.data(), after.size()));
        const auto records = RecordsOf(after);
        ASSERT_EQ(c.keptRecords + 1, records.size());
        EXPECT_TRUE(std::equal(records.begin(), records.end() - 1, RecordsOf(c.before).begin()));
        EXPECT_NEAR(static_cast<int>(c.duration) + 20, static_cast<int>(TimeOf(records.back())), 3);
        EXPECT_GE(HeaderOf(after).duration, TimeOf(records.back()));
    }
}

// The recorder holds its file without sharing; readers share theirs with each other.
TEST_F(RecordTest, ReaderAndRecorderExcludeEachOther) {
    TempFile file("share");
    auto recorder = NewRecorder();
    auto reader = NewReader(), another = NewReader();
    ASSERT_EQ(S_OK, recorder->Open(file.Name(), FALSE));
    EXPECT_EQ(E_FAIL, reader->Open(file.Name()));
    ASSERT_EQ(S_OK, recorder->Close());
    ASSERT_EQ(S_OK, reader->Open(file.Name()));
    ASSERT_EQ(S_OK, another->Open(file.Name()));
    EXPECT_EQ(E_FAIL, recorder->Open(file.Name(), TRUE));
    EXPECT_EQ(S_OK, reader->Close());
    EXPECT_EQ(E_FAIL, recorder->Open(file.Name(), TRUE)) << "the second reader still holds it";
    EXPECT_EQ(S_OK, another->Close());
    EXPECT_EQ(S_OK, recorder->Open(file.Name(), TRUE));
    EXPECT_EQ(S_OK, recorder->Close());
}

// A lesson that has reached the 32-bit length limit cannot take another record: every packet is
// refused with one notification (message, 0, 0) while the notify window lives, and the file
// keeps its length.
TEST_F(RecordTest, WriteFailureNotifiesOncePerPacket) {
    TempFile file("full");
    const uint64_t size = lesson::kMaxFileLength - 40;
    {
        File f;
        ASSERT_TRUE(f.Open(file.Path(), File::modeCreate | File::modeReadWrite));
        ASSERT_TRUE(f.SetLength(size));  // sparse: nothing is written but the header
        Bytes header(12);
        lesson::WriteHeader(header.data(),
                            lesson::Header{lesson::kMagic, static_cast<uint32_t>(size), 700});
        ASSERT_TRUE(f.Seek(0, File::From::Begin) && f.Write(header.data(), 12));
    }
    NotifyWindow notify(kNotifyMessage);
    auto recorder = NewRecorder();
    auto sink = SinkOf(recorder);
    ASSERT_EQ(S_OK, recorder->SetNotifyWindow(notify.Handle(), kNotifyMessage, 77));
    ASSERT_EQ(S_OK, recorder->Open(file.Name(), TRUE));
    ASSERT_EQ(S_OK, recorder->Run());
    Bytes fits = Record(GetTickCount(), 40), tooMuch = Record(GetTickCount(), 12);
    EXPECT_EQ(S_OK, Send(sink.Get(), fits));
    EXPECT_EQ(S_FALSE, Send(sink.Get(), tooMuch));
    EXPECT_EQ(S_FALSE, Send(sink.Get(), tooMuch));
    PumpFor(100);
    ASSERT_EQ(2u, notify.Notes().size());
    EXPECT_EQ(2, notify.Count(0, 0));
    notify.Destroy();
    EXPECT_EQ(S_FALSE, Send(sink.Get(), tooMuch)) << "no window: nothing posted, still refused";
    ASSERT_EQ(S_OK, recorder->Stop());
    ASSERT_EQ(S_OK, recorder->Close());
    lesson::LessonScan scan;
    ASSERT_EQ(lesson::FileResult::Ok, lesson::InspectLesson(file.Path(), &scan));
    EXPECT_EQ(lesson::kMaxFileLength, scan.realLength);
    EXPECT_EQ(lesson::HeaderCheck::Ok, scan.playable);
}
