// The classroom over multicast: a teacher process captures the virtual screen and casts it; this
// process receives it through a DesktopReceiver and decodes it with the shared decoder, and the
// picture must equal the screen at 5-5-5 while a window draws and moves.
#include <cstdio>

#include "CastTestSupport.h"
#include "RelayProcess.h"
#include "common/ScreenTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

class CastScreenTest : public ScreenTest {
  protected:
    void SetUp() override {
        ScreenTest::SetUp();
        sink_ = std::make_unique<DecodingSink>(codec_.Get());
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopReceiver, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopReceiver, receiver_.PutVoid()));
        SetCursorPos(1010, 750);  // out of the way of the windows drawn here
    }
    void TearDown() override {
        if (receiver_) {
            receiver_->Stop();
            receiver_->LeaveSession();
            receiver_->UnregisterDataTransmitter(sink_.get());
            receiver_.Reset();
        }
        EXPECT_EQ(std::vector<std::string>(), sink_->Faults());
        sink_.reset();
        ScreenTest::TearDown();
    }
    void Listen(Session& s) {
        ASSERT_EQ(S_OK, receiver_->JoinSession(Session::Local(), s.Group(), s.port));
        ASSERT_EQ(S_OK, receiver_->RegisterDataTransmitter(sink_.get()));
        ASSERT_EQ(S_OK, receiver_->Run());
    }
    bool Converges() {
        long wrong = -1;
        const bool equal = WaitUntil([&] { return (wrong = sink_->Mismatches()) == 0; });
        if (!equal)
            ADD_FAILURE() << wrong << " pixels differ from the screen";
        return equal;
    }

    std::unique_ptr<DecodingSink> sink_;
    ComPtr<IDesktopReceiver> receiver_;
};

// Pixels of rows 0 to bottom - 1 of a DesktopRender's picture (GetCurrectImage: BITMAPINFO,
// then unpadded rows) that differ from the screen at 5-5-5; -1 without a 16-bit picture.
long RenderMismatches(IDesktopRender* render, LONG bottom) {
    unsigned long size = 0;
    if (render->GetCurrectImage(&size, nullptr) != S_OK)
        return -1;
    std::vector<BYTE> picture(size);
    if (render->GetCurrectImage(&size, picture.data()) != S_OK || size < sizeof(BITMAPINFOHEADER))
        return -1;
    BITMAPINFOHEADER h;
    memcpy(&h, picture.data(), sizeof h);
    const size_t info = h.biSize + (h.biCompression == BI_BITFIELDS ? 12 : 0);
    const LONG width = h.biWidth, height = h.biHeight < 0 ? -h.biHeight : h.biHeight;
    if (h.biBitCount != 16 || h.biCompression != BI_RGB || bottom > height ||
        size < info + static_cast<size_t>(width) * height * 2)
        return -1;
    const std::vector<uint32_t> shot = GrabScreen32(RECT{0, 0, width, bottom});
    long wrong = 0;
    for (LONG y = 0; y < bottom; ++y)
        for (LONG x = 0; x < width; ++x) {
            uint16_t px;
            memcpy(&px, picture.data() + info + (static_cast<size_t>(y) * width + x) * 2, 2);
            wrong += px != To555(shot[static_cast<size_t>(y) * width + x]);
        }
    return wrong;
}

}  // namespace

// The whole road: capture and caster in the teacher's process; here the receiver feeds a
// DesktopRender (as on a student's machine) and the decoding sink. Both pictures equal the
// screen; the render's is compared above the pointer, which it draws into its picture.
TEST_F(CastScreenTest, AStudentProcessSeesTheTeachersScreen) {
    NoiseBox box(RECT{96, 80, 352, 272}, 11);
    ASSERT_TRUE(box.Shown());
    ComPtr<IDesktopRender> render;
    ComPtr<IDataTransmitter> renderSink;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopRender, nullptr, CLSCTX_INPROC_SERVER,
                                     IID_IDesktopRender, render.PutVoid()));
    ASSERT_EQ(S_OK, render.As(&renderSink));
    ASSERT_EQ(S_OK, receiver_->RegisterDataTransmitter(renderSink.Get()));
    Session s = Session::Next();
    Listen(s);
    TeacherProcess teacher(s, 8);
    ASSERT_TRUE(teacher.Started());
    ASSERT_TRUE(WaitUntil([&] { return sink_->PictureComplete(); })) << "no first picture";
    EXPECT_TRUE(Converges());
    ASSERT_TRUE(box.Repaint(12));
    EXPECT_TRUE(Converges()) << "after a repaint";
    ASSERT_TRUE(box.MoveTo(600, 400));
    EXPECT_TRUE(Converges()) << "after a move";
    long wrong = -1;
    EXPECT_TRUE(WaitUntil([&] { return (wrong = RenderMismatches(render.Get(), 700)) == 0; }))
        << wrong << " pixels of the render's picture differ from the screen";
    EXPECT_EQ(0u, teacher.Finish());
    receiver_->Stop();
    EXPECT_EQ(S_OK, receiver_->UnregisterDataTransmitter(renderSink.Get()));
    for (const auto& a : sink_->Arrivals()) {
        ASSERT_TRUE(a.IsFrame() || a.IsCursor()) << "a packet came damaged";
        ASSERT_EQ(THREAD_PRIORITY_ABOVE_NORMAL, a.priority) << "the receiver's thread";
    }
}

// Without correction datagrams the relay's losses cost whole packets, and its duplicates let
// packets with holes through the reassembly: the decoder refuses those, and the picture is
// whole again once a full screen has come through intact.
TEST_F(CastScreenTest, WithoutCorrectionThePictureIsWholeAgainAfterTheNextFullScreen) {
    NoiseBox box(RECT{200, 160, 264, 224}, 21);
    ASSERT_TRUE(box.Shown());
    Session upstream = Session::Next(), relayed = Session::Next();
    RelayProcess relay(upstream.group + ":" + std::to_string(upstream.port),
                       relayed.group + ":" + std::to_string(relayed.port), RelayRates{5, 3, 0, 11});
    ASSERT_TRUE(relay.Started());
    Listen(relayed);
    ComPtr<IDesktopCapture> capture;
    ComPtr<IDesktopCaster> caster;
    ComPtr<IDataTransmitter> casterSink;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopCapture, nullptr, CLSCTX_INPROC_SERVER,
                                     IID_IDesktopCapture, capture.PutVoid()));
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopCaster, nullptr, CLSCTX_INPROC_SERVER,
                                     IID_IDesktopCaster, caster.PutVoid()));
    ASSERT_EQ(S_OK, caster.As(&casterSink));
    ASSERT_EQ(S_OK, caster->CreateSession(Session::Local(), upstream.Group(), upstream.port, 0, 0));
    ASSERT_EQ(S_OK, caster->Run());
    ASSERT_EQ(S_OK, capture->RegisterDataTransmitter(casterSink.Get()));
    ASSERT_EQ(S_OK, capture->Run());

    // Full screens until one arrives whole; each must leave the picture equal to the screen
    // once it is complete, whatever was lost or damaged before.
    bool whole = false;
    for (int attempt = 0; attempt < 10 && !whole; ++attempt) {
        ASSERT_EQ(S_OK, capture->RequestFullScreen());
        whole =
            WaitUntil([&] { return sink_->PictureComplete() && sink_->Mismatches() == 0; }, 3000);
        if (!whole) {
            ASSERT_TRUE(box.Repaint(22 + attempt));
        }
    }
    EXPECT_TRUE(whole) << sink_->Mismatches() << " pixels differ after ten full screens";
    capture->Stop();
    capture->UnregisterDataTransmitter(casterSink.Get());
    caster->DestroySession();
    relay.Finish();
    size_t refused = 0;
    for (const auto& a : sink_->Arrivals())
        refused += !a.IsFrame() && !a.IsCursor();
    std::printf("%zu packets arrived, %zu refused as damaged\n", sink_->Arrivals().size(), refused);
}
