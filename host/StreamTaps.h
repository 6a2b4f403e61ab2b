// Sinks of the host's own, registered with a source beside the library's sinks, as any host may
// do: PacketCounter counts what a source delivers (the figures of a command's report);
// TimeGate passes a lesson's records on to another sink up to a given recording time and drops
// the rest (a snapshot at that time). Each is a reference-counted COM object, created with
// Make and held through ComPtr; sources call them on their own threads.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

#include "Vantrel.h"
#include "wincom/ComPtr.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::host {

class SinkBase : public IDataTransmitter {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) noexcept override;
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++refs_; }
    ULONG STDMETHODCALLTYPE Release() noexcept override;
    HRESULT STDMETHODCALLTYPE Flush() noexcept override { return S_OK; }

  protected:
    virtual ~SinkBase() = default;

  private:
    std::atomic<ULONG> refs_{1};
};

// What the stream's packets are, by their first four bytes and the time at offset 8.
struct PacketHead {
    static constexpr uint32_t kFrame = 0x46524D48;   // "HMRF"
    static constexpr uint32_t kCursor = 0x43555248;  // "HRUC"
    uint32_t magic = 0;
    uint32_t time = 0;
    static bool Read(const void* data, unsigned long size, PacketHead* out) noexcept;
};

class PacketCounter final : public SinkBase {
  public:
    static ComPtr<PacketCounter> Make();
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;

    uint64_t Packets() const noexcept { return packets_; }
    uint64_t Frames() const noexcept { return frames_; }
    uint64_t Cursors() const noexcept { return cursors_; }
    uint64_t Bytes() const noexcept { return bytes_; }

  private:
    std::atomic<uint64_t> packets_{0}, frames_{0}, cursors_{0}, bytes_{0};
};

class TimeGate final : public SinkBase {
  public:
    // Records of time <= limitMs go on to target; the first later record sets Passed.
    static ComPtr<TimeGate> Make(IDataTransmitter* target, DWORD limitMs);
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;

    HANDLE Passed() const noexcept { return passed_.get(); }
    uint32_t Forwarded() const noexcept { return forwarded_; }
    uint32_t LastTime() const noexcept { return lastTime_; }

  private:
    TimeGate(IDataTransmitter* target, DWORD limitMs);

    ComPtr<IDataTransmitter> target_;
    const DWORD limit_;
    UniqueEvent passed_;
    std::atomic<uint32_t> forwarded_{0}, lastTime_{0};
};

}  // namespace vantrel::host
