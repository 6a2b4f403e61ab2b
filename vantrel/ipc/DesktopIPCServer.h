// DesktopIPCServer: a sink of the desktop stream that publishes it to the viewers of every
// session on this machine through the shared-memory channel (SharedChannel.h). Packets are
// decoded by the shared StreamDecoder straight into an image whose pixels are the pixel
// section; the notification thread tells the viewers which areas changed.
// IDataTransmitter is its identity; IDesktopIPCServer is called through its vtable only (no
// IDispatch behind it).
//
// Threads: Transfer on the source's thread; one notification thread between StartIPCServer and
// StopIPCServer; the other methods on the caller's thread.
// Locks, never held together except for the image's own, always taken last:
//   decodeLock_  the decoder and running_ as Transfer sees it; Start and Stop take it to flip
//                running_, so no Transfer decodes into a stopped server.
//   regionLock_  region_ and cursor_ (Transfer adds, the thread takes).
//   controlLock_ the control section and the re-creation of the image (format change on the
//                source's thread, the whole pass on the notification thread).
#pragma once

#include <windows.h>

#include <atomic>

#include "ScreenCodec.h"
#include "Vantrel.h"
#include "ipc/SharedChannel.h"
#include "stream/DesktopImage.h"
#include "stream/StreamDecoder.h"
#include "stream/UpdateRegion.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/ComPtr.h"
#include "wincom/CriticalSection.h"
#include "wincom/UniqueHandle.h"

namespace vantrel {

class DesktopIPCServer final : public ComObjectRoot,
                               public IDataTransmitter,
                               public IDesktopIPCServer,
                               private StreamDecoder::Owner {
  public:
    explicit DesktopIPCServer(IUnknown* outer) noexcept;
    // Without the control section the object cannot serve: creation fails.
    HRESULT FinalConstruct() noexcept override;

    VANTREL_COM_IUNKNOWN

    // IDataTransmitter
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;
    HRESULT STDMETHODCALLTYPE Flush() noexcept override;

    // IDesktopIPCServer
    HRESULT STDMETHODCALLTYPE StopIPCServer() noexcept override;
    HRESULT STDMETHODCALLTYPE SetMaxIPCClients(int nMaxClients) noexcept override;
    HRESULT STDMETHODCALLTYPE StartIPCServer() noexcept override;

  private:
    // A server still started when the last reference goes is stopped first: the thread uses
    // the image and the control section until it has ended.
    ~DesktopIPCServer() override;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

    // StreamDecoder::Owner, on the source's thread inside Transfer.
    bool RebuildImage(DesktopImage& image, const BITMAPINFO* bmi) noexcept override;
    void OnBandApplied(const RECT& band) noexcept override;
    void OnCursorChanged(const RECT& area, const POINT* position) noexcept override;

    static DWORD WINAPI ThreadEntry(void* self) noexcept;
    void NotificationThread() noexcept;
    void RunPass(const UpdateRegion::RectList& rects, POINT cursor) noexcept;
    // A pixel-section name no live section has: tick counts repeat within one tick, and a
    // viewer may still hold the section of an earlier name open.
    ipc::ObjectName NewPixelName() noexcept;

    ComPtr<IScreenCodec> codec_;  // null when ScreenCodec could not be made: packets are dropped
    DesktopImage image_;
    StreamDecoder decoder_{image_, *this};
    ipc::ControlSection control_;
    DWORD lastNameTick_ = 0;  // guarded by controlLock_

    CriticalSection decodeLock_;
    bool running_ = false;  // guarded by decodeLock_
    UniqueThread thread_;   // Start and Stop only
    std::atomic<bool> stopThread_{false};

    CriticalSection regionLock_;
    UpdateRegion region_;  // changed since the last pass
    POINT cursor_{};       // position from the last cursor packet that carried one

    CriticalSection controlLock_;
    UniqueEvent wake_;  // auto-reset: a change is waiting for the thread

    // Client ids 0 .. maxClients - 1 are polled per pass; no range check, a value of 0 or less
    // polls none. Read by the notification thread at each pass.
    std::atomic<int> maxClients_{ipc::kDefaultMaxClients};
};

}  // namespace vantrel
