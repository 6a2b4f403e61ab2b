// File: the class library's open flags mapped to CreateFileA (see File.h).
#include "wincom/File.h"

namespace vantrel {

namespace {

DWORD AccessOf(unsigned flags) noexcept {
    switch (flags & 3) {
        case File::modeWrite:
            return GENERIC_WRITE;
        case File::modeReadWrite:
            return GENERIC_READ | GENERIC_WRITE;
        default:
            return GENERIC_READ;
    }
}

DWORD ShareOf(unsigned flags) noexcept {
    switch (flags & 0x70) {
        case File::shareDenyWrite:
            return FILE_SHARE_READ;
        case File::shareDenyRead:
            return FILE_SHARE_WRITE;
        case File::shareDenyNone:
            return FILE_SHARE_READ | FILE_SHARE_WRITE;
        default:  // shareCompat, shareExclusive
            return 0;
    }
}

DWORD CreationOf(unsigned flags) noexcept {
    if (!(flags & File::modeCreate))
        return OPEN_EXISTING;
    return (flags & File::modeNoTruncate) ? OPEN_ALWAYS : CREATE_ALWAYS;
}

}  // namespace

bool File::Fail() noexcept {
    lastError_ = GetLastError();
    if (lastError_ == ERROR_SUCCESS)
        lastError_ = ERROR_GEN_FAILURE;
    return false;
}

bool File::Open(const char* name, unsigned flags) noexcept {
    handle_.reset();
    if (!name) {
        lastError_ = ERROR_INVALID_PARAMETER;
        return false;
    }
    handle_.reset(CreateFileA(name, AccessOf(flags), ShareOf(flags), nullptr, CreationOf(flags),
                              FILE_ATTRIBUTE_NORMAL, nullptr));
    return handle_ ? true : Fail();
}

bool File::Read(void* buffer, uint32_t size, uint32_t* got) noexcept {
    DWORD n = 0;
    const bool ok = handle_ && ReadFile(handle_.get(), buffer, size, &n, nullptr);
    if (got)
        *got = n;
    return ok ? true : Fail();
}

bool File::ReadExact(void* buffer, uint32_t size) noexcept {
    uint32_t got = 0;
    if (!Read(buffer, size, &got))
        return false;
    if (got != size) {
        lastError_ = ERROR_HANDLE_EOF;
        return false;
    }
    return true;
}

bool File::Write(const void* buffer, uint32_t size) noexcept {
    DWORD n = 0;
    if (!handle_ || !WriteFile(handle_.get(), buffer, size, &n, nullptr))
        return Fail();
    if (n != size) {
        lastError_ = ERROR_DISK_FULL;
        return false;
    }
    return true;
}

bool File::Seek(int64_t offset, From from, uint64_t* position) noexcept {
    LARGE_INTEGER to, now;
    to.QuadPart = offset;
    if (!handle_ || !SetFilePointerEx(handle_.get(), to, &now, static_cast<DWORD>(from)))
        return Fail();
    if (position)
        *position = static_cast<uint64_t>(now.QuadPart);
    return true;
}

bool File::Length(uint64_t* length) noexcept {
    LARGE_INTEGER size;
    if (!handle_ || !GetFileSizeEx(handle_.get(), &size))
        return Fail();
    *length = static_cast<uint64_t>(size.QuadPart);
    return true;
}

bool File::SetLength(uint64_t length) noexcept {
    return Seek(static_cast<int64_t>(length), From::Begin) &&
           (SetEndOfFile(handle_.get()) ? true : Fail());
}

bool File::Flush() noexcept {
    return handle_ && FlushFileBuffers(handle_.get()) ? true : Fail();
}

}  // namespace vantrel
