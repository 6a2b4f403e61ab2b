// DesktopRender: a sink of the desktop stream that shows it in a window of the host. The host
// places and styles the window and chooses the view through IDesktopRender (DesktopRenderBase);
// another object (a reader) takes full pictures back out through IFrameBuffer. Registered
// apartment-threaded: the render window belongs to the thread that creates the object, and a
// render released on any other thread still lets its window close on that thread.
//
// The picture state (rectangle, depth, completeness, received area) is its StreamDecoder's;
// decoding and the frame-buffer export share the decoder's buffer under one lock.
#pragma once

#include <windows.h>

#include "ScreenCodec.h"
#include "Vantrel.h"
#include "render/DesktopRenderBase.h"
#include "stream/StreamDecoder.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/ComPtr.h"
#include "wincom/CriticalSection.h"
#include "wincom/UniqueHandle.h"

namespace vantrel {

class DesktopRender final : public ComObjectRoot,
                            public DesktopRenderBase,
                            public IDataTransmitter,
                            public IFrameBuffer,
                            private StreamDecoder::Owner {
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

    // DesktopRenderBase
    void ProcessPacket(const void* data, DWORD size) noexcept override;
    RECT PictureRect() const noexcept override;
    LONG PictureBitsPixel() const noexcept override;
    bool IsPictureComplete() const noexcept override;

  private:
    ~DesktopRender() override;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;
    void ForgetCompletion() noexcept override;

    // StreamDecoder::Owner
    void OnFormatChanged(bool wasComplete, bool masksOnly) noexcept override;
    void OnBandApplied(const RECT& band) noexcept override;
    void OnPictureComplete() noexcept override;
    bool AcceptCursorPosition(int x, int y) noexcept override;
    void OnCursorChanged(const RECT& area, const POINT* position) noexcept override;

    ComPtr<IScreenCodec> codec_;
    mutable CriticalSection decodeLock_;  // the decoder and its buffer
    StreamDecoder decoder_;
    // Signalled while no packet handed over asynchronously waits to be processed.
    UniqueEvent packetDone_;
};

}  // namespace vantrel
