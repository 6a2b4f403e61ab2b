// vantrel.exe as a real program: a bad argument, address, missing file or registration gets its
// exit code and a sentence that names the problem (one case per rule); share feeding the
// shared-memory server; and the README's samples. (Casting and viewing: host_demo.)
#include <windows.h>

#include "HostTestSupport.h"

namespace vantrel::test {
namespace {

struct Refusal {
    const char* args;
    DWORD code;
    const char* says;
};

TEST(HostCommand, RefusesWhatItCannotDoInWords) {
    const Refusal table[] = {
        {"", kUsage, "usage: vantrel <command>"},
        {"help", kOk, "vantrel snapshot FILE TIME OUTPUT.png"},
        {"lecture", kUsage, "there is no command \"lecture\""},
        {"share", kUsage, "share needs somewhere to share to"},
        {"share --preview --bogus", kUsage, "unknown option --bogus"},
        {"share --preview --preview", kUsage, "--preview is given twice"},
        {"share --record", kUsage, "--record needs a value (FILE)"},
        {"share --preview --fec 4", kUsage, "--fec goes with --cast"},
        {"share --cast 10.1.2.3:5000", kUsage, "is not a multicast address"},
        {"share --cast 239.255.1.1:70000", kUsage, "the port must be a whole number from 1"},
        {"share --cast 239.255.1.1:5000 --interface 192.0.2.7", kNetwork,
         "192.0.2.7 is not an address of this machine"},
        {"share --preview --stop-event NoSuchVantrelEvent", kUsage, "no event named"},
        {"view 239.255.1.1:5000 --from 1.2.3", kUsage, "--from must be an IPv4 address"},
        {"view 239.255.1.1:5000 --seconds 1", kFailed, "no picture arrived"},
        {"session-view --seconds 5", kNoServer, "no shared-memory server runs on this machine"},
        {"info Z:\\no\\such\\lesson.lsn", kFileError, "there is no lesson file"},
        {"snapshot x.lsn 3", kUsage, "too few arguments"},
    };
    for (const Refusal& r : table) {
        const Ran ran = RunVantrel(r.args);
        EXPECT_EQ(r.code, ran.code) << "vantrel " << r.args << "\n" << ran.out;
        EXPECT_NE(std::string::npos, ran.out.find(r.says)) << "vantrel " << r.args << "\n"
                                                           << ran.out;
    }
}

// Calls entry (DllRegisterServer, DllUnregisterServer) of dll beside the test.
HRESULT CallDll(const char* dll, const char* entry) {
    const HMODULE module = LoadLibraryA(ProgramBeside(dll).c_str());
    const auto fn =
        module ? reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(GetProcAddress(module, entry))
               : nullptr;
    const HRESULT hr = fn ? fn() : E_FAIL;
    if (module)
        FreeLibrary(module);
    return hr;
}

// The message names the class and its DLL from one table: one class of a component DLL stands for
// all.
TEST(HostCommand, NamesTheClassAndTheDllThatAreNotRegistered) {
    ASSERT_EQ(S_OK, CallDll("ScreenCodec.dll", "DllUnregisterServer"));
    const Ran ran = RunVantrel("share --preview --seconds 5");
    EXPECT_EQ(S_OK, CallDll("ScreenCodec.dll", "DllRegisterServer"));
    EXPECT_EQ(kNotRegistered, ran.code) << ran.out;
    EXPECT_NE(std::string::npos,
              ran.out.find("the class ScreenCodec is not registered: ScreenCodec.dll"))
        << ran.out;
    EXPECT_NE(std::string::npos, ran.out.find("regsvr32 ScreenCodec.dll")) << ran.out;
}

// share feeds the shared-memory server directly (host_demo publishes from a receiver); the
// viewer starts after share, so only its refresh brings it a whole picture.
TEST(HostShare, PublishedPicturesReachASessionViewer) {
    LoggedProgram share("share"), viewer("session-view");
    ASSERT_TRUE(share.Start("vantrel.exe", "share --publish --sessions 8 --refresh 1"));
    ASSERT_TRUE(share.WaitFor("share: running", kPatience)) << share.Output();
    EXPECT_TRUE(share.Said("the sessions 0 to 7 of this machine")) << share.Output();
    ASSERT_TRUE(viewer.Start("vantrel.exe", "session-view --session 5"));
    EXPECT_TRUE(viewer.WaitFor("picture complete: ", kPatience)) << viewer.Output();
    EXPECT_EQ(kOk, viewer.Stop(30000)) << viewer.Output();
    EXPECT_EQ(kOk, share.Stop(30000)) << share.Output();
}

// The sending machine casts and records while a student joins late, the terminal server's
// viewer gets the published picture, and the recorded lesson plays to its end.
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
    for (const auto& [program, args] :
         {std::make_pair("sample_terminal.exe", std::string("4")),
          std::make_pair("sample_playback.exe", Quote(lessonFile.Path()))}) {
        const Ran ran = RunVantrel(args, program);
        EXPECT_EQ(0u, ran.code) << program << "\n" << ran.out;
    }
}

}  // namespace
}  // namespace vantrel::test
