// The whole road on the virtual screen: DesktopCapture -> DesktopRecorder -> lesson file ->
// DesktopReader -> DesktopRender, all made through COM. The render's last picture equals what
// the capture sent, and playback takes the recording's time divided by the speed factor. A
// render registered with the reader as sink and frame buffer is not fed its own picture.
#include "common/ScreenTestSupport.h"

#include "RecordTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

constexpr WPARAM kPictureComplete = 2;  // the render's RN_PICTURECOMPLETE

// A render made by its class object, with a notify window of this thread.
struct Render {
    Render() {
        EXPECT_EQ(S_OK, CoCreateInstance(CLSID_DesktopRender, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopRender, render.PutVoid()));
        EXPECT_EQ(S_OK, render.As(&sink));
        EXPECT_EQ(S_OK, render.As(&frameBuffer));
        EXPECT_EQ(S_OK, render->SetNotifyWindow(notify.Handle(), kNotifyMessage, 0));
    }
    // The picture as GetCurrectImage gives it, made into an image of its own; false without one.
    bool Picture(DesktopImage* image) {
        unsigned long size = 0;
        if (render->GetCurrectImage(&size, nullptr) != S_OK)
            return false;
        std::vector<BYTE> bytes(size);
        if (render->GetCurrectImage(&size, bytes.data()) != S_OK)
            return false;
        const auto* bmi = reinterpret_cast<const BITMAPINFO*>(bytes.data());
        if (!image->CreateFromBitmapInfo(bmi))
            return false;
        RECT whole;
        image->GetScreenRect(&whole);
        return image->PutRows(&whole, bytes.data() + DesktopImage::GetBitmapInfoSize(bmi));
    }

    NotifyWindow notify{kNotifyMessage};
    ComPtr<IDesktopRender> render;
    ComPtr<IDataTransmitter> sink;
    ComPtr<IFrameBuffer> frameBuffer;
};

class RecordPlaybackTest : public CaptureTest {
  protected:
    void TearDown() override {
        if (reader_) {
            reader_->Stop();
            reader_->UnregisterFrameBuffer();
            for (IDataTransmitter* sink : readerSinks_)
                reader_->UnregisterDataTransmitter(sink);
            reader_.Reset();
        }
        CaptureTest::TearDown();
    }

    // Records the capture of a window that changes twice; recording goes on for tailMs after
    // the last change. The decoding sink holds the picture the capture sent.
    void RecordLesson(DWORD tailMs) {
        NoiseBox box(RECT{200, 150, 520, 390}, 3);
        ASSERT_TRUE(box.Shown());
        ComPtr<IDesktopRecorder> recorder;
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopRecorder, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopRecorder, recorder.PutVoid()));
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
        PumpFor(tailMs);
        ASSERT_EQ(S_OK, capture_->Stop());
        ASSERT_EQ(S_OK, capture_->UnregisterDataTransmitter(recorderSink.Get()));
        ASSERT_EQ(S_OK, recorder->Stop());
        ASSERT_EQ(S_OK, recorder->GetDuration(&duration_));
        ASSERT_EQ(S_OK, recorder->Close());
        box.Close();
    }

    void StartReader(Render& render, IDataTransmitter* extra = nullptr) {
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopReader, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopReader, reader_.PutVoid()));
        ASSERT_EQ(S_OK, reader_->SetNotifyWindow(readerNotify_.Handle(), kNotifyMessage, 0));
        ASSERT_EQ(S_OK, reader_->Open(file_.Name()));
        readerSinks_ = {render.sink.Get()};
        if (extra)
            readerSinks_.push_back(extra);
        for (IDataTransmitter* sink : readerSinks_)
            ASSERT_EQ(S_OK, reader_->RegisterDataTransmitter(sink));
        ASSERT_EQ(S_OK, reader_->RegisterFrameBuffer(render.frameBuffer.Get()));
    }

    // Pixels where the render's picture and the one the capture sent differ (5-5-5), leaving
    // out the pointer's corner.
    long Differences(Render& render) {
        DesktopImage played;
        RECT shown, sent;
        sink_->image.GetScreenRect(&sent);
        if (!render.Picture(&played))
            return -1;
        played.GetScreenRect(&shown);
        if (!EqualRect(&shown, &sent))
            return -1;
        long wrong = 0;
        for (LONG y = 0; y < sent.bottom; ++y)
            for (LONG x = 0; x < sent.right; ++x)
                wrong += !(x >= 960 && y >= 700) && Pixel555(played, x, y) != sink_->PixelAt(x, y);
        return wrong;
    }

    FakeSink other_{"other"};  // outlives the registration TearDown undoes
    TempFile file_{"lesson"};
    unsigned long duration_ = 0;
    NotifyWindow readerNotify_{kNotifyMessage};
    ComPtr<IDesktopReader> reader_;
    std::vector<IDataTransmitter*> readerSinks_;
};

}  // namespace

TEST_F(RecordPlaybackTest, PlayedLessonEndsWithTheRecordedPictureAtTheRecordedPace) {
    RecordLesson(200);
    ASSERT_GT(duration_, 800u);
    for (DWORD factor : {1ul, 4ul}) {
        SCOPED_TRACE(factor);
        Render render;
        StartReader(render);
        if (factor != 1) {
            ASSERT_EQ(S_OK, reader_->SetSpeedFactor(factor));
        }
        readerNotify_.Clear();
        const DWORD started = GetTickCount();
        ASSERT_EQ(S_OK, reader_->Run());
        ASSERT_TRUE(WaitUntil([&] { return !readerNotify_.Notes().empty(); }));
        const DWORD took = readerNotify_.Notes()[0].tick - started;
        EXPECT_EQ(0u, readerNotify_.Notes()[0].wParam);
        EXPECT_GE(took + 16, duration_ / factor) << "GetTickCount steps up to 16 ms";
        EXPECT_LE(took, duration_ / factor + 250);
        EXPECT_EQ(1, render.notify.Count(kPictureComplete, 0));
        EXPECT_EQ(0, Differences(render));
        ASSERT_EQ(S_OK, reader_->Stop());
        ASSERT_EQ(S_OK, reader_->UnregisterFrameBuffer());
        ASSERT_EQ(S_OK, reader_->UnregisterDataTransmitter(render.sink.Get()));
        reader_.Reset();
    }
}

// The render's IFrameBuffer and IDataTransmitter are different pointers; the reader tells them
// apart by identity. The render, emptied by ResetContent, would tell its picture complete again
// if it were given its own full-screen packets; the other sink gets them.
TEST_F(RecordPlaybackTest, RenderAsSinkAndFrameBufferIsNotFedItsOwnPicture) {
    RecordLesson(2500);
    Render render;
    ASSERT_NE(static_cast<void*>(render.sink.Get()), static_cast<void*>(render.frameBuffer.Get()));
    FakeSink& other = other_;
    StartReader(render, &other);
    ASSERT_EQ(S_OK, reader_->Run());
    ASSERT_TRUE(WaitUntil([&] { return render.notify.Count(kPictureComplete, 0) == 1; }));
    // Past the recorded changes, into the quiet tail.
    PumpFor(1500);
    ASSERT_TRUE(readerNotify_.Notes().empty()) << "the lesson ended too soon";
    const size_t before = other.PacketCount();
    ASSERT_EQ(S_OK, render.render->ResetContent());
    ASSERT_EQ(S_OK, reader_->RequestFullScreen());
    ASSERT_TRUE(WaitUntil([&] { return other.PacketCount() > before; }));
    PumpFor(300);
    EXPECT_EQ(1, render.notify.Count(kPictureComplete, 0));
    // Every full-screen packet is a frame of the whole width.
    const auto packets = other.Packets();
    for (size_t i = before; i < packets.size(); ++i) {
        packet::FrameHeader frame;
        ASSERT_TRUE(packet::ReadFrameHeader(packets[i].bytes.data(), packets[i].cbData, &frame));
        EXPECT_EQ(frame.desktop.right, frame.band.right - frame.band.left);
    }
    ASSERT_EQ(S_OK, reader_->Stop());
    reader_->UnregisterDataTransmitter(&other);
    readerSinks_ = {render.sink.Get()};
    EXPECT_EQ(std::vector<std::string>(), other.Faults());
}
