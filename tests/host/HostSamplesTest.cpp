// The README's samples (built from the README itself, host/samples) run as programs: the
// sending machine casts and records while a student joins late, the terminal server's viewer
// gets the published picture, and the recorded lesson plays to its end.
#include <windows.h>

#include "HostTestSupport.h"

namespace vantrel::test {
namespace {

TEST(HostSamples, TheFourWiringsOfTheReadmeRun) {
    NoiseBox noise(RECT{128, 128, 384, 320}, 31);
    ASSERT_TRUE(noise.Shown());
    TempFile lessonFile("sample");
    LoggedProgram teacher("teacher"), student("student");
    ASSERT_TRUE(teacher.Start("sample_teacher.exe", Quote(lessonFile.Path()) + " 6", nullptr));
    PumpFor(1500);
    ASSERT_TRUE(student.Start("sample_student.exe", "8", nullptr));
    EXPECT_EQ(0u, student.Wait(30000)) << student.Output();
    EXPECT_EQ(0u, teacher.Wait(30000)) << teacher.Output();
    const Ran terminal = RunProgram("sample_terminal.exe", "4");
    EXPECT_EQ(0u, terminal.code) << terminal.out;
    const Ran playback = RunProgram("sample_playback.exe", Quote(lessonFile.Path()));
    EXPECT_EQ(0u, playback.code) << playback.out;
}

}  // namespace
}  // namespace vantrel::test
