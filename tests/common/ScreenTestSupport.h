// What the screen tests share beyond Screen.h and FakeSink.h: a sink decoding with the shared
// StreamDecoder, a packet source on the shared StreamEncoder, cursor records, a catcher for the
// debugger output, and fixtures holding COM, a codec and a DesktopCapture. Links Vantrel.dll's
// stream code.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ScreenCodec.h"
#include "Vantrel.h"
#include "common/ComTest.h"
#include "common/DeskPrefOverride.h"
#include "common/FakeSink.h"
#include "common/Screen.h"
#include "contracts/Pixmend.h"
#include "stream/DesktopImage.h"
#include "stream/Packet.h"
#include "stream/SinkTable.h"
#include "stream/StreamDecoder.h"
#include "stream/StreamEncoder.h"

inline bool operator==(const RECT& a, const RECT& b) {
    return EqualRect(&a, &b) != FALSE;
}
inline std::ostream& operator<<(std::ostream& os, const RECT& r) {
    return os << "{" << r.left << "," << r.top << "," << r.right << "," << r.bottom << "}";
}

namespace vantrel::test {

// Pixel (x, y) of a 32-bit or 16-bit (5-5-5 or 5-6-5) image as 5-5-5.
uint16_t Pixel555(const DesktopImage& image, int x, int y);

// One packet as a DecodingSink decoded it.
struct Arrival {
    DWORD tick = 0;
    int priority = 0;  // of the delivering thread
    StreamDecoder::Outcome outcome = StreamDecoder::Outcome::Refused;
    RECT band{};                  // frames
    bool changedPicture = false;  // frames: the band altered what the decoder held
    packet::CursorRecord cursor;  // cursor packets
    std::vector<BYTE> shape;      // cursor packets with a new shape: shape header and masks
    bool IsFrame() const { return outcome == StreamDecoder::Outcome::Frame; }
    bool IsCursor() const { return outcome == StreamDecoder::Outcome::Cursor; }
};

// A FakeSink that decodes every packet with the shared StreamDecoder into its own image, on the
// delivering thread, and records what the decoder made of it and what it told its owner. Other
// threads read through the locked accessors; image, decoder and the owner's counts are touched
// directly only while nothing delivers.
class DecodingSink : public FakeSink, public StreamDecoder::Owner {
  public:
    explicit DecodingSink(IScreenCodec* codec) : FakeSink("decoder"), decoder(image, *this) {
        decoder.SetCodec(codec);
    }

    StreamDecoder::Outcome Take(const void* data, uint32_t cbData);
    StreamDecoder::Outcome Take(const Packet& p) { return Take(p.bytes.data(), p.cbData); }

    std::vector<Arrival> Arrivals() const {
        return Locked([&] { return arrivals_; });
    }
    size_t Count() const {
        return Locked([&] { return arrivals_.size(); });
    }
    bool PictureComplete() const {
        return Locked([&] { return decoder.IsPictureComplete(); });
    }
    // Pixels of the decoded picture that differ from the screen at 5-5-5, leaving out the pointer
    // the decoder drew; -1 before a picture exists.
    long Mismatches();
    uint16_t PixelAt(int x, int y) {
        std::lock_guard<CriticalSection> guard(lock_);
        return image.IsOpen() ? Pixel555(image, x, y) : 0;
    }

    // StreamDecoder::Owner: rebuilding can be made to fail.
    bool RebuildImage(DesktopImage& target, const BITMAPINFO* bmi) noexcept override {
        ++rebuilds;
        return !failRebuild && target.CreateFromBitmapInfo(bmi);
    }
    void OnPictureComplete() noexcept override { ++completions; }
    void OnCursorChanged(const RECT& area, const POINT*) noexcept override {
        cursorAreas.push_back(area);
    }

    DesktopImage image;
    StreamDecoder decoder;
    bool failRebuild = false;
    int rebuilds = 0, completions = 0;
    std::vector<RECT> cursorAreas;

  protected:
    void Received(const void* data, uint32_t cbData) noexcept override { Take(data, cbData); }

  private:
    template <typename F>
    auto Locked(F read) const -> decltype(read()) {
        std::lock_guard<CriticalSection> guard(lock_);
        return read();
    }
    // The whole image rows the band covers: only the band changes them.
    std::vector<BYTE> RowsOf(const RECT& band) const;

    mutable CriticalSection lock_;  // guards the decoding and the arrivals
    std::vector<Arrival> arrivals_;
};

// A cursor record (stream layout) of a w x h pointer: opaque, solid colour, 32-bit XOR bits.
// andRowBytes 0: AND rows padded to 16 bits.
std::vector<BYTE> CursorRecordBytes(uint32_t flags, int x, int y, int w, int h, uint32_t colour,
                                    int andRowBytes = 0);
packet::CursorRecordView ViewOf(const std::vector<BYTE>& rec);

// Collects what any thread of the process writes with OutputDebugStringA, through a vectored
// handler that sees the debug-print exception before anybody else.
class DebugOutput {
  public:
    DebugOutput();
    ~DebugOutput();
    DebugOutput(const DebugOutput&) = delete;
    DebugOutput& operator=(const DebugOutput&) = delete;
    std::vector<std::string> Lines() const;
    size_t Count(const std::string& line) const;

  private:
    static LONG CALLBACK Handler(EXCEPTION_POINTERS* info);

    static DebugOutput* current_;
    void* handler_;
    mutable CriticalSection lock_;
    std::vector<std::string> lines_;
};

// A desktop image a test fills, sent through the stream's own encoder to a recording sink (whose
// packets a test may take or alter) and to the sinks registered beside it.
class PacketSource {
  public:
    // width x height at bpp (16: 5-5-5; 8: a grey colour table), painted with noise of seed.
    PacketSource(IScreenCodec* codec, int width, int height, uint32_t seed, int bpp = 16);
    // An image in the format bmi, left at the background colour when seed is 0.
    PacketSource(IScreenCodec* codec, const std::vector<BYTE>& bmi, uint32_t seed = 0);
    ~PacketSource();
    PacketSource(const PacketSource&) = delete;
    PacketSource& operator=(const PacketSource&) = delete;

    // Noise of seed over the whole image (5-5-5 pixels keep their top bit clear).
    void Paint(uint32_t seed);
    HRESULT Register(IDataTransmitter* sink) { return sinks.RegisterDataTransmitter(sink); }
    HRESULT Unregister(IDataTransmitter* sink) { return sinks.UnregisterDataTransmitter(sink); }
    // r of the image as the encoder cuts it; the number of packets.
    int Send(const RECT& r) { return encoder.SendRegion(&r); }
    int SendAll() { return Send(Whole()); }
    // The packets of one Send.
    std::vector<std::vector<BYTE>> Packets(const RECT& r);
    std::vector<std::vector<BYTE>> FullScreen() { return Packets(Whole()); }
    // One cursor packet of a hook record (flags, position, a w x h shape when flags ask).
    std::vector<BYTE> CursorPacket(uint32_t flags, int x, int y, int w = 32, int h = 32);
    // The band rectangles of the recorded frame packets.
    std::vector<RECT> Bands() const;
    // Unpadded rows of r (default: the whole image), top row first.
    std::vector<BYTE> Rows(const RECT& r);
    std::vector<BYTE> Rows() { return Rows(Whole()); }
    RECT Whole() const;

    DesktopImage image;
    FakeSink recorder{"recorder"};
    SinkTable sinks;
    StreamEncoder encoder{image, sinks};
};

// COM, Pixmend and one codec for the whole test.
class ScreenTest : public ComTest {
  protected:
    void SetUp() override;
    void TearDown() override;
    // The decompressed body of a packet behind its header.
    std::vector<BYTE> Body(const std::vector<BYTE>& packet, uint32_t header);
    ComPtr<IScreenCodec> codec_;
};

// A DesktopCapture made by its registered class object, as a host makes it, and a decoding sink.
class CaptureTest : public ScreenTest {
  protected:
    void SetUp() override;
    void TearDown() override;
    // Registers the sink, runs, and waits for the first whole picture.
    void RunAndWaitForPicture();
    // Until the decoded picture equals the screen; false when it never does.
    bool Converges();
    // Waits until no packet has come for quietMs.
    bool Settle(DWORD quietMs = 600);

    std::unique_ptr<DecodingSink> sink_;
    ComPtr<IDesktopCapture> capture_;
};

}  // namespace vantrel::test
