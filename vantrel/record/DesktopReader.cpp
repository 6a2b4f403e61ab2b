// DesktopReader: playback state, settings and the frame buffer registration.
#include "record/DesktopReader.h"

#include "wincom/Result.h"

namespace vantrel {

DesktopReader::DesktopReader(IUnknown* outer) noexcept : ComObjectRoot(outer) {}

HRESULT DesktopReader::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(DesktopReader, IDesktopReader), {}};
    return QISearch(this, rows, riid, ppv);
}

HRESULT DesktopReader::Open(LPSTR) noexcept {
    return E_NOTIMPL;  // needs the recording file
}

HRESULT DesktopReader::Close() noexcept {
    file_.reset();
    return S_OK;
}

// A paused playback goes on from its frozen position; otherwise playback starts afresh.
HRESULT DesktopReader::Run() noexcept {
    if (playing_) {
        RETURN_HR_IF(E_FAIL, !paused_);
        paused_ = false;
        return S_OK;
    }
    RETURN_HR_IF(E_FAIL, !file_);
    return E_NOTIMPL;  // needs the playback thread
}

HRESULT DesktopReader::Pause() noexcept {
    RETURN_HR_IF(E_FAIL, !playing_);
    paused_ = true;
    return S_OK;
}

HRESULT DesktopReader::Stop() noexcept {
    RETURN_HR_IF(E_FAIL, !playing_);
    return E_NOTIMPL;  // needs the playback thread
}

HRESULT DesktopReader::SetNotifyWindow(HWND hWndNotify, unsigned int uMsg,
                                       unsigned long dwParam) noexcept {
    notify_.Set(hWndNotify, uMsg, dwParam);
    return S_OK;
}

HRESULT DesktopReader::GetDuration(unsigned long* pdwDuration) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pdwDuration);
    *pdwDuration = duration_;
    return S_OK;
}

HRESULT DesktopReader::GetCurrentPosition(unsigned long* pdwPosition) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pdwPosition);
    *pdwPosition = position_;
    return S_OK;
}

// Recordings are played from the start only.
HRESULT DesktopReader::SetCurrentPosition(unsigned long) noexcept {
    return E_FAIL;
}

HRESULT DesktopReader::RegisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept {
    return sinks_.RegisterDataTransmitter(pDataTransmitter);
}

HRESULT DesktopReader::UnregisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept {
    return sinks_.UnregisterDataTransmitter(pDataTransmitter);
}

HRESULT DesktopReader::SetIdleFlushTimeout(unsigned long dwTimeout) noexcept {
    RETURN_HR_IF(E_FAIL, dwTimeout < kMinIdleFlushTimeout);
    idleFlushTimeout_ = dwTimeout;
    return S_OK;
}

// Served by the playback thread at its next step; a request made while stopped waits for Run.
HRESULT DesktopReader::RequestFullScreen() noexcept {
    fullScreenRequested_ = true;
    return S_OK;
}

HRESULT DesktopReader::RegisterFrameBuffer(IFrameBuffer* pFrameBuffer) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pFrameBuffer);
    RETURN_HR_IF(E_FAIL, frameBuffer_ != nullptr);
    pFrameBuffer->AddRef();
    frameBuffer_ = pFrameBuffer;
    return S_OK;
}

HRESULT DesktopReader::UnregisterFrameBuffer() noexcept {
    if (IFrameBuffer* frameBuffer = frameBuffer_.exchange(nullptr))
        frameBuffer->Release();
    return S_OK;
}

// The playback thread picks a new factor up at its next wait and re-bases its clock on it.
HRESULT DesktopReader::SetSpeedFactor(unsigned long dwFactor) noexcept {
    RETURN_HR_IF(S_FALSE, dwFactor == speedFactor_);
    speedFactor_ = dwFactor;
    if (playing_)
        speedChangePending_ = true;
    return S_OK;
}

}  // namespace vantrel
