// The state behind the Disp* exports: one capture per process at a time, initialised,
// registered for cursor and screen changes, fetched from, and taken down again. Every call
// made out of order fails with FALSE and changes nothing.
#pragma once

#include <windows.h>

#include "ChangeDetector.h"
#include "CursorChanges.h"
#include "ScreenChanges.h"
#include "wincom/CriticalSection.h"
#include "contracts/Pavlex.h"

namespace vantrel::pavlex {

class CaptureSession {
  public:
    static CaptureSession& instance();

    BOOL initCapture();
    BOOL registerCursorUpdate(HANDLE* event, DWORD bufferSize);
    BOOL registerScreenUpdate(HANDLE* event, DWORD bufferSize);
    BOOL getCursorUpdate(BYTE** record);
    BOOL getScreenUpdate(PavlexScreenUpdate** update);
    BOOL checkDisplayHook();
    BOOL unregisterScreenUpdate();
    BOOL unregisterCursorUpdate();
    BOOL doneCapture();

    // Poll interval in ms from HKLM\Software\Vantrel\Pavlex, DWORD "GrabsPerSecond" (1 to
    // 100; absent or 0: 40).
    static DWORD ReadGrabInterval() noexcept;

  private:
    CaptureSession() : detector_(screen_, cursor_) {}

    CriticalSection lock_;  // serialises the exports
    bool initialised_ = false;
    ScreenChanges screen_;
    CursorChanges cursor_;
    ChangeDetector detector_;  // declared last: stopped before the changes it feeds go away
};

}  // namespace vantrel::pavlex
