// DesktopRender: a sink of the desktop stream that shows it in a window of the host. The host
// places and styles the window and chooses the view through IDesktopRender; another object (a
// reader) takes full pictures back out through IFrameBuffer. Registered apartment-threaded:
// the render window belongs to the thread that creates the object.
#pragma once

#include <windows.h>

#include "Vantrel.h"
#include "platform/ComObjectRoot.h"

namespace vantrel {

class DesktopRender final : public ComObjectRoot,
                            public IDesktopRender,
                            public IDataTransmitter,
                            public IFrameBuffer {
  public:
    explicit DesktopRender(IUnknown* outer) noexcept;

    VANTREL_COM_IUNKNOWN

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
    HRESULT STDMETHODCALLTYPE Run() noexcept override;
    HRESULT STDMETHODCALLTYPE Stop() noexcept override;
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
    HRESULT STDMETHODCALLTYPE SetSessionId(int nId) noexcept override;

    // IDataTransmitter
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;
    HRESULT STDMETHODCALLTYPE Flush() noexcept override;

    // IFrameBuffer
    HRESULT STDMETHODCALLTYPE GetFullScreenData(void* lpvData, unsigned long* pcbData,
                                                long bFirst) noexcept override;
    HRESULT STDMETHODCALLTYPE
    GetFullScreenDataUncompressed(void* lpvData, unsigned long* pcbData) noexcept override;
    HRESULT STDMETHODCALLTYPE GetBitmapInfo(void** lpvBmpInfo) noexcept override;

  private:
    ~DesktopRender() override = default;
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

    // Scroll modes: who places the view.
    enum : int { RSM_MANUAL = 0, RSM_FOLLOW = 1, RSM_SCROLL = 2 };
    // Cursor move modes: who moves the drawn pointer.
    enum : int { CMM_LOCAL = 0, CMM_REMOTE = 1, CMM_SWITCH = 2 };

    bool HasPicture() const noexcept { return !IsRectEmpty(&imageRect_); }

    HWND hWndNotify_ = nullptr;
    UINT uNotifyMsg_ = 0;
    DWORD dwNotifyParam_ = 0;
    HWND hWndMessageDrain_ = nullptr;
    RECT windowPosition_ = {};
    RECT imageRect_ = {};    // the picture's desktop rectangle; empty while no picture is held
    RECT source_ = {};       // desktop coordinates; empty means the default
    RECT destination_ = {};  // client coordinates; empty means the default
    DWORD idleTimeout_ = 2000;
    bool pictureComplete_ = false;
    LONG maxWidth_;
    LONG maxHeight_;
    LONG minWidth_ = 50;
    LONG minHeight_ = 50;

    HWND hWndParent_ = nullptr;
    LONG bitsPixel_ = 0;  // as the frame packet that built the picture stated it
    int scrollMode_ = RSM_FOLLOW;
    int cursorX_ = 0;
    int cursorY_ = 0;
    // Shared system cursor: never destroyed. The three shapes the host sets are its own.
    HCURSOR hCursorDefault_;
    HCURSOR hCursorNormal_;
    HCURSOR hCursorSpan_;
    HCURSOR hCursorSpanning_;
    bool spanning_ = false;
    RECT receivedArea_ = {};  // union of the bands received since the last reset
    bool showScrollBars_ = false;
    int cursorMoveMode_ = CMM_REMOTE;
    DWORD switchTimeout_ = 2000;
    DWORD lastLocalMoveTick_;
};

}  // namespace vantrel
