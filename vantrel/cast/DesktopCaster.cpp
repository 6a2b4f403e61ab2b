// DesktopCaster: fragments, codes, sends and paces every packet it is given.
#include "cast/DesktopCaster.h"

#include <new>

#include "cast/Fragment.h"
#include "wincom/Result.h"

namespace vantrel {

DesktopCaster::DesktopCaster(IUnknown* outer) noexcept
    : ComObjectRoot(outer), fragment_(new (std::nothrow) uint8_t[kFragmentBufferSize]) {
    CoCreateInstance(CLSID_MulticastSender, nullptr, CLSCTX_INPROC_SERVER, IID_IMulticastSender,
                     sender_.PutVoid());
    CoCreateInstance(CLSID_FecCoder, nullptr, CLSCTX_INPROC_SERVER, IID_IFecCoder,
                     coder_.PutVoid());
}

HRESULT DesktopCaster::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {
        QITABENT(DesktopCaster, IDesktopCaster),
        QITABENT(DesktopCaster, IDataTransmitter),
        {},
    };
    return QISearch(this, rows, riid, ppv);
}

// The components' results are not looked at: a session that cannot open simply sends nowhere.
HRESULT DesktopCaster::CreateSession(LPSTR lpszLocalIpAddress, LPSTR lpszIpAddress,
                                     unsigned short wPort, int nNumFecPacketsInGroup,
                                     long bCheckSum) noexcept {
    RETURN_HR_IF(E_FAIL,
                 nNumFecPacketsInGroup < 0 || nNumFecPacketsInGroup > kMaxFecPacketsInGroup);
    if (sender_)
        sender_->Open(lpszLocalIpAddress, lpszIpAddress, wPort);
    if (coder_) {
        coder_->Configure(kGroupSize, nNumFecPacketsInGroup, cast::kMaxFragmentSize);
        coder_->SetChecksum(bCheckSum);
    }
    // More correction datagrams per group make longer bursts: 2 ms per step of 8, plus 2.
    pauseMs_ = static_cast<DWORD>(nNumFecPacketsInGroup / 8) * 2 + 2;
    return S_OK;
}

HRESULT DesktopCaster::DestroySession() noexcept {
    if (sender_)
        sender_->Close();
    if (coder_)
        coder_->Reset();
    return S_OK;
}

HRESULT DesktopCaster::Run() noexcept {
    messageNumber_ = 0;
    datagramCount_ = 0;
    return S_OK;
}

// Sending does not depend on Run: the caster sends until the source lets it go.
HRESULT DesktopCaster::Stop() noexcept {
    return S_OK;
}

// The coder's result is not looked at; a count it did not set stays 0, one above the list's room
// is cut to it.
void DesktopCaster::SendDatagrams(const FecBuffer* list, LONG count, LONG capacity) noexcept {
    if (count > capacity)
        count = capacity;
    for (LONG i = 0; i < count; ++i) {
        if (list[i].pbData)
            sender_->Send(list[i].pbData, static_cast<USHORT>(list[i].cbData & 0xFFFF));
        if (++datagramCount_ % 8 == 0)
            Sleep(pauseMs_);
    }
}

// An empty packet still uses up its message number.
HRESULT DesktopCaster::Transfer(void* lpvData, unsigned long cbData, long) noexcept {
    const DWORD message = messageNumber_++;
    if (!fragment_ || !sender_ || !coder_)
        return S_OK;
    cast::Fragmenter cutter(fragment_.get(), message, lpvData, cbData);
    while (const uint32_t length = cutter.Next()) {
        FecBuffer list[kEncodeListSize];
        LONG count = 0;
        coder_->Encode(fragment_.get(), length, list, &count);
        SendDatagrams(list, count, kEncodeListSize);
    }
    return S_OK;
}

HRESULT DesktopCaster::Flush() noexcept {
    if (!sender_ || !coder_)
        return S_OK;
    FecBuffer list[kDrainListSize];
    LONG count = 0;
    coder_->Drain(list, &count);
    SendDatagrams(list, count, kDrainListSize);
    return S_OK;
}

}  // namespace vantrel
