// The input-desktop functions on the calling thread, as far as the platform lets a test move
// threads between desktops: the input desktop and back, an unknown name, a second desktop of
// the window station, and a thread whose windows keep it where it is.
#include <regex>
#include <thread>

#include "capture/InputDesktop.h"
#include "common/ScreenTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

constexpr char kOtherDesktop[] = "VantrelInputDesktopTest";

HDESK ThreadDesktop() {
    return GetThreadDesktop(GetCurrentThreadId());
}

}  // namespace

TEST(InputDesktop, ThreadGoesToTheInputDesktopAndBackClosingWhatItOpenedButNotToAnUnknownOne) {
    const HDESK start = ThreadDesktop();
    {
        DebugOutput debug;
        EXPECT_FALSE(SelectDesktop("VantrelNoSuchDesktop"));
        EXPECT_EQ(std::vector<std::string>{"unable to open desktop\n"}, debug.Lines());
        EXPECT_EQ(start, ThreadDesktop());
    }
    ASSERT_TRUE(SelectDesktop(nullptr));
    const HDESK opened = ThreadDesktop();
    EXPECT_NE(start, opened);
    EXPECT_TRUE(IsInputDesktopCurrent());
    ASSERT_TRUE(SelectHDESK(start));
    EXPECT_EQ(start, ThreadDesktop());
    char name[256];
    EXPECT_FALSE(GetUserObjectInformationA(opened, UOI_NAME, name, sizeof name, nullptr))
        << "the desktop SelectDesktop opened was not closed";
}

TEST(InputDesktop, SecondDesktopIsNotTheInputOneAndABusyThreadStaysWithBothMessages) {
    UniqueDesktop other(CreateDesktopA(kOtherDesktop, nullptr, nullptr, 0, GENERIC_ALL, nullptr));
    ASSERT_TRUE(other);
    // A fresh thread owns no window and may move.
    BOOL moved = FALSE, onInputThere = TRUE, back = FALSE, onInputBack = FALSE;
    std::thread([&] {
        moved = SelectDesktop(kOtherDesktop);
        onInputThere = IsInputDesktopCurrent();
        back = SelectDesktop(nullptr);
        onInputBack = IsInputDesktopCurrent();
    }).join();
    EXPECT_TRUE(moved && !onInputThere && back && onInputBack);

    UniqueHwnd window(CreateWindowExA(0, "STATIC", "", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr,
                                      nullptr, nullptr));
    ASSERT_TRUE(window);
    DebugOutput debug;
    const HDESK start = ThreadDesktop();
    EXPECT_FALSE(SelectDesktop(kOtherDesktop));
    EXPECT_EQ(start, ThreadDesktop());
    const auto lines = debug.Lines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("unable to SetThreadDesktop\n", lines[0]);
    // The platform's error code, not a cleared one.
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(std::string("ERROR: Set Desktop: ") +
                                                      kOtherDesktop + ", [0-9A-F]{8}\n")))
        << lines[1];
    EXPECT_EQ(std::string::npos, lines[1].find("00000000")) << lines[1];
}
