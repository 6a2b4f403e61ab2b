// What the capture tests share: a sink that decodes every packet with the shared StreamDecoder
// into its own image and remembers what arrived when, a catcher for the debugger output, a
// painted test window, a temporary DeskPref value, and a fixture that creates DesktopCapture
// through COM as a host does.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ScreenCodec.h"
#include "Vantrel.h"
#include "platform/ComPtr.h"
#include "platform/CriticalSection.h"
#include "platform/UniqueHandle.h"
#include "stream/DesktopImage.h"
#include "stream/ImageTestSupport.h"
#include "stream/Packet.h"
#include "stream/StreamDecoder.h"

namespace vantrel::test {

constexpr DWORD kPatience = 10000;  // ms; generous, the machine is shared

inline void PumpMessages() {
    MSG msg;
    while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE))
        DispatchMessageA(&msg);
}

// Pumps this thread's messages until done() or the time runs out.
inline bool WaitUntil(const std::function<bool()>& done, DWORD timeout = kPatience) {
    for (const DWORD start = GetTickCount(); !done();) {
        if (GetTickCount() - start > timeout)
            return false;
        PumpMessages();
        Sleep(10);
    }
    return true;
}

// Pumps messages for ms milliseconds.
inline void PumpFor(DWORD ms) {
    WaitUntil([] { return false; }, ms);
}

// One packet as the sink saw it.
struct Arrival {
    DWORD tick = 0;    // GetTickCount at Transfer
    int priority = 0;  // of the delivering thread
    StreamDecoder::Outcome outcome = StreamDecoder::Outcome::Refused;
    RECT band{};                  // frames
    bool changedPicture = false;  // frames: the band altered what the decoder held
    DWORD compression = 0;        // frames: of the picture the decoder holds
    packet::CursorRecord cursor;  // cursor packets
    std::vector<BYTE> shape;      // cursor packets with a new shape: shape header and masks
    bool IsFrame() const { return outcome == StreamDecoder::Outcome::Frame; }
    bool IsCursor() const { return outcome == StreamDecoder::Outcome::Cursor; }
};

// Decodes every packet on the delivering (capture) thread; the test thread reads under lock_.
// The test owns the object; the count only watches.
class CaptureSink final : public IDataTransmitter, private StreamDecoder::Owner {
  public:
    explicit CaptureSink(IScreenCodec* codec) : decoder_(image_, *this) {
        decoder_.SetCodec(codec);
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) noexcept override {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IDataTransmitter))
            return E_NOINTERFACE;
        *ppv = static_cast<IDataTransmitter*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return InterlockedIncrement(&refs_); }
    ULONG STDMETHODCALLTYPE Release() noexcept override { return InterlockedDecrement(&refs_); }

    HRESULT STDMETHODCALLTYPE Transfer(void* data, unsigned long cbData, long) noexcept override {
        std::lock_guard<CriticalSection> guard(lock_);
        Arrival a;
        a.tick = GetTickCount();
        a.priority = GetThreadPriority(GetCurrentThread());
        packet::FrameHeader frame;
        const bool isFrame = packet::ReadFrameHeader(data, static_cast<uint32_t>(cbData), &frame);
        std::vector<BYTE> before;
        if (isFrame)
            before = BandBytes(frame.band);
        a.outcome = decoder_.Decode(data, static_cast<uint32_t>(cbData));
        if (a.IsFrame()) {
            a.band = frame.band;
            a.changedPicture = before.empty() || before != BandBytes(frame.band);
            a.compression = image_.GetBitmapInfo()->bmiHeader.biCompression;
        } else if (a.IsCursor()) {
            // The decoder's buffer still holds the record it applied.
            packet::CursorRecordView view;
            if (packet::ParseCursorRecord(decoder_.Buffer(), packet::kBufferSize, &view) ==
                packet::CursorError::None) {
                a.cursor = view.record;
                if (view.newShape)
                    a.shape.assign(view.shape, view.xorBits + view.xorBitsSize);
            }
        }
        arrivals_.push_back(std::move(a));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Flush() noexcept override {
        std::lock_guard<CriticalSection> guard(lock_);
        flushes_.push_back(GetTickCount());
        return S_OK;
    }

    LONG Refs() const { return refs_; }
    std::vector<Arrival> Arrivals() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return arrivals_;
    }
    size_t Count() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return arrivals_.size();
    }
    std::vector<DWORD> Flushes() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return flushes_;
    }
    bool PictureComplete() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return decoder_.IsPictureComplete();
    }
    // Pixels of the decoded picture that differ from the screen at 5-5-5, leaving out the pointer
    // the decoder drew; -1 before a picture exists.
    long Mismatches() {
        std::lock_guard<CriticalSection> guard(lock_);
        if (!image_.IsOpen())
            return -1;
        RECT screen, pointer;
        image_.GetScreenRect(&screen);
        image_.GetCursorRect(&pointer);
        const std::vector<uint32_t> shot = GrabScreen32(screen);
        long wrong = 0;
        for (LONG y = 0; y < screen.bottom; ++y)
            for (LONG x = 0; x < screen.right; ++x)
                if (!PtInRect(&pointer, POINT{x, y}) &&
                    To555(shot[y * screen.right + x]) != Pixel555(image_, x, y))
                    ++wrong;
        return wrong;
    }
    // Pixel (x, y) of the decoded picture as 5-5-5.
    uint16_t PixelAt(int x, int y) {
        std::lock_guard<CriticalSection> guard(lock_);
        return image_.IsOpen() ? Pixel555(image_, x, y) : 0;
    }

  private:
    std::vector<BYTE> BandBytes(const RECT& band) {
        RECT screen, inside;
        image_.GetScreenRect(&screen);
        if (!image_.IsOpen() || !IntersectRect(&inside, &band, &screen))
            return {};
        const int bytes = image_.GetBitsPixel() / 8;
        std::vector<BYTE> out;
        for (LONG y = inside.top; y < inside.bottom; ++y) {
            const BYTE* row = image_.GetBits() + y * image_.GetStride() + inside.left * bytes;
            out.insert(out.end(), row, row + (inside.right - inside.left) * bytes);
        }
        return out;
    }

    mutable CriticalSection lock_;  // guards everything below
    DesktopImage image_;
    StreamDecoder decoder_;
    std::vector<Arrival> arrivals_;
    std::vector<DWORD> flushes_;
    volatile LONG refs_ = 0;
};

// Collects what any thread of the process writes with OutputDebugStringA, through a vectored
// handler that sees the debug-print exception before anybody else.
class DebugOutput {
  public:
    DebugOutput() {
        Current() = this;
        handler_ = AddVectoredExceptionHandler(1, Handler);
    }
    ~DebugOutput() {
        RemoveVectoredExceptionHandler(handler_);
        Current() = nullptr;
    }
    DebugOutput(const DebugOutput&) = delete;
    DebugOutput& operator=(const DebugOutput&) = delete;

    std::vector<std::string> Lines() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return lines_;
    }
    size_t Count(const std::string& line) const {
        size_t n = 0;
        for (const auto& l : Lines())
            n += l == line;
        return n;
    }

  private:
    static constexpr DWORD kDebugPrint = 0x40010006;  // DBG_PRINTEXCEPTION_C
    static DebugOutput*& Current() {
        static DebugOutput* current = nullptr;
        return current;
    }
    static LONG CALLBACK Handler(EXCEPTION_POINTERS* info) {
        const EXCEPTION_RECORD* r = info->ExceptionRecord;
        DebugOutput* self = Current();
        if (self && r->ExceptionCode == kDebugPrint && r->NumberParameters >= 2 &&
            r->ExceptionInformation[0] > 0) {
            std::lock_guard<CriticalSection> guard(self->lock_);
            self->lines_.emplace_back(reinterpret_cast<const char*>(r->ExceptionInformation[1]),
                                      r->ExceptionInformation[0] - 1);
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    void* handler_ = nullptr;
    mutable CriticalSection lock_;
    std::vector<std::string> lines_;
};

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
        wc.lpszClassName = "VantrelCaptureTest";
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
    // True once the screen shows the window's pixels.
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
    // The first and the last pixel of the window, as the screen has them.
    bool WaitForScreen(bool shown, DWORD pollMs) {
        const RECT first{rect_.left, rect_.top, rect_.left + 1, rect_.top + 1};
        const RECT last{rect_.right - 1, rect_.bottom - 1, rect_.right, rect_.bottom};
        for (const DWORD start = GetTickCount(); GetTickCount() - start < kPatience;) {
            const bool a = To555(GrabScreen32(first)[0]) == To555(pixels_.front());
            const bool b = To555(GrabScreen32(last)[0]) == To555(pixels_.back());
            if (shown ? a && b : !a && !b)
                return true;
            PumpMessages();
            Sleep(pollMs);
        }
        return false;
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
            auto bmi = Bmi(rc.right, rc.bottom, 32);
            SetDIBitsToDevice(dc.get(), 0, 0, rc.right, rc.bottom, 0, 0, 0, rc.bottom,
                              self->pixels_.data(), AsBmi(bmi), DIB_RGB_COLORS);
            return 0;
        }
        return DefWindowProcA(hwnd, msg, wp, lp);
    }

    RECT rect_;
    std::vector<uint32_t> pixels_;
    bool splitPointer_ = false;
    UniqueHwnd window_;
};

// A DeskPref value for the length of a test; the previous state comes back afterwards.
class DeskPrefOverride {
  public:
    DeskPrefOverride(const char* name, DWORD value) : name_(name) {
        if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, "Software\\Korvane\\Tessaroom\\DeskPref", 0,
                            nullptr, 0, KEY_ALL_ACCESS, nullptr, key_.put(),
                            nullptr) != ERROR_SUCCESS)
            return;
        DWORD size = sizeof previous_;
        hadValue_ = RegQueryValueExA(key_.get(), name, nullptr, nullptr,
                                     reinterpret_cast<BYTE*>(&previous_), &size) == ERROR_SUCCESS;
        Set(value);
    }
    ~DeskPrefOverride() {
        if (hadValue_)
            Set(previous_);
        else if (key_)
            RegDeleteValueA(key_.get(), name_);
    }
    DeskPrefOverride(const DeskPrefOverride&) = delete;
    DeskPrefOverride& operator=(const DeskPrefOverride&) = delete;
    bool Ok() const { return static_cast<bool>(key_); }
    void Set(DWORD value) {
        RegSetValueExA(key_.get(), name_, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                       sizeof value);
    }

  private:
    const char* name_;
    UniqueHkey key_;
    DWORD previous_ = 0;
    bool hadValue_ = false;
};

// COM, a codec for the sink, and a DesktopCapture made by its registered class object.
class CaptureTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IScreenCodec, codec_.PutVoid()));
        sink_ = std::make_unique<CaptureSink>(codec_.Get());
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
        sink_.reset();
        codec_.Reset();
        CoUninitialize();
    }
    // Registers the sink, runs, and waits for the first whole picture.
    void RunAndWaitForPicture() {
        ASSERT_EQ(S_OK, capture_->RegisterDataTransmitter(sink_.get()));
        ASSERT_EQ(S_OK, capture_->Run());
        ASSERT_TRUE(WaitUntil([&] { return sink_->PictureComplete(); }))
            << "the first picture never arrived";
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

    ComPtr<IScreenCodec> codec_;
    std::unique_ptr<CaptureSink> sink_;
    ComPtr<IDesktopCapture> capture_;
};

}  // namespace vantrel::test
