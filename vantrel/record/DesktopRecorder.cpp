// DesktopRecorder: the lesson file as the recorder writes it, and the recording clock.
#include "record/DesktopRecorder.h"

#include <mutex>

#include "lesson/LessonFormat.h"
#include "stream/Packet.h"
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

// A file already open is kept: a recording is never switched behind the host's back.
HRESULT DesktopRecorder::Open(LPSTR lpszFileName, long bAppend) noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    RETURN_HR_IF(E_FAIL, file_.IsOpen());
    const unsigned flags =
        File::modeCreate | File::modeReadWrite | (bAppend ? unsigned{File::modeNoTruncate} : 0u);
    RETURN_HR_IF(E_FAIL, !file_.Open(lpszFileName, flags));
    if (!PrepareFile()) {
        file_.Close();
        return S_FALSE;
    }
    return S_OK;
}

bool DesktopRecorder::PrepareFile() noexcept {
    uint64_t length = 0;
    if (!file_.Length(&length))
        return false;
    BYTE header[lesson::kHeaderSize];
    if (length == 0) {
        lesson::WriteHeader(header, lesson::Header{});
        if (!file_.Write(header, sizeof header))
            return false;
        duration_ = 0;
        length = sizeof header;
    } else {
        if (length < lesson::kHeaderSize || !file_.ReadExact(header, sizeof header) ||
            lesson::CheckForAppend(header, length) != lesson::HeaderCheck::Ok)
            return false;
        duration_ = lesson::ReadHeader(header).duration;
    }
    // New records continue the stored duration, so the last record time starts there too.
    lastRecordTime_ = duration_;
    fileLength_ = length;
    lastDiskFlush_ = GetTickCount();
    return file_.Seek(0, File::From::End);
}

HRESULT DesktopRecorder::Run() noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    RETURN_HR_IF(E_FAIL, !file_.IsOpen());
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

// Without a Stop after the last Run the header gets the position the recording has reached, so
// that it is never shorter than its last record; the object's own duration stays as it was.
HRESULT DesktopRecorder::Close() noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    RETURN_HR_IF(E_FAIL, !file_.IsOpen());
    DWORD duration = duration_;
    if (recording_)
        duration = GetTickCount() + (duration_ - clockMark_);
    if (duration < lastRecordTime_)
        duration = lastRecordTime_;
    uint64_t length = 0;
    BYTE header[lesson::kHeaderSize];
    // A failure here leaves a file that the repair can still bring back.
    if (file_.Length(&length)) {
        lesson::WriteHeader(
            header, lesson::Header{lesson::kMagic, static_cast<uint32_t>(length), duration});
        if (file_.Seek(0, File::From::Begin) && file_.Write(header, sizeof header))
            file_.Flush();
    }
    file_.Close();
    return S_OK;
}

HRESULT DesktopRecorder::SetNotifyWindow(HWND hWndNotify, unsigned int uMsg,
                                         unsigned long dwParam) noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    notify_.Set(hWndNotify, uMsg, dwParam);
    return S_OK;
}

HRESULT DesktopRecorder::GetDuration(unsigned long* pdwDuration) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pdwDuration);
    std::lock_guard<CriticalSection> guard(lock_);
    *pdwDuration = duration_;
    return S_OK;
}

// A packet whose length field is not cbData, or that no player could hold, would break the walk
// over the file's records for every later record: it is refused and nothing is written.
HRESULT DesktopRecorder::Transfer(void* lpvData, unsigned long cbData, long) noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    RETURN_HR_IF(S_FALSE, !recording_);
    RETURN_HR_IF_NULL(E_POINTER, lpvData);
    RETURN_HR_IF(E_INVALIDARG, cbData < lesson::kRecordHeadSize ||
                                   cbData > lesson::kMaxRecordLength ||
                                   packet::ReadHead(lpvData).length != cbData);
    const DWORD time = packet::ReadHead(lpvData).time - clockMark_ + duration_;
    packet::SetTime(lpvData, time);
    // The header's length field is 32 bits: a record past 4 GiB is a write failure.
    const bool fits = fileLength_ + cbData <= lesson::kMaxFileLength;
    if (!fits || !file_.Write(lpvData, cbData)) {
        // A partly written record would misplace every later one.
        if (file_.IsOpen())
            file_.SetLength(fileLength_);
        notify_.Post(0, 0);
        return S_FALSE;
    }
    fileLength_ += cbData;
    lastRecordTime_ = time;
    const DWORD now = GetTickCount();
    if (now - lastDiskFlush_ >= kDiskFlushIntervalMs) {
        file_.Flush();
        lastDiskFlush_ = now;
    }
    return S_OK;
}

HRESULT DesktopRecorder::Flush() noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    return recording_ ? S_OK : S_FALSE;
}

}  // namespace vantrel
