// vantrel.exe share feeding the shared-memory server and a multicast session at once, with a
// session viewer and two students as separate programs: the pictures they report equal the
// screen, and a student filtering another teacher's address gets none.
#include <windows.h>
#include <objbase.h>

#include "HostTestSupport.h"

namespace vantrel::test {
namespace {

TEST(HostShare, PublishedAndCastPicturesEqualTheScreen) {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    const POINT pointer{GetSystemMetrics(SM_CXSCREEN) - 30, GetSystemMetrics(SM_CYSCREEN) - 30};
    SetCursorPos(pointer.x, pointer.y);
    NoiseBox noise(RECT{64, 64, 448, 352}, 21);
    ASSERT_TRUE(noise.Shown());
    TempFile a("share"), b("session"), c("student");
    LoggedProgram share("share"), viewer("session-view"), student("view"), stranger("view");
    ASSERT_TRUE(share.Start("vantrel.exe",
                            "share --publish --sessions 8 --cast 239.255.9.1:5100 "
                            "--refresh 1 --report " +
                                Quote(a.Path())));
    ASSERT_TRUE(share.WaitFor("share: running", kPatience)) << share.Output();
    EXPECT_TRUE(share.Said("the sessions 0 to 7 of this machine")) << share.Output();
    ASSERT_TRUE(viewer.Start("vantrel.exe",
                             "session-view --session 5 --view fit --window "
                             "600,420,256,192 --report " +
                                 Quote(b.Path())));
    ASSERT_TRUE(student.Start("vantrel.exe",
                              "view 239.255.9.1:5100 --from 127.0.0.1 --window "
                              "600,100,256,192 --report " +
                                  Quote(c.Path())));
    ASSERT_TRUE(stranger.Start("vantrel.exe",
                               "view 239.255.9.1:5100 --from 10.0.0.99 "
                               "--seconds 4",
                               nullptr));
    EXPECT_TRUE(viewer.WaitFor("picture complete: ", kPatience)) << viewer.Output();
    EXPECT_TRUE(student.WaitFor("picture complete: ", kPatience)) << student.Output();
    EXPECT_EQ(kFailed, stranger.Wait(30000)) << stranger.Output();
    EXPECT_TRUE(stranger.Said("no picture arrived")) << stranger.Output();
    noise.Repaint(22);
    PumpFor(2500);  // longer than a refresh: whatever a student missed has come again
    const Pixels screen =
        GrabScreen(RECT{0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)});
    EXPECT_EQ(kOk, viewer.Stop(30000)) << viewer.Output();
    EXPECT_EQ(kOk, student.Stop(30000)) << student.Output();
    EXPECT_EQ(kOk, share.Stop(30000)) << share.Output();
    EXPECT_TRUE(share.Said("share: stopped by stop event")) << share.Output();
    // Left out: the pointer, and the two viewers' own windows, which each program's picture
    // shows as they were when it stopped while the screen was grabbed with both still open.
    const RECT ignored[] = {{pointer.x - 32, pointer.y - 32, pointer.x + 64, pointer.y + 64},
                            {590, 90, 870, 305},
                            {590, 410, 870, 625}};
    const auto compared = [&](int x, int y) {
        for (const RECT& r : ignored)
            if (PtInRect(&r, POINT{x, y}))
                return false;
        return true;
    };
    for (const TempFile* report : {&b, &c}) {
        Pixels picture;
        ASSERT_EQ(S_OK, ReadPng((std::string(report->Path()) + ".png").c_str(), &picture));
        ASSERT_EQ(screen.width, picture.width);
        ASSERT_EQ(screen.height, picture.height);
        long wrong = 0;
        RECT where{};  // around the differing pixels, for the failure message
        for (int y = 0; y < screen.height; ++y)
            for (int x = 0; x < screen.width; ++x)
                if (compared(x, y) && To555(screen.At(x, y)) != To555(picture.At(x, y))) {
                    const RECT one{x, y, x + 1, y + 1};
                    UnionRect(&where, &where, &one);
                    ++wrong;
                }
        EXPECT_EQ(0, wrong) << report->Path() << " differs within " << where.left << ","
                            << where.top << "-" << where.right << "," << where.bottom;
        DeleteFileA((std::string(report->Path()) + ".png").c_str());
        DeleteFileA((std::string(report->Path()) + ".txt").c_str());
    }
    DeleteFileA((std::string(a.Path()) + ".txt").c_str());
    CoUninitialize();
}

}  // namespace
}  // namespace vantrel::test
