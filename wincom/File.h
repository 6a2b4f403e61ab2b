// A Win32 file opened by name with the class library's open flags (access, sharing, creation),
// for the lesson files of the recorder, the reader and the host's tools. Nothing here throws:
// every operation answers false on failure and keeps the Win32 error for LastError, so a failed
// read or write is handled where it happens and never crosses a COM boundary.
#pragma once

#include <windows.h>

#include <cstdint>

#include "wincom/UniqueHandle.h"

namespace vantrel {

class File {
  public:
    // Open flags: one access mode, one share mode, and the creation bits.
    enum : unsigned {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        shareCompat = 0x0000,  // no sharing, as shareExclusive
        shareExclusive = 0x0010,
        shareDenyWrite = 0x0020,
        shareDenyRead = 0x0030,
        shareDenyNone = 0x0040,
        modeCreate = 0x1000,      // create, emptying an existing file...
        modeNoTruncate = 0x2000,  // ...unless this is given too
    };
    enum class From { Begin = FILE_BEGIN, Current = FILE_CURRENT, End = FILE_END };

    File() noexcept = default;
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    File(File&&) noexcept = default;
    File& operator=(File&&) noexcept = default;

    bool Open(const char* name, unsigned flags) noexcept;
    void Close() noexcept { handle_.reset(); }
    bool IsOpen() const noexcept { return static_cast<bool>(handle_); }

    // Up to size bytes at the file position; *got is how many came (fewer only at the end).
    bool Read(void* buffer, uint32_t size, uint32_t* got) noexcept;
    // Exactly size bytes, or false.
    bool ReadExact(void* buffer, uint32_t size) noexcept;
    // All size bytes at the file position, or false.
    bool Write(const void* buffer, uint32_t size) noexcept;
    bool Seek(int64_t offset, From from, uint64_t* position = nullptr) noexcept;
    bool Length(uint64_t* length) noexcept;
    // Cuts (or extends) the file at length; the file position goes there.
    bool SetLength(uint64_t length) noexcept;
    // Hands what was written to the disk.
    bool Flush() noexcept;

    DWORD LastError() const noexcept { return lastError_; }
    HANDLE Handle() const noexcept { return handle_.get(); }

  private:
    bool Fail() noexcept;

    UniqueFile handle_;
    DWORD lastError_ = ERROR_SUCCESS;
};

}  // namespace vantrel
