// What the render tests share: a host window that records the render's notifications (and
// serves as parent or drain) and a fixture holding a DesktopRender made through COM.
#pragma once

#include <windows.h>

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

// A top-level popup (never activated) that records what is posted to it: the render's
// notifications, and any other message it is sent or posted (as a drain window).
class HostWindow {
  public:
    explicit HostWindow(const RECT& where = {0, 0, 400, 300}, bool visible = false) {
        window_.Observe([this](UINT m, WPARAM w, LPARAM l) {
            if (m == kNotifyMessage)
                notifications_.push_back({w, l});
            else if (!window_.Nested())  // not what its own default handling sends it
                messages_.push_back(m);
        });
        WindowClassInfo cls;
        cls.name = "VantrelTestHost";
        window_.Create(cls, WS_EX_NOACTIVATE | WS_EX_TOPMOST, "host",
                       WS_POPUP | WS_CLIPCHILDREN | (visible ? WS_VISIBLE : 0), where.left,
                       where.top, where.right - where.left, where.bottom - where.top);
        Clear();
    }
    HWND Handle() const { return window_.Handle(); }
    // The notification codes posted so far, in order; only those in codes when not empty.
    std::vector<WPARAM> Codes(std::vector<WPARAM> only = {}) const {
        std::vector<WPARAM> out;
        for (const auto& n : notifications_)
            if (only.empty() || std::count(only.begin(), only.end(), n.first))
                out.push_back(n.first);
        return out;
    }
    bool AllCarryTheParam() const {
        for (const auto& n : notifications_)
            if (static_cast<DWORD>(n.second) != kNotifyParam)
                return false;
        return true;
    }
    const std::vector<UINT>& Messages() const { return messages_; }
    void Clear() {
        notifications_.clear();
        messages_.clear();
    }

  private:
    std::vector<std::pair<WPARAM, LPARAM>> notifications_;
    std::vector<UINT> messages_;
    Window window_;  // last: its destruction still reaches the observer
};

// COM, a codec, a host window and one render made by its class object.
class RenderTest : public ScreenTest {
  protected:
    void SetUp() override {
        ScreenTest::SetUp();
        ASSERT_TRUE(render_ = MakeRender());
        ASSERT_EQ(S_OK, render_.As(&transmitter_));
        ASSERT_EQ(S_OK, render_->SetNotifyWindow(host_.Handle(), kNotifyMessage, kNotifyParam));
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
    // Posted notifications arrive once this thread pumps.
    std::vector<WPARAM> Codes(std::vector<WPARAM> only = {}) {
        PumpFor(30);
        return host_.Codes(std::move(only));
    }
    // Forgets the notifications posted so far, also those not delivered yet.
    void ClearCodes() {
        PumpFor(30);
        host_.Clear();
    }

    HostWindow host_;
    ComPtr<IDesktopRender> render_;
    ComPtr<IDataTransmitter> transmitter_;
};

}  // namespace vantrel::test
