// DesktopReceiver: a source of the desktop stream on the students' side. It joins a multicast
// session, lets the error-correction coder restore the fragments a DesktopCaster sent,
// reassembles the packets and hands each complete one to its sinks.
//
// Threads: the host's thread calls every method; the transport's thread runs OnDatagram (the
// queue's producer); the receiver's thread (one step above normal, between Run and Stop) is
// the queue's consumer and runs the coder's Decode, reassembly and the sinks' Transfer. The
// queue is the only hand-over between the two. lock_ serialises Run and Stop; the source
// filter is one atomic word.
#pragma once

#include <windows.h>

#include <atomic>

#include "Transport.h"
#include "Vantrel.h"
#include "cast/Fragment.h"
#include "cast/ReceiveQueue.h"
#include "stream/SinkTable.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/ComPtr.h"
#include "wincom/CriticalSection.h"
#include "wincom/UniqueHandle.h"

namespace vantrel {

class DesktopReceiver final : public ComObjectRoot, public IDesktopReceiver {
  public:
    explicit DesktopReceiver(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

    // IDesktopReceiver
    HRESULT STDMETHODCALLTYPE JoinSession(LPSTR lpszLocalIpAddress, LPSTR lpszIpAddress,
                                          unsigned short wPort) noexcept override;
    HRESULT STDMETHODCALLTYPE LeaveSession() noexcept override;
    HRESULT STDMETHODCALLTYPE Run() noexcept override;
    HRESULT STDMETHODCALLTYPE Stop() noexcept override;
    HRESULT STDMETHODCALLTYPE
    RegisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept override;
    HRESULT STDMETHODCALLTYPE
    UnregisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept override;
    HRESULT STDMETHODCALLTYPE SetSourceFilter(unsigned long dwSourceFilter) noexcept override;

    // Queue slots: a 32-bit datagram length, then the datagram.
    static constexpr int kQueueSlots = 2048;
    static constexpr uint32_t kMaxDatagram = 1500;
    static constexpr uint32_t kSlotSize = kMaxDatagram + 4;
    // How long the transport's thread waits for a free slot before it drops a datagram.
    static constexpr DWORD kEnqueueTimeoutMs = 100;

  private:
    // A receiver still running when its last reference goes is stopped first: the transport's
    // and the receiver's threads must not outlive the object they call into.
    ~DesktopReceiver() override;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

    static LONG __cdecl OnDatagram(void* context, ULONG source, ULONG reserved, const void* data,
                                   ULONG length);
    static DWORD WINAPI ThreadEntry(void* self) noexcept;
    void ThreadBody() noexcept;
    void EnqueueDatagram(ULONG source, const void* data, ULONG length) noexcept;
    void ReassembleFragment(const BYTE* fragment, ULONG length) noexcept;
    void StopLocked() noexcept;

    static constexpr int kGroupSize = 32;
    static constexpr LONG kDecodeListSize = 33;

    // Null when the transport could not be created; the receiver then receives nothing.
    ComPtr<IMulticastReceiver> transport_;
    ComPtr<IFecCoder> coder_;
    cast::Reassembler reassembler_;       // current message, bytes received: the receiver's thread
    std::atomic<ULONG> sourceFilter_{0};  // 0 accepts every source
    CriticalSection lock_;
    UniqueThread thread_;  // guarded by lock_
    ReceiveQueue queue_;   // created by Run, destroyed by Stop (under lock_)
    SinkTable sinks_;
};

}  // namespace vantrel
