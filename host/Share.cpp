// `vantrel share`: the sending machine's wiring. DesktopCapture feeds any of a preview
// DesktopRender, a DesktopRecorder, a DesktopCaster and a DesktopIPCServer, plus a counter of
// the host's own for the figures; every few seconds the capture is asked for a full picture, so
// that students who join late get all of it.
#include <cstdio>

#include "ComClasses.h"
#include "Commands.h"
#include "EventLoop.h"
#include "HostWindow.h"
#include "Picture.h"
#include "StreamTaps.h"
#include "lesson/LessonFile.h"

namespace vantrel::host {

namespace {

constexpr DWORD kTickMs = 100;
constexpr long kDefaultRefreshSeconds = 5;
constexpr long kDefaultFec = 8;
constexpr long kDefaultSessions = 256;

struct ShareOptions {
    bool preview = false;
    std::string record;
    bool append = false;
    std::string group;
    USHORT port = 0;
    std::string interfaceText = kDefaultInterface;
    long fec = kDefaultFec;
    bool checksums = true;
    bool publish = false;
    long sessions = kDefaultSessions;
    long refreshSeconds = 0;
    ViewOptions view;
    RunOptions run;
};

Outcome ParseShare(int argc, char** argv, ShareOptions* o) {
    Args args;
    Outcome parsed = ParseCommand(argc, argv,
                                  {{"--preview", nullptr},
                                   {"--record", "FILE"},
                                   {"--append", nullptr},
                                   {"--cast", "GROUP:PORT"},
                                   {"--interface", "IP"},
                                   {"--fec", "N"},
                                   {"--checksums", "on|off"},
                                   {"--publish", nullptr},
                                   {"--sessions", "N"},
                                   {"--refresh", "N"}},
                                  {kViewOptionTable, kRunOptionTable}, 0, 0, &args);
    if (!parsed.Ok())
        return parsed;
    std::string error;
    auto usage = [&](const std::string& why) { return Outcome::Fail(kExitUsage, why); };
    o->preview = args.Has("--preview");
    o->record = args.Value("--record");
    o->append = args.Has("--append");
    o->publish = args.Has("--publish");
    const bool cast = args.Has("--cast");
    if (!o->preview && o->record.empty() && !cast && !o->publish)
        return usage("share needs somewhere to share to: --preview, --record, --cast or --publish");
    if (o->append && o->record.empty())
        return usage("--append goes with --record");
    for (const char* castOnly : {"--interface", "--fec", "--checksums"})
        if (args.Has(castOnly) && !cast)
            return usage(std::string(castOnly) + " goes with --cast");
    if (args.Has("--sessions") && !o->publish)
        return usage("--sessions goes with --publish");
    for (const OptionRule& rule : kViewOptionTable)
        if (args.Has(rule.name) && !o->preview)
            return usage(std::string(rule.name) + " goes with --preview");
    if (cast && !ParseEndpoint(args.Value("--cast"), &o->group, &o->port, &error))
        return usage(error);
    o->interfaceText = args.Value("--interface", kDefaultInterface);
    ULONG address = 0;
    if (cast && !ParseIpv4(o->interfaceText, "--interface", &address, &error))
        return usage(error);
    const std::string checksums = args.Value("--checksums", "on");
    if (checksums != "on" && checksums != "off")
        return usage("--checksums must be on or off, not \"" + checksums + "\"");
    o->checksums = checksums == "on";
    if (args.Has("--fec") && !ParseInt(args.Value("--fec"), "--fec", 0, 32, &o->fec, &error))
        return usage(error);
    if (args.Has("--sessions") &&
        !ParseInt(args.Value("--sessions"), "--sessions", 1, 65536, &o->sessions, &error))
        return usage(error);
    o->refreshSeconds = cast || o->publish ? kDefaultRefreshSeconds : 0;
    if (args.Has("--refresh") &&
        !ParseInt(args.Value("--refresh"), "--refresh", 0, 3600, &o->refreshSeconds, &error))
        return usage(error);
    if (!ParseViewOptions(args, &o->view, &error) || !ParseRunOptions(args, &o->run, &error))
        return usage(error);
    o->view.title = "Vantrel - what you share";
    if (cast)
        return CheckLocalInterface(o->interfaceText.c_str(), address);
    return Outcome::Success();
}

// An existing lesson that --append would continue must have been closed properly.
Outcome CheckAppendable(const std::string& path) {
    if (GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES)
        return Outcome::Success();
    lesson::LessonScan scan;
    if (lesson::InspectLesson(path.c_str(), &scan) != lesson::FileResult::Ok)
        return Outcome::Fail(kExitFile, "the lesson file " + path +
                                            " cannot be opened (is it being recorded or played?)");
    if (scan.realLength > 0 && scan.header.magic != lesson::kMagic)
        return Outcome::Fail(kExitDamaged, path + " is not a lesson file: nothing to append to");
    if (scan.playable == lesson::HeaderCheck::LengthMismatch)
        return Outcome::Fail(kExitUnclosed, "the recording of " + path +
                                                " was never closed: run `vantrel repair " + path +
                                                "` first, then append");
    return Outcome::Success();
}

}  // namespace

Outcome Share(int argc, char** argv) {
    ShareOptions o;
    Outcome outcome = ParseShare(argc, argv, &o);
    if (!outcome.Ok())
        return outcome;
    using namespace classes;
    outcome = CheckRegistered({&kCapture, &kScreenCodec});
    if (outcome.Ok() && o.preview)
        outcome = CheckRegistered({&kRender});
    if (outcome.Ok() && !o.record.empty())
        outcome = CheckRegistered({&kRecorder});
    if (outcome.Ok() && !o.group.empty())
        outcome = CheckRegistered({&kCaster, &kMulticastSender, &kFecCoder});
    if (outcome.Ok() && o.publish)
        outcome = CheckRegistered({&kIpcServer});
    if (outcome.Ok() && o.append)
        outcome = CheckAppendable(o.record);
    EventLoop loop;
    if (outcome.Ok())
        outcome = loop.Prepare(o.run);
    if (!outcome.Ok())
        return outcome;

    ComPtr<IDesktopCapture> capture;
    ComPtr<IDesktopRender> preview;
    ComPtr<IDesktopRecorder> recorder;
    ComPtr<IDesktopCaster> caster;
    ComPtr<IDataTransmitter> server;
    ComPtr<IDesktopIPCServer> serverControl;
    ComPtr<PacketCounter> counter = PacketCounter::Make();
    HostWindow window;
    unsigned writeFailures = 0;
    // The recorder's notifications (a write failed) arrive here, preview or not.
    Window notes;
    notes.On(kRecorderMessage, [&](WPARAM, LPARAM) -> std::optional<LRESULT> {
        if (writeFailures++ == 0)
            Say("share: writing %s failed (is the disk full?)", o.record.c_str());
        return 0;
    });
    static const WindowClassInfo kNotesClass{"VantrelHostNotes", 0};
    notes.Create(kNotesClass, 0, "", 0, 0, 0, 0, 0, HWND_MESSAGE);
    std::vector<ComPtr<IDataTransmitter>> sinks;  // in the order the capture feeds them
    if (!counter)
        return Outcome::Fail(kExitFailed, "out of memory");
    outcome = Create(kCapture, IID_IDesktopCapture, capture.PutVoid());

    if (outcome.Ok() && o.preview) {
        outcome = Create(kRender, IID_IDesktopRender, preview.PutVoid());
        if (outcome.Ok())
            outcome = window.Show(preview.Get(), o.view);
        ComPtr<IDataTransmitter> sink;
        if (outcome.Ok() && FAILED(preview.As(&sink)))
            outcome = Outcome::Fail(kExitFailed, "the preview takes no stream");
        sinks.push_back(sink);
    }
    if (outcome.Ok() && !o.group.empty()) {
        outcome = Create(kCaster, IID_IDesktopCaster, caster.PutVoid());
        ComPtr<IDataTransmitter> sink;
        HRESULT hr = S_OK;
        if (outcome.Ok() && (FAILED(hr = caster.As(&sink)) ||
                             FAILED(hr = caster->CreateSession(&o.interfaceText[0], &o.group[0],
                                                               o.port, o.fec, o.checksums)) ||
                             FAILED(hr = caster->Run())))
            outcome = Outcome::Fail(kExitNetwork, WithCode("the multicast session could not be "
                                                           "created",
                                                           hr));
        sinks.push_back(sink);
    }
    if (outcome.Ok() && o.publish) {
        outcome = Create(kIpcServer, IID_IDataTransmitter, server.PutVoid());
        HRESULT hr = S_OK;
        if (outcome.Ok() && (FAILED(hr = server.As(&serverControl)) ||
                             FAILED(hr = serverControl->SetMaxIPCClients(o.sessions)) ||
                             FAILED(hr = serverControl->StartIPCServer())))
            outcome = Outcome::Fail(kExitFailed,
                                    WithCode("the shared-memory server could not start", hr));
        sinks.push_back(server);
    }
    if (outcome.Ok() && !o.record.empty()) {
        outcome = Create(kRecorder, IID_IDesktopRecorder, recorder.PutVoid());
        HRESULT hr = S_OK;
        if (outcome.Ok() && (hr = recorder->Open(&o.record[0], o.append)) != S_OK) {
            outcome = hr == E_FAIL ? Outcome::Fail(kExitFile, "the lesson file " + o.record +
                                                                  " cannot be created or opened")
                                   : CheckAppendable(o.record);
            if (outcome.Ok())
                outcome = Outcome::Fail(kExitDamaged,
                                        "the lesson file " + o.record + " cannot be appended to");
            recorder.Reset();
        }
        ComPtr<IDataTransmitter> sink;
        if (outcome.Ok() && FAILED(recorder.As(&sink)))
            outcome = Outcome::Fail(kExitFailed, "the recorder takes no stream");
        if (outcome.Ok())
            recorder->SetNotifyWindow(notes.Handle(), kRecorderMessage, 0);
        sinks.push_back(sink);
    }
    sinks.push_back(ComPtr<IDataTransmitter>(counter.Get()));
    for (size_t i = 0; outcome.Ok() && i < sinks.size(); ++i) {
        const HRESULT hr = capture->RegisterDataTransmitter(sinks[i].Get());
        if (FAILED(hr))
            outcome = Outcome::Fail(kExitFailed, WithCode("a sink could not be registered", hr));
    }
    window.OnClose([&loop] { loop.Quit("window closed"); });

    HRESULT hr = S_OK;
    if (outcome.Ok() && recorder)
        recorder->Run();
    if (outcome.Ok() && FAILED(hr = capture->Run()))
        outcome =
            Outcome::Fail(kExitFailed, WithCode("the capture could not start (is Pavlex.dll beside "
                                                "Vantrel.dll, and ScreenCodec.dll registered?)",
                                                hr));
    const DWORD start = GetTickCount();
    DWORD lastRefresh = start;
    unsigned refreshes = 0;
    std::string stoppedBy;
    if (outcome.Ok()) {
        std::string where;
        if (o.preview)
            where += ", a preview window";
        if (!o.record.empty())
            where += ", the lesson " + o.record;
        if (!o.group.empty())
            where += ", the session " + o.group + ":" + std::to_string(o.port) + " through " +
                     o.interfaceText + " (FEC " + std::to_string(o.fec) +
                     (o.checksums ? ", checksums)" : ", no checksums)");
        if (o.publish)
            where += ", the sessions 0 to " + std::to_string(o.sessions - 1) + " of this machine";
        Say("share: running: this screen to%s; Ctrl+C stops", where.c_str() + 1);
        stoppedBy = loop.Run(kTickMs, [&] {
            if (o.refreshSeconds && GetTickCount() - lastRefresh >= o.refreshSeconds * 1000u) {
                lastRefresh = GetTickCount();
                capture->RequestFullScreen();
                ++refreshes;
            }
        });
        capture->Stop();
    }
    const DWORD elapsed = GetTickCount() - start;
    if (capture)
        for (const auto& sink : sinks)
            if (sink)
                capture->UnregisterDataTransmitter(sink.Get());
    unsigned long duration = 0;
    if (recorder) {
        recorder->Stop();
        recorder->GetDuration(&duration);
        recorder->Close();
    }
    if (caster)
        caster->DestroySession();
    if (serverControl)
        serverControl->StopIPCServer();
    if (!outcome.Ok())
        return outcome;

    Say("share: stopped by %s after %s s: %llu packets (%llu frames, %llu cursor records), "
        "%llu bytes, %s, %u full-screen refreshes",
        stoppedBy.c_str(), SecondsText(elapsed).c_str(),
        static_cast<unsigned long long>(counter->Packets()),
        static_cast<unsigned long long>(counter->Frames()),
        static_cast<unsigned long long>(counter->Cursors()),
        static_cast<unsigned long long>(counter->Bytes()),
        RateText(counter->Bytes(), elapsed).c_str(), refreshes);
    if (recorder)
        Say("share: lesson %s closed: %s s", o.record.c_str(), SecondsText(duration).c_str());
    if (!o.run.report.empty()) {
        Report report;
        report.Add("stopped by", stoppedBy);
        report.Add("seconds", SecondsText(elapsed));
        report.Add("packets", counter->Packets());
        report.Add("frames", counter->Frames());
        report.Add("cursor records", counter->Cursors());
        report.Add("bytes", counter->Bytes());
        report.Add("bandwidth", RateText(counter->Bytes(), elapsed));
        report.Add("full-screen refreshes", refreshes);
        if (recorder) {
            report.Add("lesson", o.record);
            report.Add("lesson duration", SecondsText(duration));
        }
        if (!o.group.empty())
            report.Add("session", o.group + ":" + std::to_string(o.port));
        Pixels picture;
        if (preview)
            TakePicture(preview.Get(), &picture);
        outcome = report.Write(o.run.report, &picture);
    }
    window.Detach();
    if (outcome.Ok() && writeFailures)
        outcome = Outcome::Fail(kExitFile, std::to_string(writeFailures) +
                                               " packets could not be written to " + o.record);
    return outcome;
}

}  // namespace vantrel::host
