// DesktopCapture on the 16-bit virtual display, no window drawn (a second window in one process
// upsets that display): the whole screen arrives exact at 5-5-5 at every Run. The platform
// reports this display as 5-5-5 bit fields, so the masks travel whether "FixCitrix16bit" (which
// converts 5-6-5 only) is on or off.
#include "common/ScreenTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

TEST_F(CaptureTest, SixteenBitScreenArrivesExactWithItsMasksAtEveryRun) {
    WindowDc screen(nullptr);
    ASSERT_EQ(16, GetDeviceCaps(screen.get(), BITSPIXEL));
    DeskPrefOverride fix("FixCitrix16bit", 1);
    ASSERT_TRUE(fix.Ok());
    ASSERT_EQ(S_OK, capture_->RegisterDataTransmitter(sink_.get()));
    for (const DWORD value : {1, 0}) {
        fix.Set(value);
        const size_t from = sink_->Count();
        ASSERT_EQ(S_OK, capture_->Run());
        ASSERT_TRUE(WaitUntil([&] { return sink_->Count() > from; }));
        EXPECT_TRUE(Converges()) << "FixCitrix16bit " << value;
        ASSERT_EQ(S_OK, capture_->Stop());
        EXPECT_TRUE(sink_->Arrivals()[from].IsFrame());
        EXPECT_EQ(static_cast<DWORD>(BI_BITFIELDS),
                  sink_->image.GetBitmapInfo()->bmiHeader.biCompression)
            << "FixCitrix16bit " << value;
    }
}
