// DesktopReader: a source of the desktop stream that plays a recording file back to its sinks
// at the recorded pace times a speed factor. The playback thread shares the flags, the position
// and the speed factor with the host's thread without a lock: each is one 32-bit word.
#pragma once

#include <windows.h>

#include <atomic>

#include "Vantrel.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/NotifyTarget.h"
#include "wincom/UniqueHandle.h"
#include "stream/SinkTable.h"

namespace vantrel {

class DesktopReader final : public ComObjectRoot, public IDesktopReader {
  public:
    explicit DesktopReader(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

    // IDesktopReader
    HRESULT STDMETHODCALLTYPE Open(LPSTR lpszFileName) noexcept override;
    HRESULT STDMETHODCALLTYPE Close() noexcept override;
    HRESULT STDMETHODCALLTYPE Run() noexcept override;
    HRESULT STDMETHODCALLTYPE Pause() noexcept override;
    HRESULT STDMETHODCALLTYPE Stop() noexcept override;
    HRESULT STDMETHODCALLTYPE SetNotifyWindow(HWND hWndNotify, unsigned int uMsg,
                                              unsigned long dwParam) noexcept override;
    HRESULT STDMETHODCALLTYPE GetDuration(unsigned long* pdwDuration) noexcept override;
    HRESULT STDMETHODCALLTYPE GetCurrentPosition(unsigned long* pdwPosition) noexcept override;
    HRESULT STDMETHODCALLTYPE SetCurrentPosition(unsigned long dwPosition) noexcept override;
    HRESULT STDMETHODCALLTYPE
    RegisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept override;
    HRESULT STDMETHODCALLTYPE
    UnregisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept override;
    HRESULT STDMETHODCALLTYPE SetIdleFlushTimeout(unsigned long dwTimeout) noexcept override;
    HRESULT STDMETHODCALLTYPE RequestFullScreen() noexcept override;
    HRESULT STDMETHODCALLTYPE RegisterFrameBuffer(IFrameBuffer* pFrameBuffer) noexcept override;
    HRESULT STDMETHODCALLTYPE UnregisterFrameBuffer() noexcept override;
    HRESULT STDMETHODCALLTYPE SetSpeedFactor(unsigned long dwFactor) noexcept override;

  private:
    ~DesktopReader() override = default;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

    static constexpr DWORD kMinIdleFlushTimeout = 250;

    // Holds one reference between RegisterFrameBuffer and UnregisterFrameBuffer; the host
    // unregisters before the last Release, so the destructor gives nothing back.
    std::atomic<IFrameBuffer*> frameBuffer_{nullptr};
    DWORD duration_ = 0;
    std::atomic<DWORD> position_{0};
    std::atomic<bool> speedChangePending_{false};
    std::atomic<DWORD> speedFactor_{1};
    UniqueFile file_;
    // Set by Run; cleared only by Stop, also when the thread ended by itself.
    std::atomic<bool> playing_{false};
    std::atomic<bool> paused_{false};
    std::atomic<bool> fullScreenRequested_{false};
    NotifyTarget notify_;
    std::atomic<DWORD> idleFlushTimeout_{500};
    SinkTable sinks_;
};

}  // namespace vantrel
