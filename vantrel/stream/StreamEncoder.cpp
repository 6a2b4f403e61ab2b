// StreamEncoder: update merging, header fix-up, the band step shared by the live stream and the
// frame-buffer export, and cursor packets.
#include "StreamEncoder.h"

#include <cstring>
#include <new>

#include "Lap.h"

namespace vantrel {

StreamEncoder::StreamEncoder(DesktopImage& image, SinkTable& sinks) noexcept
    : image_(image),
      sinks_(sinks),
      work_(new (std::nothrow) BYTE[packet::kBufferSize]),
      packet_(new (std::nothrow) BYTE[packet::kBufferSize]) {}

int StreamEncoder::EncodeUpdate(const RECT* rects, UINT count) noexcept {
    if (!rects || count == 0 || !codec_ || !HasBuffers() || !image_.IsOpen())
        return 0;
    region_.Empty();
    for (UINT i = 0; i < count; ++i)
        region_.AddRect(&rects[i]);
    RECT box;
    if (!region_.GetBoundingBox(&box))
        return 0;
    // The only allocation per update; a list that cannot be made drops the update.
    UpdateRegion::RectList work;
    if (image_.GetRectBytes(&box) < kMergeLimit) {
        try {
            work.push_back(box);
        } catch (...) {
            return 0;
        }
    } else if (!region_.GetRects(work)) {
        return 0;
    }

    Lap lap;
    GdiFlush();
    image_.RefreshPalette();
    for (const RECT& r : work)
        image_.Grab(&r);
    GdiFlush();
    lap.To(&timings_.grab);
    return SendRects(work);
}

int StreamEncoder::SendRegion(const RECT* r) noexcept {
    if (!r || !codec_ || !HasBuffers() || !image_.IsOpen())
        return 0;
    UpdateRegion::RectList one;
    try {
        one.push_back(*r);
    } catch (...) {
        return 0;
    }
    return SendRects(one);
}

uint32_t StreamEncoder::FixUpHeader() noexcept {
    const BITMAPINFO* own = image_.GetBitmapInfo();
    if (!own)
        return 0;
    uint32_t n = DesktopImage::GetBitmapInfoSize(own);
    std::memcpy(work_.get(), own, n);
    BITMAPINFOHEADER h;
    std::memcpy(&h, work_.get(), sizeof h);
    DWORD redMask = 0;
    std::memcpy(&redMask, work_.get() + sizeof h, sizeof redMask);
    // The header says what ConvertRows will write: the image decides whether 5-6-5 is
    // converted, so header and rows agree whenever the setting changes.
    if (h.biBitCount == 16 && image_.Convert565() && h.biCompression == BI_BITFIELDS &&
        redMask == 0xF800) {
        h.biCompression = BI_RGB;
        n = packet::kBitmapInfoHeaderSize;
    } else if (h.biBitCount == 24 || h.biBitCount == 32) {
        h.biBitCount = 16;
        h.biCompression = BI_RGB;
        n = packet::kBitmapInfoHeaderSize;
    }
    std::memcpy(work_.get(), &h, sizeof h);
    return n;
}

int StreamEncoder::SendRects(const UpdateRegion::RectList& rects) noexcept {
    const uint32_t n = FixUpHeader();
    if (n == 0)
        return 0;
    BITMAPINFOHEADER h;
    std::memcpy(&h, work_.get(), sizeof h);
    BandSource source{&image_, codec_, work_.get(), n, true, kLiveMode, true, {}, &timings_};
    image_.GetScreenRect(&source.header.desktop);
    source.header.bitsPerPixel = h.biBitCount;
    int sent = 0;
    for (const RECT& r : rects)
        sent += SendBands(source, r);
    return sent;
}

int StreamEncoder::SendBands(BandSource& source, const RECT& rect) noexcept {
    RECT r;
    if (!image_.AlignRect(&rect, &r))
        return 0;
    const uint32_t height = static_cast<uint32_t>(r.bottom - r.top);
    int sent = 0;
    for (uint32_t done = 0; done < height;) {
        uint32_t rows = 0;
        const uint32_t length = BuildBand(source, r, done, work_.get(), packet_.get(), &rows);
        if (rows == 0)
            break;
        if (length != 0) {
            Lap lap;
            sinks_.Deliver(packet_.get(), length);
            lap.To(&timings_.deliver);
            ++sent;
            ++timings_.packets;
            timings_.packetBytes += length;
        }
        done += rows;
    }
    return sent;
}

// Rows that do not compress (noise, dithering) can come back larger than a packet holds: the
// band is then cut to half its rows until it fits, so every row arrives whatever the content
// and the codec. Only a single row that still fails is skipped (counted as done), so a sink
// never receives a packet whose payload the codec did not vouch for.
uint32_t StreamEncoder::BuildBand(BandSource& s, const RECT& r, uint32_t firstLine, BYTE* work,
                                  BYTE* packet, uint32_t* rows) noexcept {
    *rows = 0;
    Timings* t = s.timings;
    Lap lap;
    UINT bytes = packet::kBufferSize - s.n;
    UINT lines = 0;
    const BOOL read = s.convert ? s.image->ConvertRows(&r, work + s.n, &bytes, firstLine, &lines)
                                : s.image->CopyRows(&r, work + s.n, &bytes, firstLine, &lines);
    lap.To(t ? &t->convert : nullptr);
    if (!read || lines == 0)
        return 0;
    const UINT rowBytes = bytes / lines;
    ULONG out = 0;
    for (;;) {
        out = packet::kMaxFramePayload;
        const HRESULT hr = s.codec->Compress(work, s.n + lines * rowBytes,
                                             packet + packet::kFrameHeaderSize, &out, s.mode);
        if (SUCCEEDED(hr) && out != 0 && out <= packet::kMaxFramePayload)
            break;
        if (lines == 1) {
            *rows = 1;
            return 0;
        }
        lines /= 2;
    }
    *rows = lines;
    lap.To(t ? &t->compress : nullptr);
    if (t)
        t->payloadBytes += s.n + lines * rowBytes;

    packet::FrameHeader header = s.header;
    header.time = s.stampTime ? GetTickCount() : 0;
    header.band = RECT{r.left, r.top + static_cast<LONG>(firstLine), r.right,
                       r.top + static_cast<LONG>(firstLine + lines)};
    return packet::WriteFrameHeader(packet, header, out);
}

uint32_t StreamEncoder::ExportBand(DesktopImage& image, IScreenCodec* codec, uint32_t bitsPixel,
                                   BYTE* staging, BYTE* packet, uint32_t* rowCounter) noexcept {
    if (!codec || !staging || !packet || !rowCounter)
        return 0;
    const BITMAPINFO* own = image.GetBitmapInfo();
    if (!own)
        return 0;
    RECT whole;
    image.GetScreenRect(&whole);
    if (*rowCounter >= static_cast<uint32_t>(whole.bottom - whole.top))
        return 0;
    // A decoded picture already has a stream format: its BITMAPINFO goes out unchanged.
    const uint32_t n = DesktopImage::GetBitmapInfoSize(own);
    std::memcpy(staging, own, n);
    BandSource source{&image, codec, staging, n, false, kExportMode, false, {}, nullptr};
    source.header.desktop = whole;
    source.header.bitsPerPixel = bitsPixel;
    uint32_t rows = 0;
    const uint32_t length = BuildBand(source, whole, *rowCounter, staging, packet, &rows);
    *rowCounter += rows;
    return length;
}

bool StreamEncoder::SendCursorRecord(BYTE* record, uint32_t capacity) noexcept {
    packet::CursorRecord fields;
    if (!codec_ || !HasBuffers() || !packet::ReadCursorRecord(record, capacity, &fields))
        return false;
    if (fields.flags == 0)
        return false;
    fields.flags = packet::SenderCursorFlags(fields.flags);
    if (fields.flags == 0)
        return false;
    fields.shapePresent = 1;
    packet::WriteCursorRecord(record, fields);
    const uint32_t length = packet::SenderCursorRecordLength(fields);
    if (length > capacity)
        return false;

    Lap lap;
    ULONG out = packet::kMaxCursorPayload;
    const HRESULT hr = codec_->Compress(record, length, packet_.get() + packet::kCursorHeaderSize,
                                        &out, kLiveMode);
    lap.To(&timings_.compress);
    if (FAILED(hr) || out == 0 || out > packet::kMaxCursorPayload)
        return false;
    const uint32_t size = packet::WriteCursorHeader(packet_.get(), GetTickCount(), out);
    sinks_.Deliver(packet_.get(), size);
    lap.To(&timings_.deliver);
    ++timings_.packets;
    timings_.packetBytes += size;
    return true;
}

}  // namespace vantrel
