// DesktopCaster: a sink of the desktop stream that sends every packet into a multicast session,
// cut into fragments, through the error-correction coder and the multicast sender.
#pragma once

#include <windows.h>

#include "Vantrel.h"
#include "wincom/ComObjectRoot.h"

namespace vantrel {

class DesktopCaster final : public ComObjectRoot, public IDesktopCaster, public IDataTransmitter {
  public:
    explicit DesktopCaster(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

    // IDesktopCaster
    HRESULT STDMETHODCALLTYPE CreateSession(LPSTR lpszLocalIpAddress, LPSTR lpszIpAddress,
                                            unsigned short wPort, int nNumFecPacketsInGroup,
                                            long bCheckSum) noexcept override;
    HRESULT STDMETHODCALLTYPE DestroySession() noexcept override;
    HRESULT STDMETHODCALLTYPE Run() noexcept override;
    HRESULT STDMETHODCALLTYPE Stop() noexcept override;

    // IDataTransmitter
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;
    HRESULT STDMETHODCALLTYPE Flush() noexcept override;

  private:
    ~DesktopCaster() override = default;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

    static constexpr int kMaxFecPacketsInGroup = 32;

    // Used by one source at a time on its thread; Run is called while no source feeds the caster.
    DWORD messageNumber_ = 0;
    DWORD datagramCount_ = 0;
};

}  // namespace vantrel
