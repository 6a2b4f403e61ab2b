// The one test sink (tests, benchmarks, the sample host): an IDataTransmitter that records or
// counts the packets and flushes it receives, counts AddRef and Release, can fail its calls and
// can hold a Transfer until the test lets it go. The test owns the object; the reference count only
// watches: it never deletes, and a call that arrives while no counted reference is held is
// remembered as a fault. Sinks may share a CallJournal to check the order of calls across them
// ("A.Transfer", ...).
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "Vantrel.h"
#include "wincom/CriticalSection.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::test {

class CallJournal {
  public:
    void Add(const std::string& entry) {
        std::lock_guard<CriticalSection> guard(lock_);
        entries_.push_back(entry);
    }
    std::vector<std::string> Entries() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return entries_;
    }
    void Clear() {
        std::lock_guard<CriticalSection> guard(lock_);
        entries_.clear();
    }

  private:
    mutable CriticalSection lock_;
    std::vector<std::string> entries_;
};

class FakeSink : public IDataTransmitter {
  public:
    // A held Transfer gives up (and records a fault) after this, so a broken source cannot hang.
    static constexpr DWORD kHoldLimitMs = 30000;

    struct Packet {
        std::vector<BYTE> bytes;
        unsigned long cbData;
        long bAsync;
        DWORD tick = 0;  // GetTickCount at its arrival
    };

    explicit FakeSink(std::string name = "sink", CallJournal* journal = nullptr);
    FakeSink(const FakeSink&) = delete;
    FakeSink& operator=(const FakeSink&) = delete;
    virtual ~FakeSink() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) noexcept override;
    ULONG STDMETHODCALLTYPE AddRef() noexcept override;
    ULONG STDMETHODCALLTYPE Release() noexcept override;
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;
    HRESULT STDMETHODCALLTYPE Flush() noexcept override;

    void FailWith(HRESULT hr) { result_ = hr; }
    // Whether packets are kept or only counted (long runs); kept from the start.
    void KeepPackets(bool keep) { keep_ = keep; }
    // Every following Transfer waits inside the call until Unblock.
    void HoldTransfers();
    void Unblock();
    // True once a held Transfer has been entered (within ms).
    bool WaitHeld(DWORD ms) { return WaitForSingleObject(entered_.get(), ms) == WAIT_OBJECT_0; }

    const std::string& Name() const { return name_; }
    LONG AddRefs() const { return addRefs_; }
    LONG Releases() const { return releases_; }
    LONG Refs() const { return refs_; }
    bool InCall() const { return inCall_ > 0; }
    LONG Flushes() const { return static_cast<LONG>(FlushTicks().size()); }
    // GetTickCount of every Flush.
    std::vector<DWORD> FlushTicks() const { return Locked(flushTicks_); }
    std::vector<Packet> Packets() const { return Locked(packets_); }
    // Every packet received, kept or not, and their bytes.
    size_t PacketCount() const { return Locked(count_); }
    uint64_t ByteCount() const { return Locked(bytes_); }
    // What went wrong from the sink's point of view; empty when the source behaved.
    std::vector<std::string> Faults() const { return Locked(faults_); }

  protected:
    // Every packet, on the delivering thread, outside the sink's lock.
    virtual void Received(const void*, uint32_t) noexcept {}

  private:
    template <typename T>
    T Locked(const T& field) const {
        std::lock_guard<CriticalSection> guard(lock_);
        return field;
    }
    void Fault(const char* what);
    void Log(const char* what);

    const std::string name_;
    CallJournal* const journal_;
    UniqueEvent entered_;
    UniqueEvent gate_;  // signalled: Transfer passes

    std::atomic<LONG> refs_{0}, addRefs_{0}, releases_{0}, inCall_{0};
    std::atomic<bool> hold_{false}, keep_{true};
    std::atomic<HRESULT> result_{S_OK};
    mutable CriticalSection lock_;  // guards the members below
    std::vector<Packet> packets_;
    size_t count_ = 0;
    uint64_t bytes_ = 0;
    std::vector<DWORD> flushTicks_;
    std::vector<std::string> faults_;
};

}  // namespace vantrel::test
