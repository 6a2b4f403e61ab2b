// The lesson (recording) file: a 12-byte header ("HFRS", file length, duration) followed by the
// desktop stream's packets back to back, each stamped with its time in the recording. This is the
// one place that knows that layout: DesktopRecorder writes it, DesktopReader validates and plays
// it, and the host's lesson tools (info, repair) inspect it.
//
// Pure code: no Windows headers and no I/O of its own. Files are read through LessonSource, so
// the same walk runs on a Win32 file (lesson/LessonFile.h) and on bytes in memory (native fuzzing).
#pragma once

#include <cstddef>
#include <cstdint>

namespace lesson {

constexpr uint32_t kHeaderSize = 12;
constexpr uint32_t kMagic = 0x53524648;   // bytes "HFRS"
constexpr uint32_t kRecordHeadSize = 12;  // the packet's own magic, length, time
// The player's record buffer: no record may be longer.
constexpr uint32_t kMaxRecordLength = 0x180000;
// The header's length field is 32 bits.
constexpr uint64_t kMaxFileLength = 0xFFFFFFFFull;

// Every multi-byte field is little-endian and read byte by byte (records sit at any offset).
uint32_t LoadU32(const void* p) noexcept;
void StoreU32(void* p, uint32_t v) noexcept;

struct Header {
    uint32_t magic = kMagic;
    uint32_t fileLength = kHeaderSize;
    uint32_t duration = 0;
};

Header ReadHeader(const void* bytes) noexcept;                 // kHeaderSize bytes
void WriteHeader(void* bytes, const Header& header) noexcept;  // kHeaderSize bytes

enum class HeaderCheck {
    Ok,
    TooShort,        // fewer than 12 bytes
    BadMagic,        // not "HFRS" (the player only)
    LengthMismatch,  // the header's length is not the file's: a recording that was never closed
};
const char* HeaderCheckName(HeaderCheck check) noexcept;

// The player's test, in its order: length, magic, length field. header may be null when
// realLength is below 12.
HeaderCheck CheckForPlayback(const void* header, uint64_t realLength) noexcept;
// The recorder's test before appending: as the player's, but the magic is not looked at.
HeaderCheck CheckForAppend(const void* header, uint64_t realLength) noexcept;

struct RecordHead {
    uint32_t magic = 0;
    uint32_t length = 0;  // the whole record, head included
    uint32_t time = 0;    // ms from the start of the recording
};

enum class RecordStep {
    Record,    // a usable head: kRecordHeadSize <= length <= kMaxRecordLength
    End,       // fewer than 12 bytes were left: the end of the recording
    TooLong,   // length above kMaxRecordLength: playback ends silently
    TooShort,  // length below the head itself: the file is damaged
};
const char* RecordStepName(RecordStep step) noexcept;

// What the got bytes (at most kRecordHeadSize are looked at) read at a record's start are.
// *out is written for Record, TooLong and TooShort.
RecordStep ParseRecordHead(const void* bytes, size_t got, RecordHead* out) noexcept;

// Random access to a lesson's bytes. ReadAt answers how many bytes it could read at offset
// (fewer at the end); false when the read itself failed.
class LessonSource {
  public:
    virtual ~LessonSource() = default;
    virtual uint64_t Length() const noexcept = 0;
    virtual bool ReadAt(uint64_t offset, void* buffer, uint32_t size, uint32_t* got) noexcept = 0;
};

// A lesson held in memory.
class MemorySource final : public LessonSource {
  public:
    MemorySource(const void* data, size_t size) noexcept
        : data_(static_cast<const unsigned char*>(data)), size_(size) {}
    uint64_t Length() const noexcept override { return size_; }
    bool ReadAt(uint64_t offset, void* buffer, uint32_t size, uint32_t* got) noexcept override;

  private:
    const unsigned char* data_;
    size_t size_;
};

// Why a walk over the records stopped.
enum class WalkEnd {
    Clean,          // the last record ends exactly where the file does
    TrailingBytes,  // fewer than 12 bytes after the last whole record
    CutRecord,      // the last record's head promises more bytes than the file holds
    TooLong,        // a record longer than kMaxRecordLength
    TooShort,       // a record length below 12
    ReadFailed,     // the source could not be read
    NoHeader,       // the file is shorter than its header
};
const char* WalkEndName(WalkEnd end) noexcept;

// Everything a walk over a lesson's records learns, without reading the bodies.
struct LessonScan {
    Header header;                                 // as stored (zeros when there is none)
    uint64_t realLength = 0;                       // the file's length
    HeaderCheck playable = HeaderCheck::TooShort;  // what the player would say
    uint32_t records = 0;        // whole records, in file order, up to the first fault
    uint32_t frames = 0;         // of which "HMRF"
    uint32_t cursors = 0;        // of which "HRUC"
    uint32_t firstTime = 0;      // of the first whole record
    uint32_t lastTime = 0;       // of the last whole record
    uint32_t latestTime = 0;     // the largest time of any whole record
    uint32_t backwardSteps = 0;  // records whose time is below their predecessor's
    uint64_t wholeLength = 0;    // where the last whole record ends (kHeaderSize at least)
    WalkEnd end = WalkEnd::NoHeader;
    // The desktop of the last whole frame record (its rectangle at offset 12 and its bits per
    // pixel at 28, as the stream lays frames out); zeros without one.
    uint32_t pictureWidth = 0, pictureHeight = 0, pictureBits = 0;
};

// Reads the header and walks every record head (and a frame's desktop). Stops at the first record
// that is not whole and sound, and before anything at or past 4 GiB (the header could not describe
// it).
LessonScan ScanLesson(LessonSource& source) noexcept;

// What recovery writes so that a recording that was never closed plays again up to its last
// whole record: the file is cut at wholeLength and gets this header (magic "HFRS", that length,
// and a duration no shorter than the stored one or than any record's time). needed is false
// when the player would already accept the file unchanged.
struct RepairPlan {
    bool possible = false;  // false: no header to repair
    bool needed = false;
    Header header;
    uint64_t newLength = 0;
    uint64_t droppedBytes = 0;
};
RepairPlan PlanRepair(const LessonScan& scan) noexcept;

}  // namespace lesson
