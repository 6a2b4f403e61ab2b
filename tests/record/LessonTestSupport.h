// What the lesson tests share: lesson bytes built record by record, temporary files, and a
// window that collects what objects post to it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "common/Screen.h"
#include "lesson/LessonFormat.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::test {

using Bytes = std::vector<BYTE>;

constexpr uint32_t kHmrf = 0x46524D48;
constexpr uint32_t kHruc = 0x43555248;

// A record (packet) of length bytes: head, then a body whose bytes tell records apart.
inline Bytes Record(uint32_t time, uint32_t length = 64, uint32_t magic = kHmrf) {
    Bytes r(length < 12 ? 12 : length);
    lesson::StoreU32(r.data(), magic);
    lesson::StoreU32(r.data() + 4, length);
    lesson::StoreU32(r.data() + 8, time);
    for (size_t i = 12; i < r.size(); ++i)
        r[i] = static_cast<BYTE>(time * 7 + i);
    return r;
}

// Header then the records. fileLength 0: the real length (a closed file).
inline Bytes Lesson(const std::vector<Bytes>& records, uint32_t duration, uint32_t fileLength = 0,
                    uint32_t magic = lesson::kMagic) {
    Bytes f(lesson::kHeaderSize);
    for (const Bytes& r : records)
        f.insert(f.end(), r.begin(), r.end());
    lesson::WriteHeader(
        f.data(),
        lesson::Header{magic, fileLength ? fileLength : static_cast<uint32_t>(f.size()), duration});
    return f;
}

// A file name of its own in the temporary folder, removed again by the destructor.
class TempFile {
  public:
    explicit TempFile(const char* tag) {
        char dir[MAX_PATH];
        GetTempPathA(MAX_PATH, dir);
        static LONG counter = 0;
        path_ = std::string(dir) + "vantrel-" + tag + "-" + std::to_string(GetCurrentProcessId()) +
                "-" + std::to_string(InterlockedIncrement(&counter)) + ".lsn";
        DeleteFileA(path_.c_str());
    }
    ~TempFile() { DeleteFileA(path_.c_str()); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const char* Path() const { return path_.c_str(); }
    // For interfaces that take LPSTR.
    char* Name() { return &path_[0]; }

    bool Write(const Bytes& bytes) const {
        UniqueFile f(CreateFileA(path_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                 FILE_ATTRIBUTE_NORMAL, nullptr));
        DWORD n = 0;
        return f &&
               WriteFile(f.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &n, nullptr) &&
               n == bytes.size();
    }
    Bytes Read() const {
        UniqueFile f(CreateFileA(path_.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                 nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        Bytes b(f ? GetFileSize(f.get(), nullptr) : 0);
        DWORD n = 0;
        if (!b.empty())
            ReadFile(f.get(), b.data(), static_cast<DWORD>(b.size()), &n, nullptr);
        b.resize(n);
        return b;
    }

  private:
    std::string path_;
};

// Header fields of a file's first 12 bytes (zeros when it is shorter).
inline lesson::Header HeaderOf(const Bytes& file) {
    return file.size() < lesson::kHeaderSize ? lesson::Header{0, 0, 0}
                                             : lesson::ReadHeader(file.data());
}

// The records of a well-formed lesson, in file order.
inline std::vector<Bytes> RecordsOf(const Bytes& file) {
    std::vector<Bytes> out;
    for (size_t at = lesson::kHeaderSize; at + 12 <= file.size();) {
        const uint32_t length = lesson::LoadU32(file.data() + at + 4);
        if (length < 12 || at + length > file.size())
            break;
        out.emplace_back(file.begin() + at, file.begin() + at + length);
        at += length;
    }
    return out;
}

inline uint32_t TimeOf(const Bytes& record) {
    return lesson::LoadU32(record.data() + 8);
}

// The notification target of the recorder and reader tests.
class NotifySink : public NotifyWindow {
  public:
    static constexpr UINT kMessage = WM_APP + 11;
    NotifySink() : NotifyWindow(kMessage) {}
    HWND Window() const { return Handle(); }
};

}  // namespace vantrel::test
