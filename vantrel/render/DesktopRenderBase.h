// DesktopRenderBase: what DesktopRender and DesktopIPCRender share, the render owner as the
// render window sees it. It holds the desktop image, the render window, the view (source and
// destination rectangles, scroll mode, cursor shapes and move mode), the drain and notify
// windows, the idle timeout and the size limits, and answers every IDesktopRender method but
// Run, Stop and SetSessionId. The view geometry (layout pass, drag, local mouse) is one
// implementation here for both; the pure functions behind it are in ViewGeometry.h.
//
// Where the picture comes from is the derived class's, and so is the picture state: its
// rectangle, depth and completeness are answered by PictureRect, PictureBitsPixel and
// IsPictureComplete (DesktopRender from its StreamDecoder, the only owner of that state there).
//
// A derived class:
//   - calls CreateRenderWindow() as the last step of its constructor (the window calls the
//     virtual operations below from then on) and DestroyRenderWindow() as the first step of its
//     destructor (no window call reaches it afterwards, whatever the thread);
//   - implements ProcessPacket (the window's WM_USER + 1), the picture-state queries and
//     ForgetCompletion (ResetContent);
//   - after changing pixels: window().InvalidateSourceRect(area); after a palette change:
//     window().SetViewPalette(palette); after a stream pointer move: OnPointerChanged(area, &pos)
//     (or SetPointerPosition); then RecalcLayout(), which every packet runs;
//   - posts notifications with PostNotify(RN_...).
//
// Threads: host calls arrive on the thread that created the object, which owns the window.
// RecalcLayout, OnPointerChanged, PostNotify and the window's invalidation may run on a
// decoding thread; they never send to the window (style and scroll-bar changes of a pass on
// another thread are handed to the window's thread). The view fields are guarded by one lock;
// no window call is made while it is held.
#pragma once

#include <windows.h>

#include "Vantrel.h"
#include "render/RenderWindow.h"
#include "render/ViewGeometry.h"
#include "stream/DesktopImage.h"
#include "wincom/CriticalSection.h"
#include "wincom/NotifyTarget.h"

namespace vantrel {

// Render notification codes (wParam of the host's notify message).
enum RenderNotification : WPARAM {
    RN_FORMATCHANGED = 1,
    RN_PICTURECOMPLETE = 2,
    RN_CLOSEREQUEST = 3,
    RN_IDLE = 4,
    RN_VIEWCHANGED = 5,
};

class DesktopRenderBase : public IDesktopRender {
  public:
    DesktopRenderBase(const DesktopRenderBase&) = delete;
    DesktopRenderBase& operator=(const DesktopRenderBase&) = delete;

    // IDesktopRender
    HRESULT STDMETHODCALLTYPE SetParentWindow(HWND hWndParent) noexcept override;
    HRESULT STDMETHODCALLTYPE SetNotifyWindow(HWND hWndNotify, unsigned int uMsg,
                                              unsigned long dwParam) noexcept override;
    HRESULT STDMETHODCALLTYPE SetMessageDrainWindow(HWND hWndMessageDrain) noexcept override;
    HRESULT STDMETHODCALLTYPE GetParentWindow(HWND* phWndParent) noexcept override;
    HRESULT STDMETHODCALLTYPE GetNotifyWindow(HWND* phWndNotify) noexcept override;
    HRESULT STDMETHODCALLTYPE GetMessageDrainWindow(HWND* phWndMsgDrain) noexcept override;
    HRESULT STDMETHODCALLTYPE SetWindowPosition(long lLeft, long lTop, long lRight,
                                                long lBottom) noexcept override;
    HRESULT STDMETHODCALLTYPE GetWindowPosition(long* plLeft, long* plTop, long* plRight,
                                                long* plBottom) noexcept override;
    HRESULT STDMETHODCALLTYPE SetVisible(long bVisible) noexcept override;
    HRESULT STDMETHODCALLTYPE GetVisible(long* pbVisible) noexcept override;
    HRESULT STDMETHODCALLTYPE SetSourcePosition(long lLeft, long lTop, long lRight,
                                                long lBottom) noexcept override;
    HRESULT STDMETHODCALLTYPE GetSourcePosition(long* plLeft, long* plTop, long* plRight,
                                                long* plBottom) noexcept override;
    HRESULT STDMETHODCALLTYPE SetDefaultSourcePosition() noexcept override;
    HRESULT STDMETHODCALLTYPE IsUsingDefaultSource() noexcept override;
    HRESULT STDMETHODCALLTYPE SetDestinationPosition(long lLeft, long lTop, long lRight,
                                                     long lBottom) noexcept override;
    HRESULT STDMETHODCALLTYPE GetDestinationPosition(long* plLeft, long* plTop, long* plRight,
                                                     long* plBottom) noexcept override;
    HRESULT STDMETHODCALLTYPE SetDefaultDestinationPosition() noexcept override;
    HRESULT STDMETHODCALLTYPE IsUsingDefaultDestination() noexcept override;
    HRESULT STDMETHODCALLTYPE GetCurrectImage(unsigned long* pcbImage,
                                              void* lpBuffer) noexcept override;
    HRESULT STDMETHODCALLTYPE GetDesktopInfomation(long* plWidth, long* plHeight,
                                                   long* plBitsPixel) noexcept override;
    HRESULT STDMETHODCALLTYPE GetPaletteEntries(int nStart, int nEntires, int* pnRetrieved,
                                                void* lpPalette) noexcept override;
    HRESULT STDMETHODCALLTYPE Run() noexcept override = 0;
    HRESULT STDMETHODCALLTYPE Stop() noexcept override = 0;
    HRESULT STDMETHODCALLTYPE SetTopMostWindow(long bTopMost) noexcept override;
    HRESULT STDMETHODCALLTYPE SetScrollMode(int nScrollMode) noexcept override;
    HRESULT STDMETHODCALLTYPE GetStyle(unsigned long* pdwStyle,
                                       unsigned long* pdwExStyle) noexcept override;
    HRESULT STDMETHODCALLTYPE ModifyStyle(unsigned long dwRemove, unsigned long dwAdd,
                                          unsigned long dwFlags) noexcept override;
    HRESULT STDMETHODCALLTYPE SetWindowCaption(LPSTR lpszCaption) noexcept override;
    HRESULT STDMETHODCALLTYPE SetCursor(HICON hCursorNormal, HICON hCursorSpan,
                                        HICON hCursorSpanning) noexcept override;
    HRESULT STDMETHODCALLTYPE GetWindowHandle(HWND* phWnd) noexcept override;
    HRESULT STDMETHODCALLTYPE GetIdelWindowSize(long* lWidth, long* lHeight) noexcept override;
    HRESULT STDMETHODCALLTYPE SetMaxMinSize(long lMaxWidth, long lMaxHeight, long lMinWidth,
                                            long lMinHeight) noexcept override;
    HRESULT STDMETHODCALLTYPE ResetContent() noexcept override;
    HRESULT STDMETHODCALLTYPE ModifyStyleEx(unsigned long dwRemove, unsigned long dwAdd,
                                            unsigned long dwFlags) noexcept override;
    HRESULT STDMETHODCALLTYPE SetCursorMoveMode(int nMode,
                                                unsigned long dwSwitchTimeout) noexcept override;
    HRESULT STDMETHODCALLTYPE SetIdleTimeout(unsigned long dwTimeout) noexcept override;
    HRESULT STDMETHODCALLTYPE ShowScrollBar(long bShow) noexcept override;
    HRESULT STDMETHODCALLTYPE EnableDragMove(long bEnable) noexcept override;
    HRESULT STDMETHODCALLTYPE SetSessionId(int nId) noexcept override = 0;

    // ---- What the render window calls (on its thread unless noted) ----

    // A packet handed over asynchronously (WM_USER + 1), or any Transfer of the derived class.
    virtual void ProcessPacket(const void* data, DWORD size) noexcept = 0;
    // A drag or scroll-bar move of the view: BeginSpan, SpanBy (client-pixel delta, the picture
    // follows the mouse), EndSpan. SpanBy acts in RSM_SCROLL only.
    virtual void BeginSpan() noexcept;
    virtual void SpanBy(int dx, int dy) noexcept;
    virtual void EndSpan() noexcept;
    // One layout pass: places the view for the scroll mode, picks the cursor shape, sets the
    // scroll bars, repaints and posts RN_VIEWCHANGED when the view changed. Any thread.
    virtual void RecalcLayout() noexcept;
    // The local mouse is at client position (x, y): moves the drawn pointer there unless the
    // cursor move mode leaves it to the stream.
    virtual void OnLocalCursorMove(int x, int y) noexcept;

    // The picture state, answered by the derived class. Any thread.
    // The picture's desktop rectangle {0, 0, width, height}; empty while no picture is held.
    virtual RECT PictureRect() const noexcept = 0;
    // Bits per pixel as the picture's source stated them (0 when it states none).
    virtual LONG PictureBitsPixel() const noexcept = 0;
    // A complete picture has been assembled since the last reset.
    virtual bool IsPictureComplete() const noexcept = 0;

    struct View {
        RECT source{};       // desktop pixels; empty = the whole picture
        RECT destination{};  // client pixels; empty = the whole client area
        RECT imageRect{};    // PictureRect()
    };
    // A consistent copy of the view. Any thread.
    View GetView() const noexcept;

    DesktopImage& Image() noexcept { return image_; }
    HWND MessageDrain() const noexcept { return hWndMessageDrain_; }
    DWORD IdleTimeout() const noexcept { return idleTimeout_; }
    // Posts code to the notify window, if it still is one. Any thread.
    bool PostNotify(WPARAM code) const noexcept { return notify_.Post(code); }
    // Tracking sizes of a top-level render window.
    POINT MinTrackSize() const noexcept { return {minWidth_, minHeight_}; }
    POINT MaxTrackSize() const noexcept { return {maxWidth_, maxHeight_}; }

  protected:
    DesktopRenderBase() noexcept;
    // Objects are released through COM, never deleted through this base.
    virtual ~DesktopRenderBase();

    void CreateRenderWindow() noexcept;
    void DestroyRenderWindow() noexcept;
    RenderWindow& window() noexcept { return window_; }

    // ResetContent: forget completion and the received area, keep the picture.
    virtual void ForgetCompletion() noexcept = 0;

    // Whether a pointer position from the stream moves the drawn pointer now (cursor move mode
    // and switch time-out).
    bool StreamMovesPointer() const noexcept;
    // The drawn pointer changed: repaint area (picture pixels); position, when not null, is its
    // new place.
    void OnPointerChanged(const RECT& area, const POINT* position) noexcept;
    void SetPointerPosition(int x, int y) noexcept;
    bool HasPicture() const noexcept {
        const RECT r = PictureRect();
        return !IsRectEmpty(&r);
    }

    DesktopImage image_;

  private:
    // Style bits with a frame recomputation; from another thread without waiting for it.
    void ChangeStyle(int index, DWORD remove, DWORD add, UINT swpFlags) noexcept;
    // Step of the scroll-mode pass that adds, removes or sets the bars; false when it changed
    // the style (the WM_SIZE that follows runs the next pass).
    bool UpdateScrollBars(const view::ScrollPlacement& p, const RECT& image) noexcept;
    void CommitView(const view::Placement& p) noexcept;
    void SetRect4(RECT* target, long l, long t, long r, long b) noexcept;

    mutable CriticalSection viewLock_;  // the fields below down to lastLocalMoveTick_
    RECT destination_ = {};
    RECT source_ = {};
    RECT windowPosition_ = {};
    int scrollMode_ = view::RSM_FOLLOW;
    int cursorX_ = 0;
    int cursorY_ = 0;
    bool spanning_ = false;
    bool showScrollBars_ = false;
    int cursorMoveMode_ = view::CMM_REMOTE;
    DWORD switchTimeout_ = 2000;
    DWORD lastLocalMoveTick_;
    // Shared system cursor: never destroyed. The three shapes the host sets are its own.
    HCURSOR hCursorDefault_;
    HCURSOR hCursorNormal_;
    HCURSOR hCursorSpan_;
    HCURSOR hCursorSpanning_;

    HWND hWndMessageDrain_ = nullptr;
    DWORD idleTimeout_ = 2000;
    NotifyTarget notify_;
    LONG maxWidth_;
    LONG maxHeight_;
    LONG minWidth_ = 50;
    LONG minHeight_ = 50;
    HWND hWndParent_ = nullptr;

    RenderWindow window_;  // last: destroyed first, before the image it paints
};

}  // namespace vantrel
