// SharedImageClient: connecting a session, and the client thread's answer to every pass.
#include "ipc/SharedImageClient.h"

#include <cstring>
#include <new>

namespace vantrel {

SharedImageClient::SharedImageClient(DesktopImage& image, Viewer& viewer) noexcept
    : image_(image), viewer_(viewer) {}

SharedImageClient::~SharedImageClient() {
    Stop();
}

HRESULT SharedImageClient::Start(int sessionId) noexcept {
    if (thread_)
        return E_FAIL;
    stop_ = false;
    if (!notice_)
        notice_.reset(new (std::nothrow) ipc::Notice);
    if (!notice_ || !session_.Connect(sessionId))
        return E_FAIL;
    image_.Close();
    image_.OpenFromScreen();
    if (!session_.CreateSlotMutex())
        return E_FAIL;
    DWORD id = 0;
    thread_.reset(CreateThread(nullptr, 0, ThreadEntry, this, 0, &id));
    return thread_ ? S_OK : E_FAIL;
}

void SharedImageClient::Stop() noexcept {
    if (thread_) {
        stop_ = true;
        session_.Wake();
        WaitForSingleObject(thread_.get(), INFINITE);
        thread_.reset();
    }
    session_.Close();
}

DWORD WINAPI SharedImageClient::ThreadEntry(void* self) noexcept {
    static_cast<SharedImageClient*>(self)->ClientThread();
    return 0;
}

bool SharedImageClient::OpenUntilStopped(const char* failureText) noexcept {
    while (!stop_) {
        if (session_.OpenImage(image_, openedName_))
            return true;
        OutputDebugStringA(failureText);
        Sleep(ipc::kReopenRetryMs);
    }
    return false;
}

bool SharedImageClient::NameMovedOn() const noexcept {
    return std::strcmp(session_.Control().ReadPixelName().c_str(), openedName_.c_str()) != 0;
}

void SharedImageClient::ClientThread() noexcept {
    ipc::Notice& notice = *notice_;
    RECT rect;
    if (OpenUntilStopped("OpenFromBitmapInfo Failed 1\n")) {
        image_.GetScreenRect(&rect);
        viewer_.OnImageOpened(rect, true);
    }
    while (!stop_) {
        if (!session_.WaitForPass())
            continue;
        if (stop_)
            break;
        session_.ReadPass(notice);
        // The new section is mapped before any rectangle of it is read. A viewer that was too
        // slow for the pass announcing it still sees that the name has moved on.
        if (((notice.flags & ipc::kFlagNewSection) || NameMovedOn()) &&
            OpenUntilStopped("OpenFromBitmapInfo Failed 2\n")) {
            image_.GetScreenRect(&rect);
            viewer_.OnImageOpened(rect, false);
        }
        // The BITMAPINFO only ever changes the colour table: one of another format waits for
        // the reopen its pass announces.
        if (notice.rectCount && notice.bitmapInfoValid)
            image_.LoadBitmapInfo(reinterpret_cast<const BITMAPINFO*>(notice.bitmapInfo));
        session_.Complete();
        if (notice.rectCount)
            viewer_.OnRectsChanged(notice.rects, notice.rectCount, notice.cursor);
    }
    image_.Close();
}

}  // namespace vantrel
