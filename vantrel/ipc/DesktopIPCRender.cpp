// DesktopIPCRender: the view settings the host stores and reads back, as in DesktopRender, and
// the session. What needs the render window, the desktop image or the channel waits for them.
#include "ipc/DesktopIPCRender.h"

#include "platform/Result.h"

namespace vantrel {
namespace {

HRESULT CopyRect4(const RECT& rect, long* left, long* top, long* right, long* bottom) noexcept {
    RETURN_HR_IF(E_POINTER, !left || !top || !right || !bottom);
    *left = rect.left;
    *top = rect.top;
    *right = rect.right;
    *bottom = rect.bottom;
    return S_OK;
}

template <typename T>
HRESULT CopyOut(T value, T* out) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, out);
    *out = value;
    return S_OK;
}

}  // namespace

DesktopIPCRender::DesktopIPCRender(IUnknown* outer) noexcept
    : ComObjectRoot(outer),
      maxWidth_(GetSystemMetrics(SM_CXSCREEN)),
      maxHeight_(GetSystemMetrics(SM_CYSCREEN)),
      hCursorDefault_(LoadCursor(nullptr, IDC_NO)),
      hCursorNormal_(hCursorDefault_),
      hCursorSpan_(hCursorDefault_),
      hCursorSpanning_(hCursorDefault_),
      lastLocalMoveTick_(GetTickCount()) {}

HRESULT DesktopIPCRender::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {
        QITABENT(DesktopIPCRender, IDataTransmitter),
        QITABENT(DesktopIPCRender, IDesktopRender),
        QITABENT(DesktopIPCRender, IFrameBuffer),
        {},
    };
    return QISearch(this, rows, riid, ppv);
}

HRESULT DesktopIPCRender::SetParentWindow(HWND hWndParent) noexcept {
    RETURN_HR_IF(S_FALSE, hWndParent == hWndParent_);
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopIPCRender::SetNotifyWindow(HWND hWndNotify, unsigned int uMsg,
                                          unsigned long dwParam) noexcept {
    hWndNotify_ = hWndNotify;
    uNotifyMsg_ = uMsg;
    dwNotifyParam_ = dwParam;
    return S_OK;
}

HRESULT DesktopIPCRender::SetMessageDrainWindow(HWND hWndMessageDrain) noexcept {
    hWndMessageDrain_ = hWndMessageDrain;
    return S_OK;
}

HRESULT DesktopIPCRender::GetParentWindow(HWND* phWndParent) noexcept {
    return CopyOut(hWndParent_, phWndParent);
}

HRESULT DesktopIPCRender::GetNotifyWindow(HWND* phWndNotify) noexcept {
    return CopyOut(hWndNotify_, phWndNotify);
}

HRESULT DesktopIPCRender::GetMessageDrainWindow(HWND* phWndMsgDrain) noexcept {
    return CopyOut(hWndMessageDrain_, phWndMsgDrain);
}

HRESULT DesktopIPCRender::SetWindowPosition(long, long, long, long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopIPCRender::GetWindowPosition(long*, long*, long*, long*) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopIPCRender::SetVisible(long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopIPCRender::GetVisible(long*) noexcept {
    return E_NOTIMPL;  // needs the render window
}

// The host places the view only in manual mode; the other modes lay it out themselves.
HRESULT DesktopIPCRender::SetSourcePosition(long, long, long, long) noexcept {
    RETURN_HR_IF(S_FALSE, scrollMode_ != RSM_MANUAL);
    return E_NOTIMPL;  // needs the render window: the client area is repainted
}

HRESULT DesktopIPCRender::GetSourcePosition(long* plLeft, long* plTop, long* plRight,
                                            long* plBottom) noexcept {
    return CopyRect4(source_, plLeft, plTop, plRight, plBottom);
}

HRESULT DesktopIPCRender::SetDefaultSourcePosition() noexcept {
    if (IsRectEmpty(&source_))
        return S_OK;
    return E_NOTIMPL;  // needs the render window: the client area is repainted
}

HRESULT DesktopIPCRender::IsUsingDefaultSource() noexcept {
    return IsRectEmpty(&source_) ? S_OK : S_FALSE;
}

// Shows at the next paint; the window is deliberately not invalidated here.
HRESULT DesktopIPCRender::SetDestinationPosition(long lLeft, long lTop, long lRight,
                                                 long lBottom) noexcept {
    RETURN_HR_IF(S_FALSE, scrollMode_ != RSM_MANUAL);
    SetRect(&destination_, lLeft, lTop, lRight, lBottom);
    return S_OK;
}

HRESULT DesktopIPCRender::GetDestinationPosition(long*, long*, long*, long*) noexcept {
    return E_NOTIMPL;  // needs the render window: reading the placement repaints it
}

HRESULT DesktopIPCRender::SetDefaultDestinationPosition() noexcept {
    if (IsRectEmpty(&destination_))
        return S_OK;
    return E_NOTIMPL;  // needs the render window: the client area is repainted
}

HRESULT DesktopIPCRender::IsUsingDefaultDestination() noexcept {
    return IsRectEmpty(&destination_) ? S_OK : S_FALSE;
}

HRESULT DesktopIPCRender::GetCurrectImage(unsigned long* pcbImage, void*) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pcbImage);
    RETURN_HR_IF(E_FAIL, !HasPicture());
    return E_NOTIMPL;  // needs the desktop image
}

HRESULT DesktopIPCRender::GetDesktopInfomation(long* plWidth, long* plHeight,
                                               long* plBitsPixel) noexcept {
    RETURN_HR_IF(E_POINTER, !plWidth || !plHeight || !plBitsPixel);
    RETURN_HR_IF(E_FAIL, !HasPicture());
    *plWidth = imageRect_.right - imageRect_.left;
    *plHeight = imageRect_.bottom - imageRect_.top;
    *plBitsPixel = bitsPixel_;
    return S_OK;
}

// Kept for hosts that call it: nothing is written, not even *pnRetrieved.
HRESULT DesktopIPCRender::GetPaletteEntries(int, int, int*, void*) noexcept {
    return S_OK;
}

HRESULT DesktopIPCRender::Run() noexcept {
    return E_NOTIMPL;  // needs the shared-memory channel and the client thread
}

HRESULT DesktopIPCRender::Stop() noexcept {
    return E_NOTIMPL;  // needs the shared-memory channel and the client thread
}

HRESULT DesktopIPCRender::SetTopMostWindow(long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopIPCRender::SetScrollMode(int) noexcept {
    return E_NOTIMPL;  // needs the render window and the view layout
}

HRESULT DesktopIPCRender::GetStyle(unsigned long*, unsigned long*) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopIPCRender::ModifyStyle(unsigned long, unsigned long, unsigned long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopIPCRender::SetWindowCaption(LPSTR) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopIPCRender::SetCursor(HICON, HICON, HICON) noexcept {
    return E_NOTIMPL;  // needs the render window and the view layout
}

HRESULT DesktopIPCRender::GetWindowHandle(HWND*) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopIPCRender::GetIdelWindowSize(long* lWidth, long* lHeight) noexcept {
    RETURN_HR_IF(E_POINTER, !lWidth || !lHeight);
    if (!HasPicture()) {
        *lWidth = 0;
        *lHeight = 0;
        return S_OK;
    }
    return E_NOTIMPL;  // needs the render window: its frame adds to the picture's size
}

// Limits for a top-level render window; the window applies them when it is sized.
HRESULT DesktopIPCRender::SetMaxMinSize(long lMaxWidth, long lMaxHeight, long lMinWidth,
                                        long lMinHeight) noexcept {
    maxWidth_ = lMaxWidth;
    maxHeight_ = lMaxHeight;
    minWidth_ = lMinWidth;
    minHeight_ = lMinHeight;
    return S_OK;
}

HRESULT DesktopIPCRender::ResetContent() noexcept {
    return E_NOTIMPL;  // needs the desktop image and the render window
}

HRESULT DesktopIPCRender::ModifyStyleEx(unsigned long, unsigned long, unsigned long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

// The switch timeout matters only in switch mode, so other modes keep the last one.
HRESULT DesktopIPCRender::SetCursorMoveMode(int nMode, unsigned long dwSwitchTimeout) noexcept {
    cursorMoveMode_ = nMode;
    if (nMode == CMM_SWITCH)
        switchTimeout_ = dwSwitchTimeout;
    lastLocalMoveTick_ = GetTickCount();
    return S_OK;
}

HRESULT DesktopIPCRender::SetIdleTimeout(unsigned long) noexcept {
    return E_NOTIMPL;  // needs the render window's idle timer
}

HRESULT DesktopIPCRender::ShowScrollBar(long) noexcept {
    return E_NOTIMPL;  // needs the render window and the view layout
}

HRESULT DesktopIPCRender::EnableDragMove(long) noexcept {
    return E_NOTIMPL;  // needs the render window
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

}  // namespace vantrel
