// RenderWindow: the one window of the library. It shows the DesktopImage of its owner (a
// DesktopRenderBase) inside a window the host supplies: paints what is visible 1:1 or
// stretched, fills the margins with the background colour, turns the mouse and the scroll bars
// into calls on the owner, shows the owner's cursor shape, runs the idle timer, copies input to
// the owner's message-drain window and posts the owner's notifications. Where the visible part
// lies is the owner's decision; the window only reads its view (DesktopRenderBase::View).
//
// Threads: the window belongs to the thread that called Create; its handlers run there.
// SetViewCursor, SetViewPalette, InvalidateSourceRect, the mappings and the queries may be
// called from a decoding thread too (they post or invalidate, never send). RestartIdleTimer,
// Create and Destroy belong to the window's thread; Destroy from another thread detaches the
// window and lets it close itself on its own thread (wincom/Window).
#pragma once

#include <windows.h>

#include <atomic>

#include "wincom/CriticalSection.h"
#include "wincom/UniqueHandle.h"
#include "wincom/Window.h"

namespace vantrel {

class DesktopRenderBase;

class RenderWindow {
  public:
    static constexpr UINT kPacketMessage = WM_USER + 1;  // wParam data, lParam size
    // A layout pass on the window's thread (one that ran elsewhere left the scroll bars to it).
    static constexpr UINT kRelayoutMessage = WM_USER + 2;
    static constexpr UINT_PTR kIdleTimer = 1;
    static constexpr int kIconResource = 201;

    RenderWindow() = default;
    ~RenderWindow();
    RenderWindow(const RenderWindow&) = delete;
    RenderWindow& operator=(const RenderWindow&) = delete;

    // Creates the hidden, top-level, zero-sized popup "Vantrel Render Window" owned by owner
    // (not owned here); starts the idle timer.
    bool Create(DesktopRenderBase* owner) noexcept;
    // Hides, minimises and destroys the window (on its own thread; from any other thread without
    // waiting for that thread). No call reaches the owner afterwards.
    void Destroy() noexcept;

    HWND Handle() const noexcept { return window_.Handle(); }
    bool OnOwnThread() const noexcept { return window_.OnOwnThread(); }

    // Shows h over the client area from now on; an unchanged h does nothing.
    void SetViewCursor(HCURSOR h) noexcept;
    // Takes ownership of h (may be null) and deletes the palette it replaces.
    void SetViewPalette(HPALETTE h) noexcept;
    // (Re)arms the idle timer with the owner's idle timeout.
    void RestartIdleTimer() noexcept;
    void EnableDragMove(bool enable) noexcept { dragEnabled_ = enable; }

    // The two mappings between client and picture through the owner's current view.
    void ClientToSource(const RECT& in, RECT& out) const noexcept;
    void SourceToClient(const RECT& in, RECT& out) const noexcept;
    // Invalidates, without erasing, the client area that shows picture rectangle r (grown by 2
    // pixels for the rounding of a stretched copy).
    void InvalidateSourceRect(const RECT& r) const noexcept;
    // The whole client area, with erasing.
    void InvalidateAll() const noexcept;
    // A layout pass on the window's thread, asked from any thread; one waits at a time.
    void RequestRelayout() noexcept;
    RECT ClientRect() const noexcept;

  private:
    void MapHandlers();
    void ForwardInput(UINT message, WPARAM wParam, LPARAM lParam) noexcept;
    void Paint() noexcept;
    void EraseBackground(HDC dc) noexcept;
    LRESULT OnSetCursor(WPARAM wParam, LPARAM lParam) noexcept;
    void OnButtonDown(int x, int y) noexcept;
    void OnMouseMove(int x, int y) noexcept;
    void OnButtonUp(int x, int y) noexcept;
    void OnScroll(int bar, WPARAM wParam) noexcept;
    void OnMinMaxInfo(MINMAXINFO* info) noexcept;
    void OnTimer(UINT_PTR id) noexcept;
    void GetView(RECT* source, RECT* destination) const noexcept;

    DesktopRenderBase* owner_ = nullptr;
    int lastX_ = 0;
    int lastY_ = 0;
    bool dragging_ = false;
    bool timerActive_ = false;
    std::atomic<HCURSOR> cursor_{nullptr};
    std::atomic<bool> dragEnabled_{true};
    std::atomic<bool> relayoutPending_{false};
    UniquePalette palette_;
    CriticalSection paintLock_;  // painting against palette replacement
    Window window_;
};

}  // namespace vantrel
