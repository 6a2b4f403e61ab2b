// The input-desktop functions on the calling thread, as far as the platform lets a test move
// threads between desktops: the input desktop and back, and an unknown name.
#include "capture/InputDesktop.h"
#include "common/ScreenTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

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
