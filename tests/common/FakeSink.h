// A fake IDataTransmitter for the tests of every source: records the packets it receives,
// counts AddRef and Release, can fail its calls and can hold a Transfer until the test lets it
// go. The test owns the object (it lives on the stack or in a fixture); the reference count only
// watches: it never deletes, and a call that arrives while no counted reference is held is
// remembered as a fault.
//
// Sinks may share a CallJournal to check the order of calls across them ("A.Transfer", ...).
#pragma once

#include <windows.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "Vantrel.h"
#include "platform/CriticalSection.h"
#include "platform/UniqueHandle.h"

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

class FakeSink final : public IDataTransmitter {
  public:
    // How long a held Transfer waits for Unblock before it gives up (and records a timeout), so
    // that a broken source cannot hang a test.
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

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) noexcept override {
        if (!ppv)
            return E_POINTER;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IDataTransmitter)) {
            *ppv = static_cast<IDataTransmitter*>(this);
            AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override {
        std::lock_guard<CriticalSection> guard(lock_);
        ++addRefs_;
        return static_cast<ULONG>(++refs_);
    }
    ULONG STDMETHODCALLTYPE Release() noexcept override {
        {
            std::lock_guard<CriticalSection> guard(lock_);
            ++releases_;
            if (--refs_ < 0)
                faults_.push_back("Release without a reference");
            if (refs_ == 0 && inCall_ > 0)
                faults_.push_back("last Release during a call");
        }
        Log("Release");
        return static_cast<ULONG>(refs_ < 0 ? 0 : refs_);
    }

    // IDataTransmitter
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override {
        bool hold;
        {
            std::lock_guard<CriticalSection> guard(lock_);
            if (refs_ <= 0)
                faults_.push_back("Transfer without a reference");
            ++inCall_;
            const BYTE* p = static_cast<const BYTE*>(lpvData);
            packets_.push_back(
                Packet{p ? std::vector<BYTE>(p, p + cbData) : std::vector<BYTE>(), cbData, bAsync});
            hold = hold_;
        }
        Log("Transfer");
        if (hold) {
            SetEvent(entered_.get());
            if (WaitForSingleObject(gate_.get(), kHoldLimitMs) != WAIT_OBJECT_0) {
                std::lock_guard<CriticalSection> guard(lock_);
                faults_.push_back("held Transfer never released");
            }
            Log("TransferEnd");
        }
        std::lock_guard<CriticalSection> guard(lock_);
        --inCall_;
        return result_;
    }
    HRESULT STDMETHODCALLTYPE Flush() noexcept override {
        {
            std::lock_guard<CriticalSection> guard(lock_);
            if (refs_ <= 0)
                faults_.push_back("Flush without a reference");
            ++flushes_;
        }
        Log("Flush");
        std::lock_guard<CriticalSection> guard(lock_);
        return result_;
    }

    // Knobs.
    void FailWith(HRESULT hr) {
        std::lock_guard<CriticalSection> guard(lock_);
        result_ = hr;
    }
    // Every following Transfer waits inside the call until Unblock.
    void HoldTransfers() {
        std::lock_guard<CriticalSection> guard(lock_);
        hold_ = true;
        ResetEvent(gate_.get());
    }
    void Unblock() {
        {
            std::lock_guard<CriticalSection> guard(lock_);
            hold_ = false;
        }
        SetEvent(gate_.get());
    }
    // True once a held Transfer has been entered (within ms).
    bool WaitHeld(DWORD ms) { return WaitForSingleObject(entered_.get(), ms) == WAIT_OBJECT_0; }

    // Observations.
    const std::string& Name() const { return name_; }
    LONG AddRefs() const { return Read(addRefs_); }
    LONG Releases() const { return Read(releases_); }
    LONG Refs() const { return Read(refs_); }
    LONG Flushes() const { return Read(flushes_); }
    bool InCall() const { return Read(inCall_) > 0; }
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

  private:
    LONG Read(const LONG& field) const {
        std::lock_guard<CriticalSection> guard(lock_);
        return field;
    }
    void Log(const char* what) {
        if (journal_)
            journal_->Add(name_ + "." + what);
    }

    const std::string name_;
    CallJournal* const journal_;
    UniqueEvent entered_;
    UniqueEvent gate_;  // signalled: Transfer passes

    mutable CriticalSection lock_;  // guards everything below
    LONG refs_ = 0;
    LONG addRefs_ = 0;
    LONG releases_ = 0;
    LONG flushes_ = 0;
    LONG inCall_ = 0;
    bool hold_ = false;
    HRESULT result_ = S_OK;
    std::vector<Packet> packets_;
    std::vector<std::string> faults_;
};

}  // namespace vantrel::test
