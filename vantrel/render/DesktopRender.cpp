// DesktopRender: the view settings the host stores and reads back, and the picture state. What
// needs the render window, the desktop image or the decoder waits for them.
#include "render/DesktopRender.h"

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

DesktopRender::DesktopRender(IUnknown* outer) noexcept
    : ComObjectRoot(outer),
      maxWidth_(GetSystemMetrics(SM_CXSCREEN)),
      maxHeight_(GetSystemMetrics(SM_CYSCREEN)),
      hCursorDefault_(LoadCursor(nullptr, IDC_NO)),
      hCursorNormal_(hCursorDefault_),
      hCursorSpan_(hCursorDefault_),
      hCursorSpanning_(hCursorDefault_),
      lastLocalMoveTick_(GetTickCount()) {}

HRESULT DesktopRender::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {
        QITABENT(DesktopRender, IDesktopRender),
        QITABENT(DesktopRender, IDataTransmitter),
        QITABENT(DesktopRender, IFrameBuffer),
        {},
    };
    return QISearch(this, rows, riid, ppv);
}

HRESULT DesktopRender::SetParentWindow(HWND hWndParent) noexcept {
    RETURN_HR_IF(S_FALSE, hWndParent == hWndParent_);
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRender::SetNotifyWindow(HWND hWndNotify, unsigned int uMsg,
                                       unsigned long dwParam) noexcept {
    hWndNotify_ = hWndNotify;
    uNotifyMsg_ = uMsg;
    dwNotifyParam_ = dwParam;
    return S_OK;
}

HRESULT DesktopRender::SetMessageDrainWindow(HWND hWndMessageDrain) noexcept {
    hWndMessageDrain_ = hWndMessageDrain;
    return S_OK;
}

HRESULT DesktopRender::GetParentWindow(HWND* phWndParent) noexcept {
    return CopyOut(hWndParent_, phWndParent);
}

HRESULT DesktopRender::GetNotifyWindow(HWND* phWndNotify) noexcept {
    return CopyOut(hWndNotify_, phWndNotify);
}

HRESULT DesktopRender::GetMessageDrainWindow(HWND* phWndMsgDrain) noexcept {
    return CopyOut(hWndMessageDrain_, phWndMsgDrain);
}

HRESULT DesktopRender::SetWindowPosition(long, long, long, long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRender::GetWindowPosition(long*, long*, long*, long*) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRender::SetVisible(long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRender::GetVisible(long*) noexcept {
    return E_NOTIMPL;  // needs the render window
}

// The host places the view only in manual mode; the other modes lay it out themselves.
HRESULT DesktopRender::SetSourcePosition(long, long, long, long) noexcept {
    RETURN_HR_IF(S_FALSE, scrollMode_ != RSM_MANUAL);
    return E_NOTIMPL;  // needs the render window: the client area is repainted
}

HRESULT DesktopRender::GetSourcePosition(long* plLeft, long* plTop, long* plRight,
                                         long* plBottom) noexcept {
    return CopyRect4(source_, plLeft, plTop, plRight, plBottom);
}

HRESULT DesktopRender::SetDefaultSourcePosition() noexcept {
    if (IsRectEmpty(&source_))
        return S_OK;
    return E_NOTIMPL;  // needs the render window: the client area is repainted
}

HRESULT DesktopRender::IsUsingDefaultSource() noexcept {
    return IsRectEmpty(&source_) ? S_OK : S_FALSE;
}

// Shows at the next paint; the window is deliberately not invalidated here.
HRESULT DesktopRender::SetDestinationPosition(long lLeft, long lTop, long lRight,
                                              long lBottom) noexcept {
    RETURN_HR_IF(S_FALSE, scrollMode_ != RSM_MANUAL);
    SetRect(&destination_, lLeft, lTop, lRight, lBottom);
    return S_OK;
}

HRESULT DesktopRender::GetDestinationPosition(long*, long*, long*, long*) noexcept {
    return E_NOTIMPL;  // needs the render window: reading the placement repaints it
}

HRESULT DesktopRender::SetDefaultDestinationPosition() noexcept {
    if (IsRectEmpty(&destination_))
        return S_OK;
    return E_NOTIMPL;  // needs the render window: the client area is repainted
}

HRESULT DesktopRender::IsUsingDefaultDestination() noexcept {
    return IsRectEmpty(&destination_) ? S_OK : S_FALSE;
}

HRESULT DesktopRender::GetCurrectImage(unsigned long* pcbImage, void*) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pcbImage);
    RETURN_HR_IF(E_FAIL, !HasPicture());
    return E_NOTIMPL;  // needs the desktop image
}

HRESULT DesktopRender::GetDesktopInfomation(long* plWidth, long* plHeight,
                                            long* plBitsPixel) noexcept {
    RETURN_HR_IF(E_POINTER, !plWidth || !plHeight || !plBitsPixel);
    RETURN_HR_IF(E_FAIL, !HasPicture());
    *plWidth = imageRect_.right - imageRect_.left;
    *plHeight = imageRect_.bottom - imageRect_.top;
    *plBitsPixel = bitsPixel_;
    return S_OK;
}

// Kept for hosts that call it: nothing is written, not even *pnRetrieved.
HRESULT DesktopRender::GetPaletteEntries(int, int, int*, void*) noexcept {
    return S_OK;
}

// Drops the picture's rectangle so that the next frame packet builds the picture anew.
HRESULT DesktopRender::Run() noexcept {
    SetRectEmpty(&imageRect_);
    bitsPixel_ = 0;
    pictureComplete_ = false;
    SetRectEmpty(&receivedArea_);
    return S_OK;
}

HRESULT DesktopRender::Stop() noexcept {
    return S_OK;
}

HRESULT DesktopRender::SetTopMostWindow(long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRender::SetScrollMode(int) noexcept {
    return E_NOTIMPL;  // needs the render window and the view layout
}

HRESULT DesktopRender::GetStyle(unsigned long*, unsigned long*) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRender::ModifyStyle(unsigned long, unsigned long, unsigned long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRender::SetWindowCaption(LPSTR) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRender::SetCursor(HICON, HICON, HICON) noexcept {
    return E_NOTIMPL;  // needs the render window and the view layout
}

HRESULT DesktopRender::GetWindowHandle(HWND*) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRender::GetIdelWindowSize(long* lWidth, long* lHeight) noexcept {
    RETURN_HR_IF(E_POINTER, !lWidth || !lHeight);
    if (!HasPicture()) {
        *lWidth = 0;
        *lHeight = 0;
        return S_OK;
    }
    return E_NOTIMPL;  // needs the render window: its frame adds to the picture's size
}

// Limits for a top-level render window; the window applies them when it is sized.
HRESULT DesktopRender::SetMaxMinSize(long lMaxWidth, long lMaxHeight, long lMinWidth,
                                     long lMinHeight) noexcept {
    maxWidth_ = lMaxWidth;
    maxHeight_ = lMaxHeight;
    minWidth_ = lMinWidth;
    minHeight_ = lMinHeight;
    return S_OK;
}

HRESULT DesktopRender::ResetContent() noexcept {
    return E_NOTIMPL;  // needs the desktop image and the render window
}

HRESULT DesktopRender::ModifyStyleEx(unsigned long, unsigned long, unsigned long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

// The switch timeout matters only in switch mode, so other modes keep the last one.
HRESULT DesktopRender::SetCursorMoveMode(int nMode, unsigned long dwSwitchTimeout) noexcept {
    cursorMoveMode_ = nMode;
    if (nMode == CMM_SWITCH)
        switchTimeout_ = dwSwitchTimeout;
    lastLocalMoveTick_ = GetTickCount();
    return S_OK;
}

HRESULT DesktopRender::SetIdleTimeout(unsigned long) noexcept {
    return E_NOTIMPL;  // needs the render window's idle timer
}

HRESULT DesktopRender::ShowScrollBar(long) noexcept {
    return E_NOTIMPL;  // needs the render window and the view layout
}

HRESULT DesktopRender::EnableDragMove(long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

// Only a shared-memory viewer has a session.
HRESULT DesktopRender::SetSessionId(int) noexcept {
    return S_OK;
}

HRESULT DesktopRender::Transfer(void*, unsigned long, long) noexcept {
    return E_NOTIMPL;  // needs the decoder, the desktop image and the render window
}

HRESULT DesktopRender::Flush() noexcept {
    return S_OK;
}

HRESULT DesktopRender::GetFullScreenData(void* lpvData, unsigned long* pcbData, long) noexcept {
    RETURN_HR_IF(E_POINTER, !lpvData || !pcbData);
    RETURN_HR_IF(E_FAIL, !HasPicture());
    return E_NOTIMPL;  // needs the desktop image and the codec
}

HRESULT DesktopRender::GetFullScreenDataUncompressed(void* lpvData,
                                                     unsigned long* pcbData) noexcept {
    RETURN_HR_IF(E_POINTER, !lpvData || !pcbData);
    RETURN_HR_IF(E_FAIL, !HasPicture());
    return E_NOTIMPL;  // needs the desktop image
}

HRESULT DesktopRender::GetBitmapInfo(void**) noexcept {
    return E_NOTIMPL;  // needs the desktop image
}

}  // namespace vantrel
