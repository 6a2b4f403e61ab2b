// What the image, stream and capture tests share: independent screen grabs reduced to 5-5-5,
// images built from a BITMAPINFO, a painted window the tests wait for on the screen, a sink that
// decodes with the shared StreamDecoder, a catcher for the debugger output, a temporary DeskPref
// value, and fixtures holding COM, a codec and (for capture) a DesktopCapture made through COM.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ScreenCodec.h"
#include "Vantrel.h"
#include "common/FakeSink.h"
#include "wincom/ComPtr.h"
#include "wincom/CriticalSection.h"
#include "contracts/Pixmend.h"
#include "wincom/UniqueHandle.h"
#include "stream/DesktopImage.h"
#include "stream/Packet.h"
#include "stream/StreamDecoder.h"

inline bool operator==(const RECT& a, const RECT& b) {
    return EqualRect(&a, &b) != FALSE;
}
inline std::ostream& operator<<(std::ostream& os, const RECT& r) {
    return os << "{" << r.left << "," << r.top << "," << r.right << "," << r.bottom << "}";
}

namespace vantrel::test {

constexpr DWORD kPatience = 10000;  // ms; generous, the machine is shared

// 5-5-5 of a blue, green, red pixel: the stream's pixel.
inline uint16_t To555(uint32_t bgr) {
    return static_cast<uint16_t>((((bgr >> 19) & 0x1F) << 10) | (((bgr >> 11) & 0x1F) << 5) |
                                 ((bgr >> 3) & 0x1F));
}

// A top-down BITMAPINFO in a whole format block; tail: colour table or masks.
inline std::vector<BYTE> Bmi(int width, int height, int bpp, DWORD compression = BI_RGB,
                             std::vector<DWORD> tail = {}) {
    std::vector<BYTE> b(DesktopImage::kFormatBlockSize, 0);
    *reinterpret_cast<BITMAPINFOHEADER*>(b.data()) =
        BITMAPINFOHEADER{40, width, -height, 1, static_cast<WORD>(bpp), compression, 0, 0, 0, 0, 0};
    std::memcpy(b.data() + 40, tail.data(), tail.size() * 4);
    return b;
}
inline const BITMAPINFO* AsBmi(const std::vector<BYTE>& b) {
    return reinterpret_cast<const BITMAPINFO*>(b.data());
}

// The 32-bit pixels of r on the screen, top row first, through a DIB of our own.
inline std::vector<uint32_t> GrabScreen32(const RECT& r) {
    const int w = r.right - r.left, h = r.bottom - r.top;
    std::vector<uint32_t> px(static_cast<size_t>(w) * h);
    WindowDc screen(nullptr);
    UniqueHdc mem(CreateCompatibleDC(screen.get()));
    void* bits = nullptr;
    UniqueBitmap dib(
        CreateDIBSection(screen.get(), AsBmi(Bmi(w, h, 32)), DIB_RGB_COLORS, &bits, nullptr, 0));
    SelectObjectGuard select(mem.get(), dib.get());
    BitBlt(mem.get(), 0, 0, w, h, screen.get(), r.left, r.top, SRCCOPY);
    GdiFlush();
    std::memcpy(px.data(), bits, px.size() * 4);
    return px;
}

// Pixel (x, y) of a 32-bit or 16-bit (5-5-5 or 5-6-5) image as 5-5-5.
inline uint16_t Pixel555(const DesktopImage& image, int x, int y) {
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

// Pumps this thread's messages (pollMs between looks) until done() or the time runs out.
inline bool WaitUntil(const std::function<bool()>& done, DWORD timeout = kPatience,
                      DWORD pollMs = 10) {
    for (const DWORD start = GetTickCount(); !done(); Sleep(pollMs)) {
        if (GetTickCount() - start > timeout)
            return false;
        MSG msg;
        while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE))
            DispatchMessageA(&msg);
    }
    return true;
}
inline void PumpFor(DWORD ms) {
    WaitUntil([] { return false; }, ms);
}

// A top-most popup painted with pseudo-random pixels; never activated unless asked, because
// without a window manager an active window takes seconds to go away. The platform puts what a
// window painted on the screen a little later, so every change waits until the screen shows it
// (pollMs between looks) before a test compares anything with the screen.
class NoiseBox {
  public:
    NoiseBox(const RECT& where, uint32_t seed, bool activate = false) : rect_(where) {
        Fill(seed);
        WNDCLASSA wc{};
        wc.lpfnWndProc = Proc;
        wc.hInstance = GetModuleHandleA(nullptr);
        wc.hCursor = LoadCursorA(nullptr, IDC_ARROW);
        wc.lpszClassName = "VantrelNoiseBox";
        RegisterClassA(&wc);
        window_.reset(CreateWindowExA(WS_EX_TOPMOST | (activate ? 0 : WS_EX_NOACTIVATE),
                                      wc.lpszClassName, "", WS_POPUP, where.left, where.top,
                                      where.right - where.left, where.bottom - where.top, nullptr,
                                      nullptr, wc.hInstance, this));
        ShowWindow(window_.get(), activate ? SW_SHOW : SW_SHOWNOACTIVATE);
        if (activate)
            SetForegroundWindow(window_.get());
        UpdateWindow(window_.get());
    }
    bool Shown(DWORD pollMs = 10) { return WaitForScreen(true, pollMs); }
    bool Repaint(uint32_t seed, DWORD pollMs = 10) {
        Fill(seed);
        InvalidateRect(window_.get(), nullptr, FALSE);
        UpdateWindow(window_.get());
        return Shown(pollMs);
    }
    bool MoveTo(int x, int y) {
        SetWindowPos(window_.get(), nullptr, x, y, 0, 0,
                     SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
        OffsetRect(&rect_, x - rect_.left, y - rect_.top);
        UpdateWindow(window_.get());
        return Shown();
    }
    // True once the screen no longer shows the window.
    bool Close() {
        window_.reset();
        return WaitForScreen(false, 10);
    }
    // Over the left half the pointer is a cross, over the right half an arrow.
    void SplitPointer() { splitPointer_ = true; }

  private:
    void Fill(uint32_t seed) {
        pixels_.resize(static_cast<size_t>(rect_.right - rect_.left) * (rect_.bottom - rect_.top));
        for (auto& p : pixels_)
            p = (seed = seed * 1664525u + 1013904223u) >> 8;
    }
    // Looks at the first and the last pixel of the window.
    bool WaitForScreen(bool shown, DWORD pollMs) {
        const RECT first{rect_.left, rect_.top, rect_.left + 1, rect_.top + 1};
        const RECT last{rect_.right - 1, rect_.bottom - 1, rect_.right, rect_.bottom};
        return WaitUntil(
            [&] {
                const bool a = To555(GrabScreen32(first)[0]) == To555(pixels_.front());
                const bool b = To555(GrabScreen32(last)[0]) == To555(pixels_.back());
                return shown ? a && b : !a && !b;
            },
            kPatience, pollMs);
    }
    static LRESULT CALLBACK Proc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
        if (msg == WM_NCCREATE)
            SetWindowLongPtrA(
                hwnd, GWLP_USERDATA,
                reinterpret_cast<LONG_PTR>(reinterpret_cast<CREATESTRUCTA*>(lp)->lpCreateParams));
        auto* self = reinterpret_cast<NoiseBox*>(GetWindowLongPtrA(hwnd, GWLP_USERDATA));
        RECT rc;
        GetClientRect(hwnd, &rc);
        if (msg == WM_SETCURSOR && self && self->splitPointer_) {
            POINT p;
            GetCursorPos(&p);
            ScreenToClient(hwnd, &p);
            SetCursor(LoadCursorA(nullptr, p.x < rc.right / 2 ? IDC_CROSS : IDC_ARROW));
            return TRUE;
        }
        if (msg == WM_PAINT && self) {
            PaintDc dc(hwnd);
            SetDIBitsToDevice(dc.get(), 0, 0, rc.right, rc.bottom, 0, 0, 0, rc.bottom,
                              self->pixels_.data(), AsBmi(Bmi(rc.right, rc.bottom, 32)),
                              DIB_RGB_COLORS);
            return 0;
        }
        return DefWindowProcA(hwnd, msg, wp, lp);
    }

    RECT rect_;
    std::vector<uint32_t> pixels_;
    bool splitPointer_ = false;
    UniqueHwnd window_;
};

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

    StreamDecoder::Outcome Take(const void* data, uint32_t cbData) {
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
    StreamDecoder::Outcome Take(const Packet& p) { return Take(p.bytes.data(), p.cbData); }

    std::vector<Arrival> Arrivals() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return arrivals_;
    }
    size_t Count() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return arrivals_.size();
    }
    bool PictureComplete() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return decoder.IsPictureComplete();
    }
    // Pixels of the decoded picture in area (default: all of it) that differ from the screen at
    // 5-5-5, leaving out the pointer the decoder drew; -1 before a picture exists.
    long Mismatches(const RECT* area = nullptr) {
        std::lock_guard<CriticalSection> guard(lock_);
        if (!image.IsOpen())
            return -1;
        RECT r, pointer;
        image.GetScreenRect(&r);
        if (area)
            r = *area;
        image.GetCursorRect(&pointer);
        const std::vector<uint32_t> shot = GrabScreen32(r);
        long wrong = 0;
        for (LONG y = r.top; y < r.bottom; ++y)
            for (LONG x = r.left; x < r.right; ++x)
                wrong += !PtInRect(&pointer, POINT{x, y}) &&
                         To555(shot[(y - r.top) * (r.right - r.left) + x - r.left]) !=
                             Pixel555(image, x, y);
        return wrong;
    }
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
    // The whole image rows the band covers: only the band changes them.
    std::vector<BYTE> RowsOf(const RECT& band) const {
        RECT screen;
        image.GetScreenRect(&screen);
        const LONG top = std::max(band.top, 0L), bottom = std::min(band.bottom, screen.bottom);
        if (!image.IsOpen() || top >= bottom)
            return {};
        return std::vector<BYTE>(image.GetBits() + top * image.GetStride(),
                                 image.GetBits() + bottom * image.GetStride());
    }

    mutable CriticalSection lock_;  // guards the decoding and the arrivals
    std::vector<Arrival> arrivals_;
};

// A cursor record (stream layout) of a w x h pointer: opaque, solid colour, 32-bit XOR bits.
// andRowBytes 0: AND rows padded to 16 bits.
inline std::vector<BYTE> CursorRecordBytes(uint32_t flags, int x, int y, int w, int h,
                                           uint32_t colour, int andRowBytes = 0) {
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
inline packet::CursorRecordView ViewOf(const std::vector<BYTE>& rec) {
    packet::CursorRecordView v;
    EXPECT_EQ(packet::CursorError::None,
              packet::ParseCursorRecord(rec.data(), static_cast<uint32_t>(rec.size()), &v));
    return v;
}

// Collects what any thread of the process writes with OutputDebugStringA, through a vectored
// handler that sees the debug-print exception before anybody else.
class DebugOutput {
  public:
    DebugOutput() : handler_(AddVectoredExceptionHandler(1, Handler)) { current_ = this; }
    ~DebugOutput() {
        RemoveVectoredExceptionHandler(handler_);
        current_ = nullptr;
    }
    std::vector<std::string> Lines() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return lines_;
    }
    size_t Count(const std::string& line) const {
        const auto lines = Lines();
        return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
    }

  private:
    static LONG CALLBACK Handler(EXCEPTION_POINTERS* info) {
        const EXCEPTION_RECORD* r = info->ExceptionRecord;
        if (current_ && r->ExceptionCode == 0x40010006 /* DBG_PRINTEXCEPTION_C */ &&
            r->NumberParameters >= 2 && r->ExceptionInformation[0] > 0) {
            std::lock_guard<CriticalSection> guard(current_->lock_);
            current_->lines_.emplace_back(reinterpret_cast<const char*>(r->ExceptionInformation[1]),
                                          r->ExceptionInformation[0] - 1);
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    static inline DebugOutput* current_ = nullptr;
    void* handler_;
    mutable CriticalSection lock_;
    std::vector<std::string> lines_;
};

// A DeskPref value for the length of a test (kNoValue: absent); the previous state comes back
// afterwards.
class DeskPrefOverride {
  public:
    static constexpr DWORD kNoValue = 0xFFFFFFFF;
    DeskPrefOverride(const char* name, DWORD value) : name_(name) {
        RegCreateKeyExA(HKEY_LOCAL_MACHINE, "Software\\Korvane\\Tessaroom\\DeskPref", 0, nullptr, 0,
                        KEY_ALL_ACCESS, nullptr, key_.put(), nullptr);
        DWORD size = sizeof previous_;
        if (RegQueryValueExA(key_.get(), name, nullptr, nullptr,
                             reinterpret_cast<BYTE*>(&previous_), &size) != ERROR_SUCCESS)
            previous_ = kNoValue;
        Set(value);
    }
    ~DeskPrefOverride() { Set(previous_); }
    bool Ok() const { return static_cast<bool>(key_); }
    void Set(DWORD value) {
        if (value == kNoValue)
            RegDeleteValueA(key_.get(), name_);
        else
            RegSetValueExA(key_.get(), name_, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                           sizeof value);
    }

  private:
    const char* name_;
    UniqueHkey key_;
    DWORD previous_ = kNoValue;
};

// COM, Pixmend and one codec for the whole test.
class ScreenTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
        PixmendInit();
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IScreenCodec, codec_.PutVoid()));
    }
    void TearDown() override {
        codec_.Reset();
        CoUninitialize();
    }
    // The decompressed body of a packet behind its header.
    std::vector<BYTE> Body(const std::vector<BYTE>& packet, uint32_t header) {
        std::vector<BYTE> out(packet::kBufferSize);
        ULONG size = static_cast<ULONG>(out.size());
        EXPECT_EQ(S_OK, codec_->Decompress(packet.data() + header,
                                           static_cast<ULONG>(packet.size() - header), out.data(),
                                           &size));
        out.resize(size);
        return out;
    }
    ComPtr<IScreenCodec> codec_;
};

// A DesktopCapture made by its registered class object, as a host makes it, and a decoding sink.
class CaptureTest : public ScreenTest {
  protected:
    void SetUp() override {
        ScreenTest::SetUp();
        sink_ = std::make_unique<DecodingSink>(codec_.Get());
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopCapture, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopCapture, capture_.PutVoid()));
        SetCursorPos(1010, 750);  // out of the way of the windows drawn here
    }
    void TearDown() override {
        if (capture_) {
            capture_->Stop();
            capture_->UnregisterDataTransmitter(sink_.get());
            capture_.Reset();
        }
        EXPECT_EQ(std::vector<std::string>(), sink_->Faults());
        sink_.reset();
        ScreenTest::TearDown();
    }
    // Registers the sink, runs, and waits for the first whole picture.
    void RunAndWaitForPicture() {
        ASSERT_EQ(S_OK, capture_->RegisterDataTransmitter(sink_.get()));
        ASSERT_EQ(S_OK, capture_->Run());
        ASSERT_TRUE(WaitUntil([&] { return sink_->PictureComplete(); })) << "no first picture";
    }
    // Until the decoded picture equals the screen; false when it never does.
    bool Converges() {
        long wrong = -1;
        const bool equal = WaitUntil([&] { return (wrong = sink_->Mismatches()) == 0; });
        if (!equal)
            ADD_FAILURE() << wrong << " pixels differ from the screen";
        return equal;
    }
    // Waits until no packet has come for quietMs.
    bool Settle(DWORD quietMs = 600) {
        size_t count = sink_->Count();
        DWORD since = GetTickCount();
        return WaitUntil([&] {
            if (sink_->Count() != count) {
                count = sink_->Count();
                since = GetTickCount();
            }
            return GetTickCount() - since > quietMs;
        });
    }

    std::unique_ptr<DecodingSink> sink_;
    ComPtr<IDesktopCapture> capture_;
};

}  // namespace vantrel::test
