// The whole road on the virtual screen: DesktopCapture -> DesktopRecorder -> lesson file ->
// DesktopReader -> DesktopRender, all made through COM. The render's last picture equals what
// the capture sent, and playback takes the recording's time divided by the speed factor. A
// render registered with the reader as sink and frame buffer is not fed its own picture.
#include "common/ScreenTestSupport.h"

#include "LessonTestSupport.h"

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
        EXPECT_EQ(S_OK, render->SetNotifyWindow(notify.Window(), NotifySink::kMessage, 0));
    }
    size_t Notes(WPARAM code) const {
        size_t n = 0;
        for (const auto& note : notify.Notes())
            n += note.wParam == code;
        return n;
    }
    // The picture as 5-5-5 pixels, top row first; empty without one.
    std::vector<uint16_t> Picture(LONG* width, LONG* height) {
        unsigned long size = 0;
        if (render->GetCurrectImage(&size, nullptr) != S_OK)
            return {};
        std::vector<BYTE> bytes(size);
        if (render->GetCurrectImage(&size, bytes.data()) != S_OK)
            return {};
        const auto* header = reinterpret_cast<const BITMAPINFOHEADER*>(bytes.data());
        *width = header->biWidth;
        *height = header->biHeight < 0 ? -header->biHeight : header->biHeight;
        const int bpp = header->biBitCount;
        const size_t pixels = static_cast<size_t>(*width) * *height;
        const BYTE* rows = bytes.data() + size - pixels * bpp / 8;
        const DWORD* masks = reinterpret_cast<const DWORD*>(bytes.data() + header->biSize);
        const bool is565 = bpp == 16 && header->biCompression == BI_BITFIELDS && masks[0] == 0xF800;
        std::vector<uint16_t> out(pixels);
        for (size_t i = 0; i < pixels; ++i) {
            if (bpp == 32) {
                out[i] = To555(packet::LoadU32(rows + 4 * i));
            } else {
                uint16_t v = packet::LoadU16(rows + 2 * i);
                if (is565)
                    v = static_cast<uint16_t>(((v >> 11) << 10) | (((v >> 6) & 0x1F) << 5) |
                                              (v & 0x1F));
                out[i] = v;
            }
        }
        return out;
    }

    NotifySink notify;
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
        ASSERT_EQ(S_OK, reader_->SetNotifyWindow(readerNotify_.Window(), NotifySink::kMessage, 0));
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
        LONG w = 0, h = 0;
        const std::vector<uint16_t> played = render.Picture(&w, &h);
        RECT sent;
        sink_->image.GetScreenRect(&sent);
        if (played.empty() || w != sent.right || h != sent.bottom)
            return -1;
        long wrong = 0;
        for (LONG y = 0; y < h; ++y)
            for (LONG x = 0; x < w; ++x)
                wrong += !(x >= 960 && y >= 700) &&
                         played[static_cast<size_t>(y) * w + x] != sink_->PixelAt(x, y);
        return wrong;
    }

    TempFile file_{"lesson"};
    unsigned long duration_ = 0;
    NotifySink readerNotify_;
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
        EXPECT_EQ(1u, render.Notes(kPictureComplete));
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
    FakeSink other("other");
    StartReader(render, &other);
    ASSERT_EQ(S_OK, reader_->Run());
    ASSERT_TRUE(WaitUntil([&] { return render.Notes(kPictureComplete) == 1; }));
    // Past the recorded changes, into the quiet tail.
    PumpFor(1500);
    ASSERT_TRUE(readerNotify_.Notes().empty()) << "the lesson ended too soon";
    const size_t before = other.PacketCount();
    ASSERT_EQ(S_OK, render.render->ResetContent());
    ASSERT_EQ(S_OK, reader_->RequestFullScreen());
    ASSERT_TRUE(WaitUntil([&] { return other.PacketCount() > before; }));
    PumpFor(300);
    EXPECT_EQ(1u, render.Notes(kPictureComplete));
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
