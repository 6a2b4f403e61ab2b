#include "FakeSink.h"

#include <mutex>

namespace vantrel::test {

FakeSink::FakeSink(std::string name, CallJournal* journal)
    : name_(std::move(name)),
      journal_(journal),
      entered_(CreateEventA(nullptr, FALSE, FALSE, nullptr)),
      gate_(CreateEventA(nullptr, TRUE, TRUE, nullptr)) {}

HRESULT FakeSink::QueryInterface(REFIID riid, void** ppv) noexcept {
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IDataTransmitter))
        return E_NOINTERFACE;
    *ppv = static_cast<IDataTransmitter*>(this);
    AddRef();
    return S_OK;
}

ULONG FakeSink::AddRef() noexcept {
    ++addRefs_;
    return static_cast<ULONG>(++refs_);
}

ULONG FakeSink::Release() noexcept {
    ++releases_;
    const LONG left = --refs_;
    if (left < 0)
        Fault("Release without a reference");
    if (left == 0 && inCall_ > 0)
        Fault("last Release during a call");
    Log("Release");
    return static_cast<ULONG>(left < 0 ? 0 : left);
}

HRESULT FakeSink::Transfer(void* lpvData, unsigned long cbData, long bAsync) noexcept {
    if (refs_ <= 0)
        Fault("Transfer without a reference");
    ++inCall_;
    try {
        std::lock_guard<CriticalSection> guard(lock_);
        ++count_;
        bytes_ += cbData;
        const BYTE* p = static_cast<const BYTE*>(lpvData);
        if (keep_)
            packets_.push_back(Packet{p ? std::vector<BYTE>(p, p + cbData) : std::vector<BYTE>(),
                                      cbData, bAsync, GetTickCount()});
    } catch (...) {
        Fault("out of memory");
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

HRESULT FakeSink::Flush() noexcept {
    if (refs_ <= 0)
        Fault("Flush without a reference");
    {
        std::lock_guard<CriticalSection> guard(lock_);
        flushTicks_.push_back(GetTickCount());
    }
    Log("Flush");
    return result_;
}

void FakeSink::HoldTransfers() {
    ResetEvent(gate_.get());
    hold_ = true;
}

void FakeSink::Unblock() {
    hold_ = false;
    SetEvent(gate_.get());
}

void FakeSink::Fault(const char* what) {
    try {
        std::lock_guard<CriticalSection> guard(lock_);
        faults_.push_back(what);
    } catch (...) {
    }
}

void FakeSink::Log(const char* what) {
    if (journal_)
        journal_->Add(name_ + "." + what);
}

}  // namespace vantrel::test
