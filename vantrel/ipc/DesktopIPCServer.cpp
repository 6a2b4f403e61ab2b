// DesktopIPCServer: decoding into the shared image, and the notification thread's passes.
#include "ipc/DesktopIPCServer.h"

#include <mutex>

#include "contracts/Pixmend.h"
#include "wincom/KernelObjects.h"
#include "wincom/Result.h"

namespace vantrel {
namespace {
using Guard = std::lock_guard<CriticalSection>;
}  // namespace

DesktopIPCServer::DesktopIPCServer(IUnknown* outer) noexcept : ComObjectRoot(outer) {
    PixmendInit();
    if (FAILED(CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER, IID_IScreenCodec,
                                codec_.PutVoid())))
        codec_.Reset();
    decoder_.SetCodec(codec_.Get());
    wake_.reset(CreateEventA(nullptr, FALSE, FALSE, nullptr));
}

HRESULT DesktopIPCServer::FinalConstruct() noexcept {
    RETURN_HR_IF(E_OUTOFMEMORY, !wake_);
    control_ = ipc::ControlSection::Create();
    RETURN_LAST_ERROR_IF(!control_);
    Guard control(controlLock_);
    const ipc::ObjectName name = NewPixelName();
    control_.WritePixelName(name.c_str());
    // Without a screen to copy the format from, the first frame packet makes the section.
    image_.OpenSharedFromScreen(name.c_str());
    return S_OK;
}

DesktopIPCServer::~DesktopIPCServer() {
    StopIPCServer();
    image_.Close();
}

HRESULT DesktopIPCServer::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {
        QITABENT(DesktopIPCServer, IDataTransmitter),
        QITABENT(DesktopIPCServer, IDesktopIPCServer),
        {},
    };
    return QISearch(this, rows, riid, ppv);
}

// Every refusal (not started, wrong length, unknown magic, a body that does not decompress or
// does not fit its header, a desktop above the decoder's cap) leaves image, region and control
// section as they were.
HRESULT DesktopIPCServer::Transfer(void* lpvData, unsigned long cbData, long) noexcept {
    Guard guard(decodeLock_);
    if (running_)
        decoder_.Decode(lpvData, cbData);
    return S_OK;
}

HRESULT DesktopIPCServer::Flush() noexcept {
    return S_OK;
}

// A format change publishes the new section's name and its BITMAPINFO together, under the
// control lock, and only once the section exists. A pass holds the same lock and copies the
// image's BITMAPINFO, which then describes that same section, so every pass that carries flag
// bit 1 carries a matching pair. A viewer's first open reads the pair outside any pass; if that
// read races with a change, the change's own pass (bit 1) makes it open again.
bool DesktopIPCServer::RebuildImage(DesktopImage& image, const BITMAPINFO* bmi) noexcept {
    Guard control(controlLock_);
    image.Close();
    const ipc::ObjectName name = NewPixelName();
    if (!image.CreateSharedFromBitmapInfo(bmi, name.c_str()))
        return false;
    control_.WritePixelName(name.c_str());
    control_.WriteBitmapInfo(image.GetBitmapInfo());
    control_.SetFlags(control_.Flags() | ipc::kFlagNewSection);
    SetEvent(wake_.get());
    return true;
}

ipc::ObjectName DesktopIPCServer::NewPixelName() noexcept {
    DWORD tick = GetTickCount();
    for (;;) {
        if (tick == lastNameTick_)
            ++tick;
        const ipc::ObjectName name = ipc::PixelSectionName(tick);
        if (!TryOpenNamedSection(name.c_str())) {
            lastNameTick_ = tick;
            return name;
        }
        ++tick;
    }
}

void DesktopIPCServer::OnBandApplied(const RECT& band) noexcept {
    Guard region(regionLock_);
    region_.AddRect(&band);
    SetEvent(wake_.get());
}

void DesktopIPCServer::OnCursorChanged(const RECT& area, const POINT* position) noexcept {
    Guard region(regionLock_);
    if (!IsRectEmpty(&area))
        region_.AddRect(&area);
    if (position)
        cursor_ = *position;
    SetEvent(wake_.get());
}

HRESULT DesktopIPCServer::StartIPCServer() noexcept {
    Guard guard(decodeLock_);
    RETURN_HR_IF(E_FAIL, running_);
    // The first frame packet of every start rebuilds the image: the viewers reopen.
    decoder_.ResetPicture(true);
    {
        Guard region(regionLock_);
        region_.Empty();
        cursor_ = POINT{};
    }
    ResetEvent(wake_.get());
    stopThread_ = false;
    DWORD id = 0;
    thread_.reset(CreateThread(nullptr, 0, ThreadEntry, this, 0, &id));
    RETURN_LAST_ERROR_IF(!thread_);
    running_ = true;
    return S_OK;
}

// The thread may be inside a pass, waiting up to the viewers' time-out each; Stop waits for it.
HRESULT DesktopIPCServer::StopIPCServer() noexcept {
    {
        Guard guard(decodeLock_);
        RETURN_HR_IF(E_FAIL, !running_);
        running_ = false;
    }
    stopThread_ = true;
    SetEvent(wake_.get());
    WaitForSingleObject(thread_.get(), INFINITE);
    thread_.reset();
    return S_OK;
}

HRESULT DesktopIPCServer::SetMaxIPCClients(int nMaxClients) noexcept {
    maxClients_ = nMaxClients;
    return S_OK;
}

DWORD WINAPI DesktopIPCServer::ThreadEntry(void* self) noexcept {
    static_cast<DesktopIPCServer*>(self)->NotificationThread();
    return 0;
}

void DesktopIPCServer::NotificationThread() noexcept {
    UpdateRegion::RectList rects;
    for (;;) {
        WaitForSingleObject(wake_.get(), INFINITE);
        if (stopThread_)
            return;
        rects.clear();
        POINT cursor;
        {
            Guard region(regionLock_);
            RECT screen;
            {
                Guard image(image_.Lock());
                image_.GetScreenRect(&screen);
            }
            try {
                region_.GetRectsIn(rects, &screen);
            } catch (...) {
                rects.clear();  // out of memory: this pass carries no rectangles
            }
            region_.Empty();
            cursor = cursor_;
        }
        RunPass(rects, cursor);
    }
}

void DesktopIPCServer::RunPass(const UpdateRegion::RectList& rects, POINT cursor) noexcept {
    Guard control(controlLock_);
    control_.WriteCursor(cursor.x, cursor.y);
    DWORD flags = control_.Flags();
    if (!rects.empty()) {
        // The image's lock: a failed rebuild closes the image outside the control lock.
        Guard image(image_.Lock());
        if (const BITMAPINFO* bmi = image_.GetBitmapInfo()) {
            control_.WriteRects(rects);
            control_.WriteBitmapInfo(bmi);
            flags |= ipc::kFlagRects;
            control_.SetFlags(flags);
        }
    }
    if (flags != 0)
        ipc::NotifyClients(maxClients_);
    control_.SetFlags(0);
}

}  // namespace vantrel
