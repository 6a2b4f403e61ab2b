// The whole road on the virtual screen: DesktopCapture -> DesktopRecorder -> lesson file ->
// DesktopReader -> DesktopRender, all made through COM. The render's last picture equals what
// the capture sent, and playback takes the recording's time divided by the speed factor. (That
// the reader does not feed a render its own picture: ReaderTest.FullScreenPictures...)
#include "common/ScreenTestSupport.h"

#include "RecordTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

constexpr WPARAM kPictureComplete = 2;  // the render's RN_PICTURECOMPLETE

class RecordPlaybackTest : public CaptureTest {
  protected:
    // Records the capture of a window that changes twice; the decoding sink holds the picture
    // the capture sent.
    void RecordLesson() {
        NoiseBox box(RECT{200, 150, 520, 390}, 3);
        ASSERT_TRUE(box.Shown());
        auto recorder = Create<IDesktopRecorder>(CLSID_DesktopRecorder);
        ComPtr<IDataTransmitter> recorderSink;
        ASSERT_EQ(S_OK, recorder.As(&recorderSink));
        ASSERT_EQ(S_OK, recorder->Open(file_.Name(), FALSE));
        ASSERT_EQ(S_OK, recorder->Run());
        ASSERT_EQ(S_OK, capture_->RegisterDataTransmitter(recorderSink.Get()));
        RunAndWaitForPicture();
        for (uint32_t seed : {4u, 5u}) {
            PumpFor(300);
            ASSERT_TRUE(box.Repaint(seed));
            ASSERT_TRUE(Converges());
        }
        ASSERT_TRUE(Settle());
        PumpFor(200);
        ASSERT_EQ(S_OK, capture_->Stop());
        ASSERT_EQ(S_OK, capture_->UnregisterDataTransmitter(recorderSink.Get()));
        ASSERT_EQ(S_OK, recorder->Stop());
        ASSERT_EQ(S_OK, recorder->GetDuration(&duration_));
        ASSERT_EQ(S_OK, recorder->Close());
    }

    // Pixels where the render's picture and the one the capture sent differ (5-5-5), leaving
    // out the pointer's corner; -1 without a picture of the same size.
    long Differences(IDesktopRender* render) {
        const std::vector<BYTE> bytes = CurrentImage(render);
        DesktopImage played;
        RECT shown, sent;
        sink_->image.GetScreenRect(&sent);
        const auto* bmi = reinterpret_cast<const BITMAPINFO*>(bytes.data());
        if (bytes.empty() || !played.CreateFromBitmapInfo(bmi))
            return -1;
        played.GetScreenRect(&shown);
        if (!EqualRect(&shown, &sent) ||
            !played.PutRows(&shown, bytes.data() + DesktopImage::GetBitmapInfoSize(bmi)))
            return -1;
        long wrong = 0;
        for (LONG y = 0; y < sent.bottom; ++y)
            for (LONG x = 0; x < sent.right; ++x)
                wrong += !(x >= 960 && y >= 700) && Pixel555(played, x, y) != sink_->PixelAt(x, y);
        return wrong;
    }

    TempFile file_{"lesson"};
    unsigned long duration_ = 0;
};

}  // namespace

TEST_F(RecordPlaybackTest, PlayedLessonEndsWithTheRecordedPictureAtTheRecordedPace) {
    RecordLesson();
    ASSERT_GT(duration_, 800u);
    for (DWORD factor : {1ul, 4ul}) {
        SCOPED_TRACE(factor);
        NotifyWindow renderNotes(kNotifyMessage), readerNotes(kNotifyMessage);
        auto render = Create<IDesktopRender>(CLSID_DesktopRender);
        auto reader = Create<IDesktopReader>(CLSID_DesktopReader);
        ComPtr<IDataTransmitter> sink;
        ComPtr<IFrameBuffer> frameBuffer;
        ASSERT_EQ(S_OK, render.As(&sink));
        ASSERT_EQ(S_OK, render.As(&frameBuffer));
        ASSERT_EQ(S_OK, render->SetNotifyWindow(renderNotes.Handle(), kNotifyMessage, 0));
        ASSERT_EQ(S_OK, reader->SetNotifyWindow(readerNotes.Handle(), kNotifyMessage, 0));
        ASSERT_EQ(S_OK, reader->Open(file_.Name()));
        ASSERT_EQ(S_OK, reader->RegisterDataTransmitter(sink.Get()));
        ASSERT_EQ(S_OK, reader->RegisterFrameBuffer(frameBuffer.Get()));
        ASSERT_EQ(factor == 1 ? S_FALSE : S_OK, reader->SetSpeedFactor(factor));
        const DWORD started = GetTickCount();
        ASSERT_EQ(S_OK, reader->Run());
        ASSERT_TRUE(WaitUntil([&] { return !readerNotes.Notes().empty(); }));
        const DWORD took = readerNotes.Notes()[0].tick - started;
        EXPECT_EQ(0u, readerNotes.Notes()[0].wParam);
        EXPECT_GE(took + 16, duration_ / factor) << "GetTickCount steps up to 16 ms";
        EXPECT_LE(took, duration_ / factor + 250);
        EXPECT_EQ(1, renderNotes.Count(kPictureComplete, 0));
        EXPECT_EQ(0, Differences(render.Get()));
        ASSERT_EQ(S_OK, reader->Stop());
        ASSERT_EQ(S_OK, reader->UnregisterFrameBuffer());
        ASSERT_EQ(S_OK, reader->UnregisterDataTransmitter(sink.Get()));
    }
}
