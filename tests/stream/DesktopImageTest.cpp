// DesktopImage on its own: refused formats, the registry switch and the pointer overlay. (The
// logo: the capture's.)
#include "common/ScreenTestSupport.h"
#include "stream/DeskPref.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

constexpr uint16_t kBackground555 = 0x0210, kRed555 = 0x7C00, kGreen555 = 0x03E0;

struct Image : DesktopImage {
    Image(int w, int h, int bpp) { EXPECT_TRUE(CreateFromBitmapInfo(AsBmi(Bmi(w, h, bpp)))); }
};

}  // namespace

// (Rows, alignment and palettes: through the encoder, the decoder and the render.)
TEST(DesktopImageOpen, RefusesBadFormatsAndFollowsTheFixCitrixSwitch) {
    DesktopImage image;
    EXPECT_FALSE(image.CreateFromBitmapInfo(nullptr));
    auto bottomUp = Bmi(64, 64, 16);
    reinterpret_cast<BITMAPINFOHEADER*>(bottomUp.data())->biHeight = 64;
    EXPECT_FALSE(image.CreateFromBitmapInfo(AsBmi(bottomUp)));
    EXPECT_FALSE(image.CreateFromBitmapInfo(AsBmi(Bmi(64, 64, 7))));
    EXPECT_FALSE(image.OpenFromBitmapInfo("Local\\VantrelNoSuchImage", AsBmi(Bmi(64, 64, 16))));
    EXPECT_FALSE(image.IsOpen());
    EXPECT_EQ(nullptr, image.GetBits());

    DeskPrefOverride fix(DeskPref::kFixCitrix16bit, 1);
    ASSERT_TRUE(fix.Ok());
    for (const DWORD value : {DWORD{1}, DWORD{2}, DeskPrefOverride::kNoValue}) {
        fix.Set(value);
        EXPECT_EQ(value == 1, DesktopImage().Convert565()) << value;
    }
}

// ---- pointer overlay ----

TEST(DesktopImageCursor, MoveClipsSnapsAndReportsOldAndNewPlace) {
    Image image(1024, 768, 32);
    const auto rec = CursorRecordBytes(1, 0, 0, 32, 32, 0xFF0000);
    const auto view = ViewOf(rec);
    ASSERT_TRUE(image.SetCursorShape(&view));
    EXPECT_EQ((RECT{0, 0, 32, 32}), image.TakeChangedArea());
    // Partly off the image the pointer is clipped; wholly off it is not drawn.
    const struct {
        int x, y;
        BOOL drawn;
        RECT rect, changed;
    } moves[] = {
        {100, 100, TRUE, {96, 96, 136, 136}, {0, 0, 136, 136}},
        {1020, 760, TRUE, {1016, 760, 1024, 768}, {96, 96, 1024, 768}},
        {-40, -40, FALSE, {0, 0, 0, 0}, {1016, 760, 1024, 768}},
        {5, 5, TRUE, {0, 0, 40, 40}, {0, 0, 40, 40}},
    };
    for (const auto& m : moves) {
        EXPECT_EQ(m.drawn, image.MoveCursor(m.x, m.y)) << m.x;
        RECT rect;
        image.GetCursorRect(&rect);
        EXPECT_EQ(m.rect, rect) << m.x;
        EXPECT_EQ(m.changed, image.TakeChangedArea()) << m.x;
    }
    EXPECT_EQ(kRed555, Pixel555(image, 5, 5));
    EXPECT_EQ(kRed555, Pixel555(image, 36, 36));
    EXPECT_EQ(kBackground555, Pixel555(image, 37, 37));
    for (const auto& p : {POINT{100, 100}, POINT{1020, 765}, POINT{0, 0}})
        EXPECT_EQ(kBackground555, Pixel555(image, p.x, p.y)) << p.x;  // old places restored
    EXPECT_FALSE(image.SetCursorShape(nullptr));
}

TEST(DesktopImageCursor, BandWriteKeepsPointerOnTopAndSaveUnderTakesNewRows) {
    Image image(256, 128, 16);
    const auto rec = CursorRecordBytes(1, 20, 20, 32, 32, 0xFF0000);
    const auto view = ViewOf(rec);
    ASSERT_TRUE(image.MoveCursor(20, 20));
    ASSERT_TRUE(image.SetCursorShape(&view));
    image.TakeChangedArea();
    std::vector<uint16_t> band(256 * 40, kGreen555);
    const RECT r{0, 0, 256, 40};
    ASSERT_TRUE(image.WriteRows(&r, band.data()));
    EXPECT_EQ(kRed555, Pixel555(image, 30, 30));  // pointer still on top
    EXPECT_EQ(kGreen555, Pixel555(image, 19, 30));
    RECT rect;
    image.GetCursorRect(&rect);
    EXPECT_EQ((RECT{16, 16, 56, 56}), rect);
    EXPECT_EQ((RECT{}), image.TakeChangedArea());  // a band write changes no pointer area
    ASSERT_TRUE(image.MoveCursor(200, 90));
    EXPECT_EQ(kGreen555, Pixel555(image, 30, 30));  // the new rows came back
    EXPECT_EQ(kBackground555, Pixel555(image, 30, 45));
}

TEST(DesktopImageCursor, LargeAndOddShapesAreSavedWholeAndDrawnAtTheirOwnSize) {
    Image image(512, 256, 32);
    const std::vector<BYTE> before(image.GetBits(), image.GetBits() + image.GetStride() * 256);
    // 24 wide with 3-byte AND rows: the rows are padded for CreateIcon.
    for (const int size : {64, 48, 24}) {
        const auto rec = CursorRecordBytes(1, 0, 0, size, size, 0xFF0000, size == 24 ? 3 : 0);
        const auto view = ViewOf(rec);
        image.SetCursorShape(&view);  // at the last place, off the image: not drawn
        ASSERT_TRUE(image.MoveCursor(101, 101)) << size;
        EXPECT_EQ(kRed555, Pixel555(image, 100 + size, 100 + size)) << size;
        EXPECT_EQ(kBackground555, Pixel555(image, 101 + size, 101 + size)) << size;
        ASSERT_TRUE(image.MoveCursor(400, 200));
        ASSERT_FALSE(image.MoveCursor(-500, -500));
        EXPECT_EQ(before,
                  std::vector<BYTE>(image.GetBits(), image.GetBits() + image.GetStride() * 256))
            << size;
    }
    // A 24-pixel monochrome pointer: AND rows of 3 and of 4 bytes, XOR rows of 3 bytes each
    // (white on the diagonal, black elsewhere), padded to 4 for CreateIcon.
    for (const uint16_t andRow : {3, 4}) {
        std::vector<BYTE> rec(packet::kCursorMasksOffset + (andRow + 3) * 24 + 4, 0);
        packet::WriteCursorRecord(rec.data(),
                                  packet::CursorRecord{1, 1, 0, 0, 0, 0, 24, 24, andRow, 1, 1});
        for (int y = 0; y < 24; ++y)
            rec[packet::kCursorMasksOffset + andRow * 24 + 3 * y + y / 8] = 0x80 >> (y % 8);
        const auto view = ViewOf(rec);
        image.SetCursorShape(&view);
        ASSERT_TRUE(image.MoveCursor(101, 101)) << andRow;
        for (int i = 0; i < 24; ++i) {
            EXPECT_EQ(0x7FFF, Pixel555(image, 101 + i, 101 + i)) << andRow << " row " << i;
            EXPECT_EQ(0, Pixel555(image, 101 + (i + 1) % 24, 101 + i)) << andRow << " row " << i;
        }
    }
}
