// DesktopRender: a sink of the desktop stream that shows it in a window of the host. The host
// places and styles the window and chooses the view through IDesktopRender (DesktopRenderBase);
// another object (a reader) takes full pictures back out through IFrameBuffer. Registered
// apartment-threaded: the render window belongs to the thread that creates the object.
#pragma once

#include <windows.h>

#include "Vantrel.h"
#include "wincom/ComObjectRoot.h"
#include "render/DesktopRenderBase.h"

namespace vantrel {

class DesktopRender final : public ComObjectRoot,
                            public DesktopRenderBase,
                            public IDataTransmitter,
                            public IFrameBuffer {
  public:
    explicit DesktopRender(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

    // IDesktopRender, what differs from the shared-memory viewer
    HRESULT STDMETHODCALLTYPE Run() noexcept override;
    HRESULT STDMETHODCALLTYPE Stop() noexcept override;
    HRESULT STDMETHODCALLTYPE SetSessionId(int nId) noexcept override;

    // IDataTransmitter
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;
    HRESULT STDMETHODCALLTYPE Flush() noexcept override;

    // IFrameBuffer
    HRESULT STDMETHODCALLTYPE GetFullScreenData(void* lpvData, unsigned long* pcbData,
                                                long bFirst) noexcept override;
    HRESULT STDMETHODCALLTYPE
    GetFullScreenDataUncompressed(void* lpvData, unsigned long* pcbData) noexcept override;
    HRESULT STDMETHODCALLTYPE GetBitmapInfo(void** lpvBmpInfo) noexcept override;

  private:
    ~DesktopRender() override = default;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;
};

}  // namespace vantrel
