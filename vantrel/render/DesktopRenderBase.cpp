// DesktopRenderBase: the IDesktopRender answers both render objects give, and the view
// geometry they share (layout pass, drag, local mouse).
#include "render/DesktopRenderBase.h"

#include <cstring>
#include <mutex>

#include "wincom/Result.h"

namespace vantrel {
namespace {

using Guard = std::lock_guard<CriticalSection>;

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

SIZE SizeOf(const RECT& r) noexcept {
    return {view::Width(r), view::Height(r)};
}

}  // namespace

DesktopRenderBase::DesktopRenderBase() noexcept
    : lastLocalMoveTick_(GetTickCount()),
      hCursorDefault_(LoadCursor(nullptr, IDC_NO)),
      hCursorNormal_(hCursorDefault_),
      hCursorSpan_(hCursorDefault_),
      hCursorSpanning_(hCursorDefault_),
      maxWidth_(GetSystemMetrics(SM_CXSCREEN)),
      maxHeight_(GetSystemMetrics(SM_CYSCREEN)) {}

DesktopRenderBase::~DesktopRenderBase() {
    window_.Destroy();
}

void DesktopRenderBase::CreateRenderWindow() noexcept {
    window_.Create(this);
}

void DesktopRenderBase::DestroyRenderWindow() noexcept {
    window_.Destroy();
}

DesktopRenderBase::View DesktopRenderBase::GetView() const noexcept {
    View v;
    v.imageRect = PictureRect();
    Guard guard(viewLock_);
    v.source = source_;
    v.destination = destination_;
    return v;
}

// ---- Layout -------------------------------------------------------------------------------------

void DesktopRenderBase::RecalcLayout() noexcept {
    const RECT image = PictureRect();
    const HWND hwnd = window_.Handle();
    int mode;
    {
        Guard guard(viewLock_);
        mode = scrollMode_;
    }
    if (IsRectEmpty(&image) || mode == view::RSM_MANUAL || !hwnd) {
        PostNotify(RN_VIEWCHANGED);
        return;
    }
    const RECT client = window_.ClientRect();
    view::Placement placement;
    view::ScrollPlacement scroll;
    HCURSOR shape;
    bool bars = false;
    {
        Guard guard(viewLock_);
        if (mode == view::RSM_FOLLOW) {
            placement =
                view::FollowLayout(SizeOf(client), SizeOf(image), source_, {cursorX_, cursorY_});
            shape = hCursorNormal_;
        } else if (mode == view::RSM_SCROLL) {
            const LONG style = GetWindowLongA(hwnd, GWL_STYLE);
            scroll = view::ScrollLayout(
                client, SizeOf(image), source_, (style & WS_HSCROLL) != 0,
                (style & WS_VSCROLL) != 0,
                {GetSystemMetrics(SM_CXVSCROLL), GetSystemMetrics(SM_CYHSCROLL)});
            placement = scroll;
            shape = spanning_                      ? hCursorSpanning_
                    : scroll.needH || scroll.needV ? hCursorSpan_
                                                   : hCursorNormal_;
            bars = showScrollBars_;
        } else {
            placement = {source_, destination_};
            shape = hCursorNormal_;
        }
    }
    window_.SetViewCursor(shape);
    if (bars) {
        // Style and bar changes send messages to the window: only its own thread makes them.
        if (!window_.OnOwnThread())
            window_.RequestRelayout();
        else if (!UpdateScrollBars(scroll, image))
            return;
    }
    CommitView(placement);
}

bool DesktopRenderBase::UpdateScrollBars(const view::ScrollPlacement& p,
                                         const RECT& image) noexcept {
    const HWND hwnd = window_.Handle();
    struct Bar {
        bool need;
        DWORD style;
        int bar;
        LONG range, page, pos;
    };
    const Bar bars[] = {
        {p.needH, WS_HSCROLL, SB_HORZ, view::Width(image), view::Width(p.source), p.source.left},
        {p.needV, WS_VSCROLL, SB_VERT, view::Height(image), view::Height(p.source), p.source.top},
    };
    for (const Bar& b : bars) {
        const bool has = (GetWindowLongA(hwnd, GWL_STYLE) & b.style) != 0;
        if (b.need && !has) {
            ChangeStyle(GWL_STYLE, 0, b.style, SWP_FRAMECHANGED);
            return false;
        }
        if (b.need) {
            SCROLLINFO si{sizeof si, SIF_RANGE | SIF_PAGE | SIF_POS, 0,
                          b.range,   static_cast<UINT>(b.page),      b.pos,
                          0};
            SetScrollInfo(hwnd, b.bar, &si, TRUE);
        } else if (has) {
            ChangeStyle(GWL_STYLE, b.style, 0, SWP_FRAMECHANGED);
            return false;
        }
    }
    return true;
}

void DesktopRenderBase::CommitView(const view::Placement& p) noexcept {
    {
        Guard guard(viewLock_);
        if (EqualRect(&p.source, &source_) && EqualRect(&p.destination, &destination_))
            return;
        source_ = p.source;
        destination_ = p.destination;
    }
    PostNotify(RN_VIEWCHANGED);
    window_.InvalidateAll();
}

void DesktopRenderBase::BeginSpan() noexcept {
    {
        Guard guard(viewLock_);
        spanning_ = true;
    }
    RecalcLayout();
}

void DesktopRenderBase::EndSpan() noexcept {
    {
        Guard guard(viewLock_);
        spanning_ = false;
    }
    RecalcLayout();
}

void DesktopRenderBase::SpanBy(int dx, int dy) noexcept {
    const RECT image = PictureRect();
    bool moved;
    {
        Guard guard(viewLock_);
        if (scrollMode_ != view::RSM_SCROLL)
            return;
        const RECT r = view::SpanSource(source_, image, dx, dy);
        moved = !EqualRect(&r, &source_);
        source_ = r;
    }
    if (moved)
        window_.InvalidateAll();
    PostNotify(RN_VIEWCHANGED);
}

void DesktopRenderBase::OnLocalCursorMove(int x, int y) noexcept {
    const RECT image = PictureRect();
    if (IsRectEmpty(&image))
        return;
    const RECT client = window_.ClientRect();
    POINT at;
    {
        Guard guard(viewLock_);
        if (!view::LocalMovesPointer(cursorMoveMode_) ||
            !view::LocalToDesktop(source_, image, client, x, y, &at))
            return;
    }
    image_.MoveCursor(at.x, at.y);
    window_.InvalidateSourceRect(image_.TakeChangedArea());
    Guard guard(viewLock_);
    cursorX_ = at.x;
    cursorY_ = at.y;
    lastLocalMoveTick_ = GetTickCount();
}

bool DesktopRenderBase::StreamMovesPointer() const noexcept {
    Guard guard(viewLock_);
    return view::StreamMovesPointer(cursorMoveMode_, GetTickCount(), lastLocalMoveTick_,
                                    switchTimeout_);
}

void DesktopRenderBase::OnPointerChanged(const RECT& area, const POINT* position) noexcept {
    if (!IsRectEmpty(&area))
        window_.InvalidateSourceRect(area);
    if (position)
        SetPointerPosition(position->x, position->y);
}

void DesktopRenderBase::SetPointerPosition(int x, int y) noexcept {
    Guard guard(viewLock_);
    cursorX_ = x;
    cursorY_ = y;
}

void DesktopRenderBase::ChangeStyle(int index, DWORD remove, DWORD add, UINT swpFlags) noexcept {
    const HWND hwnd = window_.Handle();
    if (!hwnd)
        return;
    const DWORD style = static_cast<DWORD>(GetWindowLongA(hwnd, index));
    SetWindowLongA(hwnd, index, static_cast<LONG>((style & ~remove) | add));
    UINT flags = SWP_NOSIZE | SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE | swpFlags;
    if (!window_.OnOwnThread())
        flags |= SWP_ASYNCWINDOWPOS;
    SetWindowPos(hwnd, nullptr, 0, 0, 0, 0, flags);
}

// ---- IDesktopRender -----------------------------------------------------------------------------

HRESULT DesktopRenderBase::SetParentWindow(HWND hWndParent) noexcept {
    RETURN_HR_IF(S_FALSE, hWndParent == hWndParent_);
    const HWND hwnd = window_.Handle();
    if (hwnd) {
        if (!hWndParent_) {
            const DWORD style = static_cast<DWORD>(GetWindowLongA(hwnd, GWL_STYLE));
            SetWindowLongA(hwnd, GWL_STYLE, static_cast<LONG>((style & ~WS_POPUP) | WS_CHILD));
            ::SetParent(hwnd, hWndParent);
        } else {
            ::SetParent(hwnd, hWndParent);
            if (!hWndParent) {
                const DWORD style = static_cast<DWORD>(GetWindowLongA(hwnd, GWL_STYLE));
                SetWindowLongA(hwnd, GWL_STYLE, static_cast<LONG>((style & ~WS_CHILD) | WS_POPUP));
            }
        }
    }
    hWndParent_ = hWndParent;
    return S_OK;
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

// Parent client coordinates for a child window, screen coordinates for a top-level one.
HRESULT DesktopRenderBase::SetWindowPosition(long lLeft, long lTop, long lRight,
                                             long lBottom) noexcept {
    SetRect4(&windowPosition_, lLeft, lTop, lRight, lBottom);
    if (const HWND hwnd = window_.Handle())
        SetWindowPos(hwnd, nullptr, lLeft, lTop, lRight - lLeft, lBottom - lTop,
                     SWP_NOZORDER | SWP_NOACTIVATE);
    return S_OK;
}

// Reads back in screen coordinates, whatever the window is.
HRESULT DesktopRenderBase::GetWindowPosition(long* plLeft, long* plTop, long* plRight,
                                             long* plBottom) noexcept {
    RETURN_HR_IF(E_POINTER, !plLeft || !plTop || !plRight || !plBottom);
    RECT r;
    if (const HWND hwnd = window_.Handle(); hwnd && GetWindowRect(hwnd, &r))
        SetRect4(&windowPosition_, r.left, r.top, r.right, r.bottom);
    Guard guard(viewLock_);
    return CopyRect4(windowPosition_, plLeft, plTop, plRight, plBottom);
}

HRESULT DesktopRenderBase::SetVisible(long bVisible) noexcept {
    if (const HWND hwnd = window_.Handle()) {
        ShowWindow(hwnd, bVisible ? SW_SHOW : SW_HIDE);
        if (bVisible)
            UpdateWindow(hwnd);
    }
    return S_OK;
}

// The style bit itself (0x10000000), not a boolean.
HRESULT DesktopRenderBase::GetVisible(long* pbVisible) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pbVisible);
    const HWND hwnd = window_.Handle();
    *pbVisible = hwnd ? GetWindowLongA(hwnd, GWL_STYLE) & WS_VISIBLE : 0;
    return S_OK;
}

// The host places the view only in manual mode; the other modes lay it out themselves.
HRESULT DesktopRenderBase::SetSourcePosition(long lLeft, long lTop, long lRight,
                                             long lBottom) noexcept {
    {
        Guard guard(viewLock_);
        RETURN_HR_IF(S_FALSE, scrollMode_ != view::RSM_MANUAL);
        SetRect(&source_, lLeft, lTop, lRight, lBottom);
    }
    window_.InvalidateAll();
    return S_OK;
}

HRESULT DesktopRenderBase::GetSourcePosition(long* plLeft, long* plTop, long* plRight,
                                             long* plBottom) noexcept {
    Guard guard(viewLock_);
    return CopyRect4(source_, plLeft, plTop, plRight, plBottom);
}

HRESULT DesktopRenderBase::SetDefaultSourcePosition() noexcept {
    {
        Guard guard(viewLock_);
        if (IsRectEmpty(&source_))
            return S_OK;
        SetRectEmpty(&source_);
    }
    window_.InvalidateAll();
    return S_OK;
}

HRESULT DesktopRenderBase::IsUsingDefaultSource() noexcept {
    Guard guard(viewLock_);
    return IsRectEmpty(&source_) ? S_OK : S_FALSE;
}

// Shows at the next paint; the window is deliberately not invalidated here.
HRESULT DesktopRenderBase::SetDestinationPosition(long lLeft, long lTop, long lRight,
                                                  long lBottom) noexcept {
    Guard guard(viewLock_);
    RETURN_HR_IF(S_FALSE, scrollMode_ != view::RSM_MANUAL);
    SetRect(&destination_, lLeft, lTop, lRight, lBottom);
    return S_OK;
}

// Reading the placement repaints it: a placement set without repainting shows from here on.
HRESULT DesktopRenderBase::GetDestinationPosition(long* plLeft, long* plTop, long* plRight,
                                                  long* plBottom) noexcept {
    {
        Guard guard(viewLock_);
        RETURN_IF_FAILED(CopyRect4(destination_, plLeft, plTop, plRight, plBottom));
    }
    window_.InvalidateAll();
    return S_OK;
}

HRESULT DesktopRenderBase::SetDefaultDestinationPosition() noexcept {
    {
        Guard guard(viewLock_);
        if (IsRectEmpty(&destination_))
            return S_OK;
        SetRectEmpty(&destination_);
    }
    window_.InvalidateAll();
    return S_OK;
}

HRESULT DesktopRenderBase::IsUsingDefaultDestination() noexcept {
    Guard guard(viewLock_);
    return IsRectEmpty(&destination_) ? S_OK : S_FALSE;
}

// The BITMAPINFO, then every row top row first, unpadded. With lpBuffer null only the size.
HRESULT DesktopRenderBase::GetCurrectImage(unsigned long* pcbImage, void* lpBuffer) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pcbImage);
    const RECT picture = PictureRect();
    RETURN_HR_IF(E_FAIL, IsRectEmpty(&picture));
    std::lock_guard<CriticalSection> imageGuard(image_.Lock());
    const BITMAPINFO* bmi = image_.GetBitmapInfo();
    RETURN_HR_IF(E_FAIL, !bmi);
    const UINT infoSize = DesktopImage::GetBitmapInfoSize(bmi);
    const UINT rowsSize = image_.GetRectBytes(&picture);
    const unsigned long total = infoSize + rowsSize;
    if (!lpBuffer) {
        *pcbImage = total;
        return S_OK;
    }
    RETURN_HR_IF(E_FAIL, *pcbImage < total);
    BYTE* out = static_cast<BYTE*>(lpBuffer);
    std::memcpy(out, bmi, infoSize);
    UINT size = rowsSize, lines = 0;
    RETURN_HR_IF(E_FAIL, !image_.CopyRows(&picture, out + infoSize, &size, 0, &lines));
    *pcbImage = total;
    return S_OK;
}

HRESULT DesktopRenderBase::GetDesktopInfomation(long* plWidth, long* plHeight,
                                                long* plBitsPixel) noexcept {
    RETURN_HR_IF(E_POINTER, !plWidth || !plHeight || !plBitsPixel);
    const RECT picture = PictureRect();
    RETURN_HR_IF(E_FAIL, IsRectEmpty(&picture));
    *plWidth = view::Width(picture);
    *plHeight = view::Height(picture);
    *plBitsPixel = PictureBitsPixel();
    return S_OK;
}

// Kept for hosts that call it: nothing is written, not even *pnRetrieved.
HRESULT DesktopRenderBase::GetPaletteEntries(int, int, int*, void*) noexcept {
    return S_OK;
}

HRESULT DesktopRenderBase::SetTopMostWindow(long bTopMost) noexcept {
    if (const HWND hwnd = window_.Handle())
        SetWindowPos(hwnd, bTopMost ? HWND_TOPMOST : HWND_NOTOPMOST, 0, 0, 0, 0,
                     SWP_NOSIZE | SWP_NOMOVE);
    return S_OK;
}

// Any value is kept; only the three known ones reshape the view.
HRESULT DesktopRenderBase::SetScrollMode(int nScrollMode) noexcept {
    HCURSOR normal;
    {
        Guard guard(viewLock_);
        scrollMode_ = nScrollMode;
        normal = hCursorNormal_;
        if (nScrollMode == view::RSM_FOLLOW || nScrollMode == view::RSM_SCROLL) {
            SetRectEmpty(&source_);
            SetRectEmpty(&destination_);
        }
        if (nScrollMode == view::RSM_FOLLOW)
            cursorX_ = cursorY_ = 0;
    }
    switch (nScrollMode) {
        case view::RSM_MANUAL:
            ChangeStyle(GWL_STYLE, WS_HSCROLL | WS_VSCROLL, 0, SWP_FRAMECHANGED);
            window_.SetViewCursor(normal);
            break;
        case view::RSM_FOLLOW:
            ChangeStyle(GWL_STYLE, WS_HSCROLL | WS_VSCROLL, 0, SWP_FRAMECHANGED);
            RecalcLayout();
            break;
        case view::RSM_SCROLL:
            RecalcLayout();
            break;
        default:
            break;
    }
    return S_OK;
}

HRESULT DesktopRenderBase::GetStyle(unsigned long* pdwStyle, unsigned long* pdwExStyle) noexcept {
    RETURN_HR_IF(E_POINTER, !pdwStyle || !pdwExStyle);
    const HWND hwnd = window_.Handle();
    *pdwStyle = hwnd ? static_cast<unsigned long>(GetWindowLongA(hwnd, GWL_STYLE)) : 0;
    *pdwExStyle = hwnd ? static_cast<unsigned long>(GetWindowLongA(hwnd, GWL_EXSTYLE)) : 0;
    return S_OK;
}

// The size is nudged down one pixel and back so that frame and client area are recomputed.
static void ModifyWindowLong(HWND hwnd, int index, DWORD remove, DWORD add, DWORD flags) noexcept {
    if (!hwnd)
        return;
    const DWORD style = static_cast<DWORD>(GetWindowLongA(hwnd, index));
    SetWindowLongA(hwnd, index, static_cast<LONG>((style & ~remove) | add));
    if (flags)
        SetWindowPos(hwnd, nullptr, 0, 0, 0, 0,
                     SWP_NOSIZE | SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE | flags);
    RECT r;
    GetWindowRect(hwnd, &r);
    SetWindowPos(hwnd, nullptr, 0, 0, r.right - r.left, r.bottom - r.top - 1,
                 SWP_NOMOVE | SWP_NOZORDER);
    SetWindowPos(hwnd, nullptr, 0, 0, r.right - r.left, r.bottom - r.top,
                 SWP_NOMOVE | SWP_NOZORDER);
}

HRESULT DesktopRenderBase::ModifyStyle(unsigned long dwRemove, unsigned long dwAdd,
                                       unsigned long dwFlags) noexcept {
    ModifyWindowLong(window_.Handle(), GWL_STYLE, dwRemove, dwAdd, dwFlags);
    return S_OK;
}

HRESULT DesktopRenderBase::ModifyStyleEx(unsigned long dwRemove, unsigned long dwAdd,
                                         unsigned long dwFlags) noexcept {
    ModifyWindowLong(window_.Handle(), GWL_EXSTYLE, dwRemove, dwAdd, dwFlags);
    return S_OK;
}

HRESULT DesktopRenderBase::SetWindowCaption(LPSTR lpszCaption) noexcept {
    if (const HWND hwnd = window_.Handle())
        SetWindowTextA(hwnd, lpszCaption ? lpszCaption : "");
    return S_OK;
}

// The handles stay the host's: kept as given, never destroyed here.
HRESULT DesktopRenderBase::SetCursor(HICON hCursorNormal, HICON hCursorSpan,
                                     HICON hCursorSpanning) noexcept {
    {
        Guard guard(viewLock_);
        hCursorNormal_ = hCursorNormal;
        hCursorSpan_ = hCursorSpan;
        hCursorSpanning_ = hCursorSpanning;
    }
    window_.SetViewCursor(hCursorNormal);
    RecalcLayout();
    return S_OK;
}

HRESULT DesktopRenderBase::GetWindowHandle(HWND* phWnd) noexcept {
    return CopyOut(window_.Handle(), phWnd);
}

// The outer size of a window in its current style that shows the whole picture 1:1.
HRESULT DesktopRenderBase::GetIdelWindowSize(long* lWidth, long* lHeight) noexcept {
    RETURN_HR_IF(E_POINTER, !lWidth || !lHeight);
    const RECT picture = PictureRect();
    const HWND hwnd = window_.Handle();
    if (IsRectEmpty(&picture) || !hwnd) {
        *lWidth = 0;
        *lHeight = 0;
        return S_OK;
    }
    RECT r{0, 0, view::Width(picture), view::Height(picture)};
    AdjustWindowRectEx(&r, static_cast<DWORD>(GetWindowLongA(hwnd, GWL_STYLE)), FALSE,
                       static_cast<DWORD>(GetWindowLongA(hwnd, GWL_EXSTYLE)));
    *lWidth = view::Width(r);
    *lHeight = view::Height(r);
    return S_OK;
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

// The picture stays, painted over with the background colour, and is reported complete again
// only once new bands cover it.
HRESULT DesktopRenderBase::ResetContent() noexcept {
    const RECT picture = PictureRect();
    if (!IsRectEmpty(&picture)) {
        image_.Clear();
        window_.InvalidateSourceRect(picture);
    }
    {
        Guard guard(viewLock_);
        SetRectEmpty(&source_);
        SetRectEmpty(&destination_);
        cursorX_ = cursorY_ = 0;
    }
    RecalcLayout();
    ForgetCompletion();
    window_.RestartIdleTimer();
    return S_OK;
}

// The switch timeout matters only in switch mode, so other modes keep the last one.
HRESULT DesktopRenderBase::SetCursorMoveMode(int nMode, unsigned long dwSwitchTimeout) noexcept {
    Guard guard(viewLock_);
    cursorMoveMode_ = nMode;
    if (nMode == view::CMM_SWITCH)
        switchTimeout_ = dwSwitchTimeout;
    lastLocalMoveTick_ = GetTickCount();
    return S_OK;
}

HRESULT DesktopRenderBase::SetIdleTimeout(unsigned long dwTimeout) noexcept {
    idleTimeout_ = dwTimeout;
    window_.RestartIdleTimer();
    return S_OK;
}

HRESULT DesktopRenderBase::ShowScrollBar(long bShow) noexcept {
    {
        Guard guard(viewLock_);
        showScrollBars_ = bShow != 0;
    }
    if (!bShow)
        ChangeStyle(GWL_STYLE, WS_HSCROLL | WS_VSCROLL, 0, SWP_FRAMECHANGED);
    RecalcLayout();
    return S_OK;
}

HRESULT DesktopRenderBase::EnableDragMove(long bEnable) noexcept {
    window_.EnableDragMove(bEnable != 0);
    return S_OK;
}

void DesktopRenderBase::SetRect4(RECT* target, long l, long t, long r, long b) noexcept {
    Guard guard(viewLock_);
    SetRect(target, l, t, r, b);
}

}  // namespace vantrel
