// Cursor records as a decoder finds them in a restored cursor packet: the fixed part, the shape
// and where its masks lie. The fixed part re-encodes to its bytes; a view stays inside the
// record; and the sender's length rule and the receiver's parse agree: a sound shape cut to the
// length its sender would send is accepted whole.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "FuzzSupport.h"
#include "stream/Packet.h"

using namespace vantrel::packet;
using vantrel::fuzz::Touch;

namespace {

bool IsDibDepth(uint32_t bpp) {
    return bpp == 1 || bpp == 4 || bpp == 8 || bpp == 16 || bpp == 24 || bpp == 32;
}

void CheckView(const uint8_t* record, uint32_t size, const CursorRecordView& view,
               CursorError error) {
    // The fixed part re-encodes to the record's bytes; what a short record lacks reads as zeros.
    uint8_t fixed[kCursorMasksOffset];
    WriteCursorRecord(fixed, view.record);
    const uint32_t given = std::min<uint32_t>(size, sizeof fixed);
    FUZZ_CHECK(std::memcmp(fixed, record, given) == 0);
    for (uint32_t i = given; i < sizeof fixed; ++i)
        FUZZ_CHECK(fixed[i] == 0);
    FUZZ_CHECK(view.newPosition == ((view.record.flags & kCursorNewPosition) != 0));
    if (!view.newShape)
        return;
    FUZZ_CHECK(error == CursorError::None);
    FUZZ_CHECK(view.record.flags & (kCursorNewShape | kCursorShapeAlias));
    FUZZ_CHECK(view.andMask == record + kCursorMasksOffset);
    FUZZ_CHECK(view.andMaskSize == uint32_t{view.record.andBytesPerRow} * view.record.height);
    FUZZ_CHECK(view.xorBits == view.andMask + view.andMaskSize);
    FUZZ_CHECK(kCursorMasksOffset + uint64_t{view.andMaskSize} + view.xorBitsSize <= size);
    Touch(view.andMask, view.andMaskSize + size_t{view.xorBitsSize});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > kMaxCursorPayload)
        return 0;
    const uint32_t cb = static_cast<uint32_t>(size);
    CursorRecordView view;
    const CursorError error = ParseCursorRecord(data, cb, &view);
    if (error == CursorError::TooShort) {
        FUZZ_CHECK(cb < kCursorPositionRecordSize);
        return 0;
    }
    CheckView(data, cb, view, error);

    // What a sender sends of this record, when it sends the shape whole.
    const CursorRecord& f = view.record;
    const uint32_t length = SenderCursorRecordLength(f);
    const uint64_t xorBytes = uint64_t{f.bitsPerPixel} * f.width * f.height / 8;
    const uint64_t andBytes = uint64_t{f.andBytesPerRow} * f.height;
    const bool sound = (f.flags & kCursorNewShape) && f.shapePresent && f.width && f.height &&
                       IsDibDepth(f.bitsPerPixel) && uint32_t{f.andBytesPerRow} * 8 >= f.width &&
                       uint32_t{f.width} * f.bitsPerPixel % 8 == 0;
    if (!(f.flags & kCursorNewShape))
        FUZZ_CHECK(length == kCursorRecordMinSize);
    if (sound && xorBytes < 0x10000 && andBytes < 0x10000 && length <= cb) {
        CursorRecordView sent;
        FUZZ_CHECK(ParseCursorRecord(data, length, &sent) == CursorError::None);
        FUZZ_CHECK(sent.newShape && sent.xorBitsSize == xorBytes && sent.andMaskSize == andBytes);
        CheckView(data, length, sent, CursorError::None);
    }
    // The flags a sender puts on the wire never ask for the alias.
    FUZZ_CHECK(!(SenderCursorFlags(f.flags) & kCursorShapeAlias));
    return 0;
}
