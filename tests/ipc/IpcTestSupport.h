// What the shared-memory tests share: the channel read by its literal names and offsets (so a
// wrong constant in the library cannot hide behind the same constant here), in-process viewers
// that answer or stay mute and log every visit, and a DesktopIPCServer made through COM.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "common/ScreenTestSupport.h"
#include "wincom/KernelObjects.h"

namespace vantrel::test {

// "Global\ScreenUpdate", read-only, by its layout.
class RawControl {
  public:
    bool Open() {
        mapping_ = TryOpenNamedSection("Global\\ScreenUpdate");
        if (mapping_)
            view_.reset(MapViewOfFile(mapping_.get(), FILE_MAP_READ, 0, 0, 66876));
        p_ = static_cast<const BYTE*>(view_.get());
        return p_ != nullptr;
    }
    std::string Name() const {
        return std::string(reinterpret_cast<const char*>(p_),
                           strnlen(reinterpret_cast<const char*>(p_), 260));
    }
    void Close() {
        view_.reset();
        mapping_.reset();
        p_ = nullptr;
    }
    DWORD Flags() const { return packet::LoadU32(p_ + 0x104); }
    POINT Cursor() const { return POINT{packet::LoadI32(p_ + 0x108), packet::LoadI32(p_ + 0x10C)}; }
    BITMAPINFOHEADER Header() const {
        BITMAPINFOHEADER h;
        std::memcpy(&h, p_ + 0x110, sizeof h);
        return h;
    }
    UINT Count() const { return packet::LoadU32(p_ + 0x538); }
    RECT Rect(UINT i) const {
        RECT r;
        std::memcpy(&r, p_ + 0x53C + 16 * i, sizeof r);
        return r;
    }

  private:
    UniqueMapping mapping_;
    UniqueViewOfFile view_;
    const BYTE* p_ = nullptr;
};

// One answer of a viewer: when it was signalled and what the control section held then.
struct Visit {
    int id;
    DWORD tick;
    DWORD flags;
    UINT count;
    POINT cursor;
};

// A viewer of session id on a thread of this process, by the literal names. Mute: it never sets
// its complete event. Every visit goes into the shared log, in the order they happened.
class InProcessViewer {
  public:
    InProcessViewer(int id, std::vector<Visit>* log, CriticalSection* lock, bool mute = false)
        : id_(id), log_(log), lock_(lock), mute_(mute) {
        const std::string n = std::to_string(id);
        receive_ = CreateNamedEvent(("Global\\StudentRecveive" + n).c_str(), true, false);
        complete_ = CreateNamedEvent(("Global\\StudentComplete" + n).c_str(), true, false);
        stop_.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
        control_.Open();
        thread_.reset(CreateThread(nullptr, 0, Entry, this, 0, nullptr));
    }
    ~InProcessViewer() {
        SetEvent(stop_.get());
        WaitForSingleObject(thread_.get(), INFINITE);
    }
    bool Ok() const { return receive_ && complete_ && thread_; }

  private:
    static DWORD WINAPI Entry(void* self) {
        static_cast<InProcessViewer*>(self)->Loop();
        return 0;
    }
    void Loop() {
        const HANDLE waits[2] = {stop_.get(), receive_.get()};
        while (WaitForMultipleObjects(2, waits, FALSE, INFINITE) == WAIT_OBJECT_0 + 1) {
            ResetEvent(receive_.get());
            if (!control_.Open())
                continue;
            {
                std::lock_guard<CriticalSection> guard(*lock_);
                log_->push_back(Visit{id_, GetTickCount(), control_.Flags(), control_.Count(),
                                      control_.Cursor()});
            }
            if (!mute_)
                SetEvent(complete_.get());
        }
    }
    int id_;
    std::vector<Visit>* log_;
    CriticalSection* lock_;
    bool mute_;
    RawControl control_;
    UniqueEvent receive_, complete_, stop_;
    UniqueThread thread_;
};

// COM, a codec, and a DesktopIPCServer made by its class object.
class IpcServerTest : public ScreenTest {
  protected:
    void SetUp() override {
        ScreenTest::SetUp();
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopIPCServer, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDataTransmitter, sink_.PutVoid()));
        ASSERT_EQ(S_OK, sink_.As(&server_));
        ASSERT_TRUE(control_.Open());
    }
    void TearDown() override {
        server_.Reset();
        sink_.Reset();
        ScreenTest::TearDown();
    }
    void Feed(const std::vector<std::vector<BYTE>>& packets) {
        for (auto p : packets)
            EXPECT_EQ(S_OK, sink_->Transfer(p.data(), static_cast<unsigned long>(p.size()), FALSE));
    }

    ComPtr<IDataTransmitter> sink_;
    ComPtr<IDesktopIPCServer> server_;
    RawControl control_;
};

}  // namespace vantrel::test
