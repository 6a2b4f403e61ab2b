// Lesson files on disk (see LessonFile.h).
#include "lesson/LessonFile.h"

namespace lesson {

using vantrel::File;

FileSource::FileSource(File& file) noexcept : file_(file) {
    ok_ = file_.Length(&length_);
}

bool FileSource::ReadAt(uint64_t offset, void* buffer, uint32_t size, uint32_t* got) noexcept {
    *got = 0;
    return file_.Seek(static_cast<int64_t>(offset), File::From::Begin) &&
           file_.Read(buffer, size, got);
}

const char* FileResultName(FileResult result) noexcept {
    switch (result) {
        case FileResult::Ok:
            return "ok";
        case FileResult::OpenFailed:
            return "cannot open the file";
        case FileResult::ReadFailed:
            return "cannot read the file";
        case FileResult::NotRepairable:
            return "nothing to repair: shorter than a header";
        case FileResult::WriteFailed:
            return "cannot write the file";
    }
    return "?";
}

FileResult InspectLesson(const char* path, LessonScan* scan) noexcept {
    File file;
    if (!file.Open(path, File::modeRead | File::shareDenyNone))
        return FileResult::OpenFailed;
    FileSource source(file);
    if (!source.Ok())
        return FileResult::ReadFailed;
    const LessonScan found = ScanLesson(source);
    if (scan)
        *scan = found;
    return found.end == WalkEnd::ReadFailed ? FileResult::ReadFailed : FileResult::Ok;
}

FileResult RepairLesson(const char* path, RepairPlan* plan) noexcept {
    File file;
    if (!file.Open(path, File::modeReadWrite | File::shareExclusive))
        return FileResult::OpenFailed;
    FileSource source(file);
    if (!source.Ok())
        return FileResult::ReadFailed;
    const LessonScan scan = ScanLesson(source);
    const RepairPlan found = PlanRepair(scan);
    if (plan)
        *plan = found;
    if (scan.end == WalkEnd::ReadFailed)
        return FileResult::ReadFailed;
    if (!found.possible)
        return FileResult::NotRepairable;
    if (!found.needed)
        return FileResult::Ok;
    unsigned char header[kHeaderSize];
    WriteHeader(header, found.header);
    // Cut first: a header that names the new length is only right once the file has it.
    const bool ok = file.SetLength(found.newLength) && file.Seek(0, File::From::Begin) &&
                    file.Write(header, kHeaderSize) && file.Flush();
    return ok ? FileResult::Ok : FileResult::WriteFailed;
}

}  // namespace lesson
