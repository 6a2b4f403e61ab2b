// DesktopReader: a source of the desktop stream that plays a lesson file back to its sinks at
// the recorded pace times a speed factor, on a playback thread of its own. The thread shares the
// flags, the position and the speed factor with the host's thread without a lock: each is one
// 32-bit word. A speed factor of 0 holds playback where it is, as a pause does, until another
// factor is set. Open and Close during playback, and the last Release, end the playback first
// (as Stop does); registered sinks and the frame buffer stay the host's to unregister. A record
// whose length is below its own head, or whose body the file does not hold, is damage: playback
// ends with the file-error notification.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "Vantrel.h"
#include "stream/SinkTable.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/ComPtr.h"
#include "wincom/CriticalSection.h"
#include "wincom/File.h"
#include "wincom/NotifyTarget.h"
#include "wincom/UniqueHandle.h"

namespace vantrel {

class DesktopReader final : public ComObjectRoot, public IDesktopReader {
  public:
    explicit DesktopReader(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

    HRESULT FinalConstruct() noexcept override;

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

    // Notification codes (wParam; lParam 0).
    static constexpr WPARAM kNotifyEnd = 0;
    static constexpr WPARAM kNotifyFileError = 1;

  private:
    // A playing reader is stopped before it goes; sinks and frame buffer are the host's to
    // unregister.
    ~DesktopReader() override;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

    static DWORD WINAPI ThreadEntry(void* self) noexcept;
    enum class Ending { Stopped, End, FileError, Oversized };
    Ending PlaybackLoop() noexcept;
    void ServeFullScreen() noexcept;
    // Ends the thread and forgets the playback (Stop's work, also for Open, Close, Release).
    void EndPlayback() noexcept;

    static constexpr DWORD kMinIdleFlushTimeout = 250;
    static constexpr DWORD kSliceMs = 20;  // the thread looks at the flags at least this often

    // The frame buffer and its COM identity; the thread pins it (a counted reference) for the
    // time it asks for a picture, as the sink table pins sinks.
    CriticalSection frameBufferLock_;
    ComPtr<IFrameBuffer> frameBuffer_;
    IUnknown* frameBufferIdentity_ = nullptr;

    DWORD duration_ = 0;
    std::atomic<DWORD> position_{0};
    std::atomic<bool> speedChangePending_{false};
    std::atomic<DWORD> speedFactor_{1};
    File file_;  // read by the thread while playing; Open and Close end playback first
    UniqueThread thread_;
    DWORD runTick_ = 0;  // the playback clock's origin, set by Run before the thread starts
    DWORD threadId_ = 0;
    // Set by Run; cleared only by Stop, also when the thread ended by itself.
    std::atomic<bool> playing_{false};
    std::atomic<bool> paused_{false};
    std::atomic<bool> fullScreenRequested_{false};
    NotifyTarget notify_;
    std::atomic<DWORD> idleFlushTimeout_{500};
    std::unique_ptr<BYTE[]> buffer_;  // one record or one full-screen packet
    SinkTable sinks_;
};

}  // namespace vantrel
