// Capture session state machine. Registration changes restart the detector thread, so when an
// unregistration returns nothing of that part is in use any more and it can be freed.
#include "CaptureSession.h"

#include <mutex>

#include "wincom/UniqueHandle.h"

namespace vantrel::pavlex {

CaptureSession& CaptureSession::instance() {
    static CaptureSession session;
    return session;
}

DWORD CaptureSession::ReadGrabInterval() noexcept {
    UniqueHkey key;
    DWORD rate = 0;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Vantrel\\Pavlex", 0, KEY_READ, key.put()) ==
        ERROR_SUCCESS) {
        DWORD type = 0;
        DWORD size = sizeof rate;
        if (RegQueryValueExA(key.get(), "GrabsPerSecond", nullptr, &type,
                             reinterpret_cast<BYTE*>(&rate), &size) != ERROR_SUCCESS ||
            type != REG_DWORD)
            rate = 0;
    }
    if (rate == 0)
        return ChangeDetector::kDefaultInterval;
    return 1000 / (rate > 100 ? 100 : rate);
}

BOOL CaptureSession::initCapture() {
    std::lock_guard<CriticalSection> hold(lock_);
    if (initialised_)
        return FALSE;
    detector_.begin(GetThreadDesktop(GetCurrentThreadId()), ReadGrabInterval());
    initialised_ = true;
    return TRUE;
}

BOOL CaptureSession::registerCursorUpdate(HANDLE* event, DWORD bufferSize) {
    std::lock_guard<CriticalSection> hold(lock_);
    if (!initialised_ || !event || cursor_.isOpen())
        return FALSE;
    HANDLE created = nullptr;
    if (!cursor_.open(&created, bufferSize))
        return FALSE;
    if (!detector_.run(screen_.isOpen(), true)) {
        cursor_.close();
        detector_.run(screen_.isOpen(), false);
        return FALSE;
    }
    *event = created;
    return TRUE;
}

BOOL CaptureSession::registerScreenUpdate(HANDLE* event, DWORD bufferSize) {
    std::lock_guard<CriticalSection> hold(lock_);
    if (!initialised_ || !event || screen_.isOpen() || bufferSize < kPavlexScreenBufferSize)
        return FALSE;
    HANDLE created = nullptr;
    if (!screen_.open(&created))
        return FALSE;
    if (!detector_.run(true, cursor_.isOpen())) {
        screen_.close();
        detector_.run(false, cursor_.isOpen());
        return FALSE;
    }
    *event = created;
    return TRUE;
}

BOOL CaptureSession::getCursorUpdate(BYTE** record) {
    std::lock_guard<CriticalSection> hold(lock_);
    return cursor_.take(record) ? TRUE : FALSE;
}

BOOL CaptureSession::getScreenUpdate(PavlexScreenUpdate** update) {
    std::lock_guard<CriticalSection> hold(lock_);
    return screen_.take(update) ? TRUE : FALSE;
}

BOOL CaptureSession::checkDisplayHook() {
    std::lock_guard<CriticalSection> hold(lock_);
    return initialised_ && detector_.takeDisplayChange() ? TRUE : FALSE;
}

BOOL CaptureSession::unregisterScreenUpdate() {
    std::lock_guard<CriticalSection> hold(lock_);
    if (!screen_.isOpen())
        return FALSE;
    detector_.run(false, cursor_.isOpen());
    screen_.close();
    return TRUE;
}

BOOL CaptureSession::unregisterCursorUpdate() {
    std::lock_guard<CriticalSection> hold(lock_);
    if (!cursor_.isOpen())
        return FALSE;
    detector_.run(screen_.isOpen(), false);
    cursor_.close();
    return TRUE;
}

BOOL CaptureSession::doneCapture() {
    std::lock_guard<CriticalSection> hold(lock_);
    if (!initialised_)
        return FALSE;
    detector_.run(false, false);
    screen_.close();
    cursor_.close();
    initialised_ = false;
    return TRUE;
}

}  // namespace vantrel::pavlex
