// vantrel_demo.exe, the classroom demo that scripts/demo runs: on the virtual screen a teacher
// and the students work as separate programs, each a vantrel.exe command, the way a classroom
// would run them:
//   teacher      share: capture -> its preview window, a lesson file, a multicast session
//   relay        vantrel_relay: the session again on a second group, losing 5 % of datagrams
//   student      view: the lossy second group, FEC on -> a render window
//   terminal     publish: the session -> the shared-memory server of this machine
//   sessions     session-view 0 and 7: the published picture in two student sessions
//   playback     play: afterwards, the lesson the teacher recorded
// The demo types a text on a whiteboard, drags a note across it with the pointer and changes a
// marker's colour to time how long a change takes to show in every window. Once the board is
// still, every window must show the board and every student's picture must equal the teacher's
// screen at 5-5-5 (the drawn pointer aside). It writes a report folder (pictures, figures,
// logs) and ends with one line: "demo: PASS" or "demo: FAIL <stage>: <why>".
//
//   vantrel_demo [--report DIR] [--quick]
#include <windows.h>
#include <objbase.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Desk.h"
#include "common/LoggedProgram.h"
#include "common/Screen.h"
#include "wincom/ChildProcess.h"
#include "wincom/KernelObjects.h"
#include "wincom/Png.h"
#include "wincom/ScreenPixels.h"

namespace vantrel::demo {

namespace {

using Peer = test::LoggedProgram;

constexpr char kTeacherSession[] = "239.255.42.1:5000";
constexpr char kStudentSession[] = "239.255.42.2:5002";
constexpr char kInterface[] = "127.0.0.1";
constexpr int kLossPercent = 5;
constexpr int kFec = 8;
constexpr int kRefreshSeconds = 2;
constexpr int kPlaybackSpeed = 8;
constexpr double kStepSeconds = 0.04;
constexpr double kProbePatience = 3.0;
// Colours the stream keeps exactly (5 bits of each channel).
constexpr uint32_t kMarkerColours[] = {0xF80000, 0x00F800, 0x0000F8, 0xF8F800,
                                       0xF800F8, 0x00F8F8, 0x800080, 0x008000};

struct Failure {
    std::string stage, why;
};

std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

std::string Geometry(const RECT& r) {
    return Format("%ld,%ld,%ld,%ld", r.left, r.top, r.right - r.left, r.bottom - r.top);
}

std::string Quoted(const std::string& path) {
    return "\"" + path + "\"";
}

// Pixels that differ at 5-5-5, outside skip (which may be empty); -1 for different sizes.
long Differences(const Pixels& a, const Pixels& b, const RECT& skip = RECT{}) {
    if (a.Empty() || a.width != b.width || a.height != b.height)
        return -1;
    long wrong = 0;
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x) {
            const POINT p{x, y};
            wrong += !PtInRect(&skip, p) && To555(a.At(x, y)) != To555(b.At(x, y));
        }
    return wrong;
}

double Percentile(std::vector<double> values, double share) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t i = static_cast<size_t>(share * (values.size() - 1) + 0.5);
    return values[std::min(i, values.size() - 1)];
}

// "key: value" lines of a report file.
std::map<std::string, std::string> ReadFigures(const std::string& path) {
    std::map<std::string, std::string> figures;
    if (FILE* f = std::fopen(path.c_str(), "r")) {
        char line[512];
        while (std::fgets(line, sizeof line, f)) {
            std::string text(line);
            while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
                text.pop_back();
            const size_t colon = text.find(": ");
            if (colon != std::string::npos)
                figures[text.substr(0, colon)] = text.substr(colon + 2);
        }
        std::fclose(f);
    }
    return figures;
}

// A student's (or the teacher's preview) window on the screen.
struct Target {
    std::string name, title, file;
    RECT client{};
    bool live = true;  // measured while the teacher shares
    std::vector<double> latencies;
    int probes = 0;
    long windowWrong = -1, pictureWrong = -1;
    long windowPixels = 0, picturePixels = 0;
    double settled = -1;
};

class ClassroomDemo {
  public:
    ClassroomDemo(std::string dir, bool quick) : dir_(std::move(dir)), quick_(quick) {}
    // 0 on PASS.
    int Run();

  private:
    bool Setup();
    bool StartTeacher();
    bool StartStudents();
    bool Live();
    bool Settle();
    bool StopClass();
    bool Playback();
    void WriteReport(const std::string& verdict);

    std::string File(const std::string& name) const { return dir_ + "\\" + name; }
    RECT Cell(int column, int row) const;
    bool Locate(Target& t);
    Pixels DeskNow() const { return GrabScreen(desk_); }
    long WindowWrong(const Target& t, const Pixels& desk) const {
        return Differences(GrabScreen(t.client), desk);
    }
    bool Fail(const char* stage, const std::string& why) {
        failure_ = Failure{stage, why};
        return false;
    }
    void Line(const std::string& text) {
        std::printf("%s\n", text.c_str());
        std::fflush(stdout);
        summary_ += text + "\n";
    }

    const std::string dir_;
    const bool quick_;
    Failure failure_;
    std::string summary_;
    double started_ = test::Seconds();
    int width_ = 0, height_ = 0;
    RECT desk_{};
    POINT parked_{};
    std::unique_ptr<Desk> board_;
    std::vector<std::unique_ptr<Peer>> peers_;
    Peer* teacher_ = nullptr;
    Peer* relay_ = nullptr;
    Peer* publisher_ = nullptr;
    std::vector<Peer*> students_;
    std::vector<Target> targets_;  // preview, multicast, session 0, session 7, playback
    Pixels teacherScreen_;
    double liveSeconds_ = 0;
};

RECT ClassroomDemo::Cell(int column, int row) const {
    // A 3 x 3 grid; each window's picture area leaves room above it for a caption.
    const int w = width_ / 3, h = height_ / 3;
    return RECT{column * w + 8, row * h + 30, column * w + w - 8, row * h + h - 10};
}

bool ClassroomDemo::Setup() {
    width_ = GetSystemMetrics(SM_CXSCREEN);
    height_ = GetSystemMetrics(SM_CYSCREEN);
    if (width_ < 640 || height_ < 480)
        return Fail("setup",
                    Format("the screen is %dx%d, too small for a classroom", width_, height_));
    desk_ = Cell(0, 0);
    parked_ = POINT{width_ - 24, height_ - 24};
    CreateDirectoryA(dir_.c_str(), nullptr);
    CreateDirectoryA(File("logs").c_str(), nullptr);
    if (GetFileAttributesA(ProgramBeside("vantrel.exe").c_str()) == INVALID_FILE_ATTRIBUTES)
        return Fail("setup", "vantrel.exe is not beside the demo: build it first");
    board_ = std::make_unique<Desk>(desk_);
    if (!board_->Open())
        return Fail("setup", "the whiteboard could not be shown");
    board_->SetMarker(kMarkerColours[0]);
    Desk::ParkPointer(parked_);
    auto target = [&](const char* name, std::string title, const char* file, RECT client) {
        Target t;
        t.name = name;
        t.title = std::move(title);
        t.file = file;
        t.client = client;
        targets_.push_back(t);
    };
    target("teacher's preview", "Vantrel - what you share", "preview", Cell(1, 0));
    target("student (multicast, 5 % loss)", std::string("Vantrel - ") + kStudentSession,
           "multicast", Cell(2, 0));
    target("student (session 0)", "Vantrel - session 0", "session0", Cell(0, 1));
    target("student (session 7)", "Vantrel - session 7", "session7", Cell(1, 1));
    target("student (playback)", "Vantrel - " + File("lesson.lsn"), "playback", Cell(2, 1));
    targets_.back().live = false;
    Line(Format("classroom demo: %dx%d virtual screen; the whiteboard at %s", width_, height_,
                Geometry(desk_).c_str()));
    return true;
}

bool ClassroomDemo::Locate(Target& t) {
    const HWND frame = FindWindowA(nullptr, t.title.c_str());
    const HWND render = frame ? GetWindow(frame, GW_CHILD) : nullptr;
    RECT r;
    if (!render || !GetClientRect(render, &r))
        return false;
    MapWindowPoints(render, nullptr, reinterpret_cast<POINT*>(&r), 2);
    t.client = r;
    return true;
}

bool ClassroomDemo::StartTeacher() {
    peers_.push_back(std::make_unique<Peer>("teacher", File("logs\\teacher.log")));
    teacher_ = peers_.back().get();
    const std::string args = Format(
        "share --preview --window %s --source %s --record %s --cast %s --interface %s "
        "--fec %d --refresh %d --report %s",
        Geometry(targets_[0].client).c_str(), Geometry(desk_).c_str(),
        Quoted(File("lesson.lsn")).c_str(), kTeacherSession, kInterface, kFec, kRefreshSeconds,
        Quoted(File("picture-preview")).c_str());
    Line("teacher:  vantrel " + args.substr(0, args.find(" --report")));
    if (!teacher_->Start("vantrel.exe", args))
        return Fail("teacher", "vantrel.exe could not be started");
    if (!teacher_->WaitFor("share: running", 30000))
        return Fail("teacher", "share did not start: " + teacher_->Output());
    return true;
}

bool ClassroomDemo::StartStudents() {
    auto add = [&](const char* name) {
        peers_.push_back(std::make_unique<Peer>(name, File(std::string("logs\\") + name + ".log")));
        return peers_.back().get();
    };
    relay_ = add("relay");
    const std::string ready = UniqueObjectName("VantrelDemoRelayReady");
    UniqueEvent readyEvent = CreateNamedEvent(ready.c_str(), true, false);
    const std::string relayArgs =
        Format("--from %s --to %s --loss %d --seed 14 --ready %s", kTeacherSession, kStudentSession,
               kLossPercent, ready.c_str());
    Line("relay:    vantrel_relay " + relayArgs.substr(0, relayArgs.find(" --ready")));
    if (!relay_->Start("vantrel_relay.exe", relayArgs, "--stop") ||
        !test::WaitUntil([&] { return WaitForSingleObject(readyEvent.get(), 0) == WAIT_OBJECT_0; },
                         15000))
        return Fail("students", "the relay did not start: " + relay_->Output());

    publisher_ = add("terminal-server");
    const std::string publishArgs =
        Format("publish %s --interface %s --sessions 8", kTeacherSession, kInterface);
    Line("terminal: vantrel " + publishArgs);
    if (!publisher_->Start("vantrel.exe",
                           publishArgs + " --report " + Quoted(File("terminal-server"))) ||
        !publisher_->WaitFor("publish: ", 30000))
        return Fail("students", "publish did not start: " + publisher_->Output());

    struct Launch {
        const char* log;
        std::string args;
        size_t target;
    };
    const Launch launches[] = {
        {"student-multicast", Format("view %s --interface %s", kStudentSession, kInterface), 1},
        {"student-session0", "session-view --session 0", 2},
        {"student-session7", "session-view --session 7", 3},
    };
    for (const Launch& l : launches) {
        Peer* student = add(l.log);
        students_.push_back(student);
        const Target& t = targets_[l.target];
        const std::string args =
            l.args + " --window " + Geometry(t.client) + " --source " + Geometry(desk_);
        Line("student:  vantrel " + args);
        if (!student->Start("vantrel.exe", args + " --report " + Quoted(File("picture-" + t.file))))
            return Fail("students", "vantrel.exe could not be started");
    }
    for (Peer* student : students_)
        if (!student->WaitFor("picture complete", 40000))
            return Fail("students",
                        student->Name() + " got no whole picture: " + student->Output());
    for (size_t i = 0; i < 4; ++i)
        if (!Locate(targets_[i]))
            return Fail("students", "the window of the " + targets_[i].name + " is not there");
    return true;
}

bool ClassroomDemo::Live() {
    const double seconds = quick_ ? 6 : 20;
    Line(
        Format("live: %.0f s of typing, dragging and pointer moves; the marker changes colour "
               "about twice a second",
               seconds));
    WindowDc screen(nullptr);
    const POINT spot = board_->MarkerSpot();
    const POINT marker{desk_.left + spot.x, desk_.top + spot.y};
    auto shows = [&](const POINT& p, uint32_t colour) {
        const COLORREF c = GetPixel(screen.get(), p.x, p.y);
        const uint32_t rgb = GetRValue(c) << 16 | GetGValue(c) << 8 | GetBValue(c);
        return To555(rgb) == To555(colour);
    };
    const double start = test::Seconds();
    double nextStep = start, nextProbe = start + 0.5, probeStart = 0;
    size_t colourIndex = 0;
    std::vector<Target*> pending;
    for (double now = start; now - start < seconds || !pending.empty(); now = test::Seconds()) {
        if (now >= nextStep && now - start < seconds) {
            board_->Step();
            nextStep = std::max(nextStep + kStepSeconds, now);
        }
        const uint32_t colour = kMarkerColours[colourIndex % std::size(kMarkerColours)];
        if (pending.empty() && now >= nextProbe && now - start < seconds) {
            board_->SetMarker(kMarkerColours[++colourIndex % std::size(kMarkerColours)]);
            const uint32_t next = kMarkerColours[colourIndex % std::size(kMarkerColours)];
            // The change counts from the moment the screen shows it.
            test::WaitUntil([&] { return shows(marker, next); }, 500, 1);
            probeStart = test::Seconds();
            for (size_t i = 0; i < 4; ++i) {
                pending.push_back(&targets_[i]);
                ++targets_[i].probes;
            }
            continue;
        }
        for (auto it = pending.begin(); it != pending.end();) {
            const POINT p{(*it)->client.left + spot.x, (*it)->client.top + spot.y};
            if (shows(p, colour)) {
                (*it)->latencies.push_back((test::Seconds() - probeStart) * 1000);
                it = pending.erase(it);
            } else {
                ++it;
            }
        }
        if (!pending.empty() && now - probeStart > kProbePatience)
            pending.clear();
        if (pending.empty() && probeStart > 0 && nextProbe <= probeStart)
            nextProbe = now + 0.3;
        test::PumpMessages();
        Sleep(2);
    }
    liveSeconds_ = test::Seconds() - start;
    for (Peer* peer : {teacher_, relay_, publisher_, students_[0], students_[1], students_[2]})
        if (!peer->Running())
            return Fail("live", peer->Name() + " ended during the lesson: " + peer->Output());
    return true;
}

bool ClassroomDemo::Settle() {
    Desk::ParkPointer(parked_);
    const double start = test::Seconds();
    bool all = false;
    while (!all && test::Seconds() - start < 20) {
        test::PumpFor(100);
        const Pixels desk = DeskNow();
        all = true;
        for (size_t i = 0; i < 4; ++i) {
            Target& t = targets_[i];
            if (t.settled < 0 && WindowWrong(t, desk) == 0)
                t.settled = (test::Seconds() - start) * 1000;
            all = all && t.settled >= 0;
        }
    }
    // Longer than a refresh period: a packet the relay's loss took beyond repair is whole again.
    test::PumpFor((kRefreshSeconds + 1) * 1000);
    teacherScreen_ = GrabScreen(RECT{0, 0, width_, height_});
    WritePng(File("teacher-screen.png").c_str(), teacherScreen_);
    const Pixels desk = teacherScreen_.Crop(desk_);
    for (size_t i = 0; i < 4; ++i) {
        Target& t = targets_[i];
        const Pixels window = GrabScreen(t.client);
        WritePng(File("window-" + t.file + ".png").c_str(), window);
        t.windowWrong = Differences(window, desk);
        t.windowPixels = static_cast<long>(window.data.size());
    }
    // The source and the teacher's preview side by side.
    Pixels both;
    const Pixels preview = GrabScreen(targets_[0].client);
    both.width = desk.width * 2 + 8;
    both.height = desk.height;
    both.data.assign(static_cast<size_t>(both.width) * both.height, 0x404040);
    for (int y = 0; y < desk.height && preview.height == desk.height; ++y)
        for (int x = 0; x < desk.width; ++x) {
            both.data[static_cast<size_t>(y) * both.width + x] = desk.At(x, y);
            both.data[static_cast<size_t>(y) * both.width + desk.width + 8 + x] = preview.At(x, y);
        }
    WritePng(File("preview-side-by-side.png").c_str(), both);
    for (size_t i = 0; i < 4; ++i)
        if (targets_[i].windowWrong != 0)
            return Fail("equality", Format("the window of the %s does not show the whiteboard "
                                           "(%ld pixels differ)",
                                           targets_[i].name.c_str(), targets_[i].windowWrong));
    return true;
}

bool ClassroomDemo::StopClass() {
    // The teacher first: the lesson is closed on the picture the students still show.
    const DWORD teacherCode = teacher_->Stop(30000);
    const DWORD relayCode = relay_->Stop(15000);
    std::vector<DWORD> codes;
    for (Peer* student : students_)
        codes.push_back(student->Stop(20000));
    const DWORD publishCode = publisher_->Stop(20000);
    if (teacherCode != 0)
        return Fail("stop", Format("the teacher ended with %lu: %s", teacherCode,
                                   teacher_->Output().c_str()));
    if (relayCode != 0 || publishCode != 0)
        return Fail("stop", "the relay or the terminal server did not stop cleanly");
    for (size_t i = 0; i < students_.size(); ++i)
        if (codes[i] != 0)
            return Fail("stop", Format("%s ended with %lu: %s", students_[i]->Name().c_str(),
                                       codes[i], students_[i]->Output().c_str()));
    const RECT pointer{parked_.x - 32, parked_.y - 32, parked_.x + 64, parked_.y + 64};
    for (size_t i = 0; i < 4; ++i) {
        Target& t = targets_[i];
        Pixels picture;
        ReadPng(File("picture-" + t.file + ".png").c_str(), &picture);
        t.pictureWrong = Differences(picture, teacherScreen_, pointer);
        t.picturePixels = static_cast<long>(picture.data.size());
        if (t.pictureWrong != 0)
            return Fail("equality", Format("the picture of the %s differs from the teacher's "
                                           "screen (%ld)",
                                           t.name.c_str(), t.pictureWrong));
    }
    return true;
}

bool ClassroomDemo::Playback() {
    Target& t = targets_[4];
    peers_.push_back(
        std::make_unique<Peer>("student-playback", File("logs\\student-playback.log")));
    Peer* player = peers_.back().get();
    const std::string args =
        Format("play %s --speed %d --window %s --source %s", Quoted(File("lesson.lsn")).c_str(),
               kPlaybackSpeed, Geometry(t.client).c_str(), Geometry(desk_).c_str());
    Line("playback: vantrel " + args);
    if (!player->Start("vantrel.exe", args + " --report " + Quoted(File("picture-playback"))))
        return Fail("playback", "vantrel.exe could not be started");
    if (!player->WaitFor("end of the lesson", 90000))
        return Fail("playback", "the lesson did not play to its end: " + player->Output());
    if (!Locate(t))
        return Fail("playback", "the playback window is not there");
    const Pixels desk = teacherScreen_.Crop(desk_);
    const double start = test::Seconds();
    test::WaitUntil([&] { return WindowWrong(t, desk) == 0; }, 5000, 50);
    t.settled = (test::Seconds() - start) * 1000;
    const Pixels window = GrabScreen(t.client);
    WritePng(File("window-playback.png").c_str(), window);
    t.windowWrong = Differences(window, desk);
    t.windowPixels = static_cast<long>(window.data.size());
    const DWORD code = player->Stop(20000);
    Pixels picture;
    ReadPng(File("picture-playback.png").c_str(), &picture);
    const RECT pointer{parked_.x - 32, parked_.y - 32, parked_.x + 64, parked_.y + 64};
    t.pictureWrong = Differences(picture, teacherScreen_, pointer);
    t.picturePixels = static_cast<long>(picture.data.size());
    if (code != 0)
        return Fail("playback", Format("play ended with %lu: %s", code, player->Output().c_str()));
    if (t.windowWrong != 0 || t.pictureWrong != 0)
        return Fail("playback", Format("the lesson's last picture differs from the teacher's "
                                       "screen (window %ld, picture %ld pixels)",
                                       t.windowWrong, t.pictureWrong));
    return true;
}

void ClassroomDemo::WriteReport(const std::string& verdict) {
    auto figures = [&](const std::string& name) { return ReadFigures(File(name + ".txt")); };
    auto teacher = figures("picture-preview"), multicast = figures("picture-multicast"),
         terminal = figures("terminal-server"), s0 = figures("picture-session0"),
         s7 = figures("picture-session7"), playback = figures("picture-playback");
    unsigned long heard = 0, sent = 0, dropped = 0, duplicated = 0, reordered = 0;
    if (relay_) {
        const std::string out = relay_->Output();
        const size_t at = out.find("relay: received");
        if (at != std::string::npos)
            std::sscanf(out.c_str() + at,
                        "relay: received %lu sent %lu dropped %lu duplicated %lu "
                        "reordered %lu",
                        &heard, &sent, &dropped, &duplicated, &reordered);
    }
    Line("links (packets are the desktop stream's; datagrams are on the wire):");
    Line(Format("  teacher -> %s      %s packets, %s bytes in %s s: %s", kTeacherSession,
                teacher["packets"].c_str(), teacher["bytes"].c_str(), teacher["seconds"].c_str(),
                teacher["bandwidth"].c_str()));
    Line(Format("  relay %s -> %s  heard %lu datagrams, lost %lu (%.1f %%), sent %lu",
                kTeacherSession, kStudentSession, heard, dropped,
                heard ? 100.0 * dropped / heard : 0.0, sent));
    Line(Format("  %s -> student (view, FEC %d)   %s packets, %s bytes in %s s: %s",
                kStudentSession, kFec, multicast["packets"].c_str(), multicast["bytes"].c_str(),
                multicast["seconds"].c_str(), multicast["bandwidth"].c_str()));
    Line(Format("  %s -> terminal server (publish)  %s packets, %s bytes in %s s: %s",
                kTeacherSession, terminal["packets"].c_str(), terminal["bytes"].c_str(),
                terminal["seconds"].c_str(), terminal["bandwidth"].c_str()));
    Line(Format("  shared memory -> session 0 / 7  %s / %s picture updates", s0["updates"].c_str(),
                s7["updates"].c_str()));
    Line(Format("  teacher -> lesson file          %s s recorded",
                teacher["lesson duration"].c_str()));
    Line(Format("  lesson file -> playback (x%d)    %s packets, %s bytes in %s s: %s",
                kPlaybackSpeed, playback["packets"].c_str(), playback["bytes"].c_str(),
                playback["seconds"].c_str(), playback["bandwidth"].c_str()));
    Line(
        "pixel equality at 5-5-5 (window: its picture area against the whiteboard; picture: "
        "the whole desktop it holds against the teacher's screen, the drawn pointer aside):");
    for (const Target& t : targets_) {
        auto verdict = [](long wrong, long pixels) {
            return wrong < 0 ? std::string("not compared")
                             : Format("%s (%ld of %ld pixels differ)",
                                      wrong == 0 ? "equal" : "DIFFERENT", wrong, pixels);
        };
        Line(Format("  %-30s window %s; picture %s", t.name.c_str(),
                    verdict(t.windowWrong, t.windowPixels).c_str(),
                    verdict(t.pictureWrong, t.picturePixels).c_str()));
    }
    Line(
        Format("preview-side-by-side.png: the whiteboard beside the teacher's preview window, "
               "%s at 5-5-5 (%ld of %ld pixels differ)",
               targets_[0].windowWrong == 0 ? "equal" : "DIFFERENT", targets_[0].windowWrong,
               targets_[0].windowPixels));
    Line(
        Format("latency, screen change -> pixels in the window (%.0f s of lesson):", liveSeconds_));
    std::vector<double> all;
    for (const Target& t : targets_) {
        if (!t.live)
            continue;
        all.insert(all.end(), t.latencies.begin(), t.latencies.end());
        Line(Format("  %-30s median %4.0f ms, p95 %4.0f ms (%u of %d changes seen)", t.name.c_str(),
                    Percentile(t.latencies, 0.5), Percentile(t.latencies, 0.95),
                    static_cast<unsigned>(t.latencies.size()), t.probes));
    }
    Line(Format("  %-30s median %4.0f ms, p95 %4.0f ms", "every window", Percentile(all, 0.5),
                Percentile(all, 0.95)));
    Line(Format("total time: %.1f s", test::Seconds() - started_));
    // Under Wine, drive Z: is the Unix root: say where the folder is on this machine.
    std::string where = dir_;
    if (where.compare(0, 3, "Z:\\") == 0) {
        where.erase(0, 2);
        std::replace(where.begin(), where.end(), '\\', '/');
    }
    Line("report: " + where + " (pictures, figures and every program's log)");
    if (FILE* f = std::fopen(File("report.txt").c_str(), "w")) {
        std::fputs((summary_ + verdict + "\n").c_str(), f);
        std::fclose(f);
    }
}

int ClassroomDemo::Run() {
    const bool passed = Setup() && StartTeacher() && StartStudents() && Live() && Settle() &&
                        StopClass() && Playback();
    for (auto& peer : peers_)
        peer->Stop(10000);
    const std::string verdict =
        passed ? "demo: PASS" : "demo: FAIL " + failure_.stage + ": " + failure_.why;
    if (!targets_.empty())
        WriteReport(verdict);
    std::printf("%s\n", verdict.c_str());
    std::fflush(stdout);
    return passed ? 0 : 1;
}

}  // namespace

}  // namespace vantrel::demo

int main(int argc, char** argv) {
    std::string dir = vantrel::ProgramBeside("..\\demo-report");
    bool quick = false;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--report") && i + 1 < argc) {
            dir = argv[++i];
        } else if (!std::strcmp(argv[i], "--quick")) {
            quick = true;
        } else {
            std::fprintf(stderr, "usage: vantrel_demo [--report DIR] [--quick]\n");
            return 2;
        }
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
        std::printf("demo: FAIL setup: COM could not be initialised\n");
        return 1;
    }
    const int code = vantrel::demo::ClassroomDemo(dir, quick).Run();
    CoUninitialize();
    return code;
}
