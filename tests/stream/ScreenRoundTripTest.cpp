// The real screen through the stream: a window painted with noise is grabbed, encoded, decoded
// by the shared decoder into a second image and compared pixel for pixel with an independent
// grab reduced to 5-5-5. Built twice: image_test runs it on the 24-bit display (Wine reports 32
// bits), image16_test on the 16-bit one (Wine reports it as 16-bit bit fields). The fixture
// is named per program so that CTest keeps the two runs apart.
#include <cstdlib>

#include "common/ScreenTestSupport.h"
#include "stream/SinkTable.h"
#include "stream/StreamEncoder.h"

using namespace vantrel;
using namespace vantrel::test;

#ifndef VANTREL_SCREEN_SUITE
#define VANTREL_SCREEN_SUITE ScreenStream
#endif

namespace {

class VANTREL_SCREEN_SUITE : public ScreenTest {
  protected:
    void SetUp() override {
        ScreenTest::SetUp();
        ASSERT_TRUE(image_.OpenFromScreen());
        encoder_.SetCodec(codec_.Get());
        sink_ = std::make_unique<DecodingSink>(codec_.Get());
        sinks_.RegisterDataTransmitter(sink_.get());
    }
    void TearDown() override {
        sinks_.UnregisterDataTransmitter(sink_.get());
        sink_.reset();
        ScreenTest::TearDown();
    }

    DesktopImage image_;
    SinkTable sinks_;
    StreamEncoder encoder_{image_, sinks_};
    std::unique_ptr<DecodingSink> sink_;
};

}  // namespace

// The window alone, then the whole screen in two bands (767 rows fit one packet at 16 bits).
// A 16-bit display goes out with its masks, 5-6-5 converted to 5-5-5 when asked.
TEST_F(VANTREL_SCREEN_SUITE, PaintedWindowArrivesExactAtFiveBitsPerChannel) {
    const char* depth = std::getenv("VANTREL_SCREEN_DEPTH");
    const bool depth16 = depth && std::string(depth) == "16";
    const BITMAPINFO* own = image_.GetBitmapInfo();
    ASSERT_EQ(depth16 ? 16 : 32, own->bmiHeader.biBitCount);
    const DWORD redMask = reinterpret_cast<const DWORD*>(own->bmiColors)[0];
    if (depth16) {
        ASSERT_EQ(static_cast<DWORD>(BI_BITFIELDS), own->bmiHeader.biCompression);
        EXPECT_TRUE(redMask == 0xF800 || redMask == 0x7C00) << redMask;
    }
    RECT screen;
    image_.GetScreenRect(&screen);
    ASSERT_EQ((RECT{0, 0, 1024, 768}), screen);
    const RECT window{120, 90, 320, 240};
    NoiseBox box(window, 12345);
    ASSERT_TRUE(box.Shown());

    for (const bool convert : {false, true}) {
        image_.SetConvert565(convert);
        const size_t first = sink_->Count();
        ASSERT_EQ(convert ? 2 : 1, encoder_.EncodeUpdate(convert ? &screen : &window, 1));
        const auto all = sink_->Arrivals();
        for (size_t i = first; i < all.size(); ++i)
            EXPECT_TRUE(all[i].IsFrame()) << i;
        if (convert) {
            EXPECT_EQ((RECT{0, 0, 1024, 767}), all[first].band);
            EXPECT_EQ((RECT{0, 767, 1024, 768}), all[first + 1].band);
        }
        const BITMAPINFOHEADER& got = sink_->image.GetBitmapInfo()->bmiHeader;
        EXPECT_EQ(16, got.biBitCount);
        const bool masks = depth16 && !(convert && redMask == 0xF800);
        EXPECT_EQ(masks ? static_cast<DWORD>(BI_BITFIELDS) : BI_RGB, got.biCompression);
        EXPECT_EQ(0, sink_->Mismatches(convert ? nullptr : &window)) << "convert " << convert;
    }
    EXPECT_TRUE(sink_->PictureComplete());
    EXPECT_EQ(1, sink_->completions);
}
