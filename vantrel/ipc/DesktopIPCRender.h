// DesktopIPCRender: the viewer of one session on a machine where a DesktopIPCServer publishes
// the desktop. A render (DesktopRenderBase: window, view, every IDesktopRender method but Run,
// Stop and SetSessionId) whose picture does not come from packets: its image lies over the
// server's pixel section, and the client thread (SharedImageClient) learns from the control
// section what to repaint. IDataTransmitter is its identity and ignores what it is given.
//
// Threads: host calls on the creating thread; the client thread (between Run and Stop) opens
// and closes the image and runs the Viewer callbacks below, which invalidate the window, post
// notifications and run layout passes as DesktopRenderBase allows from any thread.
#pragma once

#include <windows.h>

#include <atomic>

#include "Vantrel.h"
#include "ipc/SharedImageClient.h"
#include "render/DesktopRenderBase.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/CriticalSection.h"

namespace vantrel {

class DesktopIPCRender final : public ComObjectRoot,
                               public IDataTransmitter,
                               public DesktopRenderBase,
                               public IFrameBuffer,
                               private SharedImageClient::Viewer {
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

  private:
    // A running viewer is stopped first: its thread uses the window and the image.
    ~DesktopIPCRender() override;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

    // DesktopRenderBase
    void ProcessPacket(const void* data, DWORD size) noexcept override;
    RECT PictureRect() const noexcept override;
    LONG PictureBitsPixel() const noexcept override;
    bool IsPictureComplete() const noexcept override;
    void ForgetCompletion() noexcept override;

    // SharedImageClient::Viewer, on the client thread
    void OnImageOpened(const RECT& rect, bool initial) noexcept override;
    void OnRectsChanged(const RECT* rects, UINT count, POINT cursor) noexcept override;

    int sessionId_ = 0;  // names the session's channel objects at the next Run
    mutable CriticalSection pictureLock_;
    RECT imageRect_ = {};  // guarded by pictureLock_; empty while no picture is held
    std::atomic<bool> pictureComplete_{false};
    SharedImageClient client_{image_, *this};
};

}  // namespace vantrel
