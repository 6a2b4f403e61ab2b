// The captured virtual screen shown in a render window: DesktopCapture streams it through COM
// to a DesktopRender embedded as a visible child of a host window; what the window shows is
// grabbed back off the screen and compared with the captured part, at 5-5-5.
#include "render/RenderTestSupport.h"

namespace vantrel::test {
namespace {

constexpr RECT kHost{0, 0, 400, 300};       // host window and render client, on the screen
constexpr RECT kNoise{600, 400, 900, 650};  // what the render is made to show
constexpr RECT kShown{560, 380, 960, 680};  // the source of the 1:1 and stretched views
constexpr uint32_t kMargin = 0x008080;      // 0x808000 as a screen pixel

class RenderScreenTest : public CaptureTest {
  protected:
    void SetUp() override {
        CaptureTest::SetUp();
        ASSERT_TRUE(render_ = Create<IDesktopRender>(CLSID_DesktopRender));
        ASSERT_EQ(S_OK, render_.As(&transmitter_));
        ASSERT_EQ(S_OK, render_->SetParentWindow(host_.Handle()));
        ASSERT_EQ(S_OK, render_->SetWindowPosition(0, 0, 400, 300));
        ASSERT_EQ(S_OK, render_->SetVisible(TRUE));
    }
    void TearDown() override {
        if (capture_) {
            capture_->Stop();
            capture_->UnregisterDataTransmitter(transmitter_.Get());
        }
        transmitter_.Reset();
        render_.Reset();
        CaptureTest::TearDown();
    }
    // Until the render's client area on the screen shows want(x, y), a screen pixel, at 5-5-5
    // (the capture may still be catching up); skip(x, y) leaves a client pixel out.
    void ExpectShows(const char* view, const std::function<uint32_t(int, int)>& want,
                     const std::function<bool(int, int)>& skip = nullptr) {
        long wrong = -1;
        const bool same = WaitUntil([&] {
            const std::vector<uint32_t> shot = GrabScreen32(kHost);
            wrong = 0;
            for (int y = 0; y < kHost.bottom; ++y)
                for (int x = 0; x < kHost.right; ++x)
                    wrong += !(skip && skip(x, y)) &&
                             To555(shot[y * kHost.right + x]) != To555(want(x, y));
            return wrong == 0;
        });
        EXPECT_TRUE(same) << view << ": " << wrong << " pixels differ";
    }

    HostWindow host_{kHost, true};
    ComPtr<IDesktopRender> render_;
    ComPtr<IDataTransmitter> transmitter_;
};

TEST_F(RenderScreenTest, ManualStretchedAndFollowViewsShowTheRightPartOfTheCapturedScreen) {
    NoiseBox noise(kNoise, 0xC0FFEE);
    ASSERT_TRUE(noise.Shown());
    ASSERT_EQ(S_OK, capture_->RegisterDataTransmitter(transmitter_.Get()));
    RunAndWaitForPicture();  // the render's notifications: RenderTest
    ASSERT_TRUE(Converges());

    // 1:1: a source of the client's size.
    ASSERT_EQ(S_OK, render_->SetScrollMode(0));
    ASSERT_EQ(S_OK,
              render_->SetSourcePosition(kShown.left, kShown.top, kShown.right, kShown.bottom));
    std::vector<uint32_t> screen = GrabScreen32(kShown);
    auto shown = [&](int x, int y) { return screen[y * 400 + x]; };
    ExpectShows("1:1", shown);

    // Halved into the top-left quarter; the rest of the client is the margin colour. Each
    // shown pixel is one of the four it stands for.
    ASSERT_EQ(S_OK, render_->SetDestinationPosition(0, 0, 200, 150));
    long l, t, r, b;
    ASSERT_EQ(S_OK, render_->GetDestinationPosition(&l, &t, &r, &b));  // repaints
    ExpectShows(
        "stretched",
        [&](int x, int y) {
            if (x >= 200 || y >= 150)
                return kMargin;
            const std::vector<uint32_t> shot = GrabScreen32({x, y, x + 1, y + 1});
            for (int dy = 0; dy < 2; ++dy)
                for (int dx = 0; dx < 2; ++dx)
                    if (To555(shown(2 * x + dx, 2 * y + dy)) == To555(shot[0]))
                        return shot[0];
            return shown(2 * x, 2 * y);
        },
        [](int x, int y) { return x < 200 && y < 150 && (x + y) % 7 != 0; });

    // Follow: the pointer in the bottom-right corner pulls the view there, 1:1.
    ASSERT_EQ(S_OK, render_->SetScrollMode(1));
    SetCursorPos(1005, 745);
    ASSERT_TRUE(WaitUntil([&] {
        EXPECT_EQ(S_OK, render_->GetSourcePosition(&l, &t, &r, &b));
        return RECT{l, t, r, b} == RECT{624, 468, 1024, 768};
    })) << RECT{l, t, r, b};
    screen = GrabScreen32({624, 468, 1024, 768});
    // The render draws the pointer into its picture; the screen grab has none.
    ExpectShows("follow", shown, [](int x, int y) { return x >= 360 && y >= 260; });
}

}  // namespace
}  // namespace vantrel::test
