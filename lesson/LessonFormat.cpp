// Layout, checks and the record walk of lesson files (see LessonFormat.h).
#include "lesson/LessonFormat.h"

#include <cstring>

namespace lesson {

namespace {

constexpr uint32_t kPacketFrameMagic = 0x46524D48;   // "HMRF"
constexpr uint32_t kPacketCursorMagic = 0x43555248;  // "HRUC"
// A frame's head up to its bits per pixel: the desktop rectangle at 12, the bits at 28.
constexpr uint32_t kFrameDesktopEnd = 32;

const unsigned char* Bytes(const void* p) noexcept {
    return static_cast<const unsigned char*>(p);
}

HeaderCheck Check(const void* header, uint64_t realLength, bool testMagic) noexcept {
    if (realLength < kHeaderSize || !header)
        return HeaderCheck::TooShort;
    const Header h = ReadHeader(header);
    if (testMagic && h.magic != kMagic)
        return HeaderCheck::BadMagic;
    return h.fileLength == realLength ? HeaderCheck::Ok : HeaderCheck::LengthMismatch;
}

}  // namespace

uint32_t LoadU32(const void* p) noexcept {
    const unsigned char* b = Bytes(p);
    return static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 |
           static_cast<uint32_t>(b[2]) << 16 | static_cast<uint32_t>(b[3]) << 24;
}

void StoreU32(void* p, uint32_t v) noexcept {
    unsigned char* b = static_cast<unsigned char*>(p);
    for (int i = 0; i < 4; ++i)
        b[i] = static_cast<unsigned char>(v >> (8 * i));
}

Header ReadHeader(const void* bytes) noexcept {
    const unsigned char* b = Bytes(bytes);
    return Header{LoadU32(b), LoadU32(b + 4), LoadU32(b + 8)};
}

void WriteHeader(void* bytes, const Header& header) noexcept {
    unsigned char* b = static_cast<unsigned char*>(bytes);
    StoreU32(b, header.magic);
    StoreU32(b + 4, header.fileLength);
    StoreU32(b + 8, header.duration);
}

const char* HeaderCheckName(HeaderCheck check) noexcept {
    switch (check) {
        case HeaderCheck::Ok:
            return "ok";
        case HeaderCheck::TooShort:
            return "shorter than its header";
        case HeaderCheck::BadMagic:
            return "not a lesson file (magic is not HFRS)";
        case HeaderCheck::LengthMismatch:
            return "header length differs from the file's (recording not closed)";
    }
    return "?";
}

HeaderCheck CheckForPlayback(const void* header, uint64_t realLength) noexcept {
    return Check(header, realLength, true);
}

HeaderCheck CheckForAppend(const void* header, uint64_t realLength) noexcept {
    return Check(header, realLength, false);
}

const char* RecordStepName(RecordStep step) noexcept {
    switch (step) {
        case RecordStep::Record:
            return "record";
        case RecordStep::End:
            return "end";
        case RecordStep::TooLong:
            return "record longer than 0x180000 bytes";
        case RecordStep::TooShort:
            return "record length below 12";
    }
    return "?";
}

RecordStep ParseRecordHead(const void* bytes, size_t got, RecordHead* out) noexcept {
    if (got < kRecordHeadSize || !bytes)
        return RecordStep::End;
    const unsigned char* b = Bytes(bytes);
    const RecordHead head{LoadU32(b), LoadU32(b + 4), LoadU32(b + 8)};
    if (out)
        *out = head;
    if (head.length > kMaxRecordLength)
        return RecordStep::TooLong;
    if (head.length < kRecordHeadSize)
        return RecordStep::TooShort;
    return RecordStep::Record;
}

bool MemorySource::ReadAt(uint64_t offset, void* buffer, uint32_t size, uint32_t* got) noexcept {
    uint32_t n = 0;
    if (offset < size_) {
        const uint64_t left = size_ - offset;
        n = left < size ? static_cast<uint32_t>(left) : size;
        std::memcpy(buffer, data_ + offset, n);
    }
    *got = n;
    return true;
}

const char* WalkEndName(WalkEnd end) noexcept {
    switch (end) {
        case WalkEnd::Clean:
            return "clean";
        case WalkEnd::TrailingBytes:
            return "fewer than 12 bytes after the last whole record";
        case WalkEnd::CutRecord:
            return "last record cut short";
        case WalkEnd::TooLong:
            return "record longer than 0x180000 bytes";
        case WalkEnd::TooShort:
            return "record length below 12";
        case WalkEnd::ReadFailed:
            return "read failed";
        case WalkEnd::NoHeader:
            return "no header";
    }
    return "?";
}

LessonScan ScanLesson(LessonSource& source) noexcept {
    LessonScan scan;
    scan.realLength = source.Length();
    unsigned char head[kFrameDesktopEnd];
    uint32_t got = 0;
    if (scan.realLength < kHeaderSize) {
        scan.header = Header{0, 0, 0};
        return scan;
    }
    if (!source.ReadAt(0, head, kHeaderSize, &got) || got != kHeaderSize) {
        scan.end = WalkEnd::ReadFailed;
        return scan;
    }
    scan.header = ReadHeader(head);
    scan.playable = CheckForPlayback(head, scan.realLength);
    // Nothing at or past 4 GiB can be described by the header's length field.
    const uint64_t limit = scan.realLength < kMaxFileLength ? scan.realLength : kMaxFileLength;
    uint64_t offset = kHeaderSize;
    scan.wholeLength = offset;
    for (;;) {
        if (limit - offset < kRecordHeadSize) {
            scan.end = offset == scan.realLength ? WalkEnd::Clean : WalkEnd::TrailingBytes;
            break;
        }
        const uint32_t want = limit - offset < kFrameDesktopEnd
                                  ? static_cast<uint32_t>(limit - offset)
                                  : kFrameDesktopEnd;
        if (!source.ReadAt(offset, head, want, &got) || got < kRecordHeadSize) {
            scan.end = WalkEnd::ReadFailed;
            break;
        }
        RecordHead record;
        const RecordStep step = ParseRecordHead(head, got, &record);
        if (step == RecordStep::TooLong || step == RecordStep::TooShort) {
            scan.end = step == RecordStep::TooLong ? WalkEnd::TooLong : WalkEnd::TooShort;
            break;
        }
        if (record.length > limit - offset) {
            scan.end = WalkEnd::CutRecord;
            break;
        }
        if (scan.records == 0)
            scan.firstTime = record.time;
        else if (record.time < scan.lastTime)
            ++scan.backwardSteps;
        ++scan.records;
        scan.frames += record.magic == kPacketFrameMagic;
        if (record.magic == kPacketFrameMagic && got >= kFrameDesktopEnd &&
            record.length >= kFrameDesktopEnd) {
            scan.pictureWidth = LoadU32(head + 20) - LoadU32(head + 12);
            scan.pictureHeight = LoadU32(head + 24) - LoadU32(head + 16);
            scan.pictureBits = LoadU32(head + 28);
        }
        scan.cursors += record.magic == kPacketCursorMagic;
        scan.lastTime = record.time;
        if (record.time > scan.latestTime)
            scan.latestTime = record.time;
        offset += record.length;
        scan.wholeLength = offset;
    }
    return scan;
}

RepairPlan PlanRepair(const LessonScan& scan) noexcept {
    RepairPlan plan;
    if (scan.realLength < kHeaderSize || scan.end == WalkEnd::NoHeader ||
        scan.end == WalkEnd::ReadFailed)
        return plan;
    plan.possible = true;
    plan.needed = !(scan.playable == HeaderCheck::Ok && scan.end == WalkEnd::Clean);
    plan.newLength = scan.wholeLength;
    plan.droppedBytes = scan.realLength - scan.wholeLength;
    // A stored duration is trusted only under the right magic; records continue it when a
    // closed file was appended to, so the later of the two is the recording's length.
    const uint32_t stored = scan.header.magic == kMagic ? scan.header.duration : 0;
    plan.header = Header{kMagic, static_cast<uint32_t>(scan.wholeLength),
                         stored > scan.latestTime ? stored : scan.latestTime};
    if (!plan.needed)
        plan.header = scan.header;
    return plan;
}

}  // namespace lesson
