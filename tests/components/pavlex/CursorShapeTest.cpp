// Fitting pointer shapes into records, the records as a receiver parses them, and how pending
// cursor and screen changes merge between fetches. Synthetic shapes, no screen.
#include <windows.h>

#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "CursorChanges.h"
#include "CursorRecord.h"
#include "CursorShape.h"
#include "ScreenChanges.h"
#include "stream/Packet.h"

using namespace vantrel;
using namespace vantrel::pavlex;

namespace {

constexpr std::uint32_t kRed = 0xFFFF0000;

// A source of width x height, all transparent (AND 1, XOR 0).
CursorShape::Source Transparent(int width, int height, bool monochrome) {
    CursorShape::Source s;
    s.width = width;
    s.height = height;
    s.monochrome = monochrome;
    s.andStride = (width + 31) / 32 * 4;
    s.andMask.assign(static_cast<size_t>(s.andStride) * height, 0xFF);
    s.xorStride = monochrome ? s.andStride : width * 4;
    s.xorBits.assign(static_cast<size_t>(s.xorStride) * height, 0);
    return s;
}

void SetAnd(std::vector<std::uint8_t>& bits, int stride, int x, int y, bool on) {
    std::uint8_t& b = bits[y * stride + x / 8];
    const std::uint8_t bit = static_cast<std::uint8_t>(0x80 >> (x % 8));
    b = on ? (b | bit) : (b & ~bit);
}

// Makes pixel x, y opaque with colour (32 bpp) or black-or-white (monochrome: colour != 0).
void Paint(CursorShape::Source& s, int x, int y, std::uint32_t colour) {
    SetAnd(s.andMask, s.andStride, x, y, false);
    if (s.monochrome) {
        SetAnd(s.xorBits, s.xorStride, x, y, colour != 0);
    } else {
        for (int i = 0; i < 4; ++i)
            s.xorBits[y * s.xorStride + x * 4 + i] = colour >> (8 * i);
    }
}

bool Opaque(const CursorShape& shape, int x, int y) {
    return !((shape.andMask()[y * shape.andRowBytes() + x / 8] >> (7 - x % 8)) & 1);
}

std::uint32_t Colour(const CursorShape& shape, int x, int y) {
    const std::uint8_t* p = &shape.xorBits()[(y * shape.width() + x) * 4];
    return p[0] | p[1] << 8 | p[2] << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

// What every fitted shape must satisfy for the record and CreateIcon on the receiving side.
void ExpectRecordShape(const CursorShape& shape) {
    EXPECT_EQ(0, shape.width() % 16);
    EXPECT_LE(shape.width(), 32);
    EXPECT_LE(shape.height(), 32);
    EXPECT_GT(shape.height(), 0);
    EXPECT_EQ(shape.width() / 8, shape.andRowBytes());
    EXPECT_EQ(static_cast<size_t>(shape.andRowBytes()) * shape.height(), shape.andMask().size());
    EXPECT_EQ(static_cast<size_t>(shape.width()) * shape.height() * shape.bitsPerPixel() / 8,
              shape.xorBits().size());
    EXPECT_LT(shape.hotX(), shape.width());
    EXPECT_LT(shape.hotY(), shape.height());
}

}  // namespace

TEST(CursorShape, Monochrome32PassesThroughBitForBit) {
    CursorShape::Source s = Transparent(32, 32, true);
    s.hotX = 3;
    s.hotY = 4;
    for (int i = 0; i < 32; ++i)
        Paint(s, i, i, i % 2);  // black and white alternate
    CursorShape shape;
    ASSERT_TRUE(CursorShape::fit(s, &shape));
    ExpectRecordShape(shape);
    EXPECT_EQ(1, shape.bitsPerPixel());
    EXPECT_EQ(32, shape.width());
    EXPECT_EQ(3, shape.hotX());
    EXPECT_EQ(4, shape.hotY());
    EXPECT_EQ(s.andMask, shape.andMask());
    EXPECT_EQ(s.xorBits, shape.xorBits());
}

TEST(CursorShape, NarrowColourShapeIsPaddedWithTransparentPixels) {
    CursorShape::Source s = Transparent(20, 24, false);
    s.hotX = 19;
    s.hotY = 23;
    for (int x = 0; x < 20; ++x)
        Paint(s, x, 10, kRed);
    CursorShape shape;
    ASSERT_TRUE(CursorShape::fit(s, &shape));
    ExpectRecordShape(shape);
    EXPECT_EQ(32, shape.width());
    EXPECT_EQ(24, shape.height());
    EXPECT_EQ(32, shape.bitsPerPixel());
    EXPECT_EQ(19, shape.hotX());
    for (int x = 0; x < 32; ++x) {
        EXPECT_EQ(x < 20, Opaque(shape, x, 10)) << x;
        EXPECT_EQ(x < 20 ? kRed : 0u, Colour(shape, x, 10)) << x;
        EXPECT_FALSE(Opaque(shape, x, 11));
    }
}

TEST(CursorShape, LargeShapeWithSmallContentIsCroppedWithoutLoss) {
    CursorShape::Source s = Transparent(64, 64, false);
    s.hotX = 41;
    s.hotY = 31;
    for (int y = 30; y < 42; ++y) {
        for (int x = 40; x < 50; ++x)
            Paint(s, x, y, 0xFF000000 | (x << 8) | y);
    }
    CursorShape shape;
    ASSERT_TRUE(CursorShape::fit(s, &shape));
    ExpectRecordShape(shape);
    ASSERT_EQ(32, shape.width());
    ASSERT_EQ(32, shape.height());
    // The window keeps the content where it was relative to the hot spot.
    const int dx = 41 - shape.hotX(), dy = 31 - shape.hotY();
    for (int y = 30; y < 42; ++y) {
        for (int x = 40; x < 50; ++x) {
            ASSERT_TRUE(Opaque(shape, x - dx, y - dy));
            EXPECT_EQ(0xFF000000u | (x << 8) | y, Colour(shape, x - dx, y - dy));
        }
    }
}

TEST(CursorShape, LargeFullShapeIsScaledAndThinLinesSurvive) {
    CursorShape::Source s = Transparent(64, 48, true);
    s.hotX = 63;
    s.hotY = 47;
    for (int y = 0; y < 48; ++y)
        Paint(s, y + 16, y, 1);  // one-pixel diagonal
    for (int x = 0; x < 64; ++x)
        Paint(s, x, 0, 1);
    CursorShape shape;
    ASSERT_TRUE(CursorShape::fit(s, &shape));
    ExpectRecordShape(shape);
    EXPECT_EQ(32, shape.width());
    EXPECT_EQ(24, shape.height());
    EXPECT_EQ(31, shape.hotX());
    EXPECT_EQ(23, shape.hotY());
    for (int y = 0; y < shape.height(); ++y) {
        int opaque = 0;
        for (int x = 0; x < shape.width(); ++x)
            opaque += Opaque(shape, x, y);
        EXPECT_GE(opaque, 1) << "row " << y;
    }
}

TEST(CursorShape, InconsistentSourcesAreRefused) {
    CursorShape shape;
    CursorShape::Source s = Transparent(32, 32, false);
    s.xorBits.resize(s.xorBits.size() - 1);
    EXPECT_FALSE(CursorShape::fit(s, &shape));
    s = Transparent(32, 32, true);
    s.andStride = 2;
    EXPECT_FALSE(CursorShape::fit(s, &shape));
    EXPECT_FALSE(CursorShape::fit(Transparent(0, 0, true), &shape));
}

TEST(CursorRecord, ReceiverParsesWhatIsWrittenAndTheLargestShapeFillsTheBuffer) {
    CursorShape::Source s = Transparent(32, 32, false);
    Paint(s, 31, 31, kRed);
    CursorShape shape;
    ASSERT_TRUE(CursorShape::fit(s, &shape));
    std::vector<std::uint8_t> buffer(4256, 0xCC);
    const DWORD flags = packet::kCursorNewShape | packet::kCursorNewPosition;
    const size_t size =
        CursorRecord::Write(buffer.data(), buffer.size(), flags, POINT{-5, 700}, shape);
    EXPECT_EQ(4256u, size);
    EXPECT_EQ(0u, CursorRecord::Write(buffer.data(), 4255, flags, POINT{}, shape));

    packet::CursorRecordView view;
    ASSERT_EQ(packet::CursorError::None,
              packet::ParseCursorRecord(buffer.data(), static_cast<uint32_t>(size), &view));
    EXPECT_TRUE(view.newShape);
    EXPECT_TRUE(view.newPosition);
    EXPECT_EQ(-5, view.record.x);
    EXPECT_EQ(700, view.record.y);
    EXPECT_EQ(32, view.record.bitsPerPixel);
    EXPECT_EQ(std::vector<std::uint8_t>(view.andMask, view.andMask + view.andMaskSize),
              shape.andMask());
    EXPECT_EQ(std::vector<std::uint8_t>(view.xorBits, view.xorBits + view.xorBitsSize),
              shape.xorBits());

    // Position only: 32 bytes, but the shape header still describes the current shape.
    EXPECT_EQ(32u, CursorRecord::Write(buffer.data(), buffer.size(), packet::kCursorNewPosition,
                                       POINT{1, 2}, shape));
    ASSERT_EQ(packet::CursorError::None, packet::ParseCursorRecord(buffer.data(), 32, &view));
    EXPECT_FALSE(view.newShape);
    EXPECT_EQ(32, view.record.width);
}

TEST(CursorChanges, ChangesBetweenFetchesMergeIntoOneRecord) {
    CursorChanges changes;
    HANDLE event = nullptr;
    EXPECT_FALSE(changes.open(&event, 4255));
    ASSERT_TRUE(changes.open(&event, 4256));
    EXPECT_FALSE(changes.open(&event, 4256));
    BYTE* record = nullptr;
    EXPECT_FALSE(changes.take(&record));

    CursorShape::Source a = Transparent(32, 32, true), b = Transparent(32, 32, false);
    Paint(a, 1, 1, 1);
    Paint(b, 2, 2, kRed);
    CursorShape shapeA, shapeB;
    ASSERT_TRUE(CursorShape::fit(a, &shapeA));
    ASSERT_TRUE(CursorShape::fit(b, &shapeB));

    changes.add(packet::kCursorNewPosition, POINT{10, 10}, shapeB);
    changes.add(packet::kCursorNewShape, POINT{11, 11}, shapeA);
    changes.add(packet::kCursorNewPosition, POINT{12, 13}, shapeB);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, 0));
    ASSERT_TRUE(changes.take(&record));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event, 0));
    packet::CursorRecordView view;
    ASSERT_EQ(packet::CursorError::None, packet::ParseCursorRecord(record, 4256, &view));
    EXPECT_EQ(3u, view.record.flags);
    EXPECT_EQ(12, view.record.x);
    EXPECT_EQ(13, view.record.y);
    EXPECT_EQ(1, view.record.bitsPerPixel);  // shape A, not the B passed with positions
    record[0] = 0;                           // the capture edits the record in place
    EXPECT_FALSE(changes.take(&record));

    changes.add(packet::kCursorNewShape, POINT{12, 13}, shapeA);
    changes.add(packet::kCursorNewShape, POINT{12, 13}, shapeB);
    ASSERT_TRUE(changes.take(&record));
    ASSERT_EQ(packet::CursorError::None, packet::ParseCursorRecord(record, 4256, &view));
    EXPECT_EQ(1u, view.record.flags);
    EXPECT_EQ(32, view.record.bitsPerPixel);
    changes.close();
    changes.add(packet::kCursorNewPosition, POINT{}, shapeA);
    EXPECT_FALSE(changes.take(&record));
}

TEST(ScreenChanges, DirtyTilesAccumulateUntilFetchedAndResizeDropsThem) {
    ScreenChanges changes;
    HANDLE event = nullptr;
    ASSERT_TRUE(changes.open(&event));
    changes.resize(320, 200);
    TileMap first(320, 200), second(320, 200);
    first.mark(0, 0);
    second.mark(19, 12);
    changes.add(first);
    changes.add(second);
    changes.add(TileMap(640, 480));  // another size: ignored
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, 0));
    PavlexScreenUpdate* update = nullptr;
    ASSERT_TRUE(changes.take(&update));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event, 0));
    ASSERT_EQ(2u, update->count);
    EXPECT_EQ(0, update->rects[0].left);
    EXPECT_EQ(16, update->rects[0].bottom);
    EXPECT_EQ(304, update->rects[1].left);
    EXPECT_EQ(192, update->rects[1].top);
    EXPECT_EQ(320, update->rects[1].right);
    EXPECT_EQ(200, update->rects[1].bottom);
    EXPECT_FALSE(changes.take(&update));

    changes.add(first);
    changes.resize(640, 480);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event, 0));
    EXPECT_FALSE(changes.take(&update));
}
