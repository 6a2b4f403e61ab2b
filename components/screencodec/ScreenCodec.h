// The COM class ScreenCodec of ScreenCodec.dll: IScreenCodec over a BlockCodec. Vantrel's
// capture, render and shared-memory server each hold one for their life. ThreadingModel
// "both": one object may be called from any thread, one call at a time by its lock.
#pragma once

// The interface header generated from ScreenCodec.idl; this folder's ScreenCodec.h (this
// file) is only reachable with quotes.
#include <ScreenCodec.h>

#include <mutex>

#include "BlockCodec.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/CriticalSection.h"

namespace screencodec {

class ScreenCodec final : public IScreenCodec, public vantrel::ComObjectRoot {
  public:
    static constexpr ULONG kVersion = 0x00010000;  // 1.0, the interface; blocks name their format

    explicit ScreenCodec(IUnknown* outer) noexcept : ComObjectRoot(outer) {}

    VANTREL_COM_IUNKNOWN

    HRESULT STDMETHODCALLTYPE GetVersion(ULONG* pdwVersion) noexcept override;
    HRESULT STDMETHODCALLTYPE GetFormatTag(ULONG* pdwTag) noexcept override;
    HRESULT STDMETHODCALLTYPE GetMaxCompressedSize(ULONG cbSource, ULONG* pcbMax) noexcept override;
    HRESULT STDMETHODCALLTYPE GetOriginalSize(const void* pvSource, ULONG cbSource,
                                              ULONG* pcbOriginal) noexcept override;
    HRESULT STDMETHODCALLTYPE CheckBlock(const void* pvSource, ULONG cbSource) noexcept override;
    HRESULT STDMETHODCALLTYPE SetLevel(ULONG nMode, ULONG nLevel) noexcept override;
    HRESULT STDMETHODCALLTYPE GetLevel(ULONG nMode, ULONG* pnLevel) noexcept override;
    HRESULT STDMETHODCALLTYPE Compress(const void* pvSource, ULONG cbSource, void* pvDest,
                                       ULONG* pcbDest, ULONG nMode) noexcept override;
    HRESULT STDMETHODCALLTYPE Decompress(const void* pvSource, ULONG cbSource, void* pvDest,
                                         ULONG* pcbDest) noexcept override;

  protected:
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

  private:
    vantrel::CriticalSection lock_;  // guards codec_
    BlockCodec codec_;
};

}  // namespace screencodec
