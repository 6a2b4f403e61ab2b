// DesktopCaster: a sink of the desktop stream that sends every packet into a multicast session,
// cut into fragments, through the error-correction coder and the multicast sender (the
// transport component's contract, contracts/Transport.idl).
//
// Threads: Transfer and Flush run on the feeding source's thread, the IDesktopCaster methods on
// the host's; CreateSession, Run and DestroySession come while no source feeds the caster, so
// the fragment buffer, the counters and the coder need no lock.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>

#include "Transport.h"
#include "Vantrel.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/ComPtr.h"

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
    // Sends count datagrams of the coder's list, sleeping the pause after every eighth datagram
    // since Run.
    void SendDatagrams(const FecBuffer* list, LONG count, LONG capacity) noexcept;

    static constexpr int kGroupSize = 32;
    static constexpr int kMaxFecPacketsInGroup = 32;
    static constexpr LONG kEncodeListSize = 33;
    static constexpr LONG kDrainListSize = 64;
    static constexpr size_t kFragmentBufferSize = 2048;

    // Null when the transport could not be created; the caster then sends nothing.
    ComPtr<IMulticastSender> sender_;
    ComPtr<IFecCoder> coder_;
    DWORD messageNumber_ = 0;
    DWORD datagramCount_ = 0;
    DWORD pauseMs_ = 2;  // as for fewer than 8 correction datagrams, until CreateSession
    std::unique_ptr<uint8_t[]> fragment_;
};

}  // namespace vantrel
