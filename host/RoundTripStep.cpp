// The demo's packet round trip (see RoundTripStep.h).
#include "RoundTripStep.h"

#include <new>
#include <string>

#include "CountingSink.h"
#include "DecodingSink.h"
#include "stream/Packet.h"
#include "stream/UpdateRegion.h"

namespace vantrel::host {

namespace {

constexpr int kTypedUpdates = 3;

double Ratio(const uint64_t raw, const uint64_t sent) {
    return sent ? static_cast<double>(raw) / static_cast<double>(sent) : 0.0;
}

}  // namespace

RoundTripStep::RoundTripStep(IScreenCodec* codec) : codec_(codec) {
    encoder_.SetCodec(codec);
}

bool RoundTripStep::Run(std::FILE* out, std::string* failure) noexcept {
    try {
        return RunChecked(out, failure);
    } catch (const std::bad_alloc&) {
        *failure = "out of memory";
        return false;
    }
}

bool RoundTripStep::RunChecked(std::FILE* out, std::string* failure) {
    if (!encoder_.HasBuffers()) {
        *failure = "no packet buffers";
        return false;
    }
    const BITMAPINFOHEADER header = desktop_.Header();
    if (!image_.CreateFromBitmapInfo(reinterpret_cast<const BITMAPINFO*>(&header))) {
        *failure = "the desktop image could not be made";
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
    const uint64_t brokenBytes = ok ? SendBroken() : 0;
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
    std::fprintf(out, "  decoding sink: %u frames, %u cursors decoded, %u refused\n",
                 decoder->Frames(), decoder->Cursors(), decoder->Refused());

    const uint32_t brokenPackets = 2;
    if (!decoder->Problems().empty()) {
        *failure = "decoder: " + decoder->Problems();
    } else if (decoder->Frames() != frames_.packets || decoder->Cursors() != cursors_.packets) {
        *failure = "decoder missed packets";
    } else if (decoder->Refused() != brokenPackets) {
        *failure = "decoder refused " + std::to_string(decoder->Refused()) + " packets, not 2";
    } else if (counter->Frames() != frames_.packets || counter->Cursors() != cursors_.packets ||
               counter->Others() != brokenPackets ||
               counter->Bytes() != frames_.sent + cursors_.sent + brokenBytes ||
               counter->Flushes() != 1) {
        *failure = "counting sink saw another stream than was sent";
    } else if (decoder->Picture() != desktop_.Pixels()) {
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
    const RECT bounds = desktop_.Bounds();
    if (!image_.PutRows(&bounds, desktop_.Pixels().data())) {
        *failure = "the desktop could not be written into the image";
        return false;
    }
    const StreamEncoder::Timings before = encoder_.GetTimings();
    const int sent = encoder_.SendRegion(&r);
    const StreamEncoder::Timings& after = encoder_.GetTimings();
    RECT inside;
    if (sent == 0 && IntersectRect(&inside, &r, &bounds)) {
        *failure = "the encoder sent nothing for a rectangle on the desktop";
        return false;
    }
    frames_.packets += static_cast<uint32_t>(sent);
    frames_.raw += after.payloadBytes - before.payloadBytes;
    frames_.sent += after.packetBytes - before.packetBytes;
    return true;
}

bool RoundTripStep::SendCursor(uint32_t flags, int32_t x, int32_t y, std::string* failure) {
    std::vector<BYTE> record = pointer_.Record(flags, x, y);
    const StreamEncoder::Timings before = encoder_.GetTimings();
    if (!encoder_.SendCursorRecord(record.data(), static_cast<uint32_t>(record.size()))) {
        *failure = "the encoder sent no cursor packet";
        return false;
    }
    lastPosition_ = POINT{x, y};
    ++cursors_.packets;
    cursors_.raw += record.size();
    cursors_.sent += encoder_.GetTimings().packetBytes - before.packetBytes;
    return true;
}

// A cursor packet whose length field is one byte off, and one with an unknown magic.
uint64_t RoundTripStep::SendBroken() {
    BYTE broken[packet::kCursorHeaderSize + 4] = {};
    const uint32_t cbData = sizeof broken;
    packet::WriteHead(broken, packet::Head{packet::kCursorMagic, cbData + 1, 0});
    sinks_.Deliver(broken, cbData);
    packet::WriteHead(broken, packet::Head{0x58585858, cbData, 0});
    sinks_.Deliver(broken, cbData);
    return 2 * cbData;
}

}  // namespace vantrel::host
