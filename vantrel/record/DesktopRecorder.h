// DesktopRecorder: a sink of the desktop stream that stores the packets it is given in a
// recording file, only between Run and Stop. Stop keeps the recording time continuous across
// several Run/Stop pairs.
#pragma once

#include <windows.h>

#include "Vantrel.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/NotifyTarget.h"
#include "wincom/CriticalSection.h"
#include "wincom/UniqueHandle.h"

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

    // Guards recording_, clockMark_, lastRecordTime_ and the writes: Transfer runs on the
    // source's thread, everything else on the host's.
    CriticalSection lock_;
    UniqueFile file_;  // closed by the destructor without rewriting the header
    NotifyTarget notify_;
    bool recording_ = false;
    DWORD lastRecordTime_ = 0;
    DWORD duration_ = 0;
    DWORD clockMark_ = 0;  // tick count at Run; after Stop, the stop position
};

}  // namespace vantrel
