// Detector thread. It holds a reference on this DLL while it runs, so a host that unloads the
// DLL without DispDoneCapture cannot pull the code from under it.
#include "ChangeDetector.h"

#include "CursorChanges.h"
#include "ScreenChanges.h"

namespace vantrel::pavlex {

void ChangeDetector::begin(HDESK desktop, DWORD interval) noexcept {
    stop();
    desktop_ = desktop;
    interval_ = interval ? interval : kDefaultInterval;
    WindowDc screen(nullptr);
    geometry_ = screen ? ReadGeometry(screen.get()) : Geometry{};
    displayChanged_ = false;
    frames_[0].destroy();
    frames_[1].destroy();
    haveBaseline_ = false;
    tracker_.reset();
}

bool ChangeDetector::run(bool watchScreen, bool watchCursor) noexcept {
    stop();
    if (!watchScreen) {
        frames_[0].destroy();
        frames_[1].destroy();
        haveBaseline_ = false;
    }
    if (watchCursor && !watchCursor_)
        tracker_.reset();
    watchScreen_ = watchScreen;
    watchCursor_ = watchCursor;
    if (!watchScreen && !watchCursor)
        return true;

    if (!stop_)
        stop_.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!stop_)
        return false;
    ResetEvent(stop_.get());
    HMODULE self = nullptr;
    if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                            reinterpret_cast<LPCSTR>(&ChangeDetector::ThreadMain), &self))
        return false;
    thread_.reset(CreateThread(nullptr, 0, &ChangeDetector::ThreadMain, this, 0, nullptr));
    if (!thread_) {
        FreeLibrary(self);
        return false;
    }
    return true;
}

void ChangeDetector::stop() noexcept {
    if (!thread_)
        return;
    SetEvent(stop_.get());
    WaitForSingleObject(thread_.get(), INFINITE);
    thread_.reset();
}

DWORD WINAPI ChangeDetector::ThreadMain(void* self) {
    static_cast<ChangeDetector*>(self)->loop();
    HMODULE module = nullptr;
    GetModuleHandleExA(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<LPCSTR>(&ChangeDetector::ThreadMain), &module);
    FreeLibraryAndExitThread(module, 0);
}

void ChangeDetector::loop() noexcept {
    if (desktop_)
        SetThreadDesktop(desktop_);
    // Deadlines advance by whole intervals so the pace stays steady; after a stall (a slow
    // grab) the schedule starts afresh instead of catching up with a burst.
    DWORD deadline = GetTickCount();
    for (;;) {
        try {
            poll();
        } catch (...) {
            // Out of memory for this poll: try again at the next one.
        }
        deadline += interval_;
        const DWORD now = GetTickCount();
        DWORD wait = 0;
        if (static_cast<LONG>(deadline - now) > 0) {
            wait = deadline - now;
        } else if (now - deadline > interval_) {
            deadline = now;
        }
        if (WaitForSingleObject(stop_.get(), wait) != WAIT_TIMEOUT)
            break;
    }
}

ChangeDetector::Geometry ChangeDetector::ReadGeometry(HDC screen) noexcept {
    return Geometry{GetDeviceCaps(screen, HORZRES), GetDeviceCaps(screen, VERTRES),
                    GetDeviceCaps(screen, BITSPIXEL)};
}

void ChangeDetector::poll() {
    {
        WindowDc screen(nullptr);
        if (screen) {
            const Geometry now = ReadGeometry(screen.get());
            if (now != geometry_) {
                geometry_ = now;
                haveBaseline_ = false;
                displayChanged_ = true;
            }
            if (watchScreen_)
                pollScreen(screen.get());
        }
    }
    if (watchCursor_)
        pollCursor();
}

void ChangeDetector::pollScreen(HDC screen) {
    const FrameView size = frames_[0].view();
    if (!frames_[0].valid() || size.width != geometry_.width || size.height != geometry_.height) {
        if (!frames_[0].create(screen, geometry_.width, geometry_.height) ||
            !frames_[1].create(screen, geometry_.width, geometry_.height)) {
            frames_[0].destroy();
            return;
        }
        dirty_ = TileMap(geometry_.width, geometry_.height);
        screen_.resize(geometry_.width, geometry_.height);
        haveBaseline_ = false;
    }
    ScreenFrame& grab = frames_[current_];
    if (!grab.grab(screen)) {
        haveBaseline_ = false;
        return;
    }
    if (haveBaseline_) {
        dirty_.clear();
        dirty_.markChanges(frames_[current_ ^ 1].view(), grab.view());
        if (dirty_.any())
            screen_.add(dirty_);
    }
    haveBaseline_ = true;
    current_ ^= 1;
}

void ChangeDetector::pollCursor() {
    POINT position{};
    const DWORD flags = tracker_.poll(&position);
    if (flags)
        cursor_.add(flags, position, tracker_.shape());
}

}  // namespace vantrel::pavlex
