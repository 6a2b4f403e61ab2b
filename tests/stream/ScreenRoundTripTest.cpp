// The real screen through the stream: a window painted with noise is grabbed, encoded, decoded
// by the shared decoder into a second image and compared pixel for pixel with an independent
// grab reduced to 5-5-5. Built twice: image_test runs it on the 24-bit display (Wine reports 32
// bits), image16_test on the 16-bit one (Wine reports it as 16-bit bit fields). The fixture
// is named per program so that CTest keeps the two runs apart.
#include "ImageTestSupport.h"

#include <cstdlib>

#include "common/FakeSink.h"
#include "stream/SinkTable.h"
#include "stream/StreamEncoder.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

bool SixteenBitDisplay() {
    const char* depth = std::getenv("VANTREL_SCREEN_DEPTH");
    return depth && std::string(depth) == "16";
}

#ifndef VANTREL_SCREEN_SUITE
#define VANTREL_SCREEN_SUITE ScreenStream
#endif

class VANTREL_SCREEN_SUITE : public StreamTest {
  protected:
    void SetUp() override {
        StreamTest::SetUp();
        ASSERT_TRUE(image_.OpenFromScreen());
        encoder_.SetCodec(codec_.Get());
        decoder_.SetCodec(codec_.Get());
        sinks_.RegisterDataTransmitter(&sink_);
    }
    void TearDown() override {
        sinks_.UnregisterDataTransmitter(&sink_);
        StreamTest::TearDown();
    }
    // Decodes what the sink holds from packet `from` on and compares every band with the screen.
    void DecodeAndCompare(size_t from) {
        RECT screen;
        image_.GetScreenRect(&screen);
        const std::vector<uint32_t> shot = GrabScreen32(screen);
        const auto packets = sink_.Packets();
        ASSERT_LT(from, packets.size());
        for (size_t i = from; i < packets.size(); ++i) {
            ASSERT_EQ(StreamDecoder::Outcome::Frame,
                      decoder_.Decode(packets[i].bytes.data(), packets[i].cbData));
            packet::FrameHeader h;
            packet::ReadFrameHeader(packets[i].bytes.data(), packets[i].cbData, &h);
            for (LONG y = h.band.top; y < h.band.bottom; ++y)
                for (LONG x = h.band.left; x < h.band.right; ++x)
                    ASSERT_EQ(To555(shot[y * screen.right + x]), Pixel555(received_, x, y))
                        << x << "," << y;
        }
    }
    const BITMAPINFOHEADER& PayloadHeader(size_t i, std::vector<BYTE>* body) {
        *body = Body(sink_.Packets().at(i).bytes, packet::kFrameHeaderSize);
        return *reinterpret_cast<const BITMAPINFOHEADER*>(body->data());
    }

    DesktopImage image_, received_;
    SinkTable sinks_;
    FakeSink sink_;
    StreamEncoder encoder_{image_, sinks_};
    RecordingOwner owner_;
    StreamDecoder decoder_{received_, owner_};
};

}  // namespace

TEST_F(VANTREL_SCREEN_SUITE, PaintedWindowArrivesExactAtFiveBitsPerChannel) {
    const bool depth16 = SixteenBitDisplay();
    const BITMAPINFO* own = image_.GetBitmapInfo();
    ASSERT_EQ(depth16 ? 16 : 32, own->bmiHeader.biBitCount);
    const DWORD redMask = reinterpret_cast<const DWORD*>(own->bmiColors)[0];
    if (depth16) {
        ASSERT_EQ(static_cast<DWORD>(BI_BITFIELDS), own->bmiHeader.biCompression);
        EXPECT_TRUE(redMask == 0xF800 || redMask == 0x7C00) << redMask;
    }
    NoiseWindow window(RECT{120, 90, 320, 240}, 12345);
    ASSERT_TRUE(window.WaitShown());

    // A 16-bit display goes out with its masks; 5-6-5 converted to 5-5-5 when asked.
    for (const bool convert : {false, true}) {
        image_.SetConvert565(convert);
        const size_t first = sink_.PacketCount();
        const RECT whole{120, 90, 320, 240};
        ASSERT_EQ(1, encoder_.EncodeUpdate(&whole, 1));
        std::vector<BYTE> body;
        const BITMAPINFOHEADER& h = PayloadHeader(first, &body);
        EXPECT_EQ(16, h.biBitCount);
        const bool masks = depth16 && !(convert && redMask == 0xF800);
        EXPECT_EQ(masks ? static_cast<DWORD>(BI_BITFIELDS) : BI_RGB, h.biCompression);
        EXPECT_EQ((masks ? 52u : 40u) + 200 * 2 * 152, body.size());
        DecodeAndCompare(first);
    }

    // Two small changes far apart: the region's own rectangles, the lower one first.
    const size_t first = sink_.PacketCount();
    const RECT two[] = {{130, 100, 140, 110}, {300, 220, 310, 230}};
    ASSERT_EQ(2, encoder_.EncodeUpdate(two, 2));
    packet::FrameHeader h;
    packet::ReadFrameHeader(sink_.Packets()[first].bytes.data(), sink_.Packets()[first].cbData, &h);
    EXPECT_EQ((RECT{296, 216, 312, 232}), h.band);
    DecodeAndCompare(first);
}

TEST_F(VANTREL_SCREEN_SUITE, WholeScreenGoesOutInTwoBands) {
    RECT screen;
    image_.GetScreenRect(&screen);
    ASSERT_EQ((RECT{0, 0, 1024, 768}), screen);
    ASSERT_EQ(2, encoder_.EncodeUpdate(&screen, 1));
    packet::FrameHeader first, second;
    const auto packets = sink_.Packets();
    packet::ReadFrameHeader(packets[0].bytes.data(), packets[0].cbData, &first);
    packet::ReadFrameHeader(packets[1].bytes.data(), packets[1].cbData, &second);
    EXPECT_EQ((RECT{0, 0, 1024, 767}), first.band);
    EXPECT_EQ((RECT{0, 767, 1024, 768}), second.band);
    EXPECT_EQ(16u, first.bitsPerPixel);
    DecodeAndCompare(0);
    EXPECT_TRUE(decoder_.IsPictureComplete());
    EXPECT_EQ(1, owner_.completions);
}
