// StreamDecoder: acceptance, decompression, format check and rebuild, rows, completion, and
// cursor records.
#include "StreamDecoder.h"

#include <cstring>
#include <new>

#include "Lap.h"

namespace vantrel {
namespace {

const DWORD* Masks(const BITMAPINFO* bmi) noexcept {
    return reinterpret_cast<const DWORD*>(bmi->bmiColors);
}

}  // namespace

StreamDecoder::StreamDecoder(DesktopImage& image, Owner& owner) noexcept
    : image_(image), owner_(owner), buffer_(new (std::nothrow) BYTE[packet::kBufferSize]) {}

StreamDecoder::Outcome StreamDecoder::Decode(const void* data, uint32_t cbData) noexcept {
    switch (packet::Classify(data, cbData)) {
        case packet::Verdict::Frame:
            return DecodeFrame(data, cbData);
        case packet::Verdict::Cursor:
            return DecodeCursor(data, cbData);
        default:
            return Outcome::Refused;
    }
}

uint32_t StreamDecoder::Decompress(const void* data, uint32_t cbData,
                                   packet::Verdict verdict) noexcept {
    const packet::ByteRange body = packet::BodyOf(data, cbData, verdict);
    Lap lap;
    ULONG size = packet::kBufferSize;
    const HRESULT hr = codec_->Decompress(body.data, body.size, buffer_.get(), &size);
    lap.To(&timings_.decompress);
    // The codec never writes past the capacity; the size it reports bounds the checks that
    // follow.
    if (hr != S_OK || size > packet::kBufferSize)
        return 0;
    return size;
}

StreamDecoder::Outcome StreamDecoder::DecodeFrame(const void* data, uint32_t cbData) noexcept {
    if (!codec_ || !buffer_)
        return Outcome::NoCodec;
    packet::FrameHeader frame;
    // Checked before the body is even decompressed: an oversized claim costs nothing.
    if (!packet::ReadFrameHeader(data, cbData, &frame) ||
        !packet::DesktopWithinLimits(frame.desktop, frame.bitsPerPixel))
        return Outcome::Refused;
    const uint32_t size = Decompress(data, cbData, packet::Verdict::Frame);
    if (size == 0)
        return Outcome::CodecFailed;
    packet::FramePayloadView payload;
    if (packet::ParseFramePayload(buffer_.get(), size, frame, &payload) !=
        packet::PayloadError::None)
        return Outcome::Damaged;

    Lap lap;
    const auto* bmi = reinterpret_cast<const BITMAPINFO*>(payload.bitmapInfo);
    if (!FormatMatches(frame, payload)) {
        const bool masksOnly = FormatMatches(frame, payload, false);
        received_.reset();
        desktop_ = frame.desktop;
        bitsPixel_ = frame.bitsPerPixel;
        // The rows are written at the image's depth: an image that came out in any other format
        // counts as a failed rebuild.
        if (!owner_.RebuildImage(image_, bmi) || !FormatMatches(frame, payload)) {
            image_.Close();
            desktop_ = RECT{};
            bitsPixel_ = 0;
            return Outcome::RebuildFailed;
        }
        owner_.OnFormatChanged(pictureComplete_, masksOnly);
    }
    // Every packet brings the sender's palette of its grab.
    image_.LoadBitmapInfo(bmi);
    const bool written = image_.WriteRows(&frame.band, payload.rows) != FALSE;
    lap.To(&timings_.write);
    ++timings_.packets;
    owner_.OnBandApplied(frame.band);
    // A band sticking out of the desktop is not written, so none of it counts: a malformed
    // packet must not declare a picture complete that still shows background.
    if (!pictureComplete_ && written)
        CountReceived(frame.band);
    return Outcome::Frame;
}

bool StreamDecoder::FormatMatches(const packet::FrameHeader& frame,
                                  const packet::FramePayloadView& payload,
                                  bool compareMasks) const noexcept {
    const BITMAPINFO* own = image_.GetBitmapInfo();
    if (!own || !EqualRect(&frame.desktop, &desktop_) || frame.bitsPerPixel != bitsPixel_)
        return false;
    const BITMAPINFOHEADER& h = own->bmiHeader;
    if (h.biCompression != payload.header.biCompression || h.biWidth != payload.header.biWidth ||
        h.biHeight != payload.header.biHeight || h.biBitCount != payload.header.biBitCount)
        return false;
    return !compareMasks || h.biCompression != BI_BITFIELDS ||
           std::memcmp(Masks(own), payload.masks, sizeof payload.masks) == 0;
}

// The received area is a true union of the written bands, so two bands with a gap between them
// never pass for a whole picture.
void StreamDecoder::CountReceived(const RECT& band) noexcept {
    RECT inside;
    if (!IntersectRect(&inside, &band, &desktop_))
        return;
    UniqueRgn add(CreateRectRgnIndirect(&inside));
    if (!add)
        return;
    if (!received_) {
        received_ = std::move(add);
    } else if (CombineRgn(received_.get(), received_.get(), add.get(), RGN_OR) == ERROR) {
        return;
    }
    RECT box;
    if (GetRgnBox(received_.get(), &box) == SIMPLEREGION && EqualRect(&box, &desktop_)) {
        pictureComplete_ = true;
        received_.reset();
        owner_.OnPictureComplete();
    }
}

StreamDecoder::Outcome StreamDecoder::DecodeCursor(const void* data, uint32_t cbData) noexcept {
    if (!image_.IsOpen())
        return Outcome::NoImage;
    if (!codec_ || !buffer_)
        return Outcome::NoCodec;
    const uint32_t size = Decompress(data, cbData, packet::Verdict::Cursor);
    if (size == 0)
        return Outcome::CodecFailed;
    packet::CursorRecordView view;
    const packet::CursorError error = packet::ParseCursorRecord(buffer_.get(), size, &view);
    if (error == packet::CursorError::TooShort)
        return Outcome::Damaged;

    Lap lap;
    if (view.record.flags & (packet::kCursorNewShape | packet::kCursorShapeAlias)) {
        // A shape that cannot be read is treated like one the platform could not make into an
        // icon: no pointer until the next shape, while the position still applies. A record
        // without a shape (shape present 0) changes nothing.
        if (error != packet::CursorError::None)
            image_.DropCursorShape();
        else
            image_.SetCursorShape(view.newShape ? &view : nullptr);
        ReportCursorChange(nullptr);
    }
    if (view.newPosition && owner_.AcceptCursorPosition(view.record.x, view.record.y)) {
        image_.MoveCursor(view.record.x, view.record.y);
        const POINT position{view.record.x, view.record.y};
        ReportCursorChange(&position);
    }
    lap.To(&timings_.cursor);
    ++timings_.packets;
    return Outcome::Cursor;
}

void StreamDecoder::ReportCursorChange(const POINT* position) noexcept {
    const RECT area = image_.TakeChangedArea();
    if (!IsRectEmpty(&area) || position)
        owner_.OnCursorChanged(area, position);
}

void StreamDecoder::ResetPicture(bool dropFormat) noexcept {
    pictureComplete_ = false;
    received_.reset();
    if (dropFormat) {
        desktop_ = RECT{};
        bitsPixel_ = 0;
    }
}

}  // namespace vantrel
