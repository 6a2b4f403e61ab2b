// What the render tests share: a host window that records the render's notifications (and
// serves as parent or drain), a synthetic 16-bit desktop that sends its bands through the
// shared encoder, and a fixture holding a DesktopRender made through COM.
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

#include "common/ScreenTestSupport.h"
#include "stream/SinkTable.h"
#include "stream/StreamEncoder.h"
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

// A desktop of 5-5-5 pixels that sends its regions as frame packets to the registered sinks (and
// to a recording sink, whose packets a test may alter).
class SyntheticDesktop {
  public:
    // bpp 16 (5-5-5) or 8 (a grey colour table).
    SyntheticDesktop(IScreenCodec* codec, int width, int height, uint32_t seed, int bpp = 16)
        : encoder_(image_, sinks_) {
        std::vector<DWORD> greys;
        for (DWORD i = 0; bpp == 8 && i < 256; ++i)
            greys.push_back(i * 0x010101);
        image_.CreateFromBitmapInfo(AsBmi(Bmi(width, height, bpp, BI_RGB, greys)));
        Paint(seed);
        encoder_.SetCodec(codec);
        sinks_.RegisterDataTransmitter(&recorder);
    }
    ~SyntheticDesktop() { sinks_.UnregisterDataTransmitter(&recorder); }
    void Paint(uint32_t seed) {
        RECT whole;
        image_.GetScreenRect(&whole);
        std::vector<BYTE> px(image_.GetRectBytes(&whole));
        for (auto& p : px)
            p = static_cast<BYTE>((seed = seed * 1664525u + 1013904223u) >> 16);
        for (size_t i = 1; image_.GetBitsPixel() == 16 && i < px.size(); i += 2)
            px[i] &= 0x7F;  // 5-5-5: the top bit stays clear
        image_.PutRows(&whole, px.data());
    }
    HRESULT Register(IDataTransmitter* sink) { return sinks_.RegisterDataTransmitter(sink); }
    HRESULT Unregister(IDataTransmitter* sink) { return sinks_.UnregisterDataTransmitter(sink); }
    int Send(const RECT& r) { return encoder_.SendRegion(&r); }
    int SendAll() {
        RECT whole;
        image_.GetScreenRect(&whole);
        return Send(whole);
    }
    // Rows of r, top row first, unpadded.
    std::vector<BYTE> Rows(const RECT& r) {
        std::vector<BYTE> out(image_.GetRectBytes(&r));
        UINT size = static_cast<UINT>(out.size()), lines = 0;
        image_.CopyRows(&r, out.data(), &size, 0, &lines);
        return out;
    }
    FakeSink recorder{"recorder"};

  private:
    DesktopImage image_;
    SinkTable sinks_;
    StreamEncoder encoder_;
};

// COM, a codec, a host window and one render made by its class object.
class RenderTest : public ScreenTest {
  protected:
    void SetUp() override {
        ScreenTest::SetUp();
        render_ = MakeRender();
        ASSERT_TRUE(render_);
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
        ComPtr<IDesktopRender> r;
        EXPECT_EQ(S_OK, CoCreateInstance(CLSID_DesktopRender, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopRender, r.PutVoid()));
        return r;
    }
    HWND RenderWindow() {
        HWND h = nullptr;
        EXPECT_EQ(S_OK, render_->GetWindowHandle(&h));
        return h;
    }
    // The whole picture as GetCurrectImage gives it (BITMAPINFO and rows); empty on E_FAIL.
    static std::vector<BYTE> Picture(IDesktopRender* render) {
        unsigned long size = 0;
        if (render->GetCurrectImage(&size, nullptr) != S_OK)
            return {};
        std::vector<BYTE> out(size);
        EXPECT_EQ(S_OK, render->GetCurrectImage(&size, out.data()));
        return out;
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
