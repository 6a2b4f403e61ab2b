// Packet layout: exact bytes of the headers, the acceptance rules every decoder applies, and the
// checked views of frame payloads and cursor records.
#include <windows.h>

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "stream/Packet.h"

using namespace vantrel::packet;

namespace {

std::vector<BYTE> Le32(std::initializer_list<uint32_t> values) {
    std::vector<BYTE> out;
    for (uint32_t v : values)
        for (int i = 0; i < 4; ++i)
            out.push_back(static_cast<BYTE>(v >> (8 * i)));
    return out;
}

FrameHeader Frame1024x768(RECT band, uint32_t bpp = 16, uint32_t time = 0) {
    return FrameHeader{time, RECT{0, 0, 1024, 768}, bpp, band};
}

// A frame packet of total length cbData whose length field says lengthField.
std::vector<BYTE> FramePacket(uint32_t cbData, uint32_t lengthField, uint32_t magic = kFrameMagic) {
    std::vector<BYTE> p(cbData < kHeadSize ? kHeadSize : cbData, 0xAB);
    if (cbData >= kFrameHeaderSize)
        WriteFrameHeader(p.data(), Frame1024x768(RECT{0, 0, 16, 16}), cbData - kFrameHeaderSize);
    WriteHead(p.data(), Head{magic, lengthField, 7});
    p.resize(cbData);
    return p;
}

TEST(PacketLayout, HeaderBytesBodiesAndAcceptance) {
    std::vector<BYTE> frame(kFrameHeaderSize + 100, 0);
    ASSERT_EQ(148u,
              WriteFrameHeader(frame.data(), Frame1024x768(RECT{0, 0, 16, 16}, 16, 1000), 100));
    std::vector<BYTE> expected = {'H', 'M', 'R', 'F', 0x94, 0, 0, 0, 0xE8, 0x03, 0, 0};
    const std::vector<BYTE> rest = Le32({0, 0, 1024, 768, 16, 0, 0, 16, 16});
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_EQ(expected, std::vector<BYTE>(frame.begin(), frame.begin() + 48));
    const ByteRange body = BodyOf(frame.data(), 148, Verdict::Frame);
    EXPECT_EQ(frame.data() + 48, body.data);
    EXPECT_EQ(100u, body.size);

    std::vector<BYTE> cursor(kCursorHeaderSize + 50, 0);
    EXPECT_EQ(62u, WriteCursorHeader(cursor.data(), 1000, 50));
    SetTime(cursor.data(), 0x01020304);
    EXPECT_EQ((std::vector<BYTE>{'H', 'R', 'U', 'C', 62, 0, 0, 0, 4, 3, 2, 1}),
              std::vector<BYTE>(cursor.begin(), cursor.begin() + 12));
    EXPECT_EQ(cursor.data() + 12, BodyOf(cursor.data(), 62, Verdict::Cursor).data);

    const struct {
        uint32_t cbData, lengthField, magic;
        Verdict expected;
    } cases[] = {
        {148, 148, kFrameMagic, Verdict::Frame},
        {148, 149, kFrameMagic, Verdict::LengthMismatch},
        {148, 148, 0x484D5246, Verdict::UnknownMagic},  // the magic in big-endian order
        {48, 48, kFrameMagic, Verdict::Frame},          // the frame header alone
        {47, 47, kFrameMagic, Verdict::TooShort},
        {12, 12, kCursorMagic, Verdict::Cursor},
        {kBufferSize, kBufferSize, kFrameMagic, Verdict::Frame},
        {kBufferSize + 1, kBufferSize + 1, kCursorMagic, Verdict::TooLong},
    };
    for (const auto& c : cases) {
        const std::vector<BYTE> packet = FramePacket(c.cbData, c.lengthField, c.magic);
        const Verdict v = Classify(packet.data(), c.cbData);
        EXPECT_EQ(c.expected, v) << c.cbData << " " << c.lengthField << " " << VerdictName(v);
        EXPECT_EQ(IsAccepted(c.expected), BodyOf(packet.data(), c.cbData, v).data != nullptr)
            << c.cbData;
    }
    EXPECT_EQ(Verdict::NoData, Classify(nullptr, 148));
    FrameHeader untouched;
    untouched.time = 0xdeadbeef;
    const std::vector<BYTE> shortFrame = FramePacket(47, 47);
    EXPECT_FALSE(ReadFrameHeader(shortFrame.data(), 47, &untouched));
    EXPECT_EQ(0xdeadbeefu, untouched.time);
}

// ---- Frame payloads ----------------------------------------------------------------------------

// A BI_RGB payload of band, extra bytes longer (or shorter) than it should be.
std::vector<BYTE> Payload(uint16_t bpp, const RECT& band, int32_t extra = 0) {
    const uint32_t info = BitmapInfoSize(bpp, BI_RGB);
    const uint32_t rows = RowBytes(band, bpp) * static_cast<uint32_t>(band.bottom - band.top);
    std::vector<BYTE> p(static_cast<size_t>(static_cast<int64_t>(info) + rows + extra), 0x5A);
    const BITMAPINFOHEADER h{40, 1024, -768, 1, bpp, BI_RGB, 0, 0, 0, 0, 0};
    std::memcpy(p.data(), &h, sizeof h);
    return p;
}

// Where the colour part and the rows lie: the round trips of the encoder and the decoder at 1, 8
// and 16 bpp, and the packet fuzz target (a view stays inside its bytes). Here the refusals.
TEST(PayloadView, RefusesBrokenHeadersAndDesktopsBeyondTheLimits) {
    const RECT band{0, 0, 16, 16};
    const FrameHeader frame = Frame1024x768(band);
    auto with = [&](auto edit) {
        std::vector<BYTE> p = Payload(16, band);
        edit(*reinterpret_cast<BITMAPINFOHEADER*>(p.data()));
        return p;
    };
    FrameHeader at8 = frame, inverted = frame;
    at8.bitsPerPixel = 8;
    inverted.band = RECT{16, 0, 0, 16};
    const struct {
        const char* what;
        std::vector<BYTE> payload;
        FrameHeader frame;
        PayloadError expected;
    } refused[] = {
        {"39 bytes", std::vector<BYTE>(39, 0), frame, PayloadError::TooShort},
        {"biSize 124", with([](auto& h) { h.biSize = 124; }), frame, PayloadError::HeaderSize},
        {"2 bpp", with([](auto& h) { h.biBitCount = 2; }), frame, PayloadError::BitCount},
        {"RLE8", with([](auto& h) { h.biCompression = BI_RLE8; }), frame,
         PayloadError::Compression},
        {"header 8 bpp, packet 16", with([](auto& h) { h.biBitCount = 8; }), frame,
         PayloadError::BitCountMismatch},
        {"bottom-up", with([](auto& h) { h.biHeight = 768; }), frame,
         PayloadError::DesktopMismatch},
        {"inverted band", Payload(16, band), inverted, PayloadError::BadBand},
        {"a row cut", Payload(16, band, -1), frame, PayloadError::RowsDoNotFit},
        // 8 bpp needs its 1064-byte BITMAPINFO whole before any row.
        {"colour table cut", Payload(8, RECT{0, 0, 0, 0}, -1), at8,
         PayloadError::BitmapInfoTooLarge},
    };
    for (const auto& c : refused) {
        FramePayloadView view;
        view.bitmapInfoSize = 0xdeadbeef;
        EXPECT_EQ(c.expected,
                  ParseFramePayload(c.payload.data(), static_cast<uint32_t>(c.payload.size()),
                                    c.frame, &view))
            << c.what;
        EXPECT_EQ(0xdeadbeefu, view.bitmapInfoSize) << c.what;
    }

    // The desktops a decoder builds: at most 8192 a side and 128 MiB of pixels.
    const struct {
        RECT desktop;
        uint32_t bpp;
        bool fits;
    } desktops[] = {
        {{0, 0, 8192, 8192}, 16, true}, {{0, 0, 8192, 8192}, 24, false},
        {{0, 0, 1, 8193}, 1, false},    {{0, 0, 1024, -768}, 16, false},
        {{1, 0, 1025, 768}, 16, false}, {{0, 0, 1024, 768}, 12, false},
    };
    for (const auto& c : desktops)
        EXPECT_EQ(c.fits, DesktopWithinLimits(c.desktop, c.bpp))
            << c.desktop.left << "," << c.desktop.right << "x" << c.desktop.bottom << "@" << c.bpp;
}

// ---- Cursor records ----------------------------------------------------------------------------

CursorRecord Shape(uint32_t flags, uint16_t w, uint16_t h, uint8_t bpp, uint16_t andRow) {
    return CursorRecord{flags, 1, -5, 700, 3, 4, w, h, andRow, 1, bpp};
}

std::vector<BYTE> RecordBytes(const CursorRecord& r, uint32_t size) {
    std::vector<BYTE> bytes(size < kCursorMasksOffset ? kCursorMasksOffset : size, 0);
    for (uint32_t i = kCursorMasksOffset; i < size; ++i)
        bytes[i] = static_cast<BYTE>(i);
    WriteCursorRecord(bytes.data(), r);
    return bytes;
}

TEST(CursorRecordLayout, FieldOffsetsSenderFlagsAndLengths) {
    const std::vector<BYTE> bytes = RecordBytes(Shape(3, 32, 32, 32, 4), 28);
    const std::vector<BYTE> expected = {3, 0, 0, 0, 1, 0, 0,  0, 0xFB, 0xFF, 0xFF, 0xFF, 0xBC, 2,
                                        0, 0, 3, 0, 4, 0, 32, 0, 32,   0,    4,    0,    1,    32};
    EXPECT_EQ(expected, bytes);  // read back field by field: the fuzz targets
    EXPECT_EQ(2u, SenderCursorFlags(6));
    const struct {
        CursorRecord record;
        uint32_t length;
    } cases[] = {
        // 256 x 256 x 8 bpp: the XOR count 65536 keeps its low 16 bits, 0.
        {Shape(1, 256, 256, 8, 32), 32 + 0 + 8192},
        // 4 bpp x 15 x 1 = 60 bits: 7 bytes, integer division.
        {Shape(1, 15, 1, 4, 2), 32 + 7 + 2},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.length, SenderCursorRecordLength(c.record))
            << c.record.width << "x" << c.record.height << "x" << int(c.record.bitsPerPixel);
}

// Where the masks lie, what each flag asks for and which records a sound shape is read from: the
// cursor fuzz target. Here the records refused, and the sender's length, 4 bytes more than a
// receiver needs.
TEST(CursorRecordView, RefusesRecordsWhoseShapeCannotBeRead) {
    const struct {
        const char* what;
        CursorRecord record;
        uint32_t size;
        CursorError expected;
    } cases[] = {
        {"position cut", Shape(2, 32, 32, 1, 4), 15, CursorError::TooShort},
        {"shape header cut", Shape(3, 32, 32, 1, 4), 27, CursorError::BadShape},
        {"zero width", Shape(1, 0, 32, 1, 4), 400, CursorError::BadShape},
        {"3 bpp", Shape(1, 32, 32, 3, 4), 400, CursorError::BadShape},
        {"AND rows too short", Shape(1, 32, 32, 1, 3), 400, CursorError::BadShape},
        {"XOR rows end inside a byte", Shape(1, 20, 20, 1, 4), 400, CursorError::BadShape},
        // What the sender sends for a 256 x 256 x 8 shape: the truncated count leaves no XOR bits.
        {"truncated count", Shape(1, 256, 256, 8, 32), 32 + 8192, CursorError::MasksDoNotFit},
        {"largest counts", Shape(1, 0xFFFF, 0xFFFF, 32, 0xFFFF), 1000, CursorError::MasksDoNotFit},
    };
    for (const auto& c : cases) {
        const std::vector<BYTE> bytes = RecordBytes(c.record, c.size);
        CursorRecordView view;
        view.andMaskSize = 0xdeadbeef;
        EXPECT_EQ(c.expected, ParseCursorRecord(bytes.data(), c.size, &view)) << c.what;
        // Past the fixed part the caller still gets it, without a shape.
        const bool fixedPart = c.expected != CursorError::TooShort;
        EXPECT_EQ(fixedPart ? 0u : 0xdeadbeefu, view.andMaskSize) << c.what;
        EXPECT_EQ(fixedPart ? 700 : 0, view.record.y) << c.what;
        EXPECT_FALSE(view.newShape) << c.what;
    }
    const std::vector<BYTE> sound = RecordBytes(Shape(3, 32, 32, 32, 4), 4256);
    CursorRecordView view;
    EXPECT_EQ(CursorError::None, ParseCursorRecord(sound.data(), 4252, &view));
    EXPECT_EQ(CursorError::MasksDoNotFit, ParseCursorRecord(sound.data(), 4251, &view));
    // A position-only record needs no shape and may stop after its 16 bytes.
    const std::vector<BYTE> bytes = RecordBytes(Shape(2, 0, 0, 3, 0), 32);
    EXPECT_EQ(CursorError::None, ParseCursorRecord(bytes.data(), 16, &view));
    EXPECT_TRUE(view.newPosition);
    EXPECT_EQ(700, view.record.y);
    EXPECT_EQ(CursorError::TooShort, ParseCursorRecord(nullptr, 32, &view));
}

}  // namespace
