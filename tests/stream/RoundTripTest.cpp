// The stream's round trip without a screen: a synthetic 1024 x 768 desktop written into a
// DesktopImage goes through the StreamEncoder (the whole desktop, then typed lines merged in an
// UpdateRegion) and a 32 x 32 pointer into cursor packets, compressed with the registered
// ScreenCodec and fanned out through a SinkTable to a counting sink and a decoding sink; two
// broken packets follow. The decoder must rebuild desktop and pointer exactly.
#include <windows.h>

#include <gtest/gtest.h>

#include "SyntheticDesktop.h"
#include "SyntheticPointer.h"
#include "common/ScreenTestSupport.h"
#include "stream/SinkTable.h"
#include "stream/StreamEncoder.h"
#include "stream/UpdateRegion.h"

namespace vantrel::test {
namespace {

class RoundTrip : public ScreenTest {
  protected:
    void SetUp() override {
        ScreenTest::SetUp();
        encoder_.SetCodec(codec_.Get());
        ASSERT_TRUE(encoder_.HasBuffers());
        const BITMAPINFOHEADER header = desktop_.Header();
        ASSERT_TRUE(image_.CreateFromBitmapInfo(reinterpret_cast<const BITMAPINFO*>(&header)));
    }

    // r of the synthetic desktop, copied into the image first, through the encoder's band loop.
    int SendRect(const RECT& r) {
        const RECT bounds = desktop_.Bounds();
        EXPECT_TRUE(image_.PutRows(&bounds, desktop_.Pixels().data()));
        return encoder_.SendRegion(&r);
    }
    void SendCursor(uint32_t flags, int32_t x, int32_t y) {
        std::vector<BYTE> record = pointer_.Record(flags, x, y);
        ASSERT_TRUE(encoder_.SendCursorRecord(record.data(), static_cast<uint32_t>(record.size())));
        ++cursors_;
    }

    SyntheticDesktop desktop_;
    SyntheticPointer pointer_;
    SinkTable sinks_;
    DesktopImage image_;
    StreamEncoder encoder_{image_, sinks_};
    size_t frames_ = 0, cursors_ = 0;
};

TEST_F(RoundTrip, SyntheticDesktopAndPointerComeBackExactAndBrokenPacketsAreRefused) {
    FakeSink counter("counter");
    DecodingSink decoder(codec_.Get());
    ASSERT_EQ(S_OK, sinks_.RegisterDataTransmitter(&counter));
    ASSERT_EQ(S_OK, sinks_.RegisterDataTransmitter(&decoder));

    // The first full screen, the pointer, then typed lines each followed by a move.
    frames_ += SendRect(desktop_.Bounds());
    SendCursor(3, 300, 300);
    POINT last{300, 300};
    for (int i = 0; i < 3; ++i) {
        UpdateRegion changed;
        for (const RECT& r : desktop_.TypeLine())
            changed.AddRect(&r);
        UpdateRegion::RectList rects;
        changed.GetRects(rects);
        for (const RECT& r : rects)
            frames_ += SendRect(r);
        last = POINT{320 + 40 * i, 310 + 12 * i};
        SendCursor(2, last.x, last.y);
    }
    sinks_.Flush();
    // A cursor packet whose length field is one byte off, and one with an unknown magic.
    BYTE broken[packet::kCursorHeaderSize + 4] = {};
    packet::WriteHead(broken, packet::Head{packet::kCursorMagic, sizeof broken + 1, 0});
    sinks_.Deliver(broken, sizeof broken);
    packet::WriteHead(broken, packet::Head{0x58585858, sizeof broken, 0});
    sinks_.Deliver(broken, sizeof broken);
    sinks_.UnregisterDataTransmitter(&counter);
    sinks_.UnregisterDataTransmitter(&decoder);

    EXPECT_GT(frames_, 1u);
    EXPECT_EQ(frames_ + cursors_ + 2, counter.PacketCount());
    EXPECT_EQ(1, counter.Flushes());
    EXPECT_EQ(std::vector<std::string>(), counter.Faults());
    size_t frames = 0, cursors = 0, refused = 0;
    std::vector<BYTE> shape;
    POINT position{};
    for (const Arrival& a : decoder.Arrivals()) {
        frames += a.IsFrame();
        cursors += a.IsCursor();
        refused += a.outcome == StreamDecoder::Outcome::Refused;
        if (a.IsCursor()) {
            position = POINT{a.cursor.x, a.cursor.y};
            if (!a.shape.empty())
                shape = a.shape;
        }
    }
    EXPECT_EQ(frames_, frames);
    EXPECT_EQ(cursors_, cursors);
    EXPECT_EQ(2u, refused);

    ASSERT_TRUE(decoder.image.IsOpen());
    RECT pointer;  // the decoder draws the pointer over its picture
    decoder.image.GetCursorRect(&pointer);
    long wrong = 0;
    for (LONG y = 0; y < SyntheticDesktop::kHeight; ++y)
        for (LONG x = 0; x < SyntheticDesktop::kWidth; ++x)
            wrong += !PtInRect(&pointer, POINT{x, y}) &&
                     Pixel555(decoder.image, x, y) !=
                         desktop_.Pixels()[static_cast<size_t>(y) * SyntheticDesktop::kWidth + x];
    EXPECT_EQ(0, wrong) << "pixels of the rebuilt desktop differ from the sent one";
    const std::vector<BYTE>& masks = pointer_.Masks();
    ASSERT_GE(shape.size(), masks.size());
    EXPECT_TRUE(std::equal(masks.begin(), masks.end(), shape.end() - masks.size()));
    EXPECT_EQ(last.x, position.x);
    EXPECT_EQ(last.y, position.y);
}

}  // namespace
}  // namespace vantrel::test
