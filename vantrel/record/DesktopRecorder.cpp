// DesktopRecorder: recording state and the recording clock.
#include "record/DesktopRecorder.h"

#include <mutex>

#include "wincom/Result.h"

namespace vantrel {

DesktopRecorder::DesktopRecorder(IUnknown* outer) noexcept : ComObjectRoot(outer) {}

HRESULT DesktopRecorder::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {
        QITABENT(DesktopRecorder, IDesktopRecorder),
        QITABENT(DesktopRecorder, IDataTransmitter),
        {},
    };
    return QISearch(this, rows, riid, ppv);
}

HRESULT DesktopRecorder::Run() noexcept {
    RETURN_HR_IF(E_FAIL, !file_);
    std::lock_guard<CriticalSection> guard(lock_);
    clockMark_ = GetTickCount();
    recording_ = true;
    return S_OK;
}

// Packet times are rewritten to time - clockMark + duration, so the stop position continues the
// recording time where it was; a packet stamped after the stop tick (clocks of other threads)
// pushes it to that packet's time.
HRESULT DesktopRecorder::Stop() noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    // A Stop while not recording would count the time since the last Run a second time.
    if (!recording_)
        return S_OK;
    recording_ = false;
    DWORD stop = GetTickCount() + (duration_ - clockMark_);
    if (stop < lastRecordTime_)
        stop = lastRecordTime_;
    clockMark_ = stop;
    duration_ = stop;
    return S_OK;
}

HRESULT DesktopRecorder::Open(LPSTR, long) noexcept {
    return E_NOTIMPL;  // needs the recording file
}

HRESULT DesktopRecorder::Close() noexcept {
    RETURN_HR_IF(E_FAIL, !file_);
    return E_NOTIMPL;  // needs the recording file: the header is rewritten
}

HRESULT DesktopRecorder::SetNotifyWindow(HWND hWndNotify, unsigned int uMsg,
                                         unsigned long dwParam) noexcept {
    notify_.Set(hWndNotify, uMsg, dwParam);
    return S_OK;
}

HRESULT DesktopRecorder::GetDuration(unsigned long* pdwDuration) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pdwDuration);
    *pdwDuration = duration_;
    return S_OK;
}

HRESULT DesktopRecorder::Transfer(void*, unsigned long, long) noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    RETURN_HR_IF(S_FALSE, !recording_);
    return E_NOTIMPL;  // needs the recording file
}

HRESULT DesktopRecorder::Flush() noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    return recording_ ? S_OK : S_FALSE;
}

}  // namespace vantrel
