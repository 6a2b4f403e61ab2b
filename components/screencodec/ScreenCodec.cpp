// IScreenCodec of ScreenCodec.dll. Argument checks live here; the block work is BlockCodec's.
#include "ScreenCodec.h"

#include "wincom/Result.h"

namespace screencodec {
namespace {
const std::uint8_t* Bytes(const void* p) noexcept {
    return static_cast<const std::uint8_t*>(p);
}
}  // namespace

HRESULT ScreenCodec::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(ScreenCodec, IScreenCodec), {}};
    return QISearch(this, rows, riid, ppv);
}

HRESULT ScreenCodec::GetVersion(ULONG* pdwVersion) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pdwVersion);
    *pdwVersion = kVersion;
    return S_OK;
}

HRESULT ScreenCodec::GetFormatTag(ULONG* pdwTag) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pdwTag);
    *pdwTag = BlockHeader::kTag;
    return S_OK;
}

HRESULT ScreenCodec::GetMaxCompressedSize(ULONG cbSource, ULONG* pcbMax) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pcbMax);
    const std::uint64_t max = BlockCodec::MaxBlockSize(cbSource);
    RETURN_HR_IF(E_INVALIDARG, max > 0xFFFFFFFFu);
    *pcbMax = static_cast<ULONG>(max);
    return S_OK;
}

HRESULT ScreenCodec::GetOriginalSize(const void* pvSource, ULONG cbSource,
                                     ULONG* pcbOriginal) noexcept {
    RETURN_HR_IF(E_POINTER, !pvSource || !pcbOriginal);
    BlockHeader header;
    RETURN_IF_FAILED(header.Read(Bytes(pvSource), cbSource));
    *pcbOriginal = header.originalLength;
    return S_OK;
}

HRESULT ScreenCodec::CheckBlock(const void* pvSource, ULONG cbSource) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pvSource);
    std::lock_guard<vantrel::CriticalSection> guard(lock_);
    return codec_.Check(Bytes(pvSource), cbSource);
}

HRESULT ScreenCodec::SetLevel(ULONG nMode, ULONG nLevel) noexcept {
    std::lock_guard<vantrel::CriticalSection> guard(lock_);
    return codec_.SetLevel(nMode, nLevel);
}

HRESULT ScreenCodec::GetLevel(ULONG nMode, ULONG* pnLevel) noexcept {
    std::lock_guard<vantrel::CriticalSection> guard(lock_);
    return codec_.GetLevel(nMode, pnLevel);
}

HRESULT ScreenCodec::Compress(const void* pvSource, ULONG cbSource, void* pvDest, ULONG* pcbDest,
                              ULONG nMode) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pcbDest);
    if (!pvSource || !pvDest) {
        *pcbDest = 0;
        return E_POINTER;
    }
    std::lock_guard<vantrel::CriticalSection> guard(lock_);
    return codec_.Compress(Bytes(pvSource), cbSource, static_cast<std::uint8_t*>(pvDest), pcbDest,
                           nMode);
}

HRESULT ScreenCodec::Decompress(const void* pvSource, ULONG cbSource, void* pvDest,
                                ULONG* pcbDest) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pcbDest);
    if (!pvSource || !pvDest) {
        *pcbDest = 0;
        return E_POINTER;
    }
    std::lock_guard<vantrel::CriticalSection> guard(lock_);
    return codec_.Decompress(Bytes(pvSource), cbSource, static_cast<std::uint8_t*>(pvDest),
                             pcbDest);
}

}  // namespace screencodec
