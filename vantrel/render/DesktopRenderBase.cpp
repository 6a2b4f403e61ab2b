// DesktopRenderBase: the IDesktopRender answers both render objects give. What needs the render
// window, the desktop image or the view layout waits for them.
#include "render/DesktopRenderBase.h"

#include "wincom/Result.h"

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

DesktopRenderBase::DesktopRenderBase() noexcept
    : maxWidth_(GetSystemMetrics(SM_CXSCREEN)),
      maxHeight_(GetSystemMetrics(SM_CYSCREEN)),
      hCursorDefault_(LoadCursor(nullptr, IDC_NO)),
      hCursorNormal_(hCursorDefault_),
      hCursorSpan_(hCursorDefault_),
      hCursorSpanning_(hCursorDefault_),
      lastLocalMoveTick_(GetTickCount()) {}

HRESULT DesktopRenderBase::SetParentWindow(HWND hWndParent) noexcept {
    RETURN_HR_IF(S_FALSE, hWndParent == hWndParent_);
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRenderBase::SetNotifyWindow(HWND hWndNotify, unsigned int uMsg,
                                           unsigned long dwParam) noexcept {
    notify_.Set(hWndNotify, uMsg, dwParam);
    return S_OK;
}

HRESULT DesktopRenderBase::SetMessageDrainWindow(HWND hWndMessageDrain) noexcept {
    hWndMessageDrain_ = hWndMessageDrain;
    return S_OK;
}

HRESULT DesktopRenderBase::GetParentWindow(HWND* phWndParent) noexcept {
    return CopyOut(hWndParent_, phWndParent);
}

HRESULT DesktopRenderBase::GetNotifyWindow(HWND* phWndNotify) noexcept {
    return CopyOut(notify_.Window(), phWndNotify);
}

HRESULT DesktopRenderBase::GetMessageDrainWindow(HWND* phWndMsgDrain) noexcept {
    return CopyOut(hWndMessageDrain_, phWndMsgDrain);
}

HRESULT DesktopRenderBase::SetWindowPosition(long, long, long, long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRenderBase::GetWindowPosition(long*, long*, long*, long*) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRenderBase::SetVisible(long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRenderBase::GetVisible(long*) noexcept {
    return E_NOTIMPL;  // needs the render window
}

// The host places the view only in manual mode; the other modes lay it out themselves.
HRESULT DesktopRenderBase::SetSourcePosition(long, long, long, long) noexcept {
    RETURN_HR_IF(S_FALSE, scrollMode_ != RSM_MANUAL);
    return E_NOTIMPL;  // needs the render window: the client area is repainted
}

HRESULT DesktopRenderBase::GetSourcePosition(long* plLeft, long* plTop, long* plRight,
                                             long* plBottom) noexcept {
    return CopyRect4(source_, plLeft, plTop, plRight, plBottom);
}

HRESULT DesktopRenderBase::SetDefaultSourcePosition() noexcept {
    if (IsRectEmpty(&source_))
        return S_OK;
    return E_NOTIMPL;  // needs the render window: the client area is repainted
}

HRESULT DesktopRenderBase::IsUsingDefaultSource() noexcept {
    return IsRectEmpty(&source_) ? S_OK : S_FALSE;
}

// Shows at the next paint; the window is deliberately not invalidated here.
HRESULT DesktopRenderBase::SetDestinationPosition(long lLeft, long lTop, long lRight,
                                                  long lBottom) noexcept {
    RETURN_HR_IF(S_FALSE, scrollMode_ != RSM_MANUAL);
    SetRect(&destination_, lLeft, lTop, lRight, lBottom);
    return S_OK;
}

HRESULT DesktopRenderBase::GetDestinationPosition(long*, long*, long*, long*) noexcept {
    return E_NOTIMPL;  // needs the render window: reading the placement repaints it
}

HRESULT DesktopRenderBase::SetDefaultDestinationPosition() noexcept {
    if (IsRectEmpty(&destination_))
        return S_OK;
    return E_NOTIMPL;  // needs the render window: the client area is repainted
}

HRESULT DesktopRenderBase::IsUsingDefaultDestination() noexcept {
    return IsRectEmpty(&destination_) ? S_OK : S_FALSE;
}

HRESULT DesktopRenderBase::GetCurrectImage(unsigned long* pcbImage, void*) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pcbImage);
    RETURN_HR_IF(E_FAIL, !HasPicture());
    return E_NOTIMPL;  // needs the desktop image
}

HRESULT DesktopRenderBase::GetDesktopInfomation(long* plWidth, long* plHeight,
                                                long* plBitsPixel) noexcept {
    RETURN_HR_IF(E_POINTER, !plWidth || !plHeight || !plBitsPixel);
    RETURN_HR_IF(E_FAIL, !HasPicture());
    *plWidth = imageRect_.right - imageRect_.left;
    *plHeight = imageRect_.bottom - imageRect_.top;
    *plBitsPixel = bitsPixel_;
    return S_OK;
}

// Kept for hosts that call it: nothing is written, not even *pnRetrieved.
HRESULT DesktopRenderBase::GetPaletteEntries(int, int, int*, void*) noexcept {
    return S_OK;
}

HRESULT DesktopRenderBase::SetTopMostWindow(long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRenderBase::SetScrollMode(int) noexcept {
    return E_NOTIMPL;  // needs the render window and the view layout
}

HRESULT DesktopRenderBase::GetStyle(unsigned long*, unsigned long*) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRenderBase::ModifyStyle(unsigned long, unsigned long, unsigned long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRenderBase::SetWindowCaption(LPSTR) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRenderBase::SetCursor(HICON, HICON, HICON) noexcept {
    return E_NOTIMPL;  // needs the render window and the view layout
}

HRESULT DesktopRenderBase::GetWindowHandle(HWND*) noexcept {
    return E_NOTIMPL;  // needs the render window
}

HRESULT DesktopRenderBase::GetIdelWindowSize(long* lWidth, long* lHeight) noexcept {
    RETURN_HR_IF(E_POINTER, !lWidth || !lHeight);
    if (!HasPicture()) {
        *lWidth = 0;
        *lHeight = 0;
        return S_OK;
    }
    return E_NOTIMPL;  // needs the render window: its frame adds to the picture's size
}

// Limits for a top-level render window; the window applies them when it is sized.
HRESULT DesktopRenderBase::SetMaxMinSize(long lMaxWidth, long lMaxHeight, long lMinWidth,
                                         long lMinHeight) noexcept {
    maxWidth_ = lMaxWidth;
    maxHeight_ = lMaxHeight;
    minWidth_ = lMinWidth;
    minHeight_ = lMinHeight;
    return S_OK;
}

HRESULT DesktopRenderBase::ResetContent() noexcept {
    return E_NOTIMPL;  // needs the desktop image and the render window
}

HRESULT DesktopRenderBase::ModifyStyleEx(unsigned long, unsigned long, unsigned long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

// The switch timeout matters only in switch mode, so other modes keep the last one.
HRESULT DesktopRenderBase::SetCursorMoveMode(int nMode, unsigned long dwSwitchTimeout) noexcept {
    cursorMoveMode_ = nMode;
    if (nMode == CMM_SWITCH)
        switchTimeout_ = dwSwitchTimeout;
    lastLocalMoveTick_ = GetTickCount();
    return S_OK;
}

HRESULT DesktopRenderBase::SetIdleTimeout(unsigned long) noexcept {
    return E_NOTIMPL;  // needs the render window's idle timer
}

HRESULT DesktopRenderBase::ShowScrollBar(long) noexcept {
    return E_NOTIMPL;  // needs the render window and the view layout
}

HRESULT DesktopRenderBase::EnableDragMove(long) noexcept {
    return E_NOTIMPL;  // needs the render window
}

}  // namespace vantrel
