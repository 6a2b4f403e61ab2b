// Three processes: this one serves, ipc_peer viewers of sessions 0 and 7 map the published
// picture. A viewer above the polled ids is never reached; a format change makes every viewer
// reopen before it reads rectangles of the new section.
#include "IpcTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

TEST_F(IpcServerTest, ViewersInOtherProcessesShowThePictureAndReopenOnFormatChange) {
    ASSERT_EQ(S_OK, server_->SetMaxIPCClients(8));
    PeerViewer zero(0), seven(7);
    ASSERT_TRUE(zero.WaitReady());
    ASSERT_TRUE(seven.WaitReady());
    CriticalSection lock;
    std::vector<Visit> unreached;
    InProcessViewer eight(8, &unreached, &lock);
    ASSERT_EQ(S_OK, server_->StartIPCServer());

    const struct {
        int width, height;
        uint32_t seed;
    } formats[] = {{640, 480, 1}, {800, 600, 2}, {800, 600, 3}};
    std::string lastName;
    LONG lastReopens = 0;
    for (const auto& f : formats) {
        SCOPED_TRACE(std::to_string(f.width) + "x" + std::to_string(f.height));
        PacketSource source(codec_.Get(), f.width, f.height, f.seed);
        const bool newFormat = f.seed != 3;  // the third repaints the second's format
        Feed(source.FullScreen());
        const std::vector<BYTE> rows = source.Rows();
        for (PeerViewer* peer : {&zero, &seven}) {
            EXPECT_TRUE(WaitUntil([&] { return peer->Picture() == rows; }))
                << "viewer never showed the picture";
            const PeerStatus& s = peer->Status();
            EXPECT_EQ(0, s.rectsBeforeOpen);
            EXPECT_EQ(0, s.openFailures);
            EXPECT_EQ(control_.Name(), std::string(s.name));
            BITMAPINFOHEADER h;
            std::memcpy(&h, s.bitmapInfo, sizeof h);
            EXPECT_EQ(f.width, h.biWidth);
            EXPECT_EQ(-f.height, h.biHeight);
        }
        EXPECT_EQ(newFormat, control_.Name() != lastName);
        lastName = control_.Name();
        EXPECT_EQ(zero.Status().reopens, seven.Status().reopens);
        if (newFormat)
            EXPECT_GT(zero.Status().reopens, lastReopens);
        else
            EXPECT_EQ(lastReopens, zero.Status().reopens);
        lastReopens = zero.Status().reopens;
    }
    EXPECT_EQ(S_OK, server_->StopIPCServer());
    EXPECT_EQ(0u, zero.Quit());
    EXPECT_EQ(0u, seven.Quit());
    std::lock_guard<CriticalSection> guard(lock);
    EXPECT_TRUE(unreached.empty());
}

}  // namespace
