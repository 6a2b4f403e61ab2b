// DesktopIPCRender: Run and Stop around the client thread, and what a pass repaints.
#include "ipc/DesktopIPCRender.h"

#include <mutex>

#include "contracts/Pixmend.h"
#include "wincom/Result.h"

namespace vantrel {
namespace {
using Guard = std::lock_guard<CriticalSection>;
}  // namespace

DesktopIPCRender::DesktopIPCRender(IUnknown* outer) noexcept : ComObjectRoot(outer) {
    PixmendInit();
    CreateRenderWindow();
}

DesktopIPCRender::~DesktopIPCRender() {
    client_.Stop();
    DestroyRenderWindow();
}

HRESULT DesktopIPCRender::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {
        QITABENT(DesktopIPCRender, IDataTransmitter),
        QITABENT(DesktopIPCRender, IDesktopRender),
        QITABENT(DesktopIPCRender, IFrameBuffer),
        {},
    };
    return QISearch(this, rows, riid, ppv);
}

// Failures answer -1 (all bits set), not an E_ code. A running viewer refuses a second Run: the
// thread and the channel objects are in use.
HRESULT DesktopIPCRender::Run() noexcept {
    RETURN_HR_IF(E_FAIL, client_.IsRunning());
    {
        Guard guard(pictureLock_);
        imageRect_ = RECT{};
    }
    pictureComplete_ = false;
    return SUCCEEDED(client_.Start(sessionId_)) ? S_OK : static_cast<HRESULT>(-1);
}

HRESULT DesktopIPCRender::Stop() noexcept {
    client_.Stop();
    return S_OK;
}

// -1 stands for the default session 0.
HRESULT DesktopIPCRender::SetSessionId(int nId) noexcept {
    sessionId_ = nId == -1 ? 0 : nId;
    return S_OK;
}

// The picture comes from the shared image, never from packets.
HRESULT DesktopIPCRender::Transfer(void*, unsigned long, long) noexcept {
    return S_OK;
}

HRESULT DesktopIPCRender::Flush() noexcept {
    return S_OK;
}

void DesktopIPCRender::ProcessPacket(const void*, DWORD) noexcept {}

// A viewer has no picture of its own to hand out; the arguments stay untouched.
HRESULT DesktopIPCRender::GetFullScreenData(void*, unsigned long*, long) noexcept {
    return E_FAIL;
}

HRESULT DesktopIPCRender::GetFullScreenDataUncompressed(void*, unsigned long*) noexcept {
    return E_FAIL;
}

HRESULT DesktopIPCRender::GetBitmapInfo(void**) noexcept {
    return E_FAIL;
}

RECT DesktopIPCRender::PictureRect() const noexcept {
    Guard guard(pictureLock_);
    return imageRect_;
}

// The channel states no depth of its own.
LONG DesktopIPCRender::PictureBitsPixel() const noexcept {
    return 0;
}

bool DesktopIPCRender::IsPictureComplete() const noexcept {
    return pictureComplete_;
}

void DesktopIPCRender::ForgetCompletion() noexcept {
    pictureComplete_ = false;
}

void DesktopIPCRender::OnImageOpened(const RECT& rect, bool initial) noexcept {
    {
        Guard guard(pictureLock_);
        imageRect_ = rect;
    }
    if (initial)
        RecalcLayout();
}

// The server's image has drawn the pointer into the shared pixels: the position only tells the
// view where it is, whatever the cursor move mode.
void DesktopIPCRender::OnRectsChanged(const RECT* rects, UINT count, POINT cursor) noexcept {
    SetPointerPosition(cursor.x, cursor.y);
    image_.ApplyColorTable();
    if (HPALETTE palette = image_.CreateImagePalette())
        window().SetViewPalette(palette);
    const RECT whole = PictureRect();
    for (UINT i = 0; i < count; ++i)
        window().InvalidateSourceRect(IsRectEmpty(&rects[i]) ? whole : rects[i]);
    if (!pictureComplete_.exchange(true))
        PostNotify(RN_PICTURECOMPLETE);
    RecalcLayout();
}

}  // namespace vantrel
