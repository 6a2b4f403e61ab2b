// The assumptions every other test makes about the harness: a window drawn on the virtual
// display is seen by a GDI grab of the screen, and Global\ objects are shared by name. (That
// they reach a second process, the host's sharing test shows; multicast, the transport and
// cast tests.)
#include <windows.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "common/Screen.h"
#include "wincom/KernelObjects.h"

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

TEST(NamedObjects, GlobalSectionAndEventAreSharedByName) {
    EXPECT_FALSE(TryOpenNamedSection("Global\\VantrelNoSuchSection"));
    EXPECT_FALSE(TryOpenNamedEvent("Global\\VantrelNoSuchEvent"));
    const std::string name = "Global\\VantrelHarness" + std::to_string(GetCurrentProcessId());
    bool existed = true;
    UniqueMapping section = CreateNamedSection(name.c_str(), 4096, &existed);
    UniqueViewOfFile view = section ? MapWholeSection(section.get()) : UniqueViewOfFile();
    ASSERT_TRUE(view);
    EXPECT_FALSE(existed);
    EXPECT_TRUE(CreateNamedSection(name.c_str(), 4096, &existed));
    EXPECT_TRUE(existed) << "a second create opens the same object and says so";
    strcpy(static_cast<char*>(view.get()), "teacher");
    UniqueMapping opened = TryOpenNamedSection(name.c_str());
    UniqueViewOfFile other = opened ? MapWholeSection(opened.get()) : UniqueViewOfFile();
    ASSERT_TRUE(other);
    EXPECT_STREQ("teacher", static_cast<const char*>(other.get()));

    UniqueEvent done = CreateNamedEvent((name + ".Done").c_str(), true, false);
    UniqueEvent seen = TryOpenNamedEvent((name + ".Done").c_str());
    ASSERT_TRUE(seen);
    ASSERT_TRUE(SetEvent(seen.get()));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(done.get(), 0));
}
