// The host's own sinks (see StreamTaps.h).
#include "StreamTaps.h"

#include <cstring>
#include <new>

namespace vantrel::host {

HRESULT SinkBase::QueryInterface(REFIID riid, void** ppv) noexcept {
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IDataTransmitter))
        return E_NOINTERFACE;
    *ppv = static_cast<IDataTransmitter*>(this);
    AddRef();
    return S_OK;
}

ULONG SinkBase::Release() noexcept {
    const ULONG left = --refs_;
    if (left == 0)
        delete this;
    return left;
}

bool PacketHead::Read(const void* data, unsigned long size, PacketHead* out) noexcept {
    if (!data || size < 12)
        return false;
    std::memcpy(&out->magic, data, 4);
    std::memcpy(&out->time, static_cast<const BYTE*>(data) + 8, 4);
    return true;
}

ComPtr<PacketCounter> PacketCounter::Make() {
    ComPtr<PacketCounter> counter;
    counter.Attach(new (std::nothrow) PacketCounter());
    return counter;
}

HRESULT PacketCounter::Transfer(void* lpvData, unsigned long cbData, long) noexcept {
    PacketHead head;
    ++packets_;
    bytes_ += cbData;
    if (PacketHead::Read(lpvData, cbData, &head)) {
        frames_ += head.magic == PacketHead::kFrame;
        cursors_ += head.magic == PacketHead::kCursor;
    }
    return S_OK;
}

TimeGate::TimeGate(IDataTransmitter* target, DWORD limitMs)
    : target_(target), limit_(limitMs), passed_(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {}

ComPtr<TimeGate> TimeGate::Make(IDataTransmitter* target, DWORD limitMs) {
    ComPtr<TimeGate> gate;
    gate.Attach(new (std::nothrow) TimeGate(target, limitMs));
    if (gate && !gate->passed_)
        gate.Reset();
    return gate;
}

HRESULT TimeGate::Transfer(void* lpvData, unsigned long cbData, long bAsync) noexcept {
    PacketHead head;
    if (WaitForSingleObject(passed_.get(), 0) == WAIT_OBJECT_0 ||
        !PacketHead::Read(lpvData, cbData, &head))
        return S_OK;
    if (head.time > limit_) {
        SetEvent(passed_.get());
        return S_OK;
    }
    lastTime_ = head.time;
    ++forwarded_;
    return target_->Transfer(lpvData, cbData, bAsync);
}

}  // namespace vantrel::host
