// Lesson files as the reader and the lesson tools read them: the header checks, the record walk
// and the repair plan, on bytes in memory and on a source whose reads fail part way. What the
// walk reports must fit the file, and the repair it plans must give a file that plays whole:
// same records, clean end, nothing more to repair.
#include <cstdint>
#include <vector>

#include "FuzzSupport.h"
#include "lesson/LessonFormat.h"

using namespace lesson;

namespace {

// A lesson in memory whose reads fail from the n-th on.
class FailingSource final : public LessonSource {
  public:
    FailingSource(const uint8_t* data, size_t size, int reads)
        : memory_(data, size), left_(reads) {}
    uint64_t Length() const noexcept override { return memory_.Length(); }
    bool ReadAt(uint64_t offset, void* buffer, uint32_t size, uint32_t* got) noexcept override {
        if (left_-- <= 0)
            return false;
        return memory_.ReadAt(offset, buffer, size, got);
    }

  private:
    MemorySource memory_;
    int left_;
};

void CheckScan(const LessonScan& scan, const uint8_t* data, size_t size) {
    FUZZ_CHECK(scan.realLength == size);
    FUZZ_CHECK(HeaderCheckName(scan.playable) && WalkEndName(scan.end));
    if (size < kHeaderSize) {
        FUZZ_CHECK(scan.end == WalkEnd::NoHeader && scan.records == 0);
        FUZZ_CHECK(CheckForPlayback(data, size) == HeaderCheck::TooShort);
        return;
    }
    FUZZ_CHECK(scan.playable == CheckForPlayback(data, size));
    const Header header = ReadHeader(data);
    FUZZ_CHECK(scan.header.magic == header.magic && scan.header.fileLength == header.fileLength &&
               scan.header.duration == header.duration);
    FUZZ_CHECK(scan.wholeLength >= kHeaderSize && scan.wholeLength <= size);
    FUZZ_CHECK(scan.frames + scan.cursors <= scan.records);
    FUZZ_CHECK(scan.records <= (scan.wholeLength - kHeaderSize) / kRecordHeadSize);
    FUZZ_CHECK((scan.end == WalkEnd::Clean) == (scan.wholeLength == size));
    FUZZ_CHECK(scan.latestTime >= scan.lastTime && scan.latestTime >= scan.firstTime);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    MemorySource source(data, size);
    const LessonScan scan = ScanLesson(source);
    CheckScan(scan, data, size);
    const RepairPlan plan = PlanRepair(scan);
    FUZZ_CHECK(plan.possible == (size >= kHeaderSize));
    if (plan.possible) {
        FUZZ_CHECK(plan.newLength == scan.wholeLength &&
                   plan.droppedBytes == size - plan.newLength);
        FUZZ_CHECK(plan.needed ==
                   !(scan.playable == HeaderCheck::Ok && scan.end == WalkEnd::Clean));
        // The repaired file: cut at the plan's length, under the plan's header.
        std::vector<uint8_t> repaired(data, data + plan.newLength);
        WriteHeader(repaired.data(), plan.header);
        MemorySource fixed(repaired.data(), repaired.size());
        const LessonScan again = ScanLesson(fixed);
        CheckScan(again, repaired.data(), repaired.size());
        FUZZ_CHECK(again.playable == HeaderCheck::Ok && again.end == WalkEnd::Clean);
        FUZZ_CHECK(again.records == scan.records && again.frames == scan.frames &&
                   again.cursors == scan.cursors && again.latestTime == scan.latestTime &&
                   again.backwardSteps == scan.backwardSteps);
        if (plan.needed)
            FUZZ_CHECK(again.header.duration >= scan.latestTime);
        FUZZ_CHECK(!PlanRepair(again).needed);
    }

    // Reads that fail part way stop the walk there and report it, whole records kept.
    for (int reads = 0; reads < 3; ++reads) {
        FailingSource failing(data, size, reads + static_cast<int>(scan.records / 2));
        const LessonScan cut = ScanLesson(failing);
        FUZZ_CHECK(cut.records <= scan.records && cut.wholeLength <= scan.wholeLength);
        if (cut.end == WalkEnd::ReadFailed)
            FUZZ_CHECK(!PlanRepair(cut).possible);
        else
            FUZZ_CHECK(cut.end == scan.end && cut.records == scan.records);
    }
    return 0;
}
