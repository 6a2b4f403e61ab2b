// The demo's decoding sink (see DecodingSink.h).
#include "DecodingSink.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace vantrel::host {

namespace {

// The background an image shows before bands cover it: COLORREF 0x808000 as 5-5-5.
constexpr uint16_t kBackground555 = (0x80 >> 3) << 5 | (0x80 >> 3);

bool Inside(const RECT& r, const RECT& bounds) {
    return r.left >= bounds.left && r.top >= bounds.top && r.right <= bounds.right &&
           r.bottom <= bounds.bottom;
}

bool SameRect(const RECT& a, const RECT& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

}  // namespace

DecodingSink::DecodingSink(IUnknown* outer) noexcept
    : ComObjectRoot(outer), buffer_(new (std::nothrow) BYTE[packet::kBufferSize]) {}

HRESULT DecodingSink::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(DecodingSink, IDataTransmitter), {}};
    return QISearch(this, rows, riid, ppv);
}

HRESULT DecodingSink::Transfer(void* lpvData, unsigned long cbData, long) noexcept {
    try {
        switch (packet::Classify(lpvData, cbData)) {
            case packet::Verdict::Frame:
                ApplyFrame(lpvData, cbData);
                break;
            case packet::Verdict::Cursor:
                ApplyCursor(lpvData, cbData);
                break;
            default:
                ++refused_;
                break;
        }
    } catch (const std::bad_alloc&) {
        Problem("out of memory");
    }
    // Whatever happened, the source is not told.
    return S_OK;
}

HRESULT DecodingSink::Flush() noexcept {
    return S_OK;
}

void DecodingSink::Problem(const char* what) noexcept {
    try {
        if (!problems_.empty())
            problems_ += "; ";
        problems_ += what;
    } catch (const std::bad_alloc&) {
    }
}

uint32_t DecodingSink::Decompress(const void* data, uint32_t cbData,
                                  packet::Verdict verdict) noexcept {
    if (!codec_ || !buffer_) {
        Problem("no codec or no decode buffer");
        return 0;
    }
    const packet::ByteRange body = packet::BodyOf(data, cbData, verdict);
    ULONG size = packet::kBufferSize;
    if (codec_->Decompress(body.data, body.size, buffer_.get(), &size) != S_OK) {
        Problem("the codec refused a body");
        return 0;
    }
    return size;
}

void DecodingSink::ApplyFrame(const void* data, uint32_t cbData) {
    packet::FrameHeader frame;
    if (!packet::ReadFrameHeader(data, cbData, &frame))
        return Problem("unreadable frame header");
    const uint32_t size = Decompress(data, cbData, packet::Verdict::Frame);
    if (size == 0)
        return;
    packet::FramePayloadView view;
    const packet::PayloadError error = packet::ParseFramePayload(buffer_.get(), size, frame, &view);
    if (error != packet::PayloadError::None)
        return Problem(packet::PayloadErrorName(error));
    if (view.header.biBitCount != 16 || view.header.biCompression != BI_RGB)
        return Problem("a format this demo does not rebuild");

    if (!SameRect(frame.desktop, desktop_)) {
        desktop_ = frame.desktop;
        pixels_.assign(static_cast<size_t>(desktop_.right) * desktop_.bottom, kBackground555);
    }
    // A band outside the desktop is counted but not written.
    if (Inside(frame.band, desktop_)) {
        for (uint32_t r = 0; r < view.rowCount; ++r) {
            const size_t y = static_cast<size_t>(frame.band.top) + r;
            std::memcpy(&pixels_[y * desktop_.right + frame.band.left],
                        view.rows + static_cast<size_t>(r) * view.rowBytes, view.rowBytes);
        }
    }
    ++frames_;
    payloadBytes_ += size;
}

void DecodingSink::ApplyCursor(const void* data, uint32_t cbData) {
    // No picture yet: there is nothing to draw a pointer on.
    if (pixels_.empty()) {
        ++refused_;
        return;
    }
    const uint32_t size = Decompress(data, cbData, packet::Verdict::Cursor);
    if (size == 0)
        return;
    packet::CursorRecordView view;
    const packet::CursorError error = packet::ParseCursorRecord(buffer_.get(), size, &view);
    if (error != packet::CursorError::None)
        return Problem(packet::CursorErrorName(error));
    if (view.newShape) {
        pointerMasks_.assign(view.andMask, view.andMask + view.andMaskSize + view.xorBitsSize);
    }
    if (view.newPosition)
        pointer_ = POINT{view.record.x, view.record.y};
    ++cursors_;
    payloadBytes_ += size;
}

}  // namespace vantrel::host
