// A fake IDataTransmitter for the tests of every source: records the packets and flushes it
// receives, counts AddRef and Release, can fail its calls and can hold a Transfer until the test
// lets it go. The test owns the object; the reference count only watches: it never deletes, and
// a call that arrives while no counted reference is held is remembered as a fault. Sinks may
// share a CallJournal to check the order of calls across them ("A.Transfer", ...).
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
    };

    explicit FakeSink(std::string name = "sink", CallJournal* journal = nullptr)
        : name_(std::move(name)),
          journal_(journal),
          entered_(CreateEventA(nullptr, FALSE, FALSE, nullptr)),
          gate_(CreateEventA(nullptr, TRUE, TRUE, nullptr)) {}
    FakeSink(const FakeSink&) = delete;
    FakeSink& operator=(const FakeSink&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) noexcept override {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IDataTransmitter))
            return E_NOINTERFACE;
        *ppv = static_cast<IDataTransmitter*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override {
        ++addRefs_;
        return static_cast<ULONG>(++refs_);
    }
    ULONG STDMETHODCALLTYPE Release() noexcept override {
        ++releases_;
        const LONG left = --refs_;
        if (left < 0)
            Fault("Release without a reference");
        if (left == 0 && inCall_ > 0)
            Fault("last Release during a call");
        Log("Release");
        return static_cast<ULONG>(left < 0 ? 0 : left);
    }

    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override {
        if (refs_ <= 0)
            Fault("Transfer without a reference");
        ++inCall_;
        {
            std::lock_guard<CriticalSection> guard(lock_);
            const BYTE* p = static_cast<const BYTE*>(lpvData);
            packets_.push_back(
                Packet{p ? std::vector<BYTE>(p, p + cbData) : std::vector<BYTE>(), cbData, bAsync});
        }
        Log("Transfer");
        Received(lpvData, cbData);
        if (hold_) {
            SetEvent(entered_.get());
            if (WaitForSingleObject(gate_.get(), kHoldLimitMs) != WAIT_OBJECT_0)
                Fault("held Transfer never released");
            Log("TransferEnd");
        }
        --inCall_;
        return result_;
    }
    HRESULT STDMETHODCALLTYPE Flush() noexcept override {
        if (refs_ <= 0)
            Fault("Flush without a reference");
        {
            std::lock_guard<CriticalSection> guard(lock_);
            flushTicks_.push_back(GetTickCount());
        }
        Log("Flush");
        return result_;
    }

    void FailWith(HRESULT hr) { result_ = hr; }
    // Every following Transfer waits inside the call until Unblock.
    void HoldTransfers() {
        ResetEvent(gate_.get());
        hold_ = true;
    }
    void Unblock() {
        hold_ = false;
        SetEvent(gate_.get());
    }
    // True once a held Transfer has been entered (within ms).
    bool WaitHeld(DWORD ms) { return WaitForSingleObject(entered_.get(), ms) == WAIT_OBJECT_0; }

    const std::string& Name() const { return name_; }
    LONG AddRefs() const { return addRefs_; }
    LONG Releases() const { return releases_; }
    LONG Refs() const { return refs_; }
    bool InCall() const { return inCall_ > 0; }
    LONG Flushes() const { return static_cast<LONG>(FlushTicks().size()); }
    // GetTickCount of every Flush.
    std::vector<DWORD> FlushTicks() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return flushTicks_;
    }
    std::vector<Packet> Packets() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return packets_;
    }
    size_t PacketCount() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return packets_.size();
    }
    // What went wrong from the sink's point of view; empty when the source behaved.
    std::vector<std::string> Faults() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return faults_;
    }

  protected:
    // Every packet, on the delivering thread, outside the sink's lock.
    virtual void Received(const void*, uint32_t) noexcept {}

  private:
    void Fault(const char* what) {
        std::lock_guard<CriticalSection> guard(lock_);
        faults_.push_back(what);
    }
    void Log(const char* what) {
        if (journal_)
            journal_->Add(name_ + "." + what);
    }

    const std::string name_;
    CallJournal* const journal_;
    UniqueEvent entered_;
    UniqueEvent gate_;  // signalled: Transfer passes

    std::atomic<LONG> refs_{0}, addRefs_{0}, releases_{0}, inCall_{0};
    std::atomic<bool> hold_{false};
    std::atomic<HRESULT> result_{S_OK};
    mutable CriticalSection lock_;  // guards the vectors below
    std::vector<Packet> packets_;
    std::vector<DWORD> flushTicks_;
    std::vector<std::string> faults_;
};

}  // namespace vantrel::test
