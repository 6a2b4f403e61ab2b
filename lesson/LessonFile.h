// Lesson files on disk: the record walk of LessonFormat.h over a Win32 file, for the host's lesson
// tools. InspectLesson reads without disturbing a recorder or reader; RepairLesson makes a
// recording that was never closed (process killed, power lost) playable again up to its last
// whole record.
#pragma once

#include "lesson/LessonFormat.h"
#include "wincom/File.h"

namespace lesson {

// A LessonSource over an open file; the file position is not kept.
class FileSource final : public LessonSource {
  public:
    explicit FileSource(vantrel::File& file) noexcept;
    uint64_t Length() const noexcept override { return length_; }
    bool ReadAt(uint64_t offset, void* buffer, uint32_t size, uint32_t* got) noexcept override;
    bool Ok() const noexcept { return ok_; }

  private:
    vantrel::File& file_;
    uint64_t length_ = 0;
    bool ok_ = false;
};

enum class FileResult {
    Ok,
    OpenFailed,  // missing, or held without sharing (a recorder is writing it)
    ReadFailed,
    NotRepairable,  // shorter than a header
    WriteFailed,
};
const char* FileResultName(FileResult result) noexcept;

// Opens for reading with full sharing, as the player does, and walks it.
FileResult InspectLesson(const char* path, LessonScan* scan) noexcept;

// Opens the file alone (no sharing: not while a recorder or a reader holds it), walks it and,
// when the player would refuse it or stop short, cuts it after its last whole record and writes
// the header PlanRepair gives. *plan (optional) tells what was found and done.
FileResult RepairLesson(const char* path, RepairPlan* plan) noexcept;

}  // namespace lesson
