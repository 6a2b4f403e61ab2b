// DesktopIPCRender: the viewer of one session on a machine where a DesktopIPCServer publishes
// the desktop. A render whose picture does not come from packets: its image lies over the
// server's pixel section, and a client thread learns from the control section what to repaint.
// IDataTransmitter is its identity and ignores what it is given; the view is DesktopRenderBase's.
#pragma once

#include <windows.h>

#include <atomic>

#include "Vantrel.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/CriticalSection.h"
#include "render/DesktopRenderBase.h"

namespace vantrel {

class DesktopIPCRender final : public ComObjectRoot,
                               public IDataTransmitter,
                               public DesktopRenderBase,
                               public IFrameBuffer {
  public:
    explicit DesktopIPCRender(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

    // IDataTransmitter
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;
    HRESULT STDMETHODCALLTYPE Flush() noexcept override;

    // IDesktopRender, what differs from DesktopRender
    HRESULT STDMETHODCALLTYPE Run() noexcept override;
    HRESULT STDMETHODCALLTYPE Stop() noexcept override;
    HRESULT STDMETHODCALLTYPE SetSessionId(int nId) noexcept override;

    // IFrameBuffer
    HRESULT STDMETHODCALLTYPE GetFullScreenData(void* lpvData, unsigned long* pcbData,
                                                long bFirst) noexcept override;
    HRESULT STDMETHODCALLTYPE
    GetFullScreenDataUncompressed(void* lpvData, unsigned long* pcbData) noexcept override;
    HRESULT STDMETHODCALLTYPE GetBitmapInfo(void** lpvBmpInfo) noexcept override;

    // DesktopRenderBase: the picture comes from the shared image, never from packets.
    void ProcessPacket(const void*, DWORD) noexcept override {}
    RECT PictureRect() const noexcept override;
    LONG PictureBitsPixel() const noexcept override { return 0; }
    bool IsPictureComplete() const noexcept override { return pictureComplete_; }

  private:
    ~DesktopIPCRender() override;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;
    void ForgetCompletion() noexcept override { pictureComplete_ = false; }

    int sessionId_ = 0;  // names the session's channel objects at the next Run
    // No decoder here: the shared image's rectangle and whether it has been shown whole.
    mutable CriticalSection pictureLock_;
    RECT imageRect_{};
    std::atomic<bool> pictureComplete_{false};
};

}  // namespace vantrel
