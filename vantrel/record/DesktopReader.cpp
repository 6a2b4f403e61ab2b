// DesktopReader: validation on Open, the playback thread and its pacing, full-screen requests.
#include "record/DesktopReader.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>

#include "lesson/LessonFormat.h"
#include "wincom/Result.h"

namespace vantrel {

namespace {

// The playback clock in milliseconds, 32-bit like a tick count. GetTickCount advances in steps
// of up to 16 ms on some systems, which would make every record up to that late.
DWORD NowMs() noexcept {
    static const LONGLONG frequency = [] {
        LARGE_INTEGER f;
        return QueryPerformanceFrequency(&f) && f.QuadPart > 0 ? f.QuadPart : 0;
    }();
    LARGE_INTEGER count;
    if (!frequency || !QueryPerformanceCounter(&count))
        return GetTickCount();
    return static_cast<DWORD>(static_cast<unsigned long long>(count.QuadPart / frequency) * 1000 +
                              count.QuadPart % frequency * 1000 / frequency);
}

}  // namespace

DesktopReader::DesktopReader(IUnknown* outer) noexcept : ComObjectRoot(outer) {}

HRESULT DesktopReader::FinalConstruct() noexcept {
    buffer_.reset(new (std::nothrow) BYTE[lesson::kMaxRecordLength]);
    RETURN_IF_NULL_ALLOC(buffer_);
    return S_OK;
}

DesktopReader::~DesktopReader() {
    EndPlayback();
}

HRESULT DesktopReader::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(DesktopReader, IDesktopReader), {}};
    return QISearch(this, rows, riid, ppv);
}

void DesktopReader::EndPlayback() noexcept {
    playing_ = false;
    paused_ = false;
    // A sink that stops the reader from inside a delivery cannot wait for its own thread; Run
    // collects that thread later.
    if (thread_ && GetCurrentThreadId() != threadId_) {
        WaitForSingleObject(thread_.get(), INFINITE);
        thread_.reset();
    }
    position_ = 0;
}

// Replacing the file ends a playback of the old one first.
HRESULT DesktopReader::Open(LPSTR lpszFileName) noexcept {
    EndPlayback();
    file_.Close();
    RETURN_HR_IF(E_FAIL, !file_.Open(lpszFileName, File::modeRead | File::shareDenyNone));
    uint64_t length = 0;
    BYTE header[lesson::kHeaderSize];
    if (!file_.Length(&length) || length < lesson::kHeaderSize ||
        !file_.ReadExact(header, sizeof header) ||
        lesson::CheckForPlayback(header, length) != lesson::HeaderCheck::Ok) {
        file_.Close();
        return E_FAIL;
    }
    duration_ = lesson::ReadHeader(header).duration;
    return S_OK;
}

// The playback thread reads the file, so it ends first.
HRESULT DesktopReader::Close() noexcept {
    if (file_.IsOpen())
        EndPlayback();
    file_.Close();
    return S_OK;
}

// A paused playback goes on from its frozen position; otherwise playback starts afresh.
HRESULT DesktopReader::Run() noexcept {
    if (playing_) {
        RETURN_HR_IF(E_FAIL, !paused_);
        paused_ = false;
        return S_OK;
    }
    RETURN_HR_IF(E_FAIL, !file_.IsOpen());
    EndPlayback();  // a thread that a sink stopped from inside a delivery
    playing_ = true;
    paused_ = false;
    speedChangePending_ = false;
    position_ = 0;
    // The clock starts at Run, not when the new thread first runs.
    runTick_ = NowMs();
    thread_.reset(CreateThread(nullptr, 0, ThreadEntry, this, 0, &threadId_));
    if (!thread_) {
        playing_ = false;
        return HResultFromLastError();
    }
    return S_OK;
}

HRESULT DesktopReader::Pause() noexcept {
    RETURN_HR_IF(E_FAIL, !playing_);
    paused_ = true;
    return S_OK;
}

HRESULT DesktopReader::Stop() noexcept {
    RETURN_HR_IF(E_FAIL, !playing_);
    EndPlayback();
    return S_OK;
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

// An object that does not answer for its identity is known by the pointer it was registered
// with: a sink registered with that same pointer is still kept from its own picture.
HRESULT DesktopReader::RegisterFrameBuffer(IFrameBuffer* pFrameBuffer) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pFrameBuffer);
    IUnknown* identity = pFrameBuffer;
    IUnknown* unknown = nullptr;
    if (SUCCEEDED(pFrameBuffer->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown))) &&
        unknown) {
        identity = unknown;
        unknown->Release();  // the object lives as long as frameBuffer_'s reference
    }
    std::lock_guard<CriticalSection> guard(frameBufferLock_);
    RETURN_HR_IF(E_FAIL, frameBuffer_);
    frameBuffer_ = ComPtr<IFrameBuffer>(pFrameBuffer);
    frameBufferIdentity_ = identity;
    return S_OK;
}

HRESULT DesktopReader::UnregisterFrameBuffer() noexcept {
    ComPtr<IFrameBuffer> gone;
    {
        std::lock_guard<CriticalSection> guard(frameBufferLock_);
        gone.Swap(frameBuffer_);
        frameBufferIdentity_ = nullptr;
    }
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

DWORD WINAPI DesktopReader::ThreadEntry(void* self) noexcept {
    auto* reader = static_cast<DesktopReader*>(self);
    switch (reader->PlaybackLoop()) {
        case Ending::End:
            reader->notify_.Post(kNotifyEnd, 0);
            break;
        case Ending::FileError:
            reader->notify_.Post(kNotifyFileError, 0);
            break;
        case Ending::Stopped:
        case Ending::Oversized:
            break;
    }
    return 0;
}

// The sink the picture came from is skipped by identity: a render's IFrameBuffer and its
// IDataTransmitter are different pointers to one object.
void DesktopReader::ServeFullScreen() noexcept {
    if (!fullScreenRequested_)
        return;
    ComPtr<IFrameBuffer> frameBuffer;
    IUnknown* identity = nullptr;
    {
        std::lock_guard<CriticalSection> guard(frameBufferLock_);
        frameBuffer = frameBuffer_;
        identity = frameBufferIdentity_;
    }
    if (frameBuffer) {
        BYTE* buffer = buffer_.get();
        unsigned long size = lesson::kMaxRecordLength;
        for (long first = TRUE;
             playing_ && frameBuffer->GetFullScreenData(buffer, &size, first) == S_OK;
             first = FALSE) {
            if (size < lesson::kRecordHeadSize || size > lesson::kMaxRecordLength)
                break;
            sinks_.Deliver(buffer, size, identity);
            size = lesson::kMaxRecordLength;
        }
    }
    fullScreenRequested_ = false;
}

// Positions are recording milliseconds: (tick - t0) * factor, all unsigned 32-bit. A record goes
// out once the position has passed its time; the end of the file sits at the duration.
DesktopReader::Ending DesktopReader::PlaybackLoop() noexcept {
    DWORD t0 = runTick_;
    DWORD factor = speedFactor_;
    DWORD position = position_;
    // Factor 0 holds the position: there is no clock to re-base on.
    const auto rebase = [&] {
        if (factor)
            t0 = NowMs() - position / factor;
    };
    const auto advance = [&] {
        if (factor)
            position = (NowMs() - t0) * factor;
        position_ = position;
    };
    if (!file_.Seek(lesson::kHeaderSize, File::From::Begin))
        return Ending::FileError;
    BYTE* const buffer = buffer_.get();
    for (;;) {
        if (!playing_)
            return Ending::Stopped;
        // Kept apart from the buffer, which a full-screen picture may take meanwhile.
        BYTE headBytes[lesson::kRecordHeadSize];
        uint32_t got = 0;
        if (!file_.Read(headBytes, sizeof headBytes, &got))
            return Ending::FileError;
        lesson::RecordHead head;
        DWORD length = 0;
        DWORD time = duration_;
        switch (lesson::ParseRecordHead(headBytes, got, &head)) {
            case lesson::RecordStep::Record:
                length = head.length;
                time = head.time;
                break;
            case lesson::RecordStep::End:
                break;
            case lesson::RecordStep::TooLong:
                return Ending::Oversized;
            case lesson::RecordStep::TooShort:
                return Ending::FileError;
        }
        ServeFullScreen();
        advance();
        if (time > idleFlushTimeout_ + position)
            sinks_.Flush();
        while (position <= time || paused_ || speedChangePending_) {
            if (!playing_)
                return Ending::Stopped;
            ServeFullScreen();
            if (speedChangePending_) {
                factor = speedFactor_;
                rebase();
                speedChangePending_ = false;
            }
            if (paused_ || factor == 0) {
                Sleep(kSliceMs);
                rebase();
                advance();
            } else {
                // Real milliseconds until the position passes the time: the gap is in
                // recording milliseconds, factor of them to each real one.
                if (position <= time)
                    Sleep(std::min<DWORD>((time - position) / factor + 1, kSliceMs));
                advance();
            }
        }
        if (!playing_)
            return Ending::Stopped;
        if (length == 0)
            return Ending::End;
        // A body that the file does not hold is damage, as a failed read is.
        std::memcpy(buffer, headBytes, sizeof headBytes);
        if (!file_.ReadExact(buffer + lesson::kRecordHeadSize, length - lesson::kRecordHeadSize))
            return Ending::FileError;
        sinks_.Deliver(buffer, length);
    }
}

}  // namespace vantrel
