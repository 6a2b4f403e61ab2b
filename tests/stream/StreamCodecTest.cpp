// The encoder and the decoder on images built from a BITMAPINFO, with the real ScreenCodec and
// no screen: merging and order, band cuts, header fix-up, colour tables, rebuilds, completion,
// damaged packets and cursor packets. (The stream of a real screen: the capture tests.)
#include "common/ScreenTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;
using Outcome = StreamDecoder::Outcome;

namespace {

std::vector<BYTE> Snapshot(const DesktopImage& image) {
    RECT all;
    image.GetScreenRect(&all);
    return std::vector<BYTE>(image.GetBits(), image.GetBits() + image.GetStride() * all.bottom);
}

// A frame packet for band of desktop at bpp whose payload is a BITMAPINFO of that desktop and
// the band's rows, each byte fill.
FakeSink::Packet FramePacket(IScreenCodec* codec, const RECT& desktop, uint32_t bpp,
                             const RECT& band, BYTE fill = 0x5A) {
    std::vector<BYTE> payload =
        Bmi(desktop.right - desktop.left, desktop.bottom - desktop.top, static_cast<int>(bpp));
    payload.resize(packet::BitmapInfoSize(bpp, BI_RGB));
    payload.resize(payload.size() + packet::RowBytes(band, bpp) * (band.bottom - band.top), fill);
    std::vector<BYTE> p(packet::kBufferSize);
    ULONG out = packet::kMaxFramePayload;
    EXPECT_EQ(S_OK, codec->Compress(payload.data(), static_cast<ULONG>(payload.size()),
                                    p.data() + packet::kFrameHeaderSize, &out, 2));
    p.resize(packet::WriteFrameHeader(p.data(), packet::FrameHeader{0, desktop, bpp, band}, out));
    return FakeSink::Packet{p, static_cast<unsigned long>(p.size()), 0};
}

}  // namespace

TEST_F(ScreenTest, UpdatesMergeOnTheGridInRegionOrder) {
    // Small bounding boxes go out whole; larger ones as the region's rectangles, lowest first.
    const struct {
        std::vector<RECT> in, bands;
    } cases[] = {
        {{{3, 5, 10, 9}}, {{0, 0, 16, 16}}},
        {{{0, 0, 8, 8}, {96, 96, 104, 104}}, {{96, 96, 104, 104}, {0, 0, 8, 8}}},
        {{{0, 0, 8, 8}, {40, 0, 48, 8}}, {{0, 0, 48, 8}}},
        {{{8, 8, 8, 16}}, {}},
        {{}, {}},
    };
    for (const auto& c : cases) {
        PacketSource s(codec_.Get(), Bmi(1024, 768, 16));
        const DWORD before = GetTickCount();
        EXPECT_EQ(static_cast<int>(c.bands.size()),
                  s.encoder.EncodeUpdate(c.in.data(), static_cast<UINT>(c.in.size())));
        EXPECT_EQ(c.bands, s.Bands()) << c.in.size();
        for (const auto& p : s.recorder.Packets()) {
            EXPECT_EQ(p.cbData, packet::ReadHead(p.bytes.data()).length);
            EXPECT_LE(packet::ReadHead(p.bytes.data()).time - before, 1000u);
        }
    }
}

TEST_F(ScreenTest, BandsCutTheFixedUpPayloadAtTheBufferSize) {
    const auto k565 = Bmi(1366, 64, 16, BI_BITFIELDS, {0xF800, 0x07E0, 0x001F});
    const struct {
        std::vector<BYTE> bmi;
        bool fix565;
        std::vector<RECT> bands;
        uint32_t bpp;
        DWORD compression;
        size_t lastBody;  // BITMAPINFO and rows of the last band
    } cases[] = {
        {Bmi(1024, 768, 32), false, {{0, 0, 1024, 767}, {0, 767, 1024, 768}}, 16, BI_RGB, 2088},
        {Bmi(1024, 768, 8), false, {{0, 0, 1024, 768}}, 8, BI_RGB, 1064 + 1024 * 768},
        {k565, false, {{1360, 0, 1366, 64}}, 16, BI_BITFIELDS, 52 + 12 * 64},
        {k565, true, {{1360, 0, 1366, 64}}, 16, BI_RGB, 40 + 12 * 64},
    };
    for (const auto& c : cases) {
        PacketSource s(codec_.Get(), c.bmi, 7);
        s.image.SetConvert565(c.fix565);
        RECT all;
        s.image.GetScreenRect(&all);
        // The narrow image sends a strip that snaps out to the grid and is clipped at its edge.
        const RECT r = all.right == 1366 ? RECT{1361, 3, 1366, 64} : all;
        s.encoder.SendRegion(&r);
        ASSERT_EQ(c.bands, s.Bands());
        const auto p = s.recorder.Packets().back();
        packet::FrameHeader h;
        packet::ReadFrameHeader(p.bytes.data(), p.cbData, &h);
        EXPECT_EQ(all, h.desktop);
        EXPECT_EQ(c.bpp, h.bitsPerPixel);
        const auto body = Body(p.bytes, packet::kFrameHeaderSize);
        const auto* bih = reinterpret_cast<const BITMAPINFOHEADER*>(body.data());
        EXPECT_EQ(c.compression, bih->biCompression);
        EXPECT_EQ(c.bpp, bih->biBitCount);
        EXPECT_EQ(c.lastBody, body.size());
        if (all.right == 1366) {  // 5-6-5 rows: converted exactly when the header says 5-5-5
            const BYTE* rows = body.data() + body.size() - 12 * 64;
            for (LONG y = 0; y < 64; ++y)
                for (LONG x = 0; x < 6; ++x) {
                    const BYTE* raw = s.image.GetBits() + y * s.image.GetStride() + 2 * (1360 + x);
                    ASSERT_EQ(c.fix565 ? Pixel555(s.image, 1360 + x, y) : packet::LoadU16(raw),
                              packet::LoadU16(rows + 2 * (y * 6 + x)));
                }
        }
    }
}

TEST_F(ScreenTest, ColourTableTravelsWithEveryPacket) {
    std::vector<DWORD> t1(256, 0), t2(256, 0);
    t1[7] = 0x00102030;
    t2[7] = 0x00C0B0A0;
    PacketSource s(codec_.Get(), Bmi(64, 32, 8, BI_RGB, t1));
    const RECT all{0, 0, 64, 32}, corner{0, 0, 8, 8};
    std::vector<BYTE> sevens(64 * 32, 7);
    s.image.PutRows(&all, sevens.data());
    s.encoder.SendRegion(&all);
    ASSERT_TRUE(s.image.LoadBitmapInfo(AsBmi(Bmi(64, 32, 8, BI_RGB, t2))));
    s.encoder.SendRegion(&corner);
    ASSERT_EQ(2u, s.recorder.PacketCount());

    DecodingSink r(codec_.Get());
    auto shown = [&](int x, int y) {
        WindowDc screen(nullptr);
        UniqueHdc dc(CreateCompatibleDC(screen.get()));
        UniqueBitmap bmp(CreateCompatibleBitmap(screen.get(), 64, 32));
        SelectObjectGuard select(dc.get(), bmp.get());
        r.image.BltTo(dc.get(), 0, 0, &all);
        return GetPixel(dc.get(), x, y);
    };
    ASSERT_EQ(Outcome::Frame, r.Take(s.recorder.Packets()[0]));
    EXPECT_EQ(RGB(0x10, 0x20, 0x30), shown(40, 20));
    ASSERT_EQ(Outcome::Frame, r.Take(s.recorder.Packets()[1]));
    EXPECT_EQ(RGB(0xC0, 0xB0, 0xA0), shown(40, 20));  // outside the second band too
    EXPECT_EQ(1, r.rebuilds);
}

TEST_F(ScreenTest, DecoderRebuildsOnFormatChangeAndCompletesOnCoverage) {
    PacketSource s(codec_.Get(), Bmi(1024, 768, 16), 3);
    const RECT top{0, 0, 1024, 8}, bottom{0, 760, 1024, 768}, middle{0, 8, 1024, 760};
    for (const RECT& r : {top, bottom, middle, top})
        s.encoder.SendRegion(&r);
    const auto packets = s.recorder.Packets();
    DecodingSink r(codec_.Get());
    for (size_t i = 0; i < packets.size(); ++i) {
        EXPECT_EQ(Outcome::Frame, r.Take(packets[i]));
        EXPECT_EQ(i >= 2, r.decoder.IsPictureComplete()) << i;  // the gap is not a picture
    }
    EXPECT_EQ(1, r.completions);
    EXPECT_EQ(Snapshot(s.image), Snapshot(r.image));

    PacketSource wide(codec_.Get(), Bmi(1280, 1024, 16), 4);
    const RECT band{8, 8, 16, 16};
    wide.encoder.SendRegion(&band);
    ASSERT_EQ(Outcome::Frame, r.Take(wide.recorder.Packets()[0]));
    EXPECT_EQ(2, r.rebuilds);
    EXPECT_EQ((RECT{0, 0, 1280, 1024}), r.decoder.GetDesktopRect());
    EXPECT_EQ(0x0210, Pixel555(r.image, 7, 8));
    EXPECT_EQ(Pixel555(wide.image, 8, 8), Pixel555(r.image, 8, 8));
    EXPECT_EQ(0x0210, Pixel555(r.image, 1279, 1023));

    // A failed rebuild leaves the image closed; the next packet rebuilds.
    r.failRebuild = true;
    EXPECT_EQ(Outcome::RebuildFailed, r.Take(packets[0]));
    EXPECT_FALSE(r.image.IsOpen());
    r.failRebuild = false;
    EXPECT_EQ(Outcome::Frame, r.Take(packets[0]));
    EXPECT_EQ(Pixel555(s.image, 5, 5), Pixel555(r.image, 5, 5));
}

TEST_F(ScreenTest, DamagedPacketsChangeNothing) {
    PacketSource s(codec_.Get(), Bmi(256, 64, 16), 9);
    const RECT all{0, 0, 256, 64}, small{0, 0, 16, 16};
    s.encoder.SendRegion(&all);
    s.encoder.SendRegion(&small);
    const auto good = s.recorder.Packets();
    // A packet of kind magic whose compressed body is the first size bytes of body.
    auto pack = [&](uint32_t magic, const std::vector<BYTE>& body, size_t size) {
        const uint32_t header = magic == packet::kFrameMagic ? 48 : 12;
        std::vector<BYTE> p(packet::kBufferSize);
        ULONG out = packet::kBufferSize - header;
        EXPECT_EQ(S_OK, codec_->Compress(body.data(), static_cast<ULONG>(size), p.data() + header,
                                         &out, 2));
        const packet::FrameHeader h{0, {0, 0, 256, 64}, 16, {0, 0, 16, 16}};
        p.resize(magic == packet::kFrameMagic ? packet::WriteFrameHeader(p.data(), h, out)
                                              : packet::WriteCursorHeader(p.data(), 0, out));
        return FakeSink::Packet{p, static_cast<unsigned long>(p.size()), 0};
    };
    std::vector<BYTE> rowsShort = Bmi(256, 64, 16);  // a row short of the band
    rowsShort.resize(40 + 15 * 32, 0x55);
    const auto cursor = CursorRecordBytes(3, 40, 40, 32, 32, 0xFF0000);
    DecodingSink r(codec_.Get());
    EXPECT_EQ(Outcome::NoImage, r.Take(pack(packet::kCursorMagic, cursor, cursor.size())));
    ASSERT_EQ(Outcome::Frame, r.Take(good[0]));
    const auto before = Snapshot(r.image);

    // The acceptance rules are the packet tests', a refused packet the render's.
    auto cut = good[1];
    cut.bytes.resize(cut.bytes.size() - 6);
    cut.cbData = static_cast<unsigned long>(cut.bytes.size());
    packet::StoreU32(cut.bytes.data() + 4, cut.cbData);
    const struct {
        FakeSink::Packet p;
        Outcome expected;
    } cases[] = {
        {cut, Outcome::CodecFailed},
        {pack(packet::kFrameMagic, rowsShort, rowsShort.size()), Outcome::Damaged},
        {pack(packet::kCursorMagic, cursor, 15), Outcome::Damaged},  // not even its position
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, r.Take(c.p));
    EXPECT_EQ(before, Snapshot(r.image));
    EXPECT_TRUE(r.cursorAreas.empty());
    EXPECT_EQ(Outcome::NoCodec, DecodingSink(nullptr).Take(good[1]));
}

TEST_F(ScreenTest, CursorRecordsTravelAndApplyShapeThenPositionEvenWithAnUnreadableShape) {
    PacketSource s(codec_.Get(), Bmi(1024, 768, 32));
    const RECT all{0, 0, 8, 8};
    s.encoder.SendRegion(&all);
    auto nothing = CursorRecordBytes(0, 0, 0, 32, 32, 0xFF0000);
    EXPECT_FALSE(s.encoder.SendCursorRecord(nothing.data(), 4256));
    auto moveOnly = CursorRecordBytes(6, 300, 200, 32, 32, 0xFF0000);
    ASSERT_TRUE(s.encoder.SendCursorRecord(moveOnly.data(), 4256));
    auto body = Body(s.recorder.Packets().back().bytes, packet::kCursorHeaderSize);
    EXPECT_EQ(32u, body.size());
    EXPECT_EQ(2u, packet::LoadU32(body.data()));      // sender's flags
    EXPECT_EQ(1u, packet::LoadU32(body.data() + 4));  // shape present
    auto both = CursorRecordBytes(3, 100, 100, 32, 32, 0xFF0000);
    EXPECT_FALSE(s.encoder.SendCursorRecord(both.data(), 100));
    ASSERT_TRUE(s.encoder.SendCursorRecord(both.data(), static_cast<uint32_t>(both.size())));
    EXPECT_EQ(both.size(), Body(s.recorder.Packets().back().bytes, 12).size());
    auto narrowRows = CursorRecordBytes(3, 100, 20, 32, 32, 0xFF0000, 2);  // 16 bits for 32
    auto shapeOnly = CursorRecordBytes(1, 0, 0, 32, 32, 0x00FF00);
    for (auto* rec : {&narrowRows, &shapeOnly})
        ASSERT_TRUE(s.encoder.SendCursorRecord(rec->data(), static_cast<uint32_t>(rec->size())));

    DecodingSink r(codec_.Get());
    const auto packets = s.recorder.Packets();
    ASSERT_EQ(Outcome::Frame, r.Take(packets[0]));
    ASSERT_TRUE(r.image.MoveCursor(300, 200));  // the default arrow
    RECT arrow, expected;
    r.image.GetCursorRect(&arrow);
    r.image.TakeChangedArea();
    EXPECT_EQ(Outcome::Cursor, r.Take(packets[2]));
    ASSERT_EQ(2u, r.cursorAreas.size());
    const RECT shapeAtOldPlace{296, 200, 336, 232};
    UnionRect(&expected, &arrow, &shapeAtOldPlace);
    EXPECT_EQ(expected, r.cursorAreas[0]);
    EXPECT_EQ((RECT{96, 96, 336, 232}), r.cursorAreas[1]);  // old place, new place
    EXPECT_EQ(0x7C00, Pixel555(r.image, 131, 131));
    EXPECT_EQ(Outcome::Cursor, r.Take(packets[1]));  // position only: shape kept
    EXPECT_EQ(0x7C00, Pixel555(r.image, 331, 231));
    EXPECT_EQ(0x0210, Pixel555(r.image, 131, 131));

    // A record whose shape fails its checks still moves the pointer; the old pointer goes and
    // none is drawn until a shape that can be read arrives, where the broken record put it.
    RECT drawn, old;
    r.image.GetCursorRect(&old);
    r.cursorAreas.clear();
    EXPECT_EQ(Outcome::Cursor, r.Take(packets[3]));
    r.image.GetCursorRect(&drawn);
    EXPECT_TRUE(IsRectEmpty(&drawn));
    EXPECT_EQ(Pixel555(s.image, 331, 231), Pixel555(r.image, 331, 231));
    ASSERT_FALSE(r.cursorAreas.empty());
    EXPECT_EQ(old, r.cursorAreas.front());
    EXPECT_EQ(Outcome::Cursor, r.Take(packets[4]));
    r.image.GetCursorRect(&drawn);
    EXPECT_EQ((RECT{96, 16, 136, 56}), drawn);
    EXPECT_EQ(0x03E0, Pixel555(r.image, 101, 21));
}

// A packet of a few dozen bytes must not make a receiver allocate and clear a huge image (the
// limits themselves: the packet tests); the picture held stays. Bands outside the desktop are
// neither written nor counted towards a whole picture.
TEST_F(ScreenTest, DesktopsBeyondTheLimitsAndBandsOutsideChangeNothing) {
    const RECT desktop{0, 0, 64, 64};
    auto frame = [&](const RECT& d, const RECT& band) {
        return FramePacket(codec_.Get(), d, 16, band);
    };
    DecodingSink r(codec_.Get());
    EXPECT_EQ(Outcome::Refused, r.Take(frame({0, 0, 8193, 8}, {0, 0, 8, 1})));
    EXPECT_FALSE(r.image.IsOpen());
    ASSERT_EQ(Outcome::Frame, r.Take(frame(desktop, {0, 0, 64, 32})));
    EXPECT_EQ(Outcome::Refused, r.Take(frame({0, 0, 16000, 16000}, desktop)));
    EXPECT_EQ(desktop, r.decoder.GetDesktopRect());
    EXPECT_EQ(1, r.rebuilds);
    for (const RECT& band : {RECT{0, 32, 64, 72}, {-8, 0, 64, 64}}) {
        EXPECT_EQ(Outcome::Frame, r.Take(frame(desktop, band)));
        EXPECT_FALSE(r.decoder.IsPictureComplete()) << band;
        EXPECT_EQ(0x0210, Pixel555(r.image, 60, 60)) << band;  // still the background
    }
    EXPECT_EQ(Outcome::Frame, r.Take(frame(desktop, {0, 32, 64, 64})));
    EXPECT_TRUE(r.decoder.IsPictureComplete());
}

// Noise does not compress: a band cut to fill the buffer comes back larger than a packet holds
// unless the buffer had some slack, and its rows must arrive all the same. The widths are those
// that leave a full band within a few dozen bytes of the buffer's end; 2168 at 8 bpp and 5208 at
// 1 bpp fill it to the last byte, which no codec can shrink.
TEST_F(ScreenTest, IncompressibleFullBandsStillCompleteThePicture) {
    const std::vector<DWORD> k565{0xF800, 0x07E0, 0x001F};
    const struct {
        int bpp;
        std::vector<int> widths;
    } cases[] = {
        {16, {688, 1016, 2032}},
        {8, {1016, 2168}},
        {1, {5208}},
    };
    for (const auto& c : cases) {
        for (const int width : c.widths) {
            SCOPED_TRACE(testing::Message() << width << " at " << c.bpp);
            auto format = [&](int height) {
                return c.bpp == 16 ? Bmi(width, height, 16, BI_BITFIELDS, k565)
                                   : Bmi(width, height, c.bpp);
            };
            const uint32_t n = DesktopImage::GetBitmapInfoSize(AsBmi(format(8)));
            // Two full bands and a short one.
            const int height = static_cast<int>(2 * packet::RowsThatFit(n, width * c.bpp / 8) + 5);
            PacketSource s(codec_.Get(), format(height), 1234 + width);
            const RECT all{0, 0, width, height};
            EXPECT_GE(s.encoder.SendRegion(&all), 3);
            DecodingSink r(codec_.Get());
            LONG next = 0;
            for (const auto& p : s.recorder.Packets()) {
                ASSERT_EQ(Outcome::Frame, r.Take(p));
                const RECT band = r.Arrivals().back().band;
                EXPECT_EQ(next, band.top);
                next = band.bottom;
            }
            EXPECT_EQ(height, next);
            EXPECT_TRUE(r.decoder.IsPictureComplete());
            EXPECT_TRUE(Snapshot(s.image) == Snapshot(r.image));
        }
    }
}
