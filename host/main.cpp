// vantrel.exe, the classroom host: shares the teacher's screen, shows it to the students,
// records and plays lessons. It uses the registered COM objects only, through the generated
// Vantrel.h, as any classroom program would.
#include <cstdio>
#include <cstring>
#include <new>

#include "ComClasses.h"
#include "Commands.h"
#include "EventLoop.h"

namespace vantrel::host {

namespace {

struct Command {
    const char* name;
    Outcome (*run)(int argc, char** argv);
    const char* usage;
};

const Command kCommands[] = {
    {"share", Share,
     "share [--preview] [--record FILE [--append]] [--cast GROUP:PORT [--interface IP] [--fec N]\n"
     "        [--checksums on|off]] [--publish [--sessions N]] [--refresh N]\n"
     "    shares this screen to a preview window, a lesson file, a multicast session and/or\n"
     "    the shared-memory server of this machine (at least one of them):\n"
     "      --preview          shows what is shared in a window\n"
     "      --record FILE      records a lesson; --append continues a closed one\n"
     "      --cast GROUP:PORT  sends to a multicast session, e.g. 239.255.42.1:5000,\n"
     "                         through --interface (default 127.0.0.1), with --fec N\n"
     "                         correction datagrams per 32 (0 to 32, default 8) and\n"
     "                         --checksums (default on)\n"
     "      --publish          publishes to the sessions 0 to N-1 (--sessions, default 256)\n"
     "      --refresh N        a whole picture every N s for students who join late\n"
     "                         (default 5 when casting or publishing; 0: never)"},
    {"view", View,
     "view GROUP:PORT [--interface IP] [--from IP]\n"
     "    joins a multicast session and shows it; --from takes only the teacher at that\n"
     "    address"},
    {"play", Play,
     "play FILE [--speed N] [--exit-at-end]\n"
     "    plays a lesson in a window, N times as fast (1 to 64); keys: Space pause and\n"
     "    resume, + and - speed, Right and Left 10 s on and back, Home start, Q quit"},
    {"publish", Publish,
     "publish GROUP:PORT [--interface IP] [--from IP] [--sessions N]\n"
     "    on a terminal server: joins a multicast session and publishes it in shared memory\n"
     "    to the sessions 0 to N-1 of this machine (default 256)"},
    {"session-view", SessionView,
     "session-view [--session N]\n"
     "    shows the published picture in this session (default: this session's id)"},
    {"info", Info,
     "info FILE\n"
     "    a lesson's duration, packets, frames, cursor records, bytes, picture size and\n"
     "    whether its recording was closed properly"},
    {"snapshot", Snapshot,
     "snapshot FILE TIME OUTPUT.png\n"
     "    writes the lesson's picture at TIME (seconds, 1:02.5, or end) as a PNG file"},
    {"repair", Repair,
     "repair FILE\n"
     "    makes a lesson whose recording was never closed (recorder killed, power lost)\n"
     "    playable again up to its last whole record, and says how much it kept"},
};

const char kCommon[] =
    "Window options (share --preview, view, play, session-view):\n"
    "  --window X,Y,W,H      the picture area on the screen (default: a window of 800x600)\n"
    "  --view follow|scroll|fit  1:1 following the pointer (default), 1:1 moved by\n"
    "                        dragging, or the whole desktop fitted to the window\n"
    "  --source X,Y,W,H      this part of the desktop only (fit)\n"
    "Run options (share, view, play, publish, session-view); Ctrl+C stops cleanly:\n"
    "  --seconds N           stops after N seconds\n"
    "  --stop-event NAME     stops when another program sets this named event\n"
    "  --report BASE         on stopping writes BASE.txt (figures) and BASE.png (picture)\n"
    "Exit codes: 0 done, 1 failed, 2 bad arguments, 3 a class or DLL not registered,\n"
    "4 file error, 5 damaged lesson file, 6 lesson file not closed (run repair),\n"
    "7 network address, 8 no shared-memory server.\n";

void PrintUsage(std::FILE* to) {
    std::fprintf(to, "usage: vantrel <command> [arguments]\n\n");
    for (const Command& c : kCommands)
        std::fprintf(to, "vantrel %s\n\n", c.usage);
    std::fputs(kCommon, to);
}

const Command* Find(const char* name) {
    for (const Command& c : kCommands)
        if (std::strcmp(c.name, name) == 0)
            return &c;
    return nullptr;
}

}  // namespace

Outcome ParseCommand(int argc, char** argv, std::vector<OptionRule> table,
                     const std::vector<std::vector<OptionRule>>& shared, size_t minPositional,
                     size_t maxPositional, Args* args) {
    for (const auto& more : shared)
        table.insert(table.end(), more.begin(), more.end());
    std::string error;
    if (!args->Parse(argc, argv, 2, table, minPositional, maxPositional, &error))
        return Outcome::Fail(kExitUsage, error);
    return Outcome::Success();
}

int Main(int argc, char** argv) {
    if (argc < 2) {
        PrintUsage(stderr);
        return kExitUsage;
    }
    if (!std::strcmp(argv[1], "help") || !std::strcmp(argv[1], "--help") ||
        !std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "/?")) {
        PrintUsage(stdout);
        return kExitOk;
    }
    const Command* command = Find(argv[1]);
    if (!command) {
        std::fprintf(stderr, "vantrel: there is no command \"%s\"\n\n", argv[1]);
        PrintUsage(stderr);
        return kExitUsage;
    }
    for (int i = 2; i < argc; ++i)
        if (!std::strcmp(argv[i], "--help")) {
            std::printf("usage: vantrel %s\n\n%s", command->usage, kCommon);
            return kExitOk;
        }
    ComApartment com;
    Outcome outcome =
        FAILED(com.Result())
            ? Outcome::Fail(kExitFailed, WithCode("COM could not be initialised", com.Result()))
            : command->run(argc, argv);
    if (outcome.Ok())
        return kExitOk;
    std::fflush(stdout);
    std::fprintf(stderr, "vantrel %s: %s\n", command->name, outcome.message.c_str());
    if (outcome.code == kExitUsage)
        std::fprintf(stderr, "usage: vantrel %s\n(vantrel help lists every option)\n",
                     command->usage);
    std::fflush(stderr);
    return outcome.code;
}

}  // namespace vantrel::host

int main(int argc, char** argv) {
    try {
        return vantrel::host::Main(argc, argv);
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "vantrel: out of memory\n");
        return vantrel::host::kExitFailed;
    }
}
