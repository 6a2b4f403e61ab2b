// Three processes: this one serves (polling 8 ids); DesktopIPCRender viewers of sessions 0 and
// 7 in ipc_peer processes show the published picture in their windows and follow format
// changes; a viewer of id 8 is never reached.
#include "IpcTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

TEST_F(IpcServerTest, ViewersOfSessionsZeroAndSevenInOtherProcessesShowThePicture) {
    ASSERT_EQ(S_OK, server_->SetMaxIPCClients(8));
    const RECT at0{16, 16, 336, 256}, at7{400, 16, 720, 256};
    PeerViewer zero(0, at0), seven(7, at7);
    for (PeerViewer* peer : {&zero, &seven})
        ASSERT_TRUE(peer->WaitReady());
    CriticalSection lock;
    std::vector<Visit> unreached;
    InProcessViewer eight(8, &unreached, &lock);
    ASSERT_EQ(S_OK, server_->StartIPCServer());

    const struct {
        int width, height;
        uint32_t seed;
        bool newFormat;
    } formats[] = {{320, 240, 1, true}, {256, 192, 2, true}, {256, 192, 3, false}};
    std::string lastName;
    for (const auto& f : formats) {
        SCOPED_TRACE(f.seed);
        PacketSource source(codec_.Get(), f.width, f.height, f.seed);
        Feed(source.FullScreen());
        const std::vector<BYTE> rows = source.Rows();
        for (PeerViewer* peer : {&zero, &seven})
            EXPECT_TRUE(WaitUntil([&] { return peer->Picture() == rows; }))
                << "a viewer never showed the picture";
        for (auto [peer, at] : {std::pair<PeerViewer*, RECT>{&zero, at0}, {&seven, at7}}) {
            if (f.seed != 1)
                break;  // the window shows the first picture 1:1
            long wrong = -1;
            EXPECT_TRUE(WaitUntil([&] {
                const std::vector<uint32_t> screen = GrabScreen32(at);
                wrong = 0;
                for (size_t i = 0; i < screen.size(); ++i)
                    wrong += To555(screen[i]) != packet::LoadU16(&rows[2 * i]);
                return wrong == 0;
            })) << wrong
                << " pixels of the window differ from the server's picture";
        }
        for (PeerViewer* peer : {&zero, &seven})
            EXPECT_TRUE(WaitUntil([&] { return peer->Status().notices == 1; }))
                << peer->Status().notices << " completion notices";
        EXPECT_EQ(f.newFormat, control_.Name() != lastName);
        lastName = control_.Name();
    }
    EXPECT_EQ(S_OK, server_->StopIPCServer());
    for (PeerViewer* peer : {&zero, &seven})
        EXPECT_EQ(0u, peer->Quit());
    std::lock_guard<CriticalSection> guard(lock);
    EXPECT_TRUE(unreached.empty());
}

}  // namespace
