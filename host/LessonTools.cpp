// The lesson-file tools. `info` and `repair` read the file through the lesson library (the file
// format and its recovery, shared with the recorder and the reader); `snapshot` plays the lesson
// through the registered objects, DesktopReader -> a gate of the host's own -> DesktopRender,
// as fast as it decodes, up to the asked time, and writes the render's picture as PNG.
#include "ComClasses.h"
#include "Commands.h"
#include "EventLoop.h"
#include "HostWindow.h"
#include "Picture.h"
#include "StreamTaps.h"
#include "lesson/LessonFile.h"
#include "wincom/Window.h"

namespace vantrel::host {

namespace {

constexpr unsigned long kSnapshotSpeed = 4096;
constexpr DWORD kSnapshotPatienceMs = 120000;

std::string CutText(const lesson::LessonScan& scan) {
    return std::to_string(scan.records) + " whole records (" + lesson::WalkEndName(scan.end) + ")";
}

}  // namespace

Outcome ExplainLesson(const std::string& path) {
    lesson::LessonScan scan;
    switch (lesson::InspectLesson(path.c_str(), &scan)) {
        case lesson::FileResult::Ok:
            break;
        case lesson::FileResult::OpenFailed:
            if (GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES)
                return Outcome::Fail(kExitFile, "there is no lesson file " + path);
            return Outcome::Fail(
                kExitFile, "the lesson file " + path + " cannot be opened (is it being recorded?)");
        default:
            return Outcome::Fail(kExitFile, "the lesson file " + path + " cannot be read");
    }
    switch (scan.playable) {
        case lesson::HeaderCheck::TooShort:
            return Outcome::Fail(kExitDamaged,
                                 path + " is not a lesson file: it is shorter than a header");
        case lesson::HeaderCheck::BadMagic:
            return Outcome::Fail(kExitDamaged,
                                 path + " is not a lesson file: it does not begin with HFRS");
        case lesson::HeaderCheck::LengthMismatch:
            return Outcome::Fail(kExitUnclosed,
                                 "the recording of " + path +
                                     " was never closed (the recorder was stopped by force or "
                                     "the power failed): run `vantrel repair " +
                                     path + "` to make it playable up to its last whole record");
        case lesson::HeaderCheck::Ok:
            break;
    }
    if (scan.end != lesson::WalkEnd::Clean)
        return Outcome::Fail(kExitDamaged, path + " is damaged after " + CutText(scan));
    return Outcome::Fail(kExitFailed, "the lesson file " + path + " was refused");
}

namespace {

// The command's one argument, a lesson file, and what a walk through it found; a failed
// Outcome when the arguments are wrong or the file cannot be inspected.
Outcome ScanLessonArgument(int argc, char** argv, std::string* path, lesson::LessonScan* scan) {
    Args args;
    Outcome outcome = ParseCommand(argc, argv, {}, {}, 1, 1, &args);
    if (!outcome.Ok())
        return outcome;
    *path = args.Positional()[0];
    if (lesson::InspectLesson(path->c_str(), scan) != lesson::FileResult::Ok)
        return ExplainLesson(*path);
    return Outcome::Success();
}

}  // namespace

Outcome Info(int argc, char** argv) {
    std::string path;
    lesson::LessonScan scan;
    Outcome outcome = ScanLessonArgument(argc, argv, &path, &scan);
    if (!outcome.Ok())
        return outcome;
    if (scan.header.magic != lesson::kMagic || scan.playable == lesson::HeaderCheck::TooShort)
        return ExplainLesson(path);
    const bool closed = scan.playable == lesson::HeaderCheck::Ok;
    const uint32_t duration = closed ? scan.header.duration : scan.latestTime;
    Say("lesson: %s", path.c_str());
    Say("closed properly: %s", closed ? "yes" : "no (run `vantrel repair` to play it)");
    Say("duration: %s s%s", SecondsText(duration).c_str(),
        closed ? "" : " (up to its last whole record)");
    Say("packets: %u (%u frames, %u cursor records)", scan.records, scan.frames, scan.cursors);
    Say("bytes: %llu", static_cast<unsigned long long>(scan.realLength));
    if (scan.pictureWidth)
        Say("picture: %ux%u, %u bits per pixel", scan.pictureWidth, scan.pictureHeight,
            scan.pictureBits);
    else
        Say("picture: none");
    if (scan.end != lesson::WalkEnd::Clean)
        Say("damaged: after %s, %llu bytes cannot be played", CutText(scan).c_str(),
            static_cast<unsigned long long>(scan.realLength - scan.wholeLength));
    if (!closed)
        return ExplainLesson(path);
    if (scan.end != lesson::WalkEnd::Clean)
        return Outcome::Fail(kExitDamaged, path + " is damaged after " + CutText(scan));
    return Outcome::Success();
}

Outcome Repair(int argc, char** argv) {
    std::string path;
    lesson::LessonScan scan;
    Outcome outcome = ScanLessonArgument(argc, argv, &path, &scan);
    if (!outcome.Ok())
        return outcome;
    // Only a file that begins as a lesson is rewritten: anything else is not ours to cut.
    if (scan.realLength < lesson::kHeaderSize || scan.header.magic != lesson::kMagic)
        return ExplainLesson(path);
    lesson::RepairPlan plan;
    switch (lesson::RepairLesson(path.c_str(), &plan)) {
        case lesson::FileResult::Ok:
            break;
        case lesson::FileResult::OpenFailed:
            return Outcome::Fail(kExitFile, "the lesson file " + path +
                                                " cannot be opened alone (is it being recorded "
                                                "or played?)");
        case lesson::FileResult::NotRepairable:
            return ExplainLesson(path);
        default:
            return Outcome::Fail(kExitFile, "the lesson file " + path + " cannot be rewritten");
    }
    if (!plan.needed) {
        Say("repair: %s was closed properly: nothing to do (%u records, %s s)", path.c_str(),
            scan.records, SecondsText(scan.header.duration).c_str());
        return Outcome::Success();
    }
    Say("repair: %s plays again: kept %u whole records (%u frames, %u cursor records), %llu of "
        "%llu bytes, %s s; dropped %llu bytes",
        path.c_str(), scan.records, scan.frames, scan.cursors,
        static_cast<unsigned long long>(plan.newLength),
        static_cast<unsigned long long>(scan.realLength), SecondsText(plan.header.duration).c_str(),
        static_cast<unsigned long long>(plan.droppedBytes));
    return Outcome::Success();
}

Outcome Snapshot(int argc, char** argv) {
    Args args;
    Outcome outcome = ParseCommand(argc, argv, {}, {}, 3, 3, &args);
    if (!outcome.Ok())
        return outcome;
    std::string path = args.Positional()[0];
    const std::string when = args.Positional()[1], output = args.Positional()[2];
    DWORD at = 0;
    std::string error;
    const bool atEnd = when == "end";
    if (!atEnd && !ParseSeconds(when, "the time", &at, &error))
        return Outcome::Fail(kExitUsage, error);
    using namespace classes;
    outcome = CheckRegistered({&kReader, &kRender, &kScreenCodec});
    ComPtr<IDesktopReader> reader;
    ComPtr<IDesktopRender> render;
    ComPtr<IDataTransmitter> renderSink;
    if (outcome.Ok())
        outcome = Create(kReader, IID_IDesktopReader, reader.PutVoid());
    if (outcome.Ok() && reader->Open(&path[0]) != S_OK)
        outcome = ExplainLesson(path);
    if (outcome.Ok())
        outcome = Create(kRender, IID_IDesktopRender, render.PutVoid());
    if (outcome.Ok() && FAILED(render.As(&renderSink)))
        outcome = Outcome::Fail(kExitFailed, "the render takes no stream");
    if (!outcome.Ok())
        return outcome;
    unsigned long duration = 0;
    reader->GetDuration(&duration);
    if (atEnd)
        at = duration;
    if (at > duration)
        return Outcome::Fail(kExitUsage, "the lesson is only " + SecondsText(duration) +
                                             " s long, there is no " + when + " s in it");

    // The reader's end notification, for a lesson with no record after the asked time.
    bool ended = false;
    Window notes;
    notes.On(kReaderMessage, [&](WPARAM, LPARAM) -> std::optional<LRESULT> {
        ended = true;
        return 0;
    });
    static const WindowClassInfo kNotesClass{"VantrelHostNotes", 0};
    notes.Create(kNotesClass, 0, "", 0, 0, 0, 0, 0, HWND_MESSAGE);
    ComPtr<TimeGate> gate = TimeGate::Make(renderSink.Get(), at);
    HRESULT hr = gate ? S_OK : E_OUTOFMEMORY;
    if (SUCCEEDED(hr) &&
        (FAILED(hr = reader->RegisterDataTransmitter(gate.Get())) ||
         FAILED(hr = reader->SetNotifyWindow(notes.Handle(), kReaderMessage, 0)) ||
         FAILED(hr = reader->SetSpeedFactor(kSnapshotSpeed)) || FAILED(hr = reader->Run())))
        outcome = Outcome::Fail(kExitFailed, WithCode("the lesson could not be played", hr));
    const DWORD start = GetTickCount();
    while (outcome.Ok() && !ended && WaitForSingleObject(gate->Passed(), 0) != WAIT_OBJECT_0) {
        if (GetTickCount() - start > kSnapshotPatienceMs) {
            outcome = Outcome::Fail(kExitFailed, "the lesson did not play to " + when + " s");
            break;
        }
        const HANDLE passed = gate->Passed();
        MsgWaitForMultipleObjects(1, &passed, FALSE, 20, QS_ALLINPUT);
        DispatchPending();
    }
    reader->Stop();
    if (gate)
        reader->UnregisterDataTransmitter(gate.Get());
    reader->Close();
    Pixels picture;
    if (outcome.Ok() && !TakePicture(render.Get(), &picture).Ok())
        outcome = Outcome::Fail(kExitFailed,
                                "the lesson has no picture yet at " + SecondsText(at) + " s");
    if (outcome.Ok() && FAILED(hr = WritePng(output.c_str(), picture)))
        outcome =
            Outcome::Fail(kExitFile, WithCode("the picture " + output + " cannot be written", hr));
    if (outcome.Ok())
        Say("snapshot: %dx%d picture at %s s (%u records played) written to %s", picture.width,
            picture.height, SecondsText(at).c_str(), gate->Forwarded(), output.c_str());
    return outcome;
}

}  // namespace vantrel::host
