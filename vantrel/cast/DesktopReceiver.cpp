// DesktopReceiver: session, receive queue, the receiver's thread and reassembly.
#include "cast/DesktopReceiver.h"

#include <cstring>
#include <mutex>

namespace vantrel {

DesktopReceiver::DesktopReceiver(IUnknown* outer) noexcept : ComObjectRoot(outer) {
    CoCreateInstance(CLSID_MulticastReceiver, nullptr, CLSCTX_INPROC_SERVER, IID_IMulticastReceiver,
                     transport_.PutVoid());
    CoCreateInstance(CLSID_FecCoder, nullptr, CLSCTX_INPROC_SERVER, IID_IFecCoder,
                     coder_.PutVoid());
}

DesktopReceiver::~DesktopReceiver() {
    std::lock_guard<CriticalSection> guard(lock_);
    if (thread_)
        StopLocked();
}

HRESULT DesktopReceiver::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(DesktopReceiver, IDesktopReceiver), {}};
    return QISearch(this, rows, riid, ppv);
}

// The components' results are not looked at: every method but the two sink methods gives S_OK.
HRESULT DesktopReceiver::JoinSession(LPSTR lpszLocalIpAddress, LPSTR lpszIpAddress,
                                     unsigned short wPort) noexcept {
    sourceFilter_ = 0;
    if (transport_) {
        transport_->Join(lpszLocalIpAddress, lpszIpAddress, wPort);
        transport_->SetCallback(OnDatagram, this);
    }
    return S_OK;
}

HRESULT DesktopReceiver::LeaveSession() noexcept {
    if (transport_)
        transport_->Leave();
    return S_OK;
}

// A second Run while running changes nothing.
HRESULT DesktopReceiver::Run() noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    if (thread_)
        return S_OK;
    reassembler_.Reset();
    if (!queue_.CreateSlots(kQueueSlots, kSlotSize))
        return S_OK;
    DWORD id = 0;
    thread_.reset(CreateThread(nullptr, 0, ThreadEntry, this, 0, &id));
    if (!thread_) {
        queue_.DestroySlots();
        return S_OK;
    }
    if (coder_)
        coder_->Configure(kGroupSize, 0, cast::kMaxFragmentSize);
    if (transport_)
        transport_->Start();
    return S_OK;
}

HRESULT DesktopReceiver::Stop() noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    StopLocked();
    return S_OK;
}

// The transport stops before the queue does, so no producer is inside the queue when it goes;
// once the thread has ended no sink is called any more.
void DesktopReceiver::StopLocked() noexcept {
    if (transport_)
        transport_->Stop();
    queue_.SetRunning(false);
    if (thread_) {
        WaitForSingleObject(thread_.get(), INFINITE);
        thread_.reset();
    }
    queue_.DestroySlots();
    if (coder_)
        coder_->Reset();
}

HRESULT DesktopReceiver::RegisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept {
    return sinks_.RegisterDataTransmitter(pDataTransmitter);
}

HRESULT DesktopReceiver::UnregisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept {
    return sinks_.UnregisterDataTransmitter(pDataTransmitter);
}

// A later JoinSession clears the filter again.
HRESULT DesktopReceiver::SetSourceFilter(unsigned long dwSourceFilter) noexcept {
    sourceFilter_ = dwSourceFilter;
    return S_OK;
}

LONG __cdecl DesktopReceiver::OnDatagram(void* context, ULONG source, ULONG, const void* data,
                                         ULONG length) {
    if (context)
        static_cast<DesktopReceiver*>(context)->EnqueueDatagram(source, data, length);
    return 0;
}

// On the transport's thread: only a copy into a free slot, so a slow sink never holds it up.
void DesktopReceiver::EnqueueDatagram(ULONG source, const void* data, ULONG length) noexcept {
    const ULONG filter = sourceFilter_;
    if ((filter != 0 && filter != source) || length > kMaxDatagram || (!data && length))
        return;
    BYTE* slot = queue_.AcquireWriteSlot(kEnqueueTimeoutMs);
    if (!slot)
        return;
    const uint32_t n = length;
    std::memcpy(slot, &n, sizeof n);
    if (n)
        std::memcpy(slot + sizeof n, data, n);
    queue_.CommitWriteSlot();
}

DWORD WINAPI DesktopReceiver::ThreadEntry(void* self) noexcept {
    static_cast<DesktopReceiver*>(self)->ThreadBody();
    return 0;
}

void DesktopReceiver::ThreadBody() noexcept {
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_ABOVE_NORMAL);
    while (BYTE* slot = queue_.AcquireReadSlot(INFINITE)) {
        uint32_t length;
        std::memcpy(&length, slot, sizeof length);
        if (coder_ && length <= kMaxDatagram) {
            FecBuffer list[kDecodeListSize];
            LONG count = 0;
            coder_->Decode(slot + sizeof length, length, list, &count);
            if (count > kDecodeListSize)
                count = kDecodeListSize;
            for (LONG i = 0; i < count; ++i)
                ReassembleFragment(list[i].pbData, list[i].cbData);
        }
        queue_.CommitReadSlot();
    }
}

void DesktopReceiver::ReassembleFragment(const BYTE* fragment, ULONG length) noexcept {
    uint32_t packetLength = 0;
    if (reassembler_.Add(fragment, length, &packetLength))
        sinks_.Deliver(reassembler_.packet(), packetLength);
}

}  // namespace vantrel
