// What the lesson, recorder and reader tests share: lesson bytes built record by record,
// temporary files, a fake render that is both a sink and a frame buffer, and a fixture that
// makes the objects through their registered class objects.
#pragma once

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Vantrel.h"
#include "common/ComTest.h"
#include "common/FakeSink.h"
#include "common/Screen.h"
#include "lesson/LessonFormat.h"
#include "wincom/ComPtr.h"
#include "wincom/File.h"

namespace vantrel::test {

using Bytes = std::vector<BYTE>;

constexpr uint32_t kHmrf = 0x46524D48;
constexpr uint32_t kHruc = 0x43555248;
constexpr UINT kNotifyMessage = WM_APP + 11;

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
    const uint32_t length = fileLength ? fileLength : static_cast<uint32_t>(f.size());
    lesson::WriteHeader(f.data(), lesson::Header{magic, length, duration});
    return f;
}

// record with another length field.
inline Bytes WithLength(Bytes record, uint32_t length) {
    lesson::StoreU32(record.data() + 4, length);
    return record;
}

inline uint32_t TimeOf(const Bytes& record) {
    return lesson::LoadU32(record.data() + 8);
}

// Header fields of a file's first 12 bytes (zeros when it is shorter).
inline lesson::Header HeaderOf(const Bytes& file) {
    return file.size() < lesson::kHeaderSize ? lesson::Header{0, 0, 0}
                                             : lesson::ReadHeader(file.data());
}

// The whole records of a lesson, in file order.
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
    char* Name() { return &path_[0]; }  // for interfaces that take LPSTR

    bool Write(const Bytes& bytes) const {
        File f;
        return f.Open(Path(), File::modeCreate | File::modeWrite) &&
               f.Write(bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    Bytes Read() const {
        File f;
        uint64_t length = 0;
        uint32_t got = 0;
        if (!f.Open(Path(), File::modeRead | File::shareDenyNone) || !f.Length(&length))
            return {};
        Bytes b(static_cast<size_t>(length));
        f.Read(b.data(), static_cast<uint32_t>(b.size()), &got);
        b.resize(got);
        return b;
    }

  private:
    std::string path_;
};

// A sink that is also a frame buffer, as a render is: its IFrameBuffer and IDataTransmitter are
// different pointers to one object. GetFullScreenData hands out `pictures`. Without identity it
// answers for IFrameBuffer alone, not even IUnknown, as a careless host object might.
class FakeRender : public FakeSink, public IFrameBuffer {
  public:
    explicit FakeRender(bool identity = true) : FakeSink("render"), identity_(identity) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) noexcept override {
        if (ppv && IsEqualIID(riid, IID_IFrameBuffer)) {
            *ppv = static_cast<IFrameBuffer*>(this);
            AddRef();
            return S_OK;
        }
        if (!identity_) {
            if (ppv)
                *ppv = nullptr;
            return E_NOINTERFACE;
        }
        return FakeSink::QueryInterface(riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return FakeSink::AddRef(); }
    ULONG STDMETHODCALLTYPE Release() noexcept override { return FakeSink::Release(); }
    HRESULT STDMETHODCALLTYPE GetFullScreenData(void* lpvData, unsigned long* pcbData,
                                                long bFirst) noexcept override {
        firsts_.push_back(bFirst);
        if (bFirst)
            next_ = 0;
        if (next_ >= pictures.size())
            return S_FALSE;
        const Bytes& p = pictures[next_++];
        std::memcpy(lpvData, p.data(), p.size());
        *pcbData = static_cast<unsigned long>(p.size());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetFullScreenDataUncompressed(void*,
                                                            unsigned long*) noexcept override {
        return E_FAIL;
    }
    HRESULT STDMETHODCALLTYPE GetBitmapInfo(void** lpvBmpInfo) noexcept override {
        *lpvBmpInfo = nullptr;
        return S_OK;
    }

    IFrameBuffer* AsFrameBuffer() { return this; }
    // bFirst of every GetFullScreenData call (read while nothing plays).
    const std::vector<long>& Firsts() const { return firsts_; }

    std::vector<Bytes> pictures;  // set while nothing plays

  private:
    bool identity_;
    size_t next_ = 0;
    std::vector<long> firsts_;
};

// The packets a sink kept and when each came.
inline std::vector<Bytes> Received(const FakeSink& sink) {
    std::vector<Bytes> out;
    for (const auto& p : sink.Packets())
        out.push_back(p.bytes);
    return out;
}
inline std::vector<DWORD> Ticks(const FakeSink& sink) {
    std::vector<DWORD> out;
    for (const auto& p : sink.Packets())
        out.push_back(p.tick);
    return out;
}

class RecordTest : public ComTest {
  protected:
    static ComPtr<IDesktopRecorder> NewRecorder() {
        return Create<IDesktopRecorder>(CLSID_DesktopRecorder);
    }
    static ComPtr<IDesktopReader> NewReader() {
        return Create<IDesktopReader>(CLSID_DesktopReader);
    }
    static ComPtr<IDataTransmitter> SinkOf(const ComPtr<IDesktopRecorder>& r) {
        ComPtr<IDataTransmitter> sink;
        EXPECT_EQ(S_OK, r.As(&sink));
        return sink;
    }
    // Transfer of record: what the recorder left in the caller's buffer stays there.
    static HRESULT Send(IDataTransmitter* sink, Bytes& record) {
        return sink->Transfer(record.data(), static_cast<unsigned long>(record.size()), FALSE);
    }
};

}  // namespace vantrel::test
