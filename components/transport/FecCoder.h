// The COM class FecCoder of Transport.dll: IFecCoder over one FecEncoder and one FecDecoder.
// Vantrel's caster encodes with one instance, each receiver decodes with its own. ThreadingModel
// "both": calls are serialised by the object's lock.
#pragma once

#include <Transport.h>

#include "FecDecoder.h"
#include "FecEncoder.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/CriticalSection.h"

namespace transport {

class FecCoder final : public IFecCoder, public vantrel::ComObjectRoot {
  public:
    explicit FecCoder(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

    HRESULT STDMETHODCALLTYPE Configure(LONG nGroupSize, LONG nFecPackets,
                                        LONG nMaxPacket) noexcept override;
    HRESULT STDMETHODCALLTYPE Reset() noexcept override;
    HRESULT STDMETHODCALLTYPE Encode(const void* pvFragment, ULONG cbFragment, FecBuffer* pList,
                                     LONG* pnCount) noexcept override;
    HRESULT STDMETHODCALLTYPE Decode(const void* pvDatagram, ULONG cbDatagram, FecBuffer* pList,
                                     LONG* pnCount) noexcept override;
    HRESULT STDMETHODCALLTYPE SetChecksum(LONG bCheckSum) noexcept override;
    HRESULT STDMETHODCALLTYPE Drain(FecBuffer* pList, LONG* pnCount) noexcept override;

    HRESULT FinalConstruct() noexcept override;

  protected:
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

  private:
    static std::uint32_t NewEpoch() noexcept;

    vantrel::CriticalSection lock_;  // guards encoder_ and decoder_
    FecEncoder encoder_;
    FecDecoder decoder_;
};

}  // namespace transport
