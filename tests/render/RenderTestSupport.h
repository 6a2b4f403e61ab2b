// What the render tests share: the notification codes, a host window (parent or drain) and a
// fixture holding a DesktopRender made through COM.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "common/ScreenTestSupport.h"
#include "wincom/Window.h"

namespace vantrel::test {

// The notification codes as a host knows them.
enum : WPARAM {
    RN_FORMATCHANGED = 1,
    RN_PICTURECOMPLETE = 2,
    RN_CLOSEREQUEST = 3,
    RN_IDLE = 4,
    RN_VIEWCHANGED = 5,
};
constexpr UINT kNotifyMessage = WM_APP + 7;
constexpr DWORD kNotifyParam = 0x5A5A1234;

// A top-level popup (never activated) that records every message sent or posted to it, but
// what its own default handling sends it: a parent for the render's window, or its drain.
class HostWindow {
  public:
    explicit HostWindow(const RECT& where = {0, 0, 400, 300}, bool visible = false) {
        window_.Observe([this](UINT m, WPARAM, LPARAM) {
            if (!window_.Nested())
                messages_.push_back(m);
        });
        WindowClassInfo cls;
        cls.name = "VantrelTestHost";
        window_.Create(cls, WS_EX_NOACTIVATE | WS_EX_TOPMOST, "host",
                       WS_POPUP | WS_CLIPCHILDREN | (visible ? WS_VISIBLE : 0), where.left,
                       where.top, where.right - where.left, where.bottom - where.top);
        messages_.clear();
    }
    HWND Handle() const { return window_.Handle(); }
    const std::vector<UINT>& Messages() const { return messages_; }

  private:
    std::vector<UINT> messages_;
    Window window_;  // last: its destruction still reaches the observer
};

// COM, a codec, a notification window, a host window and one render made by its class object.
class RenderTest : public ScreenTest {
  protected:
    void SetUp() override {
        ScreenTest::SetUp();
        ASSERT_TRUE(render_ = MakeRender());
        ASSERT_EQ(S_OK, render_.As(&transmitter_));
        ASSERT_EQ(S_OK, render_->SetNotifyWindow(notes_.Handle(), kNotifyMessage, kNotifyParam));
    }
    void TearDown() override {
        transmitter_.Reset();
        render_.Reset();
        PumpFor(20);
        ScreenTest::TearDown();
    }
    static ComPtr<IDesktopRender> MakeRender() {
        return Create<IDesktopRender>(CLSID_DesktopRender);
    }
    HWND RenderWindow() {
        HWND h = nullptr;
        EXPECT_EQ(S_OK, render_->GetWindowHandle(&h));
        return h;
    }
    // The whole of desk, sent to the render.
    void Feed(PacketSource& desk) {
        ASSERT_EQ(S_OK, desk.Register(transmitter_.Get()));
        desk.SendAll();
        desk.Unregister(transmitter_.Get());
    }
    // The codes posted so far, in order, of those in only; each carries the host's parameter.
    // Posted notifications arrive once this thread pumps.
    std::vector<WPARAM> Codes(const std::vector<WPARAM>& only) {
        PumpFor(30);
        std::vector<WPARAM> out;
        for (const auto& n : notes_.Notes()) {
            EXPECT_EQ(kNotifyParam, static_cast<DWORD>(n.lParam));
            if (std::count(only.begin(), only.end(), n.wParam))
                out.push_back(n.wParam);
        }
        return out;
    }
    // Forgets the notifications posted so far, also those not delivered yet.
    void ClearCodes() {
        PumpFor(30);
        notes_.Clear();
    }

    NotifyWindow notes_{kNotifyMessage};
    HostWindow host_;
    ComPtr<IDesktopRender> render_;
    ComPtr<IDataTransmitter> transmitter_;
};

}  // namespace vantrel::test
