// The lesson file module: header checks, the record walk and recovery, in memory and on files.
// (Random bytes after a header and the repair of a file cut anywhere: the fuzz target `lesson`; a
// repair on disk: vantrel repair in the host tests; the file class underneath: through the
// recorder and the reader.)
#include "RecordTestSupport.h"
#include "lesson/LessonFile.h"

using namespace vantrel;
using namespace vantrel::test;
using lesson::HeaderCheck;
using lesson::WalkEnd;

namespace {

lesson::LessonScan Scan(const Bytes& file) {
    lesson::MemorySource source(file.data(), file.size());
    return lesson::ScanLesson(source);
}

Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

}  // namespace

// Each verdict reaches a host through the recorder's and the reader's Open and vantrel.exe's
// lesson tools; here the order of the checks and the 32-bit length field.
TEST(LessonFormat, HeaderChecksLookAtTheMagicFirstAndFitA32BitLength) {
    const Bytes foreign{'H', 'F', 'R', 'X', 12, 0, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_EQ(HeaderCheck::BadMagic, lesson::CheckForPlayback(foreign.data(), foreign.size()));
    EXPECT_EQ(HeaderCheck::LengthMismatch, lesson::CheckForAppend(foreign.data(), foreign.size()));
    EXPECT_EQ(HeaderCheck::TooShort, lesson::CheckForPlayback(nullptr, 11));
    const Bytes h = Lesson({}, 0, 0);
    EXPECT_EQ(HeaderCheck::LengthMismatch, lesson::CheckForPlayback(h.data(), 0x100000000ull + 12));
}

TEST(LessonFormat, WalkCountsWholeRecordsAndStopsAtTheFirstFault) {
    const Bytes a = Record(0, 100), b = Record(40, 30, kHruc), c = Record(35, 12), d = Record(90);
    // The longest record a player holds is whole; one byte more is not. (A record shorter than
    // its head: through the reader.)
    const Bytes biggest = Record(95, lesson::kMaxRecordLength);
    const size_t abc = 12 + a.size() + b.size() + c.size();
    struct Case {
        const char* name;
        Bytes file;
        HeaderCheck playable;
        WalkEnd end;
        uint32_t records, frames, cursors, lastTime, latestTime, backward;
        size_t wholeLength;
    } cases[] = {
        {"closed", Lesson({a, b, c, d}, 100), HeaderCheck::Ok, WalkEnd::Clean, 4, 3, 1, 90, 90, 1,
         abc + d.size()},
        {"trailing bytes", Concat({Lesson({a, b, c}, 0, 12), Bytes(11, 0xEE)}),
         HeaderCheck::LengthMismatch, WalkEnd::TrailingBytes, 3, 2, 1, 35, 40, 1, abc},
        {"cut record", Concat({Lesson({a, b, c}, 0, 12), Bytes(d.begin(), d.end() - 1)}),
         HeaderCheck::LengthMismatch, WalkEnd::CutRecord, 3, 2, 1, 35, 40, 1, abc},
        {"0x180000 bytes", Lesson({a, biggest}, 100), HeaderCheck::Ok, WalkEnd::Clean, 2, 2, 0, 95,
         95, 0, 12 + a.size() + biggest.size()},
        {"0x180001 bytes", Lesson({a, WithLength(d, 0x180001), d}, 100), HeaderCheck::Ok,
         WalkEnd::TooLong, 1, 1, 0, 0, 0, 0, 12 + a.size()},
        {"no header", Bytes(7, 0), HeaderCheck::TooShort, WalkEnd::NoHeader, 0, 0, 0, 0, 0, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const lesson::LessonScan s = Scan(c.file);
        EXPECT_EQ(c.file.size(), s.realLength);
        EXPECT_EQ(c.playable, s.playable);
        EXPECT_EQ(c.end, s.end) << lesson::WalkEndName(s.end);
        EXPECT_EQ(c.records, s.records);
        EXPECT_EQ(c.frames, s.frames);
        EXPECT_EQ(c.cursors, s.cursors);
        EXPECT_EQ(c.lastTime, s.lastTime);
        EXPECT_EQ(c.latestTime, s.latestTime);
        EXPECT_EQ(c.backward, s.backwardSteps);
        EXPECT_EQ(c.wholeLength, s.wholeLength);
    }
}

TEST(LessonFile, RepairKeepsTheLongerDurationAndRefusesWhatItCannotDo) {
    // Closed at 500 ms, appended to, never closed again: the new records continue the stored
    // duration. Stopped long after its last record, then cut: the stored duration stays. A
    // damaged magic: the stored duration is not trusted, the magic is written again.
    const struct {
        const char* name;
        Bytes file;
        uint32_t duration;
    } durations[] = {
        {"appended", Concat({Lesson({Record(100), Record(450)}, 500), Record(520), Record(610)}),
         610},
        {"stopped late", Concat({Lesson({Record(100), Record(450)}, 2000), Bytes(1, 0)}), 2000},
        {"damaged magic", Lesson({Record(100)}, 99999, 12, 0x12345678), 100},
    };
    for (const auto& c : durations) {
        const lesson::RepairPlan plan = lesson::PlanRepair(Scan(c.file));
        EXPECT_EQ(lesson::kMagic, plan.header.magic) << c.name;
        EXPECT_EQ(c.duration, plan.header.duration) << c.name;
    }

    TempFile temp("repair-cases");
    const Bytes good = Lesson({Record(10)}, 20);
    ASSERT_TRUE(temp.Write(good));
    {
        // Not while another party holds the file without sharing it.
        File holder;
        ASSERT_TRUE(holder.Open(temp.Path(), File::modeReadWrite));
        EXPECT_EQ(lesson::FileResult::OpenFailed, lesson::RepairLesson(temp.Path(), nullptr));
    }
    ASSERT_TRUE(temp.Write(Bytes(5, 'H')));
    EXPECT_EQ(lesson::FileResult::NotRepairable, lesson::RepairLesson(temp.Path(), nullptr));
    EXPECT_EQ(Bytes(5, 'H'), temp.Read());
}
