// `vantrel play`: the playback wiring, DesktopReader -> DesktopRender in a window, with the
// render registered as the reader's frame buffer too. Keys: Space pauses and resumes, + and -
// change the speed, Right and Left go 10 s on and back, Home starts again, Q or Esc quits. The
// reader cannot jump, so the host seeks by playing fast up to the target (from the start when the
// target lies behind), slowing down as it comes near, since a speed change keeps the position.
#include "ComClasses.h"
#include "Commands.h"
#include "EventLoop.h"
#include "HostWindow.h"
#include "Picture.h"
#include "StreamTaps.h"
#include "lesson/LessonFile.h"

namespace vantrel::host {

namespace {

constexpr DWORD kTickMs = 20;
constexpr DWORD kStepMs = 10000;
constexpr long kMaxSpeed = 64;
// A seek covers a fifth of what remains per tick, at most this fast, and ends this close.
constexpr unsigned long kSeekSpeedLimit = 4096;
constexpr DWORD kSeekCloseMs = 200;

class Player {
  public:
    Player(IDesktopReader* reader, IDesktopRender* render, EventLoop& loop, long speed,
           bool exitAtEnd)
        : reader_(reader), render_(render), loop_(loop), speed_(speed), exitAtEnd_(exitAtEnd) {
        reader_->GetDuration(&duration_);
    }

    void Key(WORD key) {
        switch (key) {
            case VK_SPACE:
                return PauseOrResume();
            case VK_ADD:
            case VK_OEM_PLUS:
                return SetSpeed(speed_ < kMaxSpeed ? speed_ * 2 : speed_);
            case VK_SUBTRACT:
            case VK_OEM_MINUS:
                return SetSpeed(speed_ > 1 ? speed_ / 2 : 1);
            case VK_RIGHT:
                return SeekTo(Position() + kStepMs);
            case VK_LEFT:
                return SeekTo(Position() > kStepMs ? Position() - kStepMs : 0);
            case VK_HOME:
                return SeekTo(0);
            case 'Q':
            case VK_ESCAPE:
                return loop_.Quit("Q");
        }
    }

    void Note(UINT message, WPARAM code) {
        if (message != kReaderMessage)
            return;
        if (code == 0) {
            ended_ = true;
            seeking_ = false;
            Say("play: end of the lesson at %s s", SecondsText(duration_).c_str());
            if (exitAtEnd_)
                loop_.Quit("the end of the lesson");
        } else {
            readFailed_ = true;
            Say("play: the lesson file could not be read past %s s",
                SecondsText(Position()).c_str());
        }
    }

    void Tick() {
        if (!seeking_)
            return;
        const DWORD position = Position();
        if (position + kSeekCloseMs < target_) {
            const unsigned long fast = (target_ - position) / (5 * kTickMs);
            reader_->SetSpeedFactor(fast < 2 ? 2 : fast > kSeekSpeedLimit ? kSeekSpeedLimit : fast);
            return;
        }
        seeking_ = false;
        reader_->SetSpeedFactor(speed_);
        if (pauseAfterSeek_) {
            reader_->Pause();
            paused_ = true;
        }
        Say("play: at %s s", SecondsText(position).c_str());
    }

    DWORD Position() const {
        unsigned long position = 0;
        reader_->GetCurrentPosition(&position);
        return position;
    }
    bool Ended() const noexcept { return ended_; }
    bool ReadFailed() const noexcept { return readFailed_; }
    long Speed() const noexcept { return speed_; }

  private:
    void PauseOrResume() {
        if (ended_)
            return;
        if (paused_ ? reader_->Run() == S_OK : reader_->Pause() == S_OK)
            paused_ = !paused_;
        Say("play: %s at %s s", paused_ ? "paused" : "playing", SecondsText(Position()).c_str());
    }

    void SetSpeed(long speed) {
        speed_ = speed;
        if (!seeking_)
            reader_->SetSpeedFactor(speed_);
        Say("play: speed x%ld", speed_);
    }

    void SeekTo(DWORD target) {
        target_ = target < duration_ ? target : duration_;
        pauseAfterSeek_ = paused_;
        if (target_ < Position() || ended_) {
            reader_->Stop();
            render_->ResetContent();
            ended_ = paused_ = false;
            if (reader_->Run() != S_OK) {
                Say("play: the lesson could not be started again");
                return;
            }
        } else if (paused_) {
            reader_->Run();
            paused_ = false;
        }
        seeking_ = true;
        Say("play: seeking to %s s", SecondsText(target_).c_str());
        Tick();
    }

    IDesktopReader* reader_;
    IDesktopRender* render_;
    EventLoop& loop_;
    long speed_;
    const bool exitAtEnd_;
    unsigned long duration_ = 0;
    DWORD target_ = 0;
    bool paused_ = false, seeking_ = false, pauseAfterSeek_ = false, ended_ = false,
         readFailed_ = false;
};

}  // namespace

Outcome Play(int argc, char** argv) {
    Args args;
    Outcome outcome = ParseCommand(argc, argv, {{"--speed", "N"}, {"--exit-at-end", nullptr}},
                                   {kViewOptionTable, kRunOptionTable}, 1, 1, &args);
    ViewOptions view;
    RunOptions run;
    long speed = 1;
    std::string error;
    if (outcome.Ok() &&
        ((args.Has("--speed") &&
          !ParseInt(args.Value("--speed"), "--speed", 1, kMaxSpeed, &speed, &error)) ||
         !ParseViewOptions(args, &view, &error) || !ParseRunOptions(args, &run, &error)))
        outcome = Outcome::Fail(kExitUsage, error);
    using namespace classes;
    if (outcome.Ok())
        outcome = CheckRegistered({&kReader, &kRender, &kScreenCodec});
    EventLoop loop;
    if (outcome.Ok())
        outcome = loop.Prepare(run);
    if (!outcome.Ok())
        return outcome;
    std::string path = args.Positional()[0];
    ComPtr<IDesktopReader> reader;
    ComPtr<IDesktopRender> render;
    ComPtr<IDataTransmitter> renderSink;
    ComPtr<IFrameBuffer> frameBuffer;
    ComPtr<PacketCounter> counter = PacketCounter::Make();
    outcome = Create(kReader, IID_IDesktopReader, reader.PutVoid());
    if (outcome.Ok() && reader->Open(&path[0]) != S_OK)
        outcome = ExplainLesson(path);
    if (outcome.Ok())
        outcome = Create(kRender, IID_IDesktopRender, render.PutVoid());
    if (outcome.Ok() &&
        (!counter || FAILED(render.As(&renderSink)) || FAILED(render.As(&frameBuffer))))
        outcome = Outcome::Fail(kExitFailed, "the render takes no stream");
    if (!outcome.Ok())
        return outcome;
    lesson::LessonScan scan;
    if (lesson::InspectLesson(path.c_str(), &scan) == lesson::FileResult::Ok &&
        scan.end != lesson::WalkEnd::Clean)
        Say("play: %s is damaged after %u whole records (%s): playback ends there", path.c_str(),
            scan.records, lesson::WalkEndName(scan.end));

    view.title = "Vantrel - " + path;
    HostWindow window;
    Player player(reader.Get(), render.Get(), loop, speed, args.Has("--exit-at-end"));
    window.OnNote([&](UINT message, WPARAM code) { player.Note(message, code); });
    window.OnKey([&](WORD key) { player.Key(key); });
    window.OnClose([&loop] { loop.Quit("window closed"); });
    loop.OnKey([&](WORD key) { player.Key(key); });
    outcome = window.Show(render.Get(), view);
    HRESULT hr = S_OK;
    if (outcome.Ok() && (FAILED(hr = reader->RegisterDataTransmitter(renderSink.Get())) ||
                         FAILED(hr = reader->RegisterDataTransmitter(counter.Get())) ||
                         FAILED(hr = reader->RegisterFrameBuffer(frameBuffer.Get())) ||
                         FAILED(hr = reader->SetNotifyWindow(window.Handle(), kReaderMessage, 0)) ||
                         FAILED(hr = reader->SetSpeedFactor(speed)) || FAILED(hr = reader->Run())))
        outcome = Outcome::Fail(kExitFailed, WithCode("the lesson could not be played", hr));
    if (outcome.Ok()) {
        unsigned long duration = 0;
        reader->GetDuration(&duration);
        Say("play: %s, %s s at x%ld; keys: Space pause, + - speed, Right Left 10 s, Home start, "
            "Q quit",
            path.c_str(), SecondsText(duration).c_str(), speed);
        const DWORD start = GetTickCount();
        const std::string stoppedBy = loop.Run(kTickMs, [&] { player.Tick(); });
        const DWORD elapsed = GetTickCount() - start, position = player.Position();
        reader->Stop();
        Say("play: stopped by %s at %s s of %s s", stoppedBy.c_str(), SecondsText(position).c_str(),
            SecondsText(duration).c_str());
        if (!run.report.empty()) {
            Report report;
            report.Add("stopped by", stoppedBy);
            report.Add("lesson", path);
            report.Add("duration", SecondsText(duration));
            report.Add("position", SecondsText(position));
            report.Add("ended", player.Ended() ? "yes" : "no");
            report.Add("seconds", SecondsText(elapsed));
            report.Add("speed", static_cast<unsigned long long>(player.Speed()));
            report.Add("packets", counter->Packets());
            report.Add("bytes", counter->Bytes());
            report.Add("bandwidth", RateText(counter->Bytes(), elapsed));
            Pixels picture;
            TakePicture(render.Get(), &picture);
            outcome = report.Write(run.report, &picture);
        }
    }
    reader->Stop();
    reader->UnregisterFrameBuffer();
    reader->UnregisterDataTransmitter(renderSink.Get());
    reader->UnregisterDataTransmitter(counter.Get());
    reader->Close();
    window.Detach();
    if (outcome.Ok() && player.ReadFailed())
        outcome = Outcome::Fail(kExitDamaged, "the lesson file " + path + " is damaged");
    return outcome;
}

}  // namespace vantrel::host
