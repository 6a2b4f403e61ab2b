// RenderWindow: the window class, painting, background, mouse, scroll bars, cursor, idle timer,
// size limits and the input drain.
#include "render/RenderWindow.h"

#include <windowsx.h>

#include <cstdio>
#include <mutex>

#include "render/DesktopRenderBase.h"
#include "render/ViewGeometry.h"

namespace vantrel {
namespace {

constexpr char kTitle[] = "Vantrel Render Window";
constexpr COLORREF kBackground = DesktopImage::kBackground;

// The class name is generated once per process and module: a reloaded DLL at another address
// never meets a class whose procedure lies in the unloaded one.
const WindowClassInfo& RenderClass() noexcept {
    static char name[64];
    static const WindowClassInfo info = [] {
        std::snprintf(name, sizeof name, "Vantrel:RenderWindow:%p:%lx",
                      static_cast<void*>(ThisModule()), GetCurrentProcessId());
        WindowClassInfo c;
        c.name = name;
        c.style = CS_HREDRAW | CS_VREDRAW;
        c.noCursor = true;
        c.background = reinterpret_cast<HBRUSH>(static_cast<INT_PTR>(COLOR_WINDOW + 1));
        c.icon = LoadIconA(ThisModule(), MAKEINTRESOURCEA(RenderWindow::kIconResource));
        return c;
    }();
    return info;
}

bool InDrainRange(UINT m) noexcept {
    return (m >= WM_KEYFIRST && m <= 0x108) || (m >= WM_MOUSEMOVE && m <= WM_MBUTTONDBLCLK) ||
           m == WM_CONTEXTMENU;
}

}  // namespace

RenderWindow::~RenderWindow() {
    Destroy();
}

bool RenderWindow::Create(DesktopRenderBase* owner) noexcept {
    owner_ = owner;
    try {
        MapHandlers();
    } catch (...) {
        return false;
    }
    if (!window_.Create(RenderClass(), 0, kTitle, WS_POPUP, 0, 0, 0, 0))
        return false;
    const HWND hwnd = window_.Handle();
    SetWindowLongA(hwnd, GWL_EXSTYLE, GetWindowLongA(hwnd, GWL_EXSTYLE) & ~WS_EX_LAYOUTRTL);
    return true;
}

void RenderWindow::Destroy() noexcept {
    const HWND hwnd = window_.Handle();
    if (!hwnd)
        return;
    if (window_.OnOwnThread()) {
        ShowWindow(hwnd, SW_HIDE);
        ShowWindow(hwnd, SW_MINIMIZE);
    } else {
        ShowWindowAsync(hwnd, SW_HIDE);
    }
    window_.Destroy();
}

void RenderWindow::MapHandlers() {
    using R = std::optional<LRESULT>;
    window_.Observe([this](UINT m, WPARAM w, LPARAM l) { ForwardInput(m, w, l); });
    window_.On(kPacketMessage, [this](WPARAM w, LPARAM l) -> R {
        owner_->ProcessPacket(reinterpret_cast<const void*>(w), static_cast<DWORD>(l));
        return 0;
    });
    window_.On(WM_PAINT, [this](WPARAM, LPARAM) -> R {
        Paint();
        return 0;
    });
    window_.On(WM_SIZE, [this](WPARAM w, LPARAM l) -> R {
        const LRESULT r = DefWindowProcA(Handle(), WM_SIZE, w, l);
        owner_->RecalcLayout();
        return r;
    });
    window_.On(WM_ERASEBKGND, [this](WPARAM w, LPARAM) -> R {
        EraseBackground(reinterpret_cast<HDC>(w));
        return TRUE;
    });
    window_.On(WM_LBUTTONDOWN, [this](WPARAM, LPARAM l) -> R {
        OnButtonDown(GET_X_LPARAM(l), GET_Y_LPARAM(l));
        return 0;
    });
    window_.On(WM_MOUSEMOVE, [this](WPARAM, LPARAM l) -> R {
        OnMouseMove(GET_X_LPARAM(l), GET_Y_LPARAM(l));
        return std::nullopt;
    });
    window_.On(WM_LBUTTONUP, [this](WPARAM, LPARAM l) -> R {
        OnButtonUp(GET_X_LPARAM(l), GET_Y_LPARAM(l));
        return std::nullopt;
    });
    window_.On(WM_GETMINMAXINFO, [this](WPARAM w, LPARAM l) -> R {
        const LRESULT r = DefWindowProcA(Handle(), WM_GETMINMAXINFO, w, l);
        OnMinMaxInfo(reinterpret_cast<MINMAXINFO*>(l));
        return r;
    });
    window_.On(WM_DESTROY, [this](WPARAM, LPARAM) -> R {
        if (timerActive_) {
            KillTimer(Handle(), kIdleTimer);
            timerActive_ = false;
        }
        ::SetCursor(nullptr);
        return std::nullopt;
    });
    window_.On(WM_SETCURSOR, [this](WPARAM w, LPARAM l) -> R { return OnSetCursor(w, l); });
    window_.On(WM_CLOSE, [this](WPARAM, LPARAM) -> R {
        owner_->PostNotify(RN_CLOSEREQUEST);
        return 0;
    });
    window_.On(WM_CREATE, [this](WPARAM w, LPARAM l) -> R {
        if (DefWindowProcA(Handle(), WM_CREATE, w, l) == -1)
            return -1;
        timerActive_ = true;
        SetTimer(Handle(), kIdleTimer, owner_->IdleTimeout(), nullptr);
        return 0;
    });
    window_.On(WM_TIMER, [this](WPARAM w, LPARAM) -> R {
        OnTimer(w);
        return std::nullopt;
    });
    window_.On(WM_HSCROLL, [this](WPARAM w, LPARAM l) -> R {
        OnScroll(SB_HORZ, w);
        return DefWindowProcA(Handle(), WM_HSCROLL, w, l);
    });
    window_.On(WM_VSCROLL, [this](WPARAM w, LPARAM l) -> R {
        OnScroll(SB_VERT, w);
        return DefWindowProcA(Handle(), WM_VSCROLL, w, l);
    });
    window_.On(kRelayoutMessage, [this](WPARAM, LPARAM) -> R {
        relayoutPending_ = false;
        owner_->RecalcLayout();
        return 0;
    });
}

// Every input message the window gets from outside is copied to the drain window (not those
// its own handling makes, such as the WM_CONTEXTMENU of a right button); the window still
// handles it itself.
void RenderWindow::ForwardInput(UINT message, WPARAM wParam, LPARAM lParam) noexcept {
    if (!InDrainRange(message) || window_.Nested())
        return;
    const HWND drain = owner_->MessageDrain();
    if (drain && IsWindow(drain))
        PostMessageA(drain, message, wParam, lParam);
}

RECT RenderWindow::ClientRect() const noexcept {
    RECT rc{};
    if (const HWND hwnd = Handle())
        GetClientRect(hwnd, &rc);
    return rc;
}

void RenderWindow::GetView(RECT* source, RECT* destination) const noexcept {
    const DesktopRenderBase::View v = owner_->GetView();
    *source = view::OrDefault(v.source, v.imageRect);
    *destination = view::OrDefault(v.destination, ClientRect());
}

void RenderWindow::ClientToSource(const RECT& in, RECT& out) const noexcept {
    RECT S, D;
    GetView(&S, &D);
    out = view::ClientToSource(in, S, D);
}

void RenderWindow::SourceToClient(const RECT& in, RECT& out) const noexcept {
    RECT S, D;
    GetView(&S, &D);
    out = view::SourceToClient(in, S, D);
}

void RenderWindow::InvalidateSourceRect(const RECT& r) const noexcept {
    const HWND hwnd = Handle();
    if (!hwnd)
        return;
    const DesktopRenderBase::View v = owner_->GetView();
    RECT part = r;
    if (!IsRectEmpty(&v.source) && !IntersectRect(&part, &r, &v.source))
        return;
    const RECT S = view::OrDefault(v.source, v.imageRect);
    const RECT D = view::OrDefault(v.destination, ClientRect());
    RECT out = view::SourceToClient(part, S, D);
    InflateRect(&out, 2, 2);
    InvalidateRect(hwnd, &out, FALSE);
}

void RenderWindow::InvalidateAll() const noexcept {
    if (const HWND hwnd = Handle())
        InvalidateRect(hwnd, nullptr, TRUE);
}

void RenderWindow::RequestRelayout() noexcept {
    const HWND hwnd = Handle();
    if (hwnd && !relayoutPending_.exchange(true) && !PostMessageA(hwnd, kRelayoutMessage, 0, 0))
        relayoutPending_ = false;
}

void RenderWindow::SetViewCursor(HCURSOR h) noexcept {
    if (cursor_.exchange(h) == h)
        return;
    if (const HWND hwnd = Handle())
        PostMessageA(hwnd, WM_SETCURSOR, 1, 0x200);
}

void RenderWindow::SetViewPalette(HPALETTE h) noexcept {
    std::lock_guard<CriticalSection> guard(paintLock_);
    palette_.reset(h);
}

void RenderWindow::RestartIdleTimer() noexcept {
    const HWND hwnd = Handle();
    if (!hwnd)
        return;
    if (timerActive_)
        KillTimer(hwnd, kIdleTimer);
    else
        timerActive_ = true;
    SetTimer(hwnd, kIdleTimer, owner_->IdleTimeout(), nullptr);
}

void RenderWindow::Paint() noexcept {
    const HWND hwnd = Handle();
    PaintDc dc(hwnd);
    // The view first: the decoding thread may hold the owner's locks while it replaces the
    // palette under paintLock_.
    const DesktopRenderBase::View v = owner_->GetView();
    std::lock_guard<CriticalSection> guard(paintLock_);
    RECT clip;
    const int kind = GetClipBox(dc.get(), &clip);
    if (kind == NULLREGION || kind == ERROR)
        return;
    if (!IsRectEmpty(&v.destination) && !IntersectRect(&clip, &clip, &v.destination))
        return;
    const RECT S = view::OrDefault(v.source, v.imageRect);
    const RECT D = view::OrDefault(v.destination, ClientRect());
    const RECT part = view::ClientToSource(clip, S, D);
    // Nothing of the picture lies under the clip box (no picture held): the background stays.
    if (IsRectEmpty(&part))
        return;
    HPALETTE previous = nullptr;
    if (palette_) {
        previous = SelectPalette(dc.get(), palette_.get(), FALSE);
        RealizePalette(dc.get());
    }
    DesktopImage& image = owner_->Image();
    if (view::Width(clip) == view::Width(part) && view::Height(clip) == view::Height(part)) {
        image.BltTo(dc.get(), clip.left, clip.top, &part);
    } else {
        SetStretchBltMode(dc.get(), COLORONCOLOR);
        image.StretchBltTo(dc.get(), &clip, &part);
    }
    if (previous)
        SelectPalette(dc.get(), previous, FALSE);
}

void RenderWindow::EraseBackground(HDC dc) noexcept {
    const DesktopRenderBase::View v = owner_->GetView();
    if (IsRectEmpty(&v.destination) && !IsRectEmpty(&v.imageRect))
        return;
    const HWND hwnd = Handle();
    ExcludeClipRect(dc, v.destination.left, v.destination.top, v.destination.right,
                    v.destination.bottom);
    const RECT client = ClientRect();
    SetBkColor(dc, kBackground);
    ExtTextOutA(dc, 0, 0, ETO_OPAQUE, &client, "", 0, nullptr);
    InvalidateRect(hwnd, &v.destination, FALSE);
}

LRESULT RenderWindow::OnSetCursor(WPARAM wParam, LPARAM lParam) noexcept {
    const HWND hwnd = Handle();
    POINT at;
    GetCursorPos(&at);
    RECT client = ClientRect();
    MapWindowPoints(hwnd, nullptr, reinterpret_cast<POINT*>(&client), 2);
    if (PtInRect(&client, at)) {
        ::SetCursor(cursor_.load());
        return TRUE;
    }
    return DefWindowProcA(hwnd, WM_SETCURSOR, wParam, lParam);
}

void RenderWindow::OnButtonDown(int x, int y) noexcept {
    if (!dragEnabled_)
        return;
    lastX_ = x;
    lastY_ = y;
    dragging_ = true;
    owner_->BeginSpan();
    SetCapture(Handle());
}

void RenderWindow::OnMouseMove(int x, int y) noexcept {
    owner_->OnLocalCursorMove(x, y);
    if (dragEnabled_ && dragging_) {
        owner_->SpanBy(x - lastX_, y - lastY_);
        lastX_ = x;
        lastY_ = y;
    }
}

void RenderWindow::OnButtonUp(int x, int y) noexcept {
    if (!dragEnabled_ || !dragging_)
        return;
    owner_->SpanBy(x - lastX_, y - lastY_);
    ReleaseCapture();
    owner_->EndSpan();
    dragging_ = false;
}

void RenderWindow::OnScroll(int bar, WPARAM wParam) noexcept {
    const HWND hwnd = Handle();
    const DesktopRenderBase::View v = owner_->GetView();
    const LONG base = bar == SB_HORZ ? v.source.left : v.source.top;
    SCROLLINFO si{};
    si.cbSize = sizeof si;
    si.fMask = SIF_ALL;
    if (!GetScrollInfo(hwnd, bar, &si))
        si.nMin = si.nMax = si.nPos = si.nPage = 0;
    const int page = static_cast<int>(si.nPage);
    const int limit = page > 0 ? si.nMax - page + 1 : si.nMax;
    const int pos = view::ScrollRequest(LOWORD(wParam), si.nPos, si.nMin, limit, page,
                                        static_cast<int>(HIWORD(wParam)));
    owner_->BeginSpan();
    if (bar == SB_HORZ)
        owner_->SpanBy(base - pos, 0);
    else
        owner_->SpanBy(0, base - pos);
    owner_->EndSpan();
    SetScrollPos(hwnd, bar, pos, TRUE);
}

void RenderWindow::OnMinMaxInfo(MINMAXINFO* info) noexcept {
    if (!info || (GetWindowLongA(Handle(), GWL_STYLE) & WS_CHILD))
        return;
    info->ptMinTrackSize = owner_->MinTrackSize();
    info->ptMaxSize = owner_->MaxTrackSize();
    info->ptMaxTrackSize = owner_->MaxTrackSize();
}

void RenderWindow::OnTimer(UINT_PTR id) noexcept {
    if (id != kIdleTimer)
        return;
    if (owner_->IsPictureComplete()) {
        KillTimer(Handle(), kIdleTimer);
        timerActive_ = false;
    } else {
        owner_->PostNotify(RN_IDLE);
    }
}

}  // namespace vantrel
