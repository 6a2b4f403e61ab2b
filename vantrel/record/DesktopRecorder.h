// DesktopRecorder: a sink of the desktop stream that stores the packets it is given in a lesson
// file, only between Run and Stop. Stop keeps the recording time continuous across several
// Run/Stop pairs; Close finishes the file by rewriting its header.
//
// Choices where the contract leaves them open: Open while a file is open is refused (E_FAIL);
// Stop while not recording changes nothing; Close while recording gives the header the time the
// recording has reached (never less than its last record); the last Release with a file open
// closes it without rewriting the header, which the lesson repair can then bring back.
#pragma once

#include <windows.h>

#include <cstdint>

#include "Vantrel.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/CriticalSection.h"
#include "wincom/File.h"
#include "wincom/NotifyTarget.h"

namespace vantrel {

class DesktopRecorder final : public ComObjectRoot,
                              public IDesktopRecorder,
                              public IDataTransmitter {
  public:
    explicit DesktopRecorder(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

    // IDesktopRecorder
    HRESULT STDMETHODCALLTYPE Run() noexcept override;
    HRESULT STDMETHODCALLTYPE Stop() noexcept override;
    HRESULT STDMETHODCALLTYPE Open(LPSTR lpszFileName, long bAppend) noexcept override;
    HRESULT STDMETHODCALLTYPE Close() noexcept override;
    HRESULT STDMETHODCALLTYPE SetNotifyWindow(HWND hWndNotify, unsigned int uMsg,
                                              unsigned long dwParam) noexcept override;
    HRESULT STDMETHODCALLTYPE GetDuration(unsigned long* pdwDuration) noexcept override;

    // IDataTransmitter
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;
    HRESULT STDMETHODCALLTYPE Flush() noexcept override;

  private:
    ~DesktopRecorder() override = default;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

    // Steps 2 to 4 of Open on the freshly opened file_; false leaves it to the caller to close.
    bool PrepareFile() noexcept;
    // What was written reaches the disk at most this long after it was written, so a power loss
    // costs at most that much of the lesson (a killed process costs nothing: every record is
    // handed to the system before Transfer returns).
    static constexpr DWORD kDiskFlushIntervalMs = 1000;

    // Guards every member below against Transfer, which runs on the source's thread while the
    // other methods run on the host's.
    CriticalSection lock_;
    File file_;  // closed by the destructor without rewriting the header
    NotifyTarget notify_;
    bool recording_ = false;
    DWORD lastRecordTime_ = 0;
    DWORD duration_ = 0;
    DWORD clockMark_ = 0;      // tick count at Run; after Stop, the stop position
    uint64_t fileLength_ = 0;  // where the next record goes
    DWORD lastDiskFlush_ = 0;
};

}  // namespace vantrel
