#include "ScreenTestSupport.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace vantrel::test {

uint16_t Pixel555(const DesktopImage& image, int x, int y) {
    const BYTE* p = image.GetBits() + y * image.GetStride() + image.GetBitsPixel() / 8 * x;
    if (image.GetBitsPixel() == 32)
        return To555(packet::LoadU32(p));
    uint16_t v = packet::LoadU16(p);
    const BITMAPINFO* bmi = image.GetBitmapInfo();
    if (bmi->bmiHeader.biCompression == BI_BITFIELDS &&
        reinterpret_cast<const DWORD*>(bmi->bmiColors)[0] == 0xF800)
        v = static_cast<uint16_t>(((v >> 11) << 10) | (((v >> 6) & 0x1F) << 5) | (v & 0x1F));
    return v;
}

StreamDecoder::Outcome DecodingSink::Take(const void* data, uint32_t cbData) {
    std::lock_guard<CriticalSection> guard(lock_);
    Arrival a;
    a.tick = GetTickCount();
    a.priority = GetThreadPriority(GetCurrentThread());
    packet::FrameHeader frame;
    const bool isFrame = packet::ReadFrameHeader(data, cbData, &frame);
    const std::vector<BYTE> before = isFrame ? RowsOf(frame.band) : std::vector<BYTE>();
    a.outcome = decoder.Decode(data, cbData);
    if (a.IsFrame()) {
        a.band = frame.band;
        a.changedPicture = before.empty() || before != RowsOf(frame.band);
    } else if (a.IsCursor()) {
        // The decoder's buffer still holds the record it applied.
        packet::CursorRecordView view;
        if (packet::ParseCursorRecord(decoder.Buffer(), packet::kBufferSize, &view) ==
            packet::CursorError::None) {
            a.cursor = view.record;
            if (view.newShape)
                a.shape.assign(view.shape, view.xorBits + view.xorBitsSize);
        }
    }
    arrivals_.push_back(std::move(a));
    return arrivals_.back().outcome;
}

long DecodingSink::Mismatches() {
    std::lock_guard<CriticalSection> guard(lock_);
    if (!image.IsOpen())
        return -1;
    RECT r, pointer;
    image.GetScreenRect(&r);
    image.GetCursorRect(&pointer);
    const std::vector<uint32_t> shot = GrabScreen32(r);
    long wrong = 0;
    for (LONG y = r.top; y < r.bottom; ++y)
        for (LONG x = r.left; x < r.right; ++x)
            wrong +=
                !PtInRect(&pointer, POINT{x, y}) &&
                To555(shot[(y - r.top) * (r.right - r.left) + x - r.left]) != Pixel555(image, x, y);
    return wrong;
}

std::vector<BYTE> DecodingSink::RowsOf(const RECT& band) const {
    RECT screen;
    image.GetScreenRect(&screen);
    const LONG top = std::max(band.top, 0L), bottom = std::min(band.bottom, screen.bottom);
    if (!image.IsOpen() || top >= bottom)
        return {};
    return std::vector<BYTE>(image.GetBits() + top * image.GetStride(),
                             image.GetBits() + bottom * image.GetStride());
}

std::vector<BYTE> CursorRecordBytes(uint32_t flags, int x, int y, int w, int h, uint32_t colour,
                                    int andRowBytes) {
    const uint16_t andRow = static_cast<uint16_t>(andRowBytes ? andRowBytes : ((w + 15) / 16) * 2);
    std::vector<BYTE> rec(packet::kCursorMasksOffset + andRow * h + 4 * w * h + 4, 0);
    packet::WriteCursorRecord(rec.data(),
                              packet::CursorRecord{flags, 1, x, y, 0, 0, static_cast<uint16_t>(w),
                                                   static_cast<uint16_t>(h), andRow, 1, 32});
    BYTE* xorBits = rec.data() + packet::kCursorMasksOffset + andRow * h;
    for (int i = 0; i < w * h; ++i)
        std::memcpy(xorBits + 4 * i, &colour, 4);
    return rec;
}
packet::CursorRecordView ViewOf(const std::vector<BYTE>& rec) {
    packet::CursorRecordView v;
    EXPECT_EQ(packet::CursorError::None,
              packet::ParseCursorRecord(rec.data(), static_cast<uint32_t>(rec.size()), &v));
    return v;
}

DebugOutput::DebugOutput() : handler_(AddVectoredExceptionHandler(1, Handler)) {
    current_ = this;
}

DebugOutput::~DebugOutput() {
    RemoveVectoredExceptionHandler(handler_);
    current_ = nullptr;
}

std::vector<std::string> DebugOutput::Lines() const {
    std::lock_guard<CriticalSection> guard(lock_);
    return lines_;
}

size_t DebugOutput::Count(const std::string& line) const {
    const auto lines = Lines();
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

DebugOutput* DebugOutput::current_ = nullptr;

LONG CALLBACK DebugOutput::Handler(EXCEPTION_POINTERS* info) {
    const EXCEPTION_RECORD* r = info->ExceptionRecord;
    if (current_ && r->ExceptionCode == 0x40010006 /* DBG_PRINTEXCEPTION_C */ &&
        r->NumberParameters >= 2 && r->ExceptionInformation[0] > 0) {
        std::lock_guard<CriticalSection> guard(current_->lock_);
        current_->lines_.emplace_back(reinterpret_cast<const char*>(r->ExceptionInformation[1]),
                                      r->ExceptionInformation[0] - 1);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

PacketSource::PacketSource(IScreenCodec* codec, int width, int height, uint32_t seed, int bpp)
    : PacketSource(
          codec,
          [&] {
              std::vector<DWORD> greys;
              for (DWORD i = 0; bpp == 8 && i < 256; ++i)
                  greys.push_back(i * 0x010101);
              return Bmi(width, height, bpp, BI_RGB, greys);
          }(),
          seed) {}

PacketSource::PacketSource(IScreenCodec* codec, const std::vector<BYTE>& bmi, uint32_t seed) {
    EXPECT_TRUE(image.CreateFromBitmapInfo(AsBmi(bmi)));
    if (seed)
        Paint(seed);
    encoder.SetCodec(codec);
    sinks.RegisterDataTransmitter(&recorder);
}

PacketSource::~PacketSource() {
    sinks.UnregisterDataTransmitter(&recorder);
}

void PacketSource::Paint(uint32_t seed) {
    const RECT all = Whole();
    std::vector<BYTE> px(image.GetRectBytes(&all));
    for (auto& p : px)
        p = static_cast<BYTE>((seed = seed * 1664525u + 1013904223u) >> 24);
    const BITMAPINFOHEADER& h = image.GetBitmapInfo()->bmiHeader;
    for (size_t i = 1; h.biBitCount == 16 && h.biCompression == BI_RGB && i < px.size(); i += 2)
        px[i] &= 0x7F;
    EXPECT_TRUE(image.PutRows(&all, px.data()));
}

RECT PacketSource::Whole() const {
    RECT all;
    image.GetScreenRect(&all);
    return all;
}

std::vector<std::vector<BYTE>> PacketSource::Packets(const RECT& r) {
    const size_t first = recorder.PacketCount();
    Send(r);
    std::vector<std::vector<BYTE>> out;
    const auto all = recorder.Packets();
    for (size_t i = first; i < all.size(); ++i)
        out.push_back(all[i].bytes);
    return out;
}

std::vector<BYTE> PacketSource::CursorPacket(uint32_t flags, int x, int y, int w, int h) {
    std::vector<BYTE> rec = CursorRecordBytes(flags, x, y, w, h, 0x00FF0000);
    const size_t first = recorder.PacketCount();
    EXPECT_TRUE(encoder.SendCursorRecord(rec.data(), static_cast<uint32_t>(rec.size())));
    const auto all = recorder.Packets();
    return all.size() > first ? all.back().bytes : std::vector<BYTE>();
}

std::vector<RECT> PacketSource::Bands() const {
    std::vector<RECT> out;
    for (const auto& p : recorder.Packets()) {
        packet::FrameHeader h;
        if (packet::ReadFrameHeader(p.bytes.data(), p.cbData, &h))
            out.push_back(h.band);
    }
    return out;
}

std::vector<BYTE> PacketSource::Rows(const RECT& r) {
    std::vector<BYTE> out(image.GetRectBytes(&r));
    UINT cb = static_cast<UINT>(out.size()), lines = 0;
    EXPECT_TRUE(image.CopyRows(&r, out.data(), &cb, 0, &lines));
    return out;
}

void ScreenTest::SetUp() {
    ComTest::SetUp();
    PixmendInit();
    ASSERT_TRUE(codec_ = Create<IScreenCodec>(CLSID_ScreenCodec));
}

void ScreenTest::TearDown() {
    codec_.Reset();
    ComTest::TearDown();
}

std::vector<BYTE> ScreenTest::Body(const std::vector<BYTE>& packet, uint32_t header) {
    std::vector<BYTE> out(packet::kBufferSize);
    ULONG size = static_cast<ULONG>(out.size());
    EXPECT_EQ(S_OK,
              codec_->Decompress(packet.data() + header, static_cast<ULONG>(packet.size() - header),
                                 out.data(), &size));
    out.resize(size);
    return out;
}

void CaptureTest::SetUp() {
    ScreenTest::SetUp();
    sink_ = std::make_unique<DecodingSink>(codec_.Get());
    ASSERT_TRUE(capture_ = Create<IDesktopCapture>(CLSID_DesktopCapture));
    SetCursorPos(1010, 750);  // out of the way of the windows drawn here
}

void CaptureTest::TearDown() {
    if (capture_) {
        capture_->Stop();
        capture_->UnregisterDataTransmitter(sink_.get());
        capture_.Reset();
    }
    EXPECT_EQ(std::vector<std::string>(), sink_->Faults());
    sink_.reset();
    ScreenTest::TearDown();
}

void CaptureTest::RunAndWaitForPicture() {
    ASSERT_EQ(S_OK, capture_->RegisterDataTransmitter(sink_.get()));
    ASSERT_EQ(S_OK, capture_->Run());
    ASSERT_TRUE(WaitUntil([&] { return sink_->PictureComplete(); })) << "no first picture";
}

bool CaptureTest::Converges() {
    long wrong = -1;
    const bool equal = WaitUntil([&] { return (wrong = sink_->Mismatches()) == 0; });
    if (!equal)
        ADD_FAILURE() << wrong << " pixels differ from the screen";
    return equal;
}

bool CaptureTest::Settle(DWORD quietMs) {
    return WaitQuiet([&] { return sink_->Count(); }, quietMs);
}

}  // namespace vantrel::test
