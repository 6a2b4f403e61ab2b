// The recorder and reader tests' fixture: COM on this thread, objects made by their registered
// class objects, sinks that note when each packet came, and a fake render that is both a sink
// and a frame buffer.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "LessonTestSupport.h"
#include "Vantrel.h"
#include "common/FakeSink.h"
#include "common/Screen.h"
#include "wincom/ComPtr.h"

namespace vantrel::test {

// A FakeSink that also notes the tick of every packet.
class TickSink : public FakeSink {
  public:
    using FakeSink::FakeSink;
    std::vector<DWORD> Ticks() const {
        std::lock_guard<CriticalSection> guard(tickLock_);
        return ticks_;
    }

  protected:
    void Received(const void*, uint32_t) noexcept override {
        std::lock_guard<CriticalSection> guard(tickLock_);
        ticks_.push_back(GetTickCount());
    }

  private:
    mutable CriticalSection tickLock_;
    std::vector<DWORD> ticks_;
};

// A sink that is also a frame buffer, as a render is: its IFrameBuffer and IDataTransmitter
// are different pointers to one object. GetFullScreenData hands out `pictures` packets.
class FakeRender : public TickSink, public IFrameBuffer {
  public:
    explicit FakeRender(std::vector<Bytes> pictures) : TickSink("render"), pictures_(pictures) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) noexcept override {
        if (ppv && IsEqualIID(riid, IID_IFrameBuffer)) {
            *ppv = static_cast<IFrameBuffer*>(this);
            AddRef();
            return S_OK;
        }
        return TickSink::QueryInterface(riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return TickSink::AddRef(); }
    ULONG STDMETHODCALLTYPE Release() noexcept override { return TickSink::Release(); }

    HRESULT STDMETHODCALLTYPE GetFullScreenData(void* lpvData, unsigned long* pcbData,
                                                long bFirst) noexcept override {
        firsts_.push_back(bFirst);
        if (bFirst)
            next_ = 0;
        if (next_ >= pictures_.size())
            return S_FALSE;
        const Bytes& p = pictures_[next_++];
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

  private:
    std::vector<Bytes> pictures_;
    size_t next_ = 0;
    std::vector<long> firsts_;
};

class RecordTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    }
    void TearDown() override { CoUninitialize(); }

    static ComPtr<IDesktopRecorder> NewRecorder() {
        ComPtr<IDesktopRecorder> r;
        EXPECT_EQ(S_OK, CoCreateInstance(CLSID_DesktopRecorder, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopRecorder, r.PutVoid()));
        return r;
    }
    static ComPtr<IDataTransmitter> SinkOf(const ComPtr<IDesktopRecorder>& r) {
        ComPtr<IDataTransmitter> sink;
        EXPECT_EQ(S_OK, r.As(&sink));
        return sink;
    }
    static ComPtr<IDesktopReader> NewReader() {
        ComPtr<IDesktopReader> r;
        EXPECT_EQ(S_OK, CoCreateInstance(CLSID_DesktopReader, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopReader, r.PutVoid()));
        return r;
    }
    // Transfer of a copy of record: what the recorder left in the caller's buffer comes back.
    static HRESULT Send(IDataTransmitter* sink, Bytes& record) {
        return sink->Transfer(record.data(), static_cast<unsigned long>(record.size()), FALSE);
    }
};

}  // namespace vantrel::test
