// vantrel.exe's lesson tools and player as a real program: what info, play, snapshot, repair
// and share --append say about sound, unclosed, damaged and foreign files; a snapshot against a
// render fed the same records; the player's keys. (A recording stopped by Ctrl+C: host_ctrl_c.)
#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "HostTestSupport.h"
#include "common/ComTest.h"

namespace vantrel::test {
namespace {

constexpr RECT kBox{96, 96, 416, 336};

using HostLesson = ComTest;

// Records the screen into path with `vantrel share --record` while a NoiseBox at kBox shows
// count seeds from seed on, each held holdMs.
void RecordLesson(const std::string& path, uint32_t seed, int count, DWORD holdMs) {
    NoiseBox noise(kBox, seed);
    ASSERT_TRUE(noise.Shown());
    LoggedProgram share("share");
    ASSERT_TRUE(share.Start("vantrel.exe", "share --record " + Quote(path)));
    ASSERT_TRUE(share.WaitFor("share: running", kPatience)) << share.Output();
    for (int i = 0; i < count; ++i) {
        EXPECT_TRUE(i == 0 || noise.Repaint(seed + i));
        PumpFor(holdMs);
    }
    EXPECT_EQ(0u, share.Stop(30000)) << share.Output();
}

// The pixels of a PNG file at 5-5-5.
std::vector<uint16_t> Png555(const std::string& path) {
    Pixels picture;
    if (FAILED(ReadPng(path.c_str(), &picture)))
        return {};
    std::vector<uint16_t> out(picture.data.size());
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = To555(picture.data[i]);
    return out;
}

// A frame record that names a desktop (as the stream lays frames out) and a cursor record.
Bytes Frame(uint32_t time, uint32_t width, uint32_t height) {
    Bytes r = Record(time, 64, kHmrf);
    for (int i = 0; i < 5; ++i)
        lesson::StoreU32(r.data() + 12 + 4 * i, i == 2 ? width : i == 3 ? height : i == 4 ? 16 : 0);
    return r;
}

// The number after text in out; -1 without one.
double NumberAfter(const std::string& out, const std::string& text, size_t from = 0) {
    const size_t at = out.find(text, from);
    return at == std::string::npos ? -1 : std::atof(out.c_str() + at + text.size());
}

TEST_F(HostLesson, EachFileProblemHasItsOwnAnswer) {
    const std::vector<Bytes> records = {Frame(0, 640, 480), Record(100, 40, kHruc),
                                        Frame(300, 640, 480)};
    Bytes tooLong = Lesson({Frame(0, 640, 480), Record(50, 0x200000)}, 500);
    tooLong.resize(12 + 64 + 24);
    lesson::StoreU32(tooLong.data() + 4, static_cast<uint32_t>(tooLong.size()));
    const struct {
        const char* name;
        Bytes bytes;
        std::vector<std::pair<const char*, std::pair<DWORD, std::vector<const char*>>>> answers;
    } table[] = {
        {"closed",
         Lesson(records, 500),
         {{"info",
           {kOk,
            {"packets: 3 (2 frames, 1 cursor records)", "picture: 640x480, 16 bits per pixel",
             "duration: 0.500 s"}}},
          {"repair", {kOk, {"closed properly: nothing to do"}}},
          {"append", {kOk, {"share: running"}}}}},
        {"unclosed",
         Lesson(records, 0, lesson::kHeaderSize),
         {{"info", {kUnclosed, {"closed properly: no"}}},
          {"play", {kUnclosed, {"run `vantrel repair"}}},
          {"append", {kUnclosed, {"first, then append"}}},
          {"repair", {kOk, {"plays again: kept 3 whole records"}}},
          {"info", {kOk, {"closed properly: yes"}}}}},
        {"foreign",
         Bytes(100, 0x5A),
         {{"info", {kDamaged, {"does not begin with HFRS"}}},
          {"snapshot", {kDamaged, {"is not a lesson file"}}}}},
        {"short", Bytes(5, 0x48), {{"info", {kDamaged, {"shorter than a header"}}}}},
        {"damaged",
         tooLong,
         {{"info", {kDamaged, {"damaged: after 1 whole records (record longer than 0x180000"}}},
          {"repair", {kOk, {"kept 1 whole records"}}},
          {"info", {kOk, {"closed properly: yes"}}}}},
    };
    for (const auto& row : table) {
        TempFile file(row.name);
        ASSERT_TRUE(file.Write(row.bytes));
        for (const auto& [command, expected] : row.answers) {
            const std::string name = Quote(file.Path());
            const std::string c = command;
            const std::string args =
                c == "snapshot"
                    ? "snapshot " + name + " 0 " + Quote(std::string(file.Path()) + ".png")
                : c == "append" ? "share --record " + name + " --append --seconds 1"
                : c == "play"   ? "play " + name + " --seconds 1"
                                : c + " " + name;
            const Bytes before = file.Read();
            const Ran ran = RunVantrel(args);
            EXPECT_EQ(expected.first, ran.code) << row.name << ": vantrel " << args << "\n"
                                                << ran.out;
            for (const char* says : expected.second)
                EXPECT_NE(std::string::npos, ran.out.find(says))
                    << row.name << ": vantrel " << args << "\n"
                    << ran.out;
            if (ran.code != kOk) {
                EXPECT_EQ(before, file.Read()) << row.name << ": a refusal changed the file";
            }
        }
    }
}

// The picture of a DesktopRender in this process fed directly the records up to time, at 5-5-5
// (the stream's pixels are 5-5-5 already).
std::vector<uint16_t> RenderedUpTo(const std::vector<Bytes>& records, uint32_t time) {
    ComPtr<IDesktopRender> render = Create<IDesktopRender>(CLSID_DesktopRender);
    ComPtr<IDataTransmitter> sink;
    if (!render || FAILED(render.As(&sink)))
        return {};
    for (Bytes record : records)
        if (TimeOf(record) <= time)
            sink->Transfer(record.data(), static_cast<unsigned long>(record.size()), FALSE);
    const Bytes image = CurrentImage(render.Get());
    BITMAPINFOHEADER h;
    if (image.size() < sizeof h)
        return {};
    std::memcpy(&h, image.data(), sizeof h);
    if (h.biBitCount != 16 || h.biCompression != BI_RGB)
        return {};
    std::vector<uint16_t> px((image.size() - sizeof h) / 2);
    std::memcpy(px.data(), image.data() + sizeof h, px.size() * 2);
    return px;
}

// One recorded lesson: its snapshots against a render fed the same records, then the player's
// keys.
TEST_F(HostLesson, SnapshotsEqualARenderAndThePlayerAnswersItsKeys) {
    TempFile lessonFile("snap");
    RecordLesson(lessonFile.Path(), 4, 3, 1200);
    const std::vector<Bytes> records = RecordsOf(lessonFile.Read());
    ASSERT_FALSE(records.empty());
    // The middle of every quiet stretch (the box still) and the end.
    std::vector<uint32_t> times;
    for (size_t i = 1; i < records.size(); ++i)
        if (TimeOf(records[i]) - TimeOf(records[i - 1]) > 600)
            times.push_back((TimeOf(records[i]) + TimeOf(records[i - 1])) / 2);
    times.push_back(HeaderOf(lessonFile.Read()).duration);
    ASSERT_GE(times.size(), 2u);
    for (uint32_t time : times) {
        const std::string png = std::string(lessonFile.Path()) + ".png";
        char when[32];
        std::snprintf(when, sizeof when, "%u.%03u", time / 1000, time % 1000);
        const Ran ran =
            RunVantrel("snapshot " + Quote(lessonFile.Path()) + " " + when + " " + Quote(png));
        ASSERT_EQ(kOk, ran.code) << ran.out;
        const std::vector<uint16_t> rendered = RenderedUpTo(records, time);
        ASSERT_FALSE(rendered.empty());
        EXPECT_EQ(rendered, Png555(png)) << "at " << when;
        DeleteFileA(png.c_str());
    }
    LoggedProgram play("play");
    ASSERT_TRUE(play.Start("vantrel.exe", "play " + Quote(lessonFile.Path()) +
                                              " --window 600,420,320,240 --view fit"));
    ASSERT_TRUE(play.WaitFor("keys: Space", kPatience)) << play.Output();
    HWND frame = nullptr;
    ASSERT_TRUE(WaitUntil([&] {
        return (frame = FindWindowA(
                    nullptr, ("Vantrel - " + std::string(lessonFile.Path())).c_str())) != nullptr;
    }));
    // The number in the key's answer ("paused at 1.250 s" -> 1.25).
    auto press = [&](WPARAM key, const std::string& answer) {
        const size_t before = play.Output().size();
        PostMessageA(frame, WM_KEYDOWN, key, 0);
        EXPECT_TRUE(WaitUntil([&] {
            return play.Output().find(answer, before) != std::string::npos;
        })) << answer
            << "\n"
            << play.Output();
        return NumberAfter(play.Output(), answer, before);
    };
    PumpFor(800);
    const double paused = press(VK_SPACE, "paused at ");
    PumpFor(1000);
    EXPECT_GT(paused, 0.5);
    EXPECT_NEAR(paused, press(VK_SPACE, "playing at "), 0.1) << "the position stood still";
    press(VK_OEM_PLUS, "speed x2");
    press(VK_RIGHT, "play: at ");
    EXPECT_TRUE(play.WaitFor("end of the lesson", kPatience)) << play.Output();
    EXPECT_LT(press(VK_LEFT, "play: at "), 1.0) << "back to the start";
    press('Q', "stopped by Q");
    EXPECT_EQ(0u, play.Wait(kPatience)) << play.Output();
}

}  // namespace
}  // namespace vantrel::test
