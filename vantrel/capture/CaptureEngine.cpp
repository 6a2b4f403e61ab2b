// The capture thread (see CaptureEngine.h): start-up and its undo, the wait, pacing, the fixed
// order of work within one wake-up, the idle flush and the closing packet.
#include "capture/CaptureEngine.h"

#include "capture/InputDesktop.h"
#include "wincom/ModuleLock.h"

namespace vantrel {
namespace {

constexpr DWORD kStartFailed = static_cast<DWORD>(-1);
constexpr DWORD kStopped = 0;

// Wait indices, in the order the handles are waited on.
constexpr DWORD kCursorWake = WAIT_OBJECT_0;
constexpr DWORD kScreenWake = WAIT_OBJECT_0 + 1;
constexpr DWORD kStopWake = WAIT_OBJECT_0 + 2;
constexpr DWORD kFullScreenWake = WAIT_OBJECT_0 + 3;

bool IsSignalled(HANDLE event) noexcept {
    return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}

// The wake reason, or the event polled without waiting; the event is cleared before its data is
// fetched, so a change that arrives meanwhile signals it again.
bool Claim(DWORD reason, DWORD index, HANDLE event) noexcept {
    if (reason != index && !IsSignalled(event))
        return false;
    ResetEvent(event);
    return true;
}

}  // namespace

CaptureEngine::CaptureEngine() noexcept : encoder_(image_, sinks_) {}

void CaptureEngine::Abandon(std::unique_ptr<CaptureEngine> engine) noexcept {
    if (!engine)
        return;
    CaptureEngine* self = engine.release();
    ModuleLock::Increment();
    // Without the reference the module could be unloaded under the thread's last instructions.
    HMODULE module = nullptr;
    if (GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                           reinterpret_cast<LPCSTR>(&CaptureEngine::ThreadEntry), &module))
        self->abandonedModule_ = module;
    self->abandoned_ = true;
    self->SignalStop();
}

bool CaptureEngine::ReadScreenFormat(RECT* rect, int* depth) noexcept {
    WindowDc screen(nullptr);
    if (!screen)
        return false;
    *rect = RECT{0, 0, GetDeviceCaps(screen.get(), HORZRES), GetDeviceCaps(screen.get(), VERTRES)};
    *depth = GetDeviceCaps(screen.get(), BITSPIXEL);
    return true;
}

HRESULT CaptureEngine::Start(const Settings& settings) noexcept {
    if (!image_.OpenFromScreen())
        return E_FAIL;
    image_.SetConvert565(settings.fixCitrix16bit);
    framesPerSecond_ = settings.framesPerSecond;
    ReadScreenFormat(&screenRect_, &screenDepth_);
    image_.Grab(&screenRect_);

    stopEvent_.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    fullScreenEvent_.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (stopEvent_ && fullScreenEvent_) {
        DWORD id = 0;
        thread_.reset(CreateThread(nullptr, 0, ThreadEntry, this, CREATE_SUSPENDED, &id));
        if (thread_) {
            threadId_ = id;
            SetThreadPriority(thread_.get(), settings.priority);
            ResumeThread(thread_.get());
            return S_OK;
        }
    }
    stopEvent_.reset();
    fullScreenEvent_.reset();
    image_.Close();
    return E_FAIL;
}

void CaptureEngine::SignalStop() noexcept {
    if (stopEvent_)
        SetEvent(stopEvent_.get());
}

void CaptureEngine::Join() noexcept {
    if (thread_)
        WaitForSingleObject(thread_.get(), INFINITE);
    thread_.reset();
    threadId_ = 0;
    stopEvent_.reset();
    fullScreenEvent_.reset();
    image_.Close();
}

void CaptureEngine::RequestFullScreen() noexcept {
    if (fullScreenEvent_)
        SetEvent(fullScreenEvent_.get());
}

void CaptureEngine::SetPriority(int priority) noexcept {
    if (thread_)
        SetThreadPriority(thread_.get(), priority);
}

DWORD WINAPI CaptureEngine::ThreadEntry(void* engine) noexcept {
    auto* self = static_cast<CaptureEngine*>(engine);
    if (!self)
        return kStartFailed;
    const DWORD code = self->CaptureThread();
    if (!self->abandoned_)
        return code;
    const HMODULE module = self->abandonedModule_;
    delete self;
    ModuleLock::Decrement();
    if (module)
        FreeLibraryAndExitThread(module, code);
    return code;
}

DWORD CaptureEngine::CaptureThread() noexcept {
    // The thread's own desktop handle: not ours to close, and where the thread goes back to.
    const HDESK startDesktop = GetThreadDesktop(GetCurrentThreadId());
    if (!IsInputDesktopCurrent() && !SelectDesktop(nullptr))
        return kStartFailed;
    if (!DispInitCapture()) {
        SelectHDESK(startDesktop);
        return kStartFailed;
    }
    Loop loop;
    if (!DispRegisterCursorUpdate(&loop.cursorEvent, kPavlexCursorBufferSize) ||
        !DispRegisterScreenUpdate(&loop.screenEvent, kPavlexScreenBufferSize)) {
        DispDoneCapture();
        SelectHDESK(startDesktop);
        return kStartFailed;
    }

    ProcessWholeScreen();
    loop.frameInterval = framesPerSecond_ > 0 ? 1000 / static_cast<DWORD>(framesPerSecond_) : 0;
    const HANDLE waits[] = {loop.cursorEvent, loop.screenEvent, stopEvent_.get(),
                            fullScreenEvent_.get()};
    do {
        loop.active = false;
        loop.lastActivity = GetTickCount();
    } while (RunBurst(loop, waits));

    SendRegion(RECT{0, 0, 1, 1});
    DispUnRegisterScreenUpdate();
    DispUnRegisterCursorUpdate();
    DispDoneCapture();
    SelectHDESK(startDesktop);
    return kStopped;
}

bool CaptureEngine::RunBurst(Loop& loop, const HANDLE (&waits)[4]) noexcept {
    for (;;) {
        const DWORD reason = WaitForMultipleObjects(4, waits, FALSE, idleFlushTimeout_.load());
        // A handle gone bad (the hook library's event closed under us) fails every wait at once:
        // going on would spin a core, so the thread ends as if stopped.
        if (reason == WAIT_FAILED) {
            OutputDebugStringA("capture wait failed\n");
            return false;
        }
        if (loop.frameInterval != 0) {
            // The events stay set through the sleep: the pending work is picked up by the next
            // wait instead of being lost.
            const DWORD elapsed = GetTickCount() - loop.lastActivity;
            if (elapsed < loop.frameInterval) {
                Sleep(loop.frameInterval - elapsed);
                continue;
            }
        }
        if (!HandleWake(loop, reason))
            return false;
        if (loop.active && GetTickCount() - loop.lastActivity > idleFlushTimeout_.load()) {
            IdleFlush();
            return true;
        }
    }
}

bool CaptureEngine::HandleWake(Loop& loop, DWORD reason) noexcept {
    // A forced resend is no activity of the user's: it neither starts a burst nor delays the
    // flush of one.
    if (DispCheckDisplayHook())
        ProcessWholeScreen();
    if (!IsInputDesktopCurrent())
        SelectDesktop(nullptr);
    if (reason == kStopWake || IsSignalled(stopEvent_.get()))
        return false;

    const auto touch = [&loop] {
        loop.active = true;
        loop.lastActivity = GetTickCount();
    };
    if (Claim(reason, kCursorWake, loop.cursorEvent) && TakeCursorUpdate())
        touch();
    if (Claim(reason, kScreenWake, loop.screenEvent) && TakeScreenUpdate())
        touch();
    if (Claim(reason, kFullScreenWake, fullScreenEvent_.get())) {
        RECT whole;
        image_.GetScreenRect(&whole);
        SendRegion(whole);
        touch();
        OutputDebugStringA("Request Full Screen\n");
    }
    return true;
}

void CaptureEngine::IdleFlush() noexcept {
    TakeCursorUpdate();
    TakeScreenUpdate();
    sinks_.Flush();
}

bool CaptureEngine::TakeCursorUpdate() noexcept {
    BYTE* record = nullptr;
    if (!DispGetCursorUpdate(&record) || !record)
        return false;
    ProcessCursorUpdate(record);
    return true;
}

bool CaptureEngine::TakeScreenUpdate() noexcept {
    PavlexScreenUpdate* update = nullptr;
    if (!DispGetScreenUpdate(&update) || !update)
        return false;
    ProcessScreenUpdate(update);
    return true;
}

void CaptureEngine::ProcessScreenUpdate(const PavlexScreenUpdate* update) noexcept {
    if (!update || update->count == 0 || !FollowScreenFormat())
        return;
    encoder_.EncodeUpdate(update->rects, update->count);
}

// The rectangle is read after the format check, so a screen that grew is sent whole.
void CaptureEngine::ProcessWholeScreen() noexcept {
    if (!FollowScreenFormat())
        return;
    PavlexScreenUpdate whole{1, {}};
    image_.GetScreenRect(&whole.rects[0]);
    ProcessScreenUpdate(&whole);
}

bool CaptureEngine::FollowScreenFormat() noexcept {
    RECT rect;
    int depth = 0;
    if (!ReadScreenFormat(&rect, &depth))
        return false;
    if (EqualRect(&rect, &screenRect_) && depth == screenDepth_ && image_.IsOpen())
        return true;
    // Stored even when the open fails: every later update tries again until one succeeds.
    screenRect_ = rect;
    screenDepth_ = depth;
    image_.Close();
    return image_.OpenFromScreen() != FALSE;
}

void CaptureEngine::ProcessCursorUpdate(BYTE* record) noexcept {
    encoder_.SendCursorRecord(record, kPavlexCursorBufferSize);
}

void CaptureEngine::SendRegion(const RECT& r) noexcept {
    encoder_.SendRegion(&r);
}

}  // namespace vantrel
