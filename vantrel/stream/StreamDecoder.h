// StreamDecoder: applies desktop-stream packets to a DesktopImage. The one decoder of the
// library: the render, the shared-memory server and the test sinks each embed one and add
// their own reactions through an Owner (how the image is rebuilt, what a changed area means,
// whether a stream position moves the pointer).
//
// Threads: Decode runs on whatever thread calls Transfer on the owner; one thread at a time.
// The image's own lock keeps its writes apart from painting. The owner's hooks run on the
// decoding thread, outside the image's lock.
// Ownership: the image and the owner belong to the embedding object and outlive the decoder;
// the codec is not owned; the decode buffer is the decoder's, made once.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>

#include "ScreenCodec.h"
#include "wincom/UniqueHandle.h"
#include "stream/DesktopImage.h"
#include "stream/Packet.h"

namespace vantrel {

class StreamDecoder {
  public:
    class Owner {
      public:
        // The packet's format differs from the image's: make the image anew from bmi. The
        // render uses CreateFromBitmapInfo (the default), the shared-memory server
        // CreateSharedFromBitmapInfo under a new name. False leaves the image closed; the next
        // frame packet tries again.
        virtual bool RebuildImage(DesktopImage& image, const BITMAPINFO* bmi) noexcept {
            return image.CreateFromBitmapInfo(bmi) != FALSE;
        }
        // The image was rebuilt in a new format; wasComplete tells whether a picture had been
        // complete before, masksOnly whether only the BI_BITFIELDS masks differed.
        virtual void OnFormatChanged(bool wasComplete, bool masksOnly) noexcept {
            (void)wasComplete;
            (void)masksOnly;
        }
        // A band was applied (written, or outside the image and not written).
        virtual void OnBandApplied(const RECT& band) noexcept { (void)band; }
        // The applied bands cover the desktop for the first time since the last reset.
        virtual void OnPictureComplete() noexcept {}
        // Whether a stream position of the pointer is applied (the render's cursor move mode).
        virtual bool AcceptCursorPosition(int x, int y) noexcept {
            (void)x;
            (void)y;
            return true;
        }
        // The pointer changed; area is the image's changed area, already taken and emptied.
        // position is the new stream position after a move, else null.
        virtual void OnCursorChanged(const RECT& area, const POINT* position) noexcept {
            (void)area;
            (void)position;
        }

      protected:
        ~Owner() = default;
    };

    // What became of one packet.
    enum class Outcome {
        Frame,          // band applied
        Cursor,         // cursor record applied
        Refused,        // not an accepted packet (length, magic, size, desktop beyond limits)
        NoCodec,        // no codec instance or no decode buffer
        CodecFailed,    // the body did not decompress
        Damaged,        // decompressed body inconsistent with its header
        NoImage,        // cursor packet before any frame
        RebuildFailed,  // the image could not be made in the packet's format
    };

    struct Timings {
        LONGLONG decompress = 0;
        LONGLONG write = 0;  // format check, colour table and rows
        LONGLONG cursor = 0;
        UINT packets = 0;
    };

    StreamDecoder(DesktopImage& image, Owner& owner) noexcept;
    StreamDecoder(const StreamDecoder&) = delete;
    StreamDecoder& operator=(const StreamDecoder&) = delete;

    void SetCodec(IScreenCodec* codec) noexcept { codec_ = codec; }

    Outcome Decode(const void* data, uint32_t cbData) noexcept;

    // Forgets completion and the received area. With dropFormat the next frame packet rebuilds
    // the image whatever its format (a render's Run).
    void ResetPicture(bool dropFormat) noexcept;
    bool IsPictureComplete() const noexcept { return pictureComplete_; }
    // The desktop rectangle and depth of the packets that built the image; empty and 0 before.
    const RECT& GetDesktopRect() const noexcept { return desktop_; }
    uint32_t GetBitsPixel() const noexcept { return bitsPixel_; }
    // The decode buffer (packet::kBufferSize bytes), also the staging area of a render's
    // frame-buffer export between packets; null when it could not be made.
    BYTE* Buffer() noexcept { return buffer_.get(); }

    const Timings& GetTimings() const noexcept { return timings_; }
    void ResetTimings() noexcept { timings_ = Timings{}; }

  private:
    Outcome DecodeFrame(const void* data, uint32_t cbData) noexcept;
    Outcome DecodeCursor(const void* data, uint32_t cbData) noexcept;
    // Decompresses the body of an accepted packet into the buffer; the restored size, or 0.
    uint32_t Decompress(const void* data, uint32_t cbData, packet::Verdict verdict) noexcept;
    // With compareMasks false, the BI_BITFIELDS masks are left out of the comparison.
    bool FormatMatches(const packet::FrameHeader& frame, const packet::FramePayloadView& payload,
                       bool compareMasks = true) const noexcept;
    void CountReceived(const RECT& band) noexcept;
    void ReportCursorChange(const POINT* position) noexcept;

    DesktopImage& image_;
    Owner& owner_;
    IScreenCodec* codec_ = nullptr;
    std::unique_ptr<BYTE[]> buffer_;
    RECT desktop_{};
    uint32_t bitsPixel_ = 0;
    UniqueRgn received_;  // applied bands inside the desktop; null when none
    bool pictureComplete_ = false;
    Timings timings_;
};

}  // namespace vantrel
