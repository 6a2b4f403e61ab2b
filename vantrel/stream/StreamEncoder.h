// StreamEncoder: turns a DesktopImage into frame packets and hook cursor records into cursor
// packets, and hands each packet to a sink table before it builds the next. Embedded by the
// capture engine (one per DesktopCapture, used on the capture thread only). The render's
// frame-buffer export takes its bands through ExportBand, which cuts them with the same band
// step as the live stream.
//
// Ownership: the image, the sink table and the codec belong to the owner and must outlive the
// encoder; the work and packet buffers are the encoder's, made once in the constructor.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>

#include "ScreenCodec.h"
#include "stream/DesktopImage.h"
#include "stream/Packet.h"
#include "stream/SinkTable.h"
#include "stream/UpdateRegion.h"

namespace vantrel {

class StreamEncoder {
  public:
    // Bounding boxes below this many bytes (at the image's own depth) go out as one rectangle.
    static constexpr UINT kMergeLimit = 8192;
    static constexpr ULONG kLiveMode = 2;    // codec mode of the live stream
    static constexpr ULONG kExportMode = 1;  // codec mode of the frame-buffer export

    // Where the time of the last calls went, in QueryPerformanceCounter ticks; summed until
    // ResetTimings. Benchmarks read it.
    struct Timings {
        LONGLONG grab = 0;
        LONGLONG convert = 0;
        LONGLONG compress = 0;
        LONGLONG deliver = 0;
        UINT packets = 0;
        UINT64 payloadBytes = 0;  // uncompressed BITMAPINFO + rows handed to the codec
        UINT64 packetBytes = 0;   // delivered
    };

    StreamEncoder(DesktopImage& image, SinkTable& sinks) noexcept;
    StreamEncoder(const StreamEncoder&) = delete;
    StreamEncoder& operator=(const StreamEncoder&) = delete;

    // Not owned. Without a codec (or without buffers) nothing is sent.
    void SetCodec(IScreenCodec* codec) noexcept { codec_ = codec; }
    bool HasBuffers() const noexcept { return work_ && packet_; }

    // One screen update: rects in screen pixels, as the hook lists them. Merges them on the
    // grid, grabs the chosen rectangles into the image and sends them band by band. Returns the
    // number of packets delivered.
    int EncodeUpdate(const RECT* rects, UINT count) noexcept;
    // r of the image's current contents, without grabbing.
    int SendRegion(const RECT* r) noexcept;
    // A hook record (edited in place: alias flag cleared, shape-present set) of which capacity
    // bytes are readable. True when a packet was delivered; flags 0 send nothing, and so does a
    // record whose length rule runs past capacity.
    bool SendCursorRecord(BYTE* record, uint32_t capacity) noexcept;

    // IFrameBuffer::GetFullScreenData of a decoded picture: the band of the whole image that
    // starts at *rowCounter, as one frame packet (codec mode 1, time 0, rows copied as they are,
    // the image's own BITMAPINFO). staging holds packet::kBufferSize bytes; packet receives up
    // to packet::kBufferSize bytes. bitsPixel is the depth the picture's packets stated.
    // Returns the packet's length and advances *rowCounter; 0 when no row is left or on a
    // failure (the counter still advances past rows that could not be compressed).
    static uint32_t ExportBand(DesktopImage& image, IScreenCodec* codec, uint32_t bitsPixel,
                               BYTE* staging, BYTE* packet, uint32_t* rowCounter) noexcept;

    const Timings& GetTimings() const noexcept { return timings_; }
    void ResetTimings() noexcept { timings_ = Timings{}; }

  private:
    // What one band step reads and how it packs it.
    struct BandSource {
        DesktopImage* image;
        IScreenCodec* codec;
        const BYTE* bitmapInfo;  // the payload's BITMAPINFO, already at work[0, n)
        uint32_t n;
        bool convert;  // ConvertRows (live stream) or CopyRows (export)
        ULONG mode;
        bool stampTime;
        packet::FrameHeader header;  // desktop and depth; time and band are filled per band
        Timings* timings;
    };
    // Builds the band of r that starts firstLine rows down: rows behind the BITMAPINFO in work,
    // compressed behind the frame header in packet. *rows: how many rows it covers (0: none
    // left, or r cannot be read); fewer than fit the buffer when the full band did not compress
    // into a packet. Returns the packet length, 0 when even one row failed and is skipped.
    static uint32_t BuildBand(BandSource& source, const RECT& r, uint32_t firstLine, BYTE* work,
                              BYTE* packet, uint32_t* rows) noexcept;
    // The image's BITMAPINFO as it travels: 24/32 bpp as 16-bit 5-5-5, 5-6-5 as 5-5-5 when the
    // image converts it. Returns n, 0 when the image is closed.
    uint32_t FixUpHeader() noexcept;
    int SendRects(const UpdateRegion::RectList& rects) noexcept;
    int SendBands(BandSource& source, const RECT& rect) noexcept;

    DesktopImage& image_;
    SinkTable& sinks_;
    IScreenCodec* codec_ = nullptr;
    UpdateRegion region_;
    std::unique_ptr<BYTE[]> work_;    // BITMAPINFO + rows of one band
    std::unique_ptr<BYTE[]> packet_;  // header + compressed payload of one packet
    Timings timings_;
};

}  // namespace vantrel
