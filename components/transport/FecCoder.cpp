#include "FecCoder.h"

#include <mutex>

#include "wincom/Result.h"

namespace transport {
namespace {

constexpr LONG kDefaultGroup = 32;
constexpr LONG kDefaultMaxPacket = 1412;

void ToList(const FecSpan* spans, int n, FecBuffer* list) noexcept {
    for (int i = 0; i < n; ++i)
        list[i] = {spans[i].data, static_cast<ULONG>(spans[i].length)};
}

}  // namespace

FecCoder::FecCoder(IUnknown* outer) noexcept : ComObjectRoot(outer) {}

HRESULT FecCoder::FinalConstruct() noexcept {
    try {
        if (encoder_.Configure(kDefaultGroup, 0, kDefaultMaxPacket, NewEpoch()) &&
            decoder_.Configure(kDefaultMaxPacket))
            return S_OK;
    } catch (...) {
    }
    return E_OUTOFMEMORY;
}

HRESULT FecCoder::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(FecCoder, IFecCoder), {}};
    return QISearch(this, rows, riid, ppv);
}

// Receivers tell senders apart by epoch, so two coders (even in two processes started in the
// same tick) must not share one.
std::uint32_t FecCoder::NewEpoch() noexcept {
    static volatile LONG counter = 0;
    LARGE_INTEGER now{};
    QueryPerformanceCounter(&now);
    std::uint32_t x = static_cast<std::uint32_t>(now.QuadPart) ^
                      static_cast<std::uint32_t>(now.QuadPart >> 32) ^
                      (GetCurrentProcessId() << 16) ^
                      static_cast<std::uint32_t>(InterlockedIncrement(&counter)) * 0x9E3779B9u;
    x ^= x >> 16;
    x *= 0x7FEB352Du;
    x ^= x >> 15;
    return x;
}

HRESULT FecCoder::Configure(LONG nGroupSize, LONG nFecPackets, LONG nMaxPacket) noexcept {
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    RETURN_HR_IF(E_INVALIDARG, nGroupSize < 1 || nGroupSize > kFecMaxGroup || nFecPackets < 0 ||
                                   nFecPackets > kFecMaxRepair || nMaxPacket < 1 ||
                                   nMaxPacket > kFecMaxPacketLimit);
    try {
        if (encoder_.Configure(nGroupSize, nFecPackets, nMaxPacket, NewEpoch()) &&
            decoder_.Configure(nMaxPacket))
            return S_OK;
    } catch (...) {
    }
    return E_OUTOFMEMORY;
}

HRESULT FecCoder::Reset() noexcept {
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    encoder_.Reset(NewEpoch());
    decoder_.Reset();
    return S_OK;
}

HRESULT FecCoder::Encode(const void* pvFragment, ULONG cbFragment, FecBuffer* pList,
                         LONG* pnCount) noexcept {
    RETURN_HR_IF(E_POINTER, !pList || !pnCount);
    *pnCount = 0;
    RETURN_HR_IF(E_POINTER, !pvFragment);
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    FecSpan spans[FecEncoder::kMaxEncodeOutput];
    const int n = encoder_.Encode(static_cast<const std::uint8_t*>(pvFragment), cbFragment, spans);
    RETURN_HR_IF(E_INVALIDARG, n < 0);
    ToList(spans, n, pList);
    *pnCount = n;
    return S_OK;
}

HRESULT FecCoder::Decode(const void* pvDatagram, ULONG cbDatagram, FecBuffer* pList,
                         LONG* pnCount) noexcept {
    RETURN_HR_IF(E_POINTER, !pList || !pnCount);
    *pnCount = 0;
    RETURN_HR_IF(E_POINTER, !pvDatagram);
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    FecSpan spans[FecDecoder::kMaxDecodeOutput];
    int n = 0;
    const FecDecoder::Result r =
        decoder_.Decode(static_cast<const std::uint8_t*>(pvDatagram), cbDatagram, spans, &n);
    ToList(spans, n, pList);
    *pnCount = n;
    return r == FecDecoder::Result::kAccepted ? S_OK : S_FALSE;
}

HRESULT FecCoder::SetChecksum(LONG bCheckSum) noexcept {
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    encoder_.SetChecksum(bCheckSum != 0);
    return S_OK;
}

HRESULT FecCoder::Drain(FecBuffer* pList, LONG* pnCount) noexcept {
    RETURN_HR_IF(E_POINTER, !pList || !pnCount);
    std::lock_guard<vantrel::CriticalSection> hold(lock_);
    FecSpan spans[FecEncoder::kMaxDrainOutput];
    const int n = encoder_.Drain(spans);
    ToList(spans, n, pList);
    *pnCount = n;
    return S_OK;
}

}  // namespace transport
