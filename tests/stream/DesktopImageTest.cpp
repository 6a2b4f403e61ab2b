// DesktopImage on its own: geometry, row access, palette, the registry switch, named sections and
// the pointer overlay. (The logo: the capture's.)
#include <array>
#include <numeric>

#include "common/ScreenTestSupport.h"
#include "stream/DeskPref.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

constexpr UINT kSentinel = 0xdeadbeef;
constexpr uint16_t kBackground555 = 0x0210, kRed555 = 0x7C00, kGreen555 = 0x03E0;

struct Image : DesktopImage {
    Image(int w, int h, int bpp, DWORD compression = BI_RGB, std::vector<DWORD> tail = {}) {
        EXPECT_TRUE(CreateFromBitmapInfo(AsBmi(Bmi(w, h, bpp, compression, tail))));
    }
};

}  // namespace

TEST(DesktopImageGeometry, StrideAlignAndSizes) {
    for (const auto& s : {std::array<int, 3>{1366, 4, 684}, {1023, 24, 3072}, {13, 1, 4}})
        EXPECT_EQ(s[2], Image(s[0], 8, s[1]).GetStride()) << s[0] << "x" << s[1];
    Image image(100, 100, 16);
    const struct {
        RECT in, out;
        BOOL ok;
    } aligns[] = {
        {{-3, -3, 2, 2}, {0, 0, 8, 8}, TRUE},
        {{96, 96, 101, 101}, {96, 96, 100, 100}, TRUE},
        {{104, 0, 120, 8}, {0, 0, 0, 0}, FALSE},
    };
    for (const auto& a : aligns) {
        RECT out{};
        EXPECT_EQ(a.ok, image.AlignRect(&a.in, &out)) << a.in;
        EXPECT_EQ(a.out, out);
    }
    EXPECT_FALSE(image.AlignRect(nullptr, nullptr));
    const RECT r{8, 0, 72, 10};
    EXPECT_EQ(64u * 2 * 10, image.GetRectBytes(&r));
    EXPECT_EQ(1064u, DesktopImage::GetBitmapInfoSize(AsBmi(Bmi(8, 8, 8))));
    EXPECT_EQ(52u, DesktopImage::GetBitmapInfoSize(AsBmi(Bmi(8, 8, 16, BI_BITFIELDS))));
}

// (Shared sections between a server's and a viewer's image: the shared-memory tests.)
TEST(DesktopImageOpen, RefusesBadFormats) {
    DesktopImage image;
    EXPECT_FALSE(image.CreateFromBitmapInfo(nullptr));
    auto bottomUp = Bmi(64, 64, 16);
    reinterpret_cast<BITMAPINFOHEADER*>(bottomUp.data())->biHeight = 64;
    EXPECT_FALSE(image.CreateFromBitmapInfo(AsBmi(bottomUp)));
    EXPECT_FALSE(image.CreateFromBitmapInfo(AsBmi(Bmi(64, 64, 7))));
    EXPECT_FALSE(image.OpenFromBitmapInfo("Local\\VantrelNoSuchImage", AsBmi(Bmi(64, 64, 16))));
    EXPECT_FALSE(image.IsOpen());
    EXPECT_EQ(nullptr, image.GetBits());
}

// (Bands outside the image are not written: the decoder's tests.)
TEST(DesktopImageRows, CopyCountsOrderAndRefusals) {
    Image image(128, 16, 16);
    for (LONG y = 0; y < 16; ++y) {
        std::vector<uint16_t> row(64, static_cast<uint16_t>(y + 1));
        const RECT r{0, y, 64, y + 1};
        ASSERT_TRUE(image.PutRows(&r, row.data()));
    }
    const RECT r{0, 0, 64, 16};
    std::vector<uint16_t> out(64 * 16);
    UINT cb = 1000, lines = kSentinel;
    ASSERT_TRUE(image.CopyRows(&r, out.data(), &cb, 0, &lines));
    EXPECT_EQ(7u, lines);
    EXPECT_EQ(896u, cb);
    EXPECT_EQ(7, out[64 * 6]);
    cb = 3 * 128;
    ASSERT_TRUE(image.CopyRowsBottomUp(&r, out.data(), &cb, 4, &lines));
    ASSERT_EQ(3u, lines);
    EXPECT_EQ((std::vector<uint16_t>{7, 6, 5}), (std::vector<uint16_t>{out[0], out[64], out[128]}));

    const RECT thin{8, 0, 8, 4};
    cb = 100, lines = kSentinel;
    EXPECT_FALSE(image.CopyRows(&thin, out.data(), &cb, 0, &lines));
    EXPECT_EQ(0u, lines);
    const RECT outside{64, 8, 129, 16};
    cb = 100, lines = kSentinel;
    EXPECT_FALSE(image.CopyRows(&outside, out.data(), &cb, 0, &lines));
    EXPECT_FALSE(image.CopyRows(&r, out.data(), &cb, 17, &lines));
    EXPECT_EQ(kSentinel, lines);
    EXPECT_EQ(100u, cb);
}

TEST(DesktopImagePalette, ByteOrderTableAndPaletteFollowTheFormat) {
    const PALETTEENTRY entry{10, 20, 30, PC_NOCOLLAPSE};
    RGBQUAD colour{};
    DesktopImage::PaletteToColorTable(&entry, 1, &colour);
    EXPECT_EQ(
        (std::vector<BYTE>{30, 20, 10, 0}),
        (std::vector<BYTE>{colour.rgbBlue, colour.rgbGreen, colour.rgbRed, colour.rgbReserved}));

    std::vector<DWORD> table(256);
    std::iota(table.begin(), table.end(), 0x00010203);
    Image image(32, 8, 8, BI_RGB, table);
    UniquePalette palette(image.CreateImagePalette());
    ASSERT_TRUE(palette);
    PALETTEENTRY got[256];
    ASSERT_EQ(256u, GetPaletteEntries(palette.get(), 0, 256, got));
    EXPECT_EQ(0x01, got[5].peRed);
    EXPECT_EQ(0x02, got[5].peGreen);
    EXPECT_EQ(0x03 + 5, got[5].peBlue);

    table[7] = 0x00A0B0C0;
    EXPECT_TRUE(image.LoadBitmapInfo(AsBmi(Bmi(32, 8, 8, BI_RGB, table))));
    EXPECT_EQ(0x00A0B0C0u, reinterpret_cast<const DWORD*>(image.GetBitmapInfo()->bmiColors)[7]);
    EXPECT_FALSE(image.LoadBitmapInfo(AsBmi(Bmi(64, 8, 8, BI_RGB, table))));

    Image deep(32, 8, 16);
    EXPECT_FALSE(deep.RefreshPalette());
    EXPECT_EQ(nullptr, deep.CreateImagePalette());
}

TEST(DesktopImageSettings, FixCitrixOnlyWhenExactlyOne) {
    DeskPrefOverride fix(DeskPref::kFixCitrix16bit, 1);
    ASSERT_TRUE(fix.Ok());
    for (const DWORD value : {DWORD{1}, DWORD{2}, DeskPrefOverride::kNoValue}) {
        fix.Set(value);
        DesktopImage image;
        EXPECT_EQ(value == 1, image.Convert565()) << value;
    }
    EXPECT_EQ(-1, DeskPref::ReadValue(DeskPref::kFixCitrix16bit));
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
