// Exports of Pavlex.dll, the change detector the capture thread asks for screen and cursor
// changes. Nothing may leave these functions as an exception: any failure is FALSE.
#include "contracts/Pavlex.h"

#include "CaptureSession.h"

using vantrel::pavlex::CaptureSession;

namespace {

template <typename Call>
BOOL Guarded(Call call) noexcept {
    try {
        return call(CaptureSession::instance());
    } catch (...) {
        return FALSE;
    }
}

}  // namespace

extern "C" {

BOOL WINAPI DispInitCapture(void) {
    return Guarded([](CaptureSession& s) { return s.initCapture(); });
}

BOOL WINAPI DispRegisterCursorUpdate(HANDLE* event, DWORD bufferSize) {
    return Guarded([=](CaptureSession& s) { return s.registerCursorUpdate(event, bufferSize); });
}

BOOL WINAPI DispRegisterScreenUpdate(HANDLE* event, DWORD bufferSize) {
    return Guarded([=](CaptureSession& s) { return s.registerScreenUpdate(event, bufferSize); });
}

BOOL WINAPI DispGetCursorUpdate(BYTE** record) {
    return Guarded([=](CaptureSession& s) { return s.getCursorUpdate(record); });
}

BOOL WINAPI DispGetScreenUpdate(PavlexScreenUpdate** update) {
    return Guarded([=](CaptureSession& s) { return s.getScreenUpdate(update); });
}

BOOL WINAPI DispCheckDisplayHook(void) {
    return Guarded([](CaptureSession& s) { return s.checkDisplayHook(); });
}

BOOL WINAPI DispUnRegisterScreenUpdate(void) {
    return Guarded([](CaptureSession& s) { return s.unregisterScreenUpdate(); });
}

BOOL WINAPI DispUnRegisterCursorUpdate(void) {
    return Guarded([](CaptureSession& s) { return s.unregisterCursorUpdate(); });
}

BOOL WINAPI DispDoneCapture(void) {
    return Guarded([](CaptureSession& s) { return s.doneCapture(); });
}

}  // extern "C"
