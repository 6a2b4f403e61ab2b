// The classroom over a lossy link: capture and caster feed the relay, which drops and repeats
// datagrams; a DesktopReceiver here feeds the shared decoder. Without correction datagrams the
// losses cost whole packets and the repeats let packets with holes through the reassembly: the
// decoder refuses those, and the picture equals the screen at 5-5-5 again once a full screen has
// come through intact. The receiver delivers on its own thread, one step above normal.
#include <cstdio>

#include "CastTestSupport.h"
#include "RelayProcess.h"
#include "common/ScreenTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

class CastScreenTest : public ScreenTest {};

TEST_F(CastScreenTest, WithoutCorrectionThePictureIsWholeAgainAfterTheNextFullScreen) {
    NoiseBox box(RECT{200, 160, 264, 224}, 21);
    ASSERT_TRUE(box.Shown());
    SetCursorPos(1010, 750);  // out of the way of the box
    Session upstream = Session::Next(), relayed = Session::Next();
    RelayProcess relay(upstream.Address(), relayed.Address(), RelayRates{5, 3, 0, 11});
    ASSERT_TRUE(relay.Started());
    DecodingSink sink(codec_.Get());
    auto receiver = Create<IDesktopReceiver>(CLSID_DesktopReceiver);
    auto capture = Create<IDesktopCapture>(CLSID_DesktopCapture);
    auto caster = Create<IDesktopCaster>(CLSID_DesktopCaster);
    ComPtr<IDataTransmitter> casterSink;
    ASSERT_TRUE(receiver && capture && caster);
    ASSERT_EQ(S_OK, caster.As(&casterSink));
    ASSERT_EQ(S_OK, receiver->JoinSession(Session::Local(), relayed.Group(), relayed.port));
    ASSERT_EQ(S_OK, receiver->RegisterDataTransmitter(&sink));
    ASSERT_EQ(S_OK, receiver->Run());
    ASSERT_EQ(S_OK, caster->CreateSession(Session::Local(), upstream.Group(), upstream.port, 0, 0));
    ASSERT_EQ(S_OK, caster->Run());
    ASSERT_EQ(S_OK, capture->RegisterDataTransmitter(casterSink.Get()));
    ASSERT_EQ(S_OK, capture->Run());

    // Full screens until one arrives whole; each must leave the picture equal to the screen
    // once it is complete, whatever was lost or damaged before.
    bool whole = false;
    for (int attempt = 0; attempt < 10 && !whole; ++attempt) {
        ASSERT_EQ(S_OK, capture->RequestFullScreen());
        whole = WaitUntil([&] { return sink.PictureComplete() && sink.Mismatches() == 0; }, 3000);
        if (!whole) {
            ASSERT_TRUE(box.Repaint(22 + attempt));
        }
    }
    EXPECT_TRUE(whole) << sink.Mismatches() << " pixels differ after ten full screens";
    capture->Stop();
    capture->UnregisterDataTransmitter(casterSink.Get());
    caster->DestroySession();
    relay.Finish();
    EXPECT_EQ(S_OK, receiver->Stop());
    EXPECT_EQ(S_OK, receiver->LeaveSession());
    EXPECT_EQ(S_OK, receiver->UnregisterDataTransmitter(&sink));
    EXPECT_EQ(std::vector<std::string>(), sink.Faults());
    size_t refused = 0;
    for (const auto& a : sink.Arrivals()) {
        refused += !a.IsFrame() && !a.IsCursor();
        ASSERT_EQ(THREAD_PRIORITY_ABOVE_NORMAL, a.priority) << "the receiver's thread";
    }
    std::printf("%zu packets arrived, %zu refused as damaged\n", sink.Arrivals().size(), refused);
}
