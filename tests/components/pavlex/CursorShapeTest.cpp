// Fitting pointer shapes into records, the records as a receiver parses them, and how cursor
// changes merge between fetches. Synthetic shapes, no screen.
#include <windows.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "CursorChanges.h"
#include "CursorRecord.h"
#include "CursorShape.h"
#include "stream/Packet.h"

using namespace vantrel;
using namespace vantrel::pavlex;

namespace {

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

// Makes pixel x, y opaque: colour at 32 bpp, white (colour != 0) or black when monochrome.
void Paint(CursorShape::Source& s, int x, int y, std::uint32_t colour) {
    const std::uint8_t bit = static_cast<std::uint8_t>(0x80 >> (x % 8));
    s.andMask[y * s.andStride + x / 8] &= ~bit;
    if (s.monochrome && colour)
        s.xorBits[y * s.xorStride + x / 8] |= bit;
    if (!s.monochrome)
        std::memcpy(&s.xorBits[y * s.xorStride + x * 4], &colour, 4);
}

bool Opaque(const CursorShape& shape, int x, int y) {
    return !((shape.andMask()[y * shape.andRowBytes() + x / 8] >> (7 - x % 8)) & 1);
}

std::uint32_t Colour(const CursorShape& shape, int x, int y) {
    std::uint32_t v;
    std::memcpy(&v, &shape.xorBits()[(y * shape.width() + x) * 4], 4);
    return v;
}

// Fits source and checks what the record and the receiver's CreateIcon need of every shape.
CursorShape Fit(const CursorShape::Source& source) {
    CursorShape shape;
    EXPECT_TRUE(CursorShape::fit(source, &shape));
    EXPECT_EQ(0, shape.width() % 16);
    EXPECT_LE(shape.width(), 32);
    EXPECT_LE(shape.height(), 32);
    EXPECT_EQ(static_cast<size_t>(shape.width() / 8 * shape.height()), shape.andMask().size());
    EXPECT_EQ(static_cast<size_t>(shape.width() * shape.height() * shape.bitsPerPixel() / 8),
              shape.xorBits().size());
    EXPECT_LT(shape.hotX(), shape.width());
    EXPECT_LT(shape.hotY(), shape.height());
    return shape;
}

}  // namespace

TEST(CursorShape, ShapesUpTo32KeepEveryPixelAndNarrowOnesArePaddedTransparent) {
    CursorShape::Source mono = Transparent(32, 32, true);
    mono.hotX = 3;
    for (int i = 0; i < 32; ++i)
        Paint(mono, i, i, i % 2);
    const CursorShape monoShape = Fit(mono);
    EXPECT_EQ(1, monoShape.bitsPerPixel());
    EXPECT_EQ(3, monoShape.hotX());
    EXPECT_EQ(mono.andMask, monoShape.andMask());
    EXPECT_EQ(mono.xorBits, monoShape.xorBits());

    CursorShape::Source narrow = Transparent(20, 24, false);
    for (int x = 0; x < 20; ++x)
        Paint(narrow, x, 10, 0xFF000000 | x);
    const CursorShape shape = Fit(narrow);
    EXPECT_EQ(32, shape.width());
    EXPECT_EQ(24, shape.height());
    for (int x = 0; x < 32; ++x) {
        EXPECT_EQ(x < 20, Opaque(shape, x, 10)) << x;
        EXPECT_EQ(x < 20 ? 0xFF000000u | x : 0u, Colour(shape, x, 10)) << x;
    }
}

TEST(CursorShape, LargeShapesAreCroppedToTheirContentOrScaledKeepingThinLines) {
    CursorShape::Source small = Transparent(64, 64, false);
    small.hotX = 41;
    small.hotY = 31;
    for (int y = 30; y < 42; ++y) {
        for (int x = 40; x < 50; ++x)
            Paint(small, x, y, 0xFF000000 | (x << 8) | y);
    }
    const CursorShape cropped = Fit(small);
    const int dx = 41 - cropped.hotX(), dy = 31 - cropped.hotY();
    for (int y = 30; y < 42; ++y) {
        for (int x = 40; x < 50; ++x)
            ASSERT_EQ(0xFF000000u | (x << 8) | y, Colour(cropped, x - dx, y - dy));
    }

    CursorShape::Source large = Transparent(64, 48, true);
    large.hotX = 63;
    large.hotY = 47;
    for (int y = 0; y < 48; ++y)
        Paint(large, y + 16, y, 1);  // one-pixel diagonal
    for (int x = 0; x < 64; ++x)
        Paint(large, x, 0, 1);
    const CursorShape scaled = Fit(large);
    EXPECT_EQ(32, scaled.width());
    EXPECT_EQ(24, scaled.height());
    EXPECT_EQ(31, scaled.hotX());
    EXPECT_EQ(23, scaled.hotY());
    for (int y = 0; y < scaled.height(); ++y) {
        int opaque = 0;
        for (int x = 0; x < scaled.width(); ++x)
            opaque += Opaque(scaled, x, y);
        EXPECT_GE(opaque, 1) << "row " << y;
    }
}

TEST(CursorChanges, ChangesBetweenFetchesMergeIntoOneRecordTheReceiverParses) {
    CursorChanges changes;
    HANDLE event = nullptr;
    EXPECT_FALSE(changes.open(&event, 4255));
    ASSERT_TRUE(changes.open(&event, 4256));
    CursorShape::Source a = Transparent(32, 32, true), b = Transparent(32, 32, false);
    Paint(a, 1, 1, 1);
    Paint(b, 31, 31, 0xFFFF0000);
    const CursorShape shapeA = Fit(a), shapeB = Fit(b);

    changes.add(packet::kCursorNewPosition, POINT{10, 10}, shapeB);
    changes.add(packet::kCursorNewShape, POINT{11, 11}, shapeB);
    changes.add(packet::kCursorNewShape, POINT{11, 11}, shapeA);
    changes.add(packet::kCursorNewPosition, POINT{-12, 13}, shapeB);  // shape not new: ignored
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, 0));
    BYTE* record = nullptr;
    ASSERT_TRUE(changes.take(&record));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event, 0));
    packet::CursorRecordView view;
    ASSERT_EQ(packet::CursorError::None, packet::ParseCursorRecord(record, 4256, &view));
    EXPECT_EQ(3u, view.record.flags);
    EXPECT_EQ(-12, view.record.x);
    EXPECT_EQ(13, view.record.y);
    EXPECT_EQ(std::vector<std::uint8_t>(view.andMask, view.xorBits + view.xorBitsSize), [&] {
        std::vector<std::uint8_t> v = shapeA.andMask();
        v.insert(v.end(), shapeA.xorBits().begin(), shapeA.xorBits().end());
        return v;
    }());
    record[0] = 0;  // the capture edits the record in place
    EXPECT_FALSE(changes.take(&record));

    // The largest shape fills the registered buffer exactly.
    changes.add(packet::kCursorNewShape, POINT{}, shapeB);
    ASSERT_TRUE(changes.take(&record));
    ASSERT_EQ(packet::CursorError::None, packet::ParseCursorRecord(record, 4256, &view));
    EXPECT_EQ(4256u, packet::SenderCursorRecordLength(view.record));
    EXPECT_EQ(0u, CursorRecord::Write(record, 4255, 1, POINT{}, shapeB));
}
