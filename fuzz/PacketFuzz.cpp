// Desktop stream packets as every decoder takes them from Transfer: the packet check, the frame
// header and its limits, the body (restored by the codec when it is a block, else taken as an
// already restored payload) and the frame payload or cursor record inside. What is accepted
// must lie inside the bytes given and re-encode to the bytes it was read from.
#include <cstdint>
#include <cstring>
#include <memory>

#include "BlockCodec.h"
#include "FuzzSupport.h"
#include "stream/Packet.h"

using namespace vantrel::packet;
using vantrel::fuzz::Touch;

namespace {

struct Restored {
    const uint8_t* data;
    uint32_t size;
};

// The body restored as a decoder restores it, into a buffer of exactly the decoders' capacity;
// a body that is no block is looked at as it is.
Restored Restore(const ByteRange& body) {
    static screencodec::BlockCodec codec;
    static const std::unique_ptr<uint8_t[]> buffer(new uint8_t[kBufferSize]);
    ULONG size = kBufferSize;
    const HRESULT hr = codec.Decompress(body.data, body.size, buffer.get(), &size);
    FUZZ_CHECK(SUCCEEDED(hr) ? size <= kBufferSize : size == 0);
    if (hr == S_OK)
        return {buffer.get(), size};
    return {body.data, body.size};
}

void CheckFramePayload(const Restored& payload, const FrameHeader& frame) {
    FramePayloadView view;
    const PayloadError error = ParseFramePayload(payload.data, payload.size, frame, &view);
    FUZZ_CHECK(PayloadErrorName(error) != nullptr);
    if (error != PayloadError::None)
        return;
    FUZZ_CHECK(view.bitmapInfo == payload.data);
    FUZZ_CHECK(std::memcmp(&view.header, payload.data, sizeof view.header) == 0);
    FUZZ_CHECK(view.bitmapInfoSize ==
               BitmapInfoSize(view.header.biBitCount, view.header.biCompression));
    FUZZ_CHECK(view.bitmapInfoSize <= kMaxBitmapInfoSize);
    FUZZ_CHECK(view.rows == payload.data + view.bitmapInfoSize);
    FUZZ_CHECK(view.rowBytes == RowBytes(frame.band, frame.bitsPerPixel));
    FUZZ_CHECK(static_cast<int64_t>(view.rowCount) ==
               static_cast<int64_t>(frame.band.bottom) - frame.band.top);
    const uint64_t used =
        view.bitmapInfoSize + static_cast<uint64_t>(view.rowBytes) * view.rowCount;
    FUZZ_CHECK(used <= payload.size);
    if (view.header.biCompression == BI_BITFIELDS)
        FUZZ_CHECK(std::memcmp(view.masks, payload.data + kBitmapInfoHeaderSize, 12) == 0);
    Touch(view.bitmapInfo, view.bitmapInfoSize);
    Touch(view.rows, static_cast<size_t>(used - view.bitmapInfoSize));
}

void CheckCursorRecord(const Restored& record) {
    CursorRecordView view;
    const CursorError error = ParseCursorRecord(record.data, record.size, &view);
    FUZZ_CHECK(CursorErrorName(error) != nullptr);
    if (error == CursorError::TooShort) {
        FUZZ_CHECK(record.size < kCursorPositionRecordSize);
        return;
    }
    uint8_t fixed[kCursorMasksOffset];
    WriteCursorRecord(fixed, view.record);
    const size_t given = record.size < sizeof fixed ? record.size : sizeof fixed;
    FUZZ_CHECK(std::memcmp(fixed, record.data, given) == 0);
    for (size_t i = given; i < sizeof fixed; ++i)
        FUZZ_CHECK(fixed[i] == 0);
    if (!view.newShape)
        return;
    FUZZ_CHECK(error == CursorError::None);
    FUZZ_CHECK(view.shape == record.data + kCursorShapeOffset);
    FUZZ_CHECK(view.andMask == record.data + kCursorMasksOffset);
    FUZZ_CHECK(view.xorBits == view.andMask + view.andMaskSize);
    FUZZ_CHECK(kCursorMasksOffset + uint64_t{view.andMaskSize} + view.xorBitsSize <= record.size);
    Touch(view.andMask, view.andMaskSize + size_t{view.xorBitsSize});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > kBufferSize + 1)
        return 0;
    const uint32_t cb = static_cast<uint32_t>(size);
    const Verdict verdict = Classify(data, cb);
    FUZZ_CHECK(VerdictName(verdict) != nullptr);
    const ByteRange body = BodyOf(data, cb, verdict);
    if (!IsAccepted(verdict)) {
        FUZZ_CHECK(body.data == nullptr && body.size == 0);
        FrameHeader frame;
        FUZZ_CHECK(!ReadFrameHeader(data, cb, &frame) || verdict != Verdict::UnknownMagic);
        return 0;
    }
    const Head head = ReadHead(data);
    FUZZ_CHECK(head.length == cb && cb <= kBufferSize);
    uint8_t again[kFrameHeaderSize];
    if (verdict == Verdict::Frame) {
        FrameHeader frame;
        FUZZ_CHECK(ReadFrameHeader(data, cb, &frame));
        FUZZ_CHECK(frame.time == head.time);
        FUZZ_CHECK(WriteFrameHeader(again, frame, cb - kFrameHeaderSize) == cb);
        FUZZ_CHECK(std::memcmp(again, data, kFrameHeaderSize) == 0);
        FUZZ_CHECK(body.data == data + kFrameHeaderSize && body.size == cb - kFrameHeaderSize);
        // Decoders build no image beyond the limits: they do not look further either.
        if (!DesktopWithinLimits(frame.desktop, frame.bitsPerPixel))
            return 0;
        FUZZ_CHECK(frame.desktop.right <= kMaxDesktopSide &&
                   frame.desktop.bottom <= kMaxDesktopSide);
        CheckFramePayload(Restore(body), frame);
    } else {
        FUZZ_CHECK(WriteCursorHeader(again, head.time, cb - kCursorHeaderSize) == cb);
        FUZZ_CHECK(std::memcmp(again, data, kCursorHeaderSize) == 0);
        FUZZ_CHECK(body.data == data + kCursorHeaderSize && body.size == cb - kCursorHeaderSize);
        CheckCursorRecord(Restore(body));
    }
    return 0;
}
