// The demo's packet round trip (see RoundTripStep.h).
#include "RoundTripStep.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "CountingSink.h"
#include "DecodingSink.h"
#include "stream/Packet.h"
#include "stream/UpdateRegion.h"

namespace vantrel::host {

namespace {

// The codec mode of the live stream.
constexpr ULONG kLiveMode = 2;
constexpr int kTypedUpdates = 3;

double Ratio(const uint64_t raw, const uint64_t sent) {
    return sent ? static_cast<double>(raw) / static_cast<double>(sent) : 0.0;
}

std::string HResultText(const char* what, HRESULT hr) {
    char text[32];
    std::snprintf(text, sizeof text, " (0x%08lX)", static_cast<unsigned long>(hr));
    return what + std::string(text);
}

template <typename T>
HRESULT MakeSink(ComPtr<IDataTransmitter>* sink, T** object) {
    const HRESULT hr = CreateComObject<T>(nullptr, IID_IDataTransmitter, sink->PutVoid());
    *object = SUCCEEDED(hr) ? static_cast<T*>(sink->Get()) : nullptr;
    return hr;
}

}  // namespace

RoundTripStep::RoundTripStep(IScreenCodec* codec)
    : codec_(codec),
      work_(new (std::nothrow) BYTE[packet::kBufferSize]),
      packet_(new (std::nothrow) BYTE[packet::kBufferSize]) {}

bool RoundTripStep::Run(std::FILE* out, std::string* failure) noexcept {
    try {
        return RunChecked(out, failure);
    } catch (const std::bad_alloc&) {
        *failure = "out of memory";
        return false;
    }
}

bool RoundTripStep::RunChecked(std::FILE* out, std::string* failure) {
    if (!work_ || !packet_) {
        *failure = "no packet buffers";
        return false;
    }
    ComPtr<IDataTransmitter> counterSink;
    ComPtr<IDataTransmitter> decoderSink;
    CountingSink* counter = nullptr;
    DecodingSink* decoder = nullptr;
    HRESULT hr = MakeSink(&counterSink, &counter);
    if (SUCCEEDED(hr))
        hr = MakeSink(&decoderSink, &decoder);
    if (FAILED(hr)) {
        *failure = HResultText("sinks could not be made", hr);
        return false;
    }
    decoder->SetCodec(codec_.Get());
    if (FAILED(sinks_.RegisterDataTransmitter(counterSink.Get())) ||
        FAILED(sinks_.RegisterDataTransmitter(decoderSink.Get()))) {
        *failure = "sinks could not be registered";
        return false;
    }

    // The first full screen, the pointer, then a few typed lines each followed by a move.
    bool ok = SendRect(desktop_.Bounds(), failure) && SendCursor(3, 300, 300, failure);
    for (int i = 0; ok && i < kTypedUpdates; ++i) {
        UpdateRegion changed;
        for (const RECT& r : desktop_.TypeLine())
            changed.AddRect(&r);
        UpdateRegion::RectList rects;
        changed.GetRects(rects);
        for (const RECT& r : rects)
            ok = ok && SendRect(r, failure);
        ok = ok && SendCursor(2, 320 + 40 * i, 310 + 12 * i, failure);
    }
    sinks_.Flush();
    if (ok)
        SendBroken();
    sinks_.UnregisterDataTransmitter(counterSink.Get());
    sinks_.UnregisterDataTransmitter(decoderSink.Get());
    if (!ok)
        return false;

    std::fprintf(out, "  frames   %3u packets %9llu bytes raw -> %7llu bytes sent (%.1f:1)\n",
                 frames_.packets, static_cast<unsigned long long>(frames_.raw),
                 static_cast<unsigned long long>(frames_.sent), Ratio(frames_.raw, frames_.sent));
    std::fprintf(out, "  cursors  %3u packets %9llu bytes raw -> %7llu bytes sent (%.1f:1)\n",
                 cursors_.packets, static_cast<unsigned long long>(cursors_.raw),
                 static_cast<unsigned long long>(cursors_.sent),
                 Ratio(cursors_.raw, cursors_.sent));
    std::fprintf(out, "  counting sink: %u frames, %u cursors, %u others, %llu bytes, %u flush\n",
                 counter->Frames(), counter->Cursors(), counter->Others(),
                 static_cast<unsigned long long>(counter->Bytes()), counter->Flushes());
    std::fprintf(out, "  decoding sink: %u frames, %u cursors decoded (%llu bytes), %u refused\n",
                 decoder->Frames(), decoder->Cursors(),
                 static_cast<unsigned long long>(decoder->PayloadBytes()), decoder->Refused());

    const uint32_t brokenPackets = 2;
    if (!decoder->Problems().empty()) {
        *failure = "decoder: " + decoder->Problems();
    } else if (decoder->Frames() != frames_.packets || decoder->Cursors() != cursors_.packets) {
        *failure = "decoder missed packets";
    } else if (decoder->Refused() != brokenPackets) {
        *failure = "decoder refused " + std::to_string(decoder->Refused()) + " packets, not 2";
    } else if (counter->Frames() != frames_.packets || counter->Cursors() != cursors_.packets ||
               counter->Others() != brokenPackets ||
               counter->Bytes() != frames_.sent + cursors_.sent + 2 * lastCursorPacket_.size() ||
               counter->Flushes() != 1) {
        *failure = "counting sink saw another stream than was sent";
    } else if (decoder->Pixels() != desktop_.Pixels()) {
        *failure = "rebuilt desktop differs from the sent one";
    } else if (decoder->PointerMasks() != pointer_.Masks() ||
               decoder->PointerPosition().x != lastPosition_.x ||
               decoder->PointerPosition().y != lastPosition_.y) {
        *failure = "rebuilt pointer differs from the sent one";
    } else {
        std::fprintf(
            out, "  rebuilt %ldx%ld desktop and pointer at (%ld, %ld) match the sent ones\n",
            decoder->Desktop().right, decoder->Desktop().bottom, lastPosition_.x, lastPosition_.y);
        return true;
    }
    return false;
}

bool RoundTripStep::SendRect(const RECT& r, std::string* failure) {
    RECT bounds = desktop_.Bounds();
    RECT band = UpdateRegion::SnapToGrid(r);
    if (!IntersectRect(&band, &band, &bounds))
        return true;

    const BITMAPINFOHEADER header = desktop_.Header();
    const uint32_t n = packet::BitmapInfoSize(header.biBitCount, header.biCompression);
    const uint32_t rowBytes = packet::RowBytes(band, SyntheticDesktop::kBitsPerPixel);
    const uint32_t perBand = packet::RowsThatFit(n, rowBytes);
    const uint32_t height = static_cast<uint32_t>(band.bottom - band.top);
    std::memcpy(work_.get(), &header, sizeof header);
    for (uint32_t done = 0; done < height;) {
        const uint32_t rows = std::min(perBand, height - done);
        desktop_.CopyRows(band, done, rows, work_.get() + n);
        const uint32_t raw = n + rows * rowBytes;
        ULONG size = packet::kMaxFramePayload;
        const HRESULT hr = codec_->Compress(
            work_.get(), raw, packet_.get() + packet::kFrameHeaderSize, &size, kLiveMode);
        if (FAILED(hr)) {
            *failure = HResultText("frame compression failed", hr);
            return false;
        }
        packet::FrameHeader frame;
        frame.time = GetTickCount();
        frame.desktop = bounds;
        frame.bitsPerPixel = SyntheticDesktop::kBitsPerPixel;
        frame.band = RECT{band.left, band.top + static_cast<LONG>(done), band.right,
                          band.top + static_cast<LONG>(done + rows)};
        const uint32_t length = packet::WriteFrameHeader(packet_.get(), frame, size);
        sinks_.Deliver(packet_.get(), length);
        ++frames_.packets;
        frames_.raw += raw;
        frames_.sent += length;
        done += rows;
    }
    return true;
}

bool RoundTripStep::SendCursor(uint32_t flags, int32_t x, int32_t y, std::string* failure) {
    const std::vector<BYTE> record = pointer_.Record(flags, x, y);
    ULONG size = packet::kMaxCursorPayload;
    const HRESULT hr =
        codec_->Compress(record.data(), static_cast<ULONG>(record.size()),
                         packet_.get() + packet::kCursorHeaderSize, &size, kLiveMode);
    if (FAILED(hr)) {
        *failure = HResultText("cursor compression failed", hr);
        return false;
    }
    const uint32_t length = packet::WriteCursorHeader(packet_.get(), GetTickCount(), size);
    sinks_.Deliver(packet_.get(), length);
    lastCursorPacket_.assign(packet_.get(), packet_.get() + length);
    lastPosition_ = POINT{x, y};
    ++cursors_.packets;
    cursors_.raw += record.size();
    cursors_.sent += length;
    return true;
}

// Two packets every decoder must ignore: a length field one byte off, and an unknown magic.
void RoundTripStep::SendBroken() {
    std::vector<BYTE> broken = lastCursorPacket_;
    const uint32_t cbData = static_cast<uint32_t>(broken.size());
    packet::WriteHead(broken.data(), packet::Head{packet::kCursorMagic, cbData + 1, 0});
    sinks_.Deliver(broken.data(), cbData);
    packet::WriteHead(broken.data(), packet::Head{0x58585858, cbData, 0});
    sinks_.Deliver(broken.data(), cbData);
}

}  // namespace vantrel::host
