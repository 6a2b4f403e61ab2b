// The assumption every screen test makes about the harness: a window drawn on the virtual
// display is seen by a GDI grab of the screen. (Named kernel objects, the ipc tests show;
// multicast inside the private network, the transport and cast tests.)
#include <windows.h>

#include <gtest/gtest.h>

#include "common/Screen.h"
#include "wincom/UniqueHandle.h"

using namespace vantrel;

TEST(Display, PaintedWindowIsSeenByScreenGrab) {
    test::PaintedWindow window(RECT{120, 90, 320, 240}, [](HDC dc, const RECT& client) {
        UniqueBrush brush(CreateSolidBrush(RGB(200, 40, 120)));
        FillRect(dc, &client, brush.get());
    });
    ASSERT_TRUE(window.IsOpen());
    std::vector<uint32_t> seen;
    EXPECT_TRUE(test::WaitUntil([&] {
        seen = GrabScreen32(RECT{220, 165, 221, 166});
        return seen.size() == 1 && seen[0] == 0xC82878u;
    })) << std::hex
        << (seen.empty() ? 0u : seen[0]);
    WindowDc screen(nullptr);
    EXPECT_GE(GetDeviceCaps(screen.get(), HORZRES), 640);
}
