// Packet layout: exact bytes of the headers, the acceptance rules every decoder applies, and the
// checked views of frame payloads and cursor records.
#include <windows.h>

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stream/Packet.h"

using namespace vantrel::packet;

namespace {

std::vector<BYTE> Le32(std::initializer_list<uint32_t> values) {
    std::vector<BYTE> out;
    for (uint32_t v : values) {
        for (int i = 0; i < 4; ++i)
            out.push_back(static_cast<BYTE>(v >> (8 * i)));
    }
    return out;
}

FrameHeader Frame1024x768(RECT band, uint32_t bpp = 16, uint32_t time = 0) {
    FrameHeader h;
    h.time = time;
    h.desktop = RECT{0, 0, 1024, 768};
    h.bitsPerPixel = bpp;
    h.band = band;
    return h;
}

// A frame packet of total length cbData whose length field says lengthField.
std::vector<BYTE> FramePacket(uint32_t cbData, uint32_t lengthField, uint32_t magic = kFrameMagic) {
    std::vector<BYTE> p(cbData < kHeadSize ? kHeadSize : cbData, 0xAB);
    if (cbData >= kFrameHeaderSize) {
        WriteFrameHeader(p.data(), Frame1024x768(RECT{0, 0, 16, 16}), cbData - kFrameHeaderSize);
    }
    WriteHead(p.data(), Head{magic, lengthField, 7});
    p.resize(cbData);
    return p;
}

TEST(PacketLayout, FrameHeaderBytesOfTheReferenceBand) {
    std::vector<BYTE> packet(kFrameHeaderSize + 100, 0);
    const uint32_t length =
        WriteFrameHeader(packet.data(), Frame1024x768(RECT{0, 0, 16, 16}, 16, 1000), 100);
    EXPECT_EQ(148u, length);

    std::vector<BYTE> expected = {0x48, 0x4D, 0x52, 0x46, 0x94, 0x00,
                                  0x00, 0x00, 0xE8, 0x03, 0x00, 0x00};
    const std::vector<BYTE> rest = Le32({0, 0, 1024, 768, 16, 0, 0, 16, 16});
    expected.insert(expected.end(), rest.begin(), rest.end());
    ASSERT_EQ(48u, expected.size());
    EXPECT_EQ(expected, std::vector<BYTE>(packet.begin(), packet.begin() + 48));

    ASSERT_EQ(Verdict::Frame, Classify(packet.data(), length));
    const ByteRange body = BodyOf(packet.data(), length, Verdict::Frame);
    EXPECT_EQ(packet.data() + 48, body.data);
    EXPECT_EQ(100u, body.size);

    FrameHeader read;
    ASSERT_TRUE(ReadFrameHeader(packet.data(), length, &read));
    EXPECT_EQ(1000u, read.time);
    EXPECT_EQ(16u, read.bitsPerPixel);
    const RECT desktop{0, 0, 1024, 768};
    EXPECT_EQ(0, std::memcmp(&desktop, &read.desktop, sizeof desktop));
    EXPECT_EQ(16, read.band.right);
    EXPECT_EQ(16, read.band.bottom);
}

TEST(PacketLayout, CursorHeaderAndTimeRewrite) {
    std::vector<BYTE> packet(kCursorHeaderSize + 50, 0);
    EXPECT_EQ(62u, WriteCursorHeader(packet.data(), 1000, 50));
    const std::vector<BYTE> expected = {0x48, 0x52, 0x55, 0x43, 62, 0, 0, 0, 0xE8, 0x03, 0, 0};
    EXPECT_EQ(expected, std::vector<BYTE>(packet.begin(), packet.begin() + 12));

    ASSERT_EQ(Verdict::Cursor, Classify(packet.data(), 62));
    EXPECT_EQ(packet.data() + 12, BodyOf(packet.data(), 62, Verdict::Cursor).data);
    EXPECT_EQ(50u, BodyOf(packet.data(), 62, Verdict::Cursor).size);

    SetTime(packet.data(), 0x01020304);
    const Head head = ReadHead(packet.data());
    EXPECT_EQ(kCursorMagic, head.magic);
    EXPECT_EQ(62u, head.length);
    EXPECT_EQ(0x01020304u, head.time);
}

struct AcceptanceCase {
    const char* name;
    uint32_t cbData;
    uint32_t lengthField;
    uint32_t magic;
    Verdict expected;
};

void PrintTo(const AcceptanceCase& c, std::ostream* os) {
    *os << c.name;
}

class Acceptance : public testing::TestWithParam<AcceptanceCase> {};

TEST_P(Acceptance, ClassifiesOrRefuses) {
    const AcceptanceCase& c = GetParam();
    const std::vector<BYTE> packet = FramePacket(c.cbData, c.lengthField, c.magic);
    const BYTE* data = packet.empty() ? reinterpret_cast<const BYTE*>("") : packet.data();
    const Verdict v = Classify(data, c.cbData);
    EXPECT_EQ(c.expected, v) << VerdictName(v);
    EXPECT_EQ(IsAccepted(c.expected), BodyOf(data, c.cbData, v).data != nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, Acceptance,
    testing::Values(
        AcceptanceCase{"frame", 148, 148, kFrameMagic, Verdict::Frame},
        AcceptanceCase{"length_plus_one", 148, 149, kFrameMagic, Verdict::LengthMismatch},
        AcceptanceCase{"length_minus_one", 148, 147, kFrameMagic, Verdict::LengthMismatch},
        AcceptanceCase{"unknown_magic", 148, 148, 0x46524D49, Verdict::UnknownMagic},
        AcceptanceCase{"magic_in_big_endian", 148, 148, 0x484D5246, Verdict::UnknownMagic},
        AcceptanceCase{"frame_header_only", 48, 48, kFrameMagic, Verdict::Frame},
        AcceptanceCase{"frame_shorter_than_header", 47, 47, kFrameMagic, Verdict::TooShort},
        AcceptanceCase{"cursor_head_only", 12, 12, kCursorMagic, Verdict::Cursor},
        AcceptanceCase{"shorter_than_head", 11, 11, kFrameMagic, Verdict::TooShort},
        AcceptanceCase{"empty", 0, 0, kFrameMagic, Verdict::TooShort},
        AcceptanceCase{"largest", kBufferSize, kBufferSize, kFrameMagic, Verdict::Frame},
        AcceptanceCase{"oversize", kBufferSize + 1, kBufferSize + 1, kFrameMagic, Verdict::TooLong},
        AcceptanceCase{"oversize_cursor", kBufferSize + 1, kBufferSize + 1, kCursorMagic,
                       Verdict::TooLong}),
    [](const testing::TestParamInfo<AcceptanceCase>& info) { return info.param.name; });

TEST(PacketAcceptance, NullDataAndHeadersOfRefusedPackets) {
    EXPECT_EQ(Verdict::NoData, Classify(nullptr, 148));
    EXPECT_EQ(nullptr, BodyOf(nullptr, 148, Verdict::Frame).data);

    FrameHeader untouched;
    untouched.time = 0xdeadbeef;
    const std::vector<BYTE> cursor = FramePacket(60, 60, kCursorMagic);
    EXPECT_FALSE(ReadFrameHeader(cursor.data(), 60, &untouched));
    const std::vector<BYTE> shortFrame = FramePacket(47, 47);
    EXPECT_FALSE(ReadFrameHeader(shortFrame.data(), 47, &untouched));
    EXPECT_EQ(0xdeadbeefu, untouched.time);
}

// ---- Frame payloads ----------------------------------------------------------------------------

std::vector<BYTE> Payload(uint16_t bpp, DWORD compression, const RECT& band, int32_t extra = 0,
                          LONG width = 1024, LONG height = 768) {
    const uint32_t info = BitmapInfoSize(bpp, compression);
    const uint32_t rows = RowBytes(band, bpp) * static_cast<uint32_t>(band.bottom - band.top);
    std::vector<BYTE> p(static_cast<size_t>(static_cast<int64_t>(info) + rows + extra), 0x5A);
    BITMAPINFOHEADER h{};
    h.biSize = 40;
    h.biWidth = width;
    h.biHeight = -height;
    h.biPlanes = 1;
    h.biBitCount = bpp;
    h.biCompression = compression;
    std::memcpy(p.data(), &h, sizeof h);
    if (compression == BI_BITFIELDS) {
        const std::vector<BYTE> masks = Le32({0xF800, 0x07E0, 0x001F});
        std::memcpy(p.data() + 40, masks.data(), masks.size());
    }
    return p;
}

struct LayoutCase {
    uint16_t bpp;
    DWORD compression;
    RECT band;
    uint32_t bitmapInfoSize;
    uint32_t rowBytes;
};

void PrintTo(const LayoutCase& c, std::ostream* os) {
    *os << c.bpp << (c.compression == BI_BITFIELDS ? " bpp bit fields, " : " bpp, ")
        << c.band.right - c.band.left << " wide";
}

class PayloadLayout : public testing::TestWithParam<LayoutCase> {};

TEST_P(PayloadLayout, ViewFindsColourPartAndRows) {
    const LayoutCase& c = GetParam();
    EXPECT_EQ(c.bitmapInfoSize, BitmapInfoSize(c.bpp, c.compression));
    EXPECT_EQ(c.rowBytes, RowBytes(c.band, c.bpp));

    const FrameHeader frame = Frame1024x768(c.band, c.bpp);
    const std::vector<BYTE> exact = Payload(c.bpp, c.compression, c.band);
    FramePayloadView view;
    ASSERT_EQ(PayloadError::None, ParseFramePayload(exact.data(), exact.size(), frame, &view));
    EXPECT_EQ(c.bitmapInfoSize, view.bitmapInfoSize);
    EXPECT_EQ(exact.data(), view.bitmapInfo);
    EXPECT_EQ(exact.data() + c.bitmapInfoSize, view.rows);
    EXPECT_EQ(c.rowBytes, view.rowBytes);
    EXPECT_EQ(static_cast<uint32_t>(c.band.bottom - c.band.top), view.rowCount);
    EXPECT_EQ(c.bpp, view.header.biBitCount);

    // One byte short of the last row.
    const std::vector<BYTE> shortBy1 = Payload(c.bpp, c.compression, c.band, -1);
    EXPECT_EQ(PayloadError::RowsDoNotFit,
              ParseFramePayload(shortBy1.data(), shortBy1.size(), frame, &view));
}

INSTANTIATE_TEST_SUITE_P(Depths, PayloadLayout,
                         testing::Values(LayoutCase{1, BI_RGB, RECT{0, 0, 8, 8}, 48, 1},
                                         LayoutCase{4, BI_RGB, RECT{0, 0, 24, 8}, 104, 12},
                                         LayoutCase{8, BI_RGB, RECT{8, 8, 24, 24}, 1064, 16},
                                         LayoutCase{16, BI_RGB, RECT{0, 0, 16, 16}, 40, 32},
                                         LayoutCase{16, BI_BITFIELDS, RECT{0, 760, 1024, 768}, 52,
                                                    2048},
                                         LayoutCase{16, BI_RGB, RECT{1016, 0, 1022, 3}, 40, 12},
                                         LayoutCase{32, BI_RGB, RECT{0, 0, 8, 1}, 40, 32}),
                         [](const testing::TestParamInfo<LayoutCase>& info) {
                             const LayoutCase& c = info.param;
                             return std::to_string(c.bpp) +
                                    (c.compression == BI_BITFIELDS ? "bpp_bitfields_" : "bpp_") +
                                    std::to_string(c.band.right - c.band.left) + "_wide";
                         });

TEST(PayloadView, MasksOfBitFields) {
    const RECT band{0, 0, 8, 8};
    const std::vector<BYTE> p = Payload(16, BI_BITFIELDS, band);
    FramePayloadView view;
    ASSERT_EQ(PayloadError::None,
              ParseFramePayload(p.data(), p.size(), Frame1024x768(band), &view));
    EXPECT_EQ(0xF800u, view.masks[0]);
    EXPECT_EQ(0x07E0u, view.masks[1]);
    EXPECT_EQ(0x001Fu, view.masks[2]);
}

TEST(PayloadView, RefusesBrokenHeadersAndLeavesTheViewAlone) {
    const RECT band{0, 0, 16, 16};
    const FrameHeader frame = Frame1024x768(band);
    auto with = [&](auto edit) {
        std::vector<BYTE> p = Payload(16, BI_RGB, band);
        BITMAPINFOHEADER h;
        std::memcpy(&h, p.data(), sizeof h);
        edit(h);
        std::memcpy(p.data(), &h, sizeof h);
        return p;
    };
    struct Case {
        const char* what;
        std::vector<BYTE> payload;
        FrameHeader frame;
        PayloadError expected;
    };
    FrameHeader at8 = frame;
    at8.bitsPerPixel = 8;
    FrameHeader inverted = frame;
    inverted.band = RECT{16, 0, 0, 16};
    FrameHeader otherDesktop = frame;
    otherDesktop.desktop = RECT{0, 0, 1280, 1024};
    const std::vector<Case> cases = {
        {"39 bytes", std::vector<BYTE>(39, 0), frame, PayloadError::TooShort},
        {"biSize 124", with([](auto& h) { h.biSize = 124; }), frame, PayloadError::HeaderSize},
        {"2 bpp", with([](auto& h) { h.biBitCount = 2; }), frame, PayloadError::BitCount},
        {"0 bpp", with([](auto& h) { h.biBitCount = 0; }), frame, PayloadError::BitCount},
        {"RLE8", with([](auto& h) { h.biCompression = BI_RLE8; }), frame,
         PayloadError::Compression},
        {"bit fields at 8 bpp",
         with([](auto& h) { h.biBitCount = 8, h.biCompression = BI_BITFIELDS; }), at8,
         PayloadError::Compression},
        {"header 8 bpp, packet 16", with([](auto& h) { h.biBitCount = 8; }), frame,
         PayloadError::BitCountMismatch},
        {"bottom-up", with([](auto& h) { h.biHeight = 768; }), frame,
         PayloadError::DesktopMismatch},
        {"other desktop", Payload(16, BI_RGB, band), otherDesktop, PayloadError::DesktopMismatch},
        {"inverted band", Payload(16, BI_RGB, band), inverted, PayloadError::BadBand},
        // 8 bpp needs its 1064-byte BITMAPINFO whole before any row.
        {"colour table cut", Payload(8, BI_RGB, RECT{0, 0, 0, 0}, -1), at8,
         PayloadError::BitmapInfoTooLarge},
    };
    for (const Case& c : cases) {
        FramePayloadView view;
        view.bitmapInfoSize = 0xdeadbeef;
        EXPECT_EQ(c.expected,
                  ParseFramePayload(c.payload.data(), static_cast<uint32_t>(c.payload.size()),
                                    c.frame, &view))
            << c.what;
        EXPECT_EQ(0xdeadbeefu, view.bitmapInfoSize) << c.what;
    }
}

TEST(PayloadView, BandOutsideTheDesktopIsStillAWholePayload) {
    // Decoders count such a band without writing it; the view must not drop it.
    const RECT band{1020, 760, 1036, 776};
    const std::vector<BYTE> p = Payload(16, BI_RGB, band);
    FramePayloadView view;
    EXPECT_EQ(PayloadError::None,
              ParseFramePayload(p.data(), p.size(), Frame1024x768(band), &view));
}

TEST(PayloadView, BandHeightsAnEncoderCutsTo) {
    // 1024 x 768 at 16 bpp: two bands of 767 and 1 rows; at 8 bpp one band.
    EXPECT_EQ(767u, RowsThatFit(40, RowBytes(RECT{0, 0, 1024, 768}, 16)));
    EXPECT_GE(RowsThatFit(1064, RowBytes(RECT{0, 0, 1024, 768}, 8)), 768u);
    EXPECT_EQ(0u, RowsThatFit(40, 0));
    EXPECT_EQ(0u, RowBytes(RECT{16, 0, 8, 8}, 16));
    // The largest payload an encoder makes fits the packet buffer.
    const uint32_t rows = RowsThatFit(52, 2048);
    EXPECT_LE(52 + rows * 2048, kBufferSize);
    EXPECT_GT(52 + (rows + 1) * 2048, kBufferSize);
}

// ---- Cursor records ----------------------------------------------------------------------------

CursorRecord Shape(uint32_t flags, uint16_t w, uint16_t h, uint8_t bpp, uint16_t andRow) {
    CursorRecord r;
    r.flags = flags;
    r.shapePresent = 1;
    r.x = -5;
    r.y = 700;
    r.hotSpotX = 3;
    r.hotSpotY = 4;
    r.width = w;
    r.height = h;
    r.andBytesPerRow = andRow;
    r.planes = 1;
    r.bitsPerPixel = bpp;
    return r;
}

std::vector<BYTE> RecordBytes(const CursorRecord& r, uint32_t size) {
    std::vector<BYTE> bytes(size, 0);
    for (uint32_t i = kCursorMasksOffset; i < size; ++i)
        bytes[i] = static_cast<BYTE>(i);
    WriteCursorRecord(bytes.data(), r);
    return bytes;
}

TEST(CursorRecordLayout, FieldOffsets) {
    const std::vector<BYTE> bytes = RecordBytes(Shape(3, 32, 32, 32, 4), 28);
    const std::vector<BYTE> expected = {3, 0, 0, 0, 1, 0, 0,  0, 0xFB, 0xFF, 0xFF, 0xFF, 0xBC, 2,
                                        0, 0, 3, 0, 4, 0, 32, 0, 32,   0,    4,    0,    1,    32};
    EXPECT_EQ(expected, bytes);

    CursorRecord read;
    ASSERT_TRUE(ReadCursorRecord(bytes.data(), 28, &read));
    EXPECT_EQ(-5, read.x);
    EXPECT_EQ(700, read.y);
    EXPECT_EQ(3, read.hotSpotX);
    EXPECT_EQ(4, read.hotSpotY);
    EXPECT_EQ(32, read.bitsPerPixel);
    EXPECT_FALSE(ReadCursorRecord(bytes.data(), 27, &read));
}

TEST(CursorRecordLayout, SenderFlagsAndLengths) {
    EXPECT_EQ(2u, SenderCursorFlags(6));
    EXPECT_EQ(0u, SenderCursorFlags(4));
    EXPECT_EQ(3u, SenderCursorFlags(7));

    struct Case {
        CursorRecord record;
        uint32_t length;
    };
    const Case cases[] = {
        {Shape(SenderCursorFlags(6), 32, 32, 32, 4), 32},  // position only: shape not counted
        {Shape(1, 32, 32, 32, 4), 32 + 4096 + 128},
        {Shape(3, 32, 32, 1, 4), 32 + 128 + 128},
        {Shape(1, 24, 2, 4, 4), 32 + 24 + 8},
        // 256 x 256 x 8 bpp: the XOR count 65536 keeps its low 16 bits, 0.
        {Shape(1, 256, 256, 8, 32), 32 + 0 + 8192},
        // 4 bpp x 15 x 1 = 60 bits: 7 bytes, integer division.
        {Shape(1, 15, 1, 4, 2), 32 + 7 + 2},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.length, SenderCursorRecordLength(c.record))
            << c.record.width << "x" << c.record.height << "x" << int(c.record.bitsPerPixel);
    }
}

TEST(CursorRecordView, ShapeRecordAsTheSenderLaysItOut) {
    const CursorRecord r = Shape(3, 32, 32, 32, 4);
    const uint32_t length = SenderCursorRecordLength(r);
    const std::vector<BYTE> bytes = RecordBytes(r, length);
    CursorRecordView view;
    ASSERT_EQ(CursorError::None, ParseCursorRecord(bytes.data(), length, &view));
    EXPECT_TRUE(view.newShape);
    EXPECT_TRUE(view.newPosition);
    EXPECT_EQ(bytes.data() + 16, view.shape);
    EXPECT_EQ(bytes.data() + 28, view.andMask);
    EXPECT_EQ(128u, view.andMaskSize);
    EXPECT_EQ(bytes.data() + 28 + 128, view.xorBits);
    EXPECT_EQ(4096u, view.xorBitsSize);

    // The trailing 4 bytes are not needed; one byte less of the XOR bits is.
    EXPECT_EQ(CursorError::None, ParseCursorRecord(bytes.data(), length - 4, &view));
    EXPECT_EQ(CursorError::MasksDoNotFit, ParseCursorRecord(bytes.data(), length - 5, &view));
}

TEST(CursorRecordView, XorBitsFollowTheSendersAndMaskCount) {
    // Width 24: AND rows padded to 4 bytes; the XOR bits start 4 x height bytes in, not 3 x.
    const CursorRecord r = Shape(1, 24, 2, 1, 4);
    const std::vector<BYTE> bytes = RecordBytes(r, SenderCursorRecordLength(r));
    CursorRecordView view;
    ASSERT_EQ(CursorError::None, ParseCursorRecord(bytes.data(), bytes.size(), &view));
    EXPECT_EQ(bytes.data() + 28 + 8, view.xorBits);
    EXPECT_EQ(6u, view.xorBitsSize);
}

TEST(CursorRecordView, WhatEachFlagAsksFor) {
    struct Case {
        uint32_t flags;
        uint32_t shapePresent;
        bool newShape;
        bool newPosition;
    };
    const Case cases[] = {
        {2, 1, false, true},  {1, 1, true, false}, {4, 1, true, false},
        {1, 0, false, false}, {3, 1, true, true},  {0x100, 1, false, false},
    };
    for (const Case& c : cases) {
        CursorRecord r = Shape(c.flags, 32, 32, 1, 4);
        r.shapePresent = c.shapePresent;
        const std::vector<BYTE> bytes = RecordBytes(r, 32 + 256);
        CursorRecordView view;
        ASSERT_EQ(CursorError::None, ParseCursorRecord(bytes.data(), bytes.size(), &view))
            << c.flags;
        EXPECT_EQ(c.newShape, view.newShape) << c.flags;
        EXPECT_EQ(c.newPosition, view.newPosition) << c.flags;
        EXPECT_EQ(c.newShape, view.shape != nullptr) << c.flags;
    }
}

TEST(CursorRecordView, RefusesRecordsWhoseShapeCannotBeRead) {
    struct Case {
        const char* what;
        CursorRecord record;
        uint32_t size;
        CursorError expected;
    };
    const Case cases[] = {
        {"fixed part cut", Shape(2, 32, 32, 1, 4), 27, CursorError::TooShort},
        {"zero width", Shape(1, 0, 32, 1, 4), 400, CursorError::BadShape},
        {"zero height", Shape(1, 32, 0, 1, 4), 400, CursorError::BadShape},
        {"3 bpp", Shape(1, 32, 32, 3, 4), 400, CursorError::BadShape},
        {"AND rows too short", Shape(1, 32, 32, 1, 3), 400, CursorError::BadShape},
        {"only the mask", Shape(1, 32, 32, 1, 4), 28 + 128, CursorError::MasksDoNotFit},
        // What the sender sends for a 256 x 256 x 8 shape: the truncated count leaves no XOR bits.
        {"truncated count", Shape(1, 256, 256, 8, 32),
         SenderCursorRecordLength(Shape(1, 256, 256, 8, 32)), CursorError::MasksDoNotFit},
        {"largest counts", Shape(1, 0xFFFF, 0xFFFF, 32, 0xFFFF), 1000, CursorError::MasksDoNotFit},
    };
    for (const Case& c : cases) {
        const std::vector<BYTE> bytes = RecordBytes(c.record, c.size < 28 ? 28 : c.size);
        CursorRecordView view;
        view.andMaskSize = 0xdeadbeef;
        EXPECT_EQ(c.expected, ParseCursorRecord(bytes.data(), c.size, &view)) << c.what;
        EXPECT_EQ(0xdeadbeefu, view.andMaskSize) << c.what;
    }
    // A position-only record needs no shape and ignores the shape fields.
    const std::vector<BYTE> bytes = RecordBytes(Shape(2, 0, 0, 3, 0), 32);
    CursorRecordView view;
    EXPECT_EQ(CursorError::None, ParseCursorRecord(bytes.data(), 32, &view));
    EXPECT_EQ(CursorError::TooShort, ParseCursorRecord(nullptr, 32, &view));
}

}  // namespace
