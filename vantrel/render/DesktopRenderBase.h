// DesktopRenderBase: what DesktopRender and DesktopIPCRender share, the render owner as the
// render window will see it. It answers IDesktopRender for both: the view settings the host
// stores and reads back, and the picture state. Where the picture comes from (packets or the
// shared image) is the derived class's, so Run, Stop and SetSessionId are left to it, and so are
// the IUnknown methods (VANTREL_COM_IUNKNOWN in each final class).
#pragma once

#include <windows.h>

#include "Vantrel.h"
#include "wincom/NotifyTarget.h"

namespace vantrel {

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

  protected:
    DesktopRenderBase() noexcept;
    // Objects are released through COM, never deleted through this base.
    virtual ~DesktopRenderBase() = default;

    bool HasPicture() const noexcept { return !IsRectEmpty(&imageRect_); }

    RECT imageRect_ = {};  // the picture's desktop rectangle; empty while no picture is held
    bool pictureComplete_ = false;
    // As the frame packet that built the picture stated it; a shared-memory viewer's stays 0.
    LONG bitsPixel_ = 0;
    RECT receivedArea_ = {};  // union of the bands received since the last reset

  private:
    // Scroll modes: who places the view.
    enum : int { RSM_MANUAL = 0, RSM_FOLLOW = 1, RSM_SCROLL = 2 };
    // Cursor move modes: who moves the drawn pointer.
    enum : int { CMM_LOCAL = 0, CMM_REMOTE = 1, CMM_SWITCH = 2 };

    RECT destination_ = {};  // client coordinates; empty means the default
    RECT source_ = {};       // desktop coordinates; empty means the default
    RECT windowPosition_ = {};
    HWND hWndMessageDrain_ = nullptr;
    DWORD idleTimeout_ = 2000;
    NotifyTarget notify_;
    LONG maxWidth_;
    LONG maxHeight_;
    LONG minWidth_ = 50;
    LONG minHeight_ = 50;

    HWND hWndParent_ = nullptr;
    int scrollMode_ = RSM_FOLLOW;
    int cursorX_ = 0;
    int cursorY_ = 0;
    // Shared system cursor: never destroyed. The three shapes the host sets are its own.
    HCURSOR hCursorDefault_;
    HCURSOR hCursorNormal_;
    HCURSOR hCursorSpan_;
    HCURSOR hCursorSpanning_;
    bool spanning_ = false;
    bool showScrollBars_ = false;
    int cursorMoveMode_ = CMM_REMOTE;
    DWORD switchTimeout_ = 2000;
    DWORD lastLocalMoveTick_;
};

}  // namespace vantrel
