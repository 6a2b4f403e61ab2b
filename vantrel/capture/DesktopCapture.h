// DesktopCapture: the COM object a host creates to share the local screen, the first source of
// every desktop stream. It holds the sink table, the codec and the settings; Run and Stop start
// and end the CaptureEngine's thread.
//
// Threading model "both": every method may come from any thread. lock_ serialises Run, Stop,
// RequestFullScreen and SetCapturePriority against each other; Stop lets go of it while it waits
// for the capture thread, so a call that arrives meanwhile never waits for the thread's end.
// The sink table has its own lock (SinkTable.h); the idle flush timeout is atomic in the engine.
#pragma once

#include <windows.h>

#include <memory>

#include "ScreenCodec.h"
#include "Vantrel.h"
#include "capture/CaptureEngine.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/CriticalSection.h"

namespace vantrel {

class DesktopCapture final : public ComObjectRoot, public IDesktopCapture {
  public:
    explicit DesktopCapture(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

    // IDesktopCapture
    HRESULT STDMETHODCALLTYPE Run() noexcept override;
    HRESULT STDMETHODCALLTYPE Stop() noexcept override;
    HRESULT STDMETHODCALLTYPE SetCompatibleMode(long bCompatibleMode) noexcept override;
    HRESULT STDMETHODCALLTYPE GetCompatibleMode(long* pbCompatibleMode) noexcept override;
    HRESULT STDMETHODCALLTYPE
    RegisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept override;
    HRESULT STDMETHODCALLTYPE
    UnregisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept override;
    HRESULT STDMETHODCALLTYPE RequestFullScreen() noexcept override;
    HRESULT STDMETHODCALLTYPE SetCapturePriority(int nPriority) noexcept override;
    HRESULT STDMETHODCALLTYPE SetIdleFlushTimeout(unsigned long dwTimeout) noexcept override;
    HRESULT STDMETHODCALLTYPE SetRecordLogo(HBITMAP hBmp) noexcept override;

    // The engine (with its buffers) could not be made: creation fails.
    HRESULT FinalConstruct() noexcept override;

  private:
    // A capture still running when the last reference goes is stopped as Stop does. When that
    // happens on the capture thread itself (a sink let go of its source inside Transfer or
    // Flush), the engine is abandoned to its thread instead, which stops and frees it.
    ~DesktopCapture() override;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

    static constexpr DWORD kMinIdleFlushTimeout = 150;
    static constexpr LONG kMaxFps = 6;  // registry steps of 5 frames per second

    const long compatibleMode_ = 0;  // reported, never changed
    // The sink table, the codec (none when ScreenCodec could not be made: Run refuses then), the
    // image and the thread. Non-null once FinalConstruct succeeded, until abandoned.
    std::unique_ptr<CaptureEngine> engine_;
    CriticalSection lock_;
    int capturePriority_ = THREAD_PRIORITY_NORMAL;  // guarded by lock_
    bool running_ = false;   // guarded by lock_: between a successful Run and Stop
    bool stopping_ = false;  // guarded by lock_: a Stop is waiting for the thread
};

}  // namespace vantrel
