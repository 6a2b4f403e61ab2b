// The receiving wirings. `vantrel view`: a student's machine, DesktopReceiver -> DesktopRender
// in a window. `vantrel publish`: a terminal server, DesktopReceiver -> DesktopIPCServer, which
// publishes the picture to every session of the machine. `vantrel session-view`: one session's
// DesktopIPCRender in a window. A counter of the host's own gives the figures.
#include <winsock2.h>

#include "ComClasses.h"
#include "Commands.h"
#include "EventLoop.h"
#include "HostWindow.h"
#include "Picture.h"
#include "StreamTaps.h"

namespace vantrel::host {

namespace {

constexpr DWORD kTickMs = 200;
constexpr long kDefaultSessions = 256;

struct Session {
    std::string group;
    USHORT port = 0;
    std::string interfaceText = kDefaultInterface;
    ULONG from = 0;  // 0: every sender
    std::string fromText;
    std::string Name() const { return group + ":" + std::to_string(port); }
};

const std::vector<OptionRule> kSessionTable = {{"--interface", "IP"}, {"--from", "IP"}};

Outcome ParseSession(const Args& args, Session* s) {
    std::string error;
    ULONG address = 0;
    s->interfaceText = args.Value("--interface", kDefaultInterface);
    s->fromText = args.Value("--from");
    if (!ParseEndpoint(args.Positional()[0], &s->group, &s->port, &error) ||
        !ParseIpv4(s->interfaceText, "--interface", &address, &error) ||
        (args.Has("--from") && !ParseIpv4(s->fromText, "--from", &s->from, &error)))
        return Outcome::Fail(kExitUsage, error);
    return CheckLocalInterface(s->interfaceText.c_str(), address);
}

// Joins the session and starts delivering to sinks.
Outcome Join(const Session& s, IDesktopReceiver* receiver,
             const std::vector<IDataTransmitter*>& sinks) {
    std::string local = s.interfaceText, group = s.group;
    HRESULT hr = receiver->JoinSession(&local[0], &group[0], s.port);
    if (SUCCEEDED(hr) && s.from)
        hr = receiver->SetSourceFilter(s.from);
    for (IDataTransmitter* sink : sinks)
        if (SUCCEEDED(hr))
            hr = receiver->RegisterDataTransmitter(sink);
    if (SUCCEEDED(hr))
        hr = receiver->Run();
    if (FAILED(hr))
        return Outcome::Fail(kExitNetwork,
                             WithCode("the session " + s.Name() + " could not be joined", hr));
    return Outcome::Success();
}

void Leave(IDesktopReceiver* receiver, const std::vector<IDataTransmitter*>& sinks) {
    receiver->Stop();
    receiver->LeaveSession();
    for (IDataTransmitter* sink : sinks)
        receiver->UnregisterDataTransmitter(sink);
}

void AddCounts(Report* report, const PacketCounter& counter, DWORD elapsed) {
    report->Add("packets", counter.Packets());
    report->Add("frames", counter.Frames());
    report->Add("cursor records", counter.Cursors());
    report->Add("bytes", counter.Bytes());
    report->Add("bandwidth", RateText(counter.Bytes(), elapsed));
}

// A render in the host's window until the command is stopped: says when the picture is
// complete, counts the repaints of a fit view, and writes the report. picture complete is
// required of a viewer that ran: without it the command fails.
class Viewer {
  public:
    Viewer(const char* command, IDesktopRender* render, const ViewOptions& view)
        : command_(command), render_(render), fit_(view.scrollMode == 0) {}

    Outcome Show(const ViewOptions& view) {
        window_.OnNote([this](UINT message, WPARAM code) { Note(message, code); });
        return window_.Show(render_, view);
    }
    std::string Run(EventLoop& loop) {
        start_ = GetTickCount();
        window_.OnClose([&loop] { loop.Quit("window closed"); });
        const std::string why = loop.Run(kTickMs, nullptr);
        elapsed_ = GetTickCount() - start_;
        // Now, while the source still runs: a stopped DesktopIPCRender lets its picture go.
        TakePicture(render_, &picture_);
        return why;
    }
    // After the source stopped.
    Outcome Finish(const std::string& stoppedBy, const RunOptions& run, Report report) {
        Say("%s: stopped by %s after %s s%s", command_, stoppedBy.c_str(),
            SecondsText(elapsed_).c_str(), completeAt_ ? "" : "; no picture arrived");
        Outcome outcome;
        if (!run.report.empty()) {
            report.Add("stopped by", stoppedBy);
            report.Add("seconds", SecondsText(elapsed_));
            report.Add("picture complete after",
                       completeAt_ ? SecondsText(completeAt_ - start_) : std::string("never"));
            if (fit_)
                report.Add("updates", updates_);
            outcome = report.Write(run.report, &picture_);
        }
        window_.Detach();
        if (outcome.Ok() && !completeAt_)
            outcome = Outcome::Fail(
                kExitFailed, std::string("no picture arrived in ") + SecondsText(elapsed_) + " s");
        return outcome;
    }
    DWORD Elapsed() const noexcept { return elapsed_; }

  private:
    void Note(UINT message, WPARAM code) {
        if (message != kRenderMessage)
            return;
        long width = 0, height = 0, bits = 0;
        if (code == kPictureComplete && !completeAt_) {
            completeAt_ = GetTickCount();
            render_->GetDesktopInfomation(&width, &height, &bits);
            Say("%s: picture complete: %ldx%ld after %s s", command_, width, height,
                SecondsText(completeAt_ - start_).c_str());
        } else if (code == kFormatChanged && completeAt_) {
            render_->GetDesktopInfomation(&width, &height, &bits);
            Say("%s: the shared screen changed to %ldx%ld", command_, width, height);
        } else if (code == kIdle && !completeAt_ && !idleSaid_) {
            idleSaid_ = true;
            Say("%s: no picture yet", command_);
        } else if (code == kViewChanged) {
            ++updates_;
        }
    }

    const char* command_;
    IDesktopRender* render_;
    const bool fit_;
    HostWindow window_;
    DWORD start_ = GetTickCount(), elapsed_ = 0, completeAt_ = 0;
    bool idleSaid_ = false;
    unsigned long long updates_ = 0;
    Pixels picture_;
};

}  // namespace

Outcome View(int argc, char** argv) {
    Args args;
    Outcome outcome =
        ParseCommand(argc, argv, kSessionTable, {kViewOptionTable, kRunOptionTable}, 1, 1, &args);
    Session session;
    ViewOptions view;
    RunOptions run;
    std::string error;
    if (outcome.Ok() &&
        (!ParseViewOptions(args, &view, &error) || !ParseRunOptions(args, &run, &error)))
        outcome = Outcome::Fail(kExitUsage, error);
    if (outcome.Ok())
        outcome = ParseSession(args, &session);
    using namespace classes;
    if (outcome.Ok())
        outcome =
            CheckRegistered({&kReceiver, &kRender, &kScreenCodec, &kMulticastReceiver, &kFecCoder});
    EventLoop loop;
    if (outcome.Ok())
        outcome = loop.Prepare(run);
    ComPtr<IDesktopReceiver> receiver;
    ComPtr<IDesktopRender> render;
    ComPtr<IDataTransmitter> renderSink;
    ComPtr<PacketCounter> counter = PacketCounter::Make();
    if (outcome.Ok())
        outcome = Create(kReceiver, IID_IDesktopReceiver, receiver.PutVoid());
    if (outcome.Ok())
        outcome = Create(kRender, IID_IDesktopRender, render.PutVoid());
    if (outcome.Ok() && (!counter || FAILED(render.As(&renderSink))))
        outcome = Outcome::Fail(kExitFailed, "the render takes no stream");
    if (!outcome.Ok())
        return outcome;
    view.title = "Vantrel - " + session.Name();
    Viewer viewer("view", render.Get(), view);
    outcome = viewer.Show(view);
    const std::vector<IDataTransmitter*> sinks = {renderSink.Get(), counter.Get()};
    if (outcome.Ok())
        outcome = Join(session, receiver.Get(), sinks);
    if (!outcome.Ok())
        return outcome;
    Say("view: joined %s through %s%s%s; waiting for the teacher's picture", session.Name().c_str(),
        session.interfaceText.c_str(), session.from ? ", only from " : "",
        session.fromText.c_str());
    const std::string stoppedBy = viewer.Run(loop);
    Leave(receiver.Get(), sinks);
    Report report;
    report.Add("session", session.Name());
    AddCounts(&report, *counter.Get(), viewer.Elapsed());
    return viewer.Finish(stoppedBy, run, report);
}

Outcome SessionView(int argc, char** argv) {
    Args args;
    Outcome outcome = ParseCommand(argc, argv, {{"--session", "N"}},
                                   {kViewOptionTable, kRunOptionTable}, 0, 0, &args);
    ViewOptions view;
    RunOptions run;
    std::string error;
    DWORD ownSession = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &ownSession);
    long session = static_cast<long>(ownSession);
    if (outcome.Ok() &&
        ((args.Has("--session") &&
          !ParseInt(args.Value("--session"), "--session", 0, 65535, &session, &error)) ||
         !ParseViewOptions(args, &view, &error) || !ParseRunOptions(args, &run, &error)))
        outcome = Outcome::Fail(kExitUsage, error);
    if (outcome.Ok())
        outcome = CheckRegistered({&classes::kIpcRender});
    EventLoop loop;
    if (outcome.Ok())
        outcome = loop.Prepare(run);
    ComPtr<IDesktopRender> render;
    if (outcome.Ok())
        outcome = Create(classes::kIpcRender, IID_IDesktopRender, render.PutVoid());
    if (!outcome.Ok())
        return outcome;
    view.title = "Vantrel - session " + std::to_string(session);
    Viewer viewer("session-view", render.Get(), view);
    HRESULT hr = render->SetSessionId(session);
    if (FAILED(hr))
        return Outcome::Fail(kExitFailed, WithCode("the session id was refused", hr));
    outcome = viewer.Show(view);
    if (outcome.Ok() && (hr = render->Run()) != S_OK)
        outcome = Outcome::Fail(kExitNoServer,
                                "no shared-memory server runs on this machine: start `vantrel "
                                "publish` or `vantrel share --publish` first");
    if (!outcome.Ok())
        return outcome;
    Say("session-view: session %ld: waiting for the published picture", session);
    const std::string stoppedBy = viewer.Run(loop);
    render->Stop();
    Report report;
    report.Add("session", static_cast<unsigned long long>(session));
    return viewer.Finish(stoppedBy, run, report);
}

Outcome Publish(int argc, char** argv) {
    Args args;
    std::vector<OptionRule> table = kSessionTable;
    table.push_back({"--sessions", "N"});
    Outcome outcome = ParseCommand(argc, argv, table, {kRunOptionTable}, 1, 1, &args);
    Session session;
    RunOptions run;
    long sessions = kDefaultSessions;
    std::string error;
    if (outcome.Ok() &&
        ((args.Has("--sessions") &&
          !ParseInt(args.Value("--sessions"), "--sessions", 1, 65536, &sessions, &error)) ||
         !ParseRunOptions(args, &run, &error)))
        outcome = Outcome::Fail(kExitUsage, error);
    if (outcome.Ok())
        outcome = ParseSession(args, &session);
    using namespace classes;
    if (outcome.Ok())
        outcome = CheckRegistered(
            {&kReceiver, &kIpcServer, &kScreenCodec, &kMulticastReceiver, &kFecCoder});
    EventLoop loop;
    if (outcome.Ok())
        outcome = loop.Prepare(run);
    ComPtr<IDesktopReceiver> receiver;
    ComPtr<IDataTransmitter> server;
    ComPtr<IDesktopIPCServer> control;
    ComPtr<PacketCounter> counter = PacketCounter::Make();
    if (outcome.Ok())
        outcome = Create(kReceiver, IID_IDesktopReceiver, receiver.PutVoid());
    if (outcome.Ok())
        outcome = Create(kIpcServer, IID_IDataTransmitter, server.PutVoid());
    HRESULT hr = S_OK;
    if (outcome.Ok() && (!counter || FAILED(hr = server.As(&control)) ||
                         FAILED(hr = control->SetMaxIPCClients(sessions)) ||
                         FAILED(hr = control->StartIPCServer())))
        outcome =
            Outcome::Fail(kExitFailed, WithCode("the shared-memory server could not start", hr));
    const std::vector<IDataTransmitter*> sinks = {server.Get(), counter.Get()};
    if (outcome.Ok())
        outcome = Join(session, receiver.Get(), sinks);
    if (!outcome.Ok()) {
        if (control)
            control->StopIPCServer();
        return outcome;
    }
    Say("publish: %s through %s to the sessions 0 to %ld of this machine; Ctrl+C stops",
        session.Name().c_str(), session.interfaceText.c_str(), sessions - 1);
    const DWORD start = GetTickCount();
    const std::string stoppedBy = loop.Run(kTickMs, nullptr);
    const DWORD elapsed = GetTickCount() - start;
    Leave(receiver.Get(), sinks);
    control->StopIPCServer();
    Say("publish: stopped by %s after %s s: %llu packets, %llu bytes, %s", stoppedBy.c_str(),
        SecondsText(elapsed).c_str(), static_cast<unsigned long long>(counter->Packets()),
        static_cast<unsigned long long>(counter->Bytes()),
        RateText(counter->Bytes(), elapsed).c_str());
    if (run.report.empty())
        return Outcome::Success();
    Report report;
    report.Add("stopped by", stoppedBy);
    report.Add("seconds", SecondsText(elapsed));
    report.Add("session", session.Name());
    AddCounts(&report, *counter.Get(), elapsed);
    return report.Write(run.report, nullptr);
}

}  // namespace vantrel::host
