// What the desktop-image and stream tests share: a window painted with known noise, an
// independent screen grab reduced to 5-5-5, images built from a BITMAPINFO, a codec instance,
// and a decoding owner that records what the decoder reports.
#pragma once

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <vector>

#include <gtest/gtest.h>

#include "ScreenCodec.h"
#include "platform/ComPtr.h"
#include "platform/Pixmend.h"
#include "platform/UniqueHandle.h"
#include "stream/DesktopImage.h"
#include "stream/Packet.h"
#include "stream/StreamDecoder.h"

namespace vantrel::test {

// 5-5-5 of a blue, green, red pixel: the stream's pixel.
inline uint16_t To555(uint32_t bgr) {
    return static_cast<uint16_t>((((bgr >> 19) & 0x1F) << 10) | (((bgr >> 11) & 0x1F) << 5) |
                                 ((bgr >> 3) & 0x1F));
}

inline std::vector<BYTE> Bmi(int width, int height, int bpp, DWORD compression = BI_RGB,
                             std::vector<DWORD> tail = {}) {
    std::vector<BYTE> b(DesktopImage::kFormatBlockSize, 0);
    auto* h = reinterpret_cast<BITMAPINFOHEADER*>(b.data());
    *h =
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
    auto bmi = Bmi(w, h, 32);
    void* bits = nullptr;
    UniqueBitmap dib(CreateDIBSection(screen.get(), AsBmi(bmi), DIB_RGB_COLORS, &bits, nullptr, 0));
    SelectObjectGuard select(mem.get(), dib.get());
    BitBlt(mem.get(), 0, 0, w, h, screen.get(), r.left, r.top, SRCCOPY);
    GdiFlush();
    std::memcpy(px.data(), bits, px.size() * 4);
    return px;
}

// Pixel (x, y) of a 16-bit image as 5-5-5, whether the image holds 5-5-5 or 5-6-5.
inline uint16_t Pixel555(DesktopImage& image, int x, int y) {
    uint16_t v;
    std::memcpy(&v, image.GetBits() + y * image.GetStride() + 2 * x, 2);
    const BITMAPINFO* bmi = image.GetBitmapInfo();
    if (bmi->bmiHeader.biCompression == BI_BITFIELDS &&
        reinterpret_cast<const DWORD*>(bmi->bmiColors)[0] == 0xF800)
        v = static_cast<uint16_t>(((v >> 11) << 10) | (((v >> 6) & 0x1F) << 5) | (v & 0x1F));
    return v;
}

// A top-most popup painted with pseudo-random pixels from seed.
class NoiseWindow {
  public:
    NoiseWindow(const RECT& where, uint32_t seed) : rect_(where) {
        const int w = where.right - where.left, h = where.bottom - where.top;
        pixels_.resize(static_cast<size_t>(w) * h);
        for (auto& p : pixels_)
            p = (seed = seed * 1664525u + 1013904223u) >> 8;
        WNDCLASSA wc{};
        wc.lpfnWndProc = Proc;
        wc.hInstance = GetModuleHandleA(nullptr);
        wc.lpszClassName = "VantrelNoise";
        RegisterClassA(&wc);
        window_.reset(CreateWindowExA(WS_EX_TOPMOST, wc.lpszClassName, "", WS_POPUP | WS_VISIBLE,
                                      where.left, where.top, w, h, nullptr, nullptr, wc.hInstance,
                                      this));
    }
    uint32_t At(int x, int y) const {
        return pixels_[(y - rect_.top) * Width() + (x - rect_.left)];
    }
    // Pumps until the screen shows the window's pixels (at 5-5-5 precision).
    bool WaitShown() {
        for (int i = 0; i < 200; ++i) {
            MSG msg;
            while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE))
                DispatchMessageA(&msg);
            const RECT probe{rect_.left + 3, rect_.top + 5, rect_.left + 4, rect_.top + 6};
            if (To555(GrabScreen32(probe)[0]) == To555(At(rect_.left + 3, rect_.top + 5)))
                return true;
            Sleep(10);
        }
        return false;
    }

  private:
    int Width() const { return rect_.right - rect_.left; }
    static LRESULT CALLBACK Proc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
        if (msg == WM_NCCREATE)
            SetWindowLongPtrA(
                hwnd, GWLP_USERDATA,
                reinterpret_cast<LONG_PTR>(reinterpret_cast<CREATESTRUCTA*>(lp)->lpCreateParams));
        auto* self = reinterpret_cast<NoiseWindow*>(GetWindowLongPtrA(hwnd, GWLP_USERDATA));
        if (msg == WM_PAINT && self) {
            PaintDc dc(hwnd);
            const int w = self->Width(), h = self->rect_.bottom - self->rect_.top;
            auto bmi = Bmi(w, h, 32);
            SetDIBitsToDevice(dc.get(), 0, 0, w, h, 0, 0, 0, h, self->pixels_.data(), AsBmi(bmi),
                              DIB_RGB_COLORS);
            return 0;
        }
        return DefWindowProcA(hwnd, msg, wp, lp);
    }

    RECT rect_;
    std::vector<uint32_t> pixels_;
    UniqueHwnd window_;
};

// COM, Pixmend and one codec for the whole test.
class StreamTest : public ::testing::Test {
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
    // The decompressed body of a packet.
    std::vector<BYTE> Body(const std::vector<BYTE>& packet, uint32_t header) {
        std::vector<BYTE> out(0x180000);
        ULONG size = static_cast<ULONG>(out.size());
        EXPECT_EQ(S_OK, codec_->Decompress(packet.data() + header,
                                           static_cast<ULONG>(packet.size() - header), out.data(),
                                           &size));
        out.resize(size);
        return out;
    }
    ComPtr<IScreenCodec> codec_;
};

// Records what the decoder reports; rebuilding can be made to fail.
struct RecordingOwner : StreamDecoder::Owner {
    bool failRebuild = false;
    int rebuilds = 0, completions = 0;
    std::vector<RECT> bands, cursorAreas;
    bool RebuildImage(DesktopImage& image, const BITMAPINFO* bmi) noexcept override {
        ++rebuilds;
        return !failRebuild && image.CreateFromBitmapInfo(bmi);
    }
    void OnBandApplied(const RECT& band) noexcept override { bands.push_back(band); }
    void OnPictureComplete() noexcept override { ++completions; }
    void OnCursorChanged(const RECT& area, const POINT*) noexcept override {
        cursorAreas.push_back(area);
    }
};

inline uint32_t Pixel32(const DesktopImage& image, int x, int y) {
    uint32_t v;
    std::memcpy(&v, image.GetBits() + y * image.GetStride() + 4 * x, 4);
    return v & 0xFFFFFF;
}

// A cursor record (stream layout) of a w x h pointer: opaque, solid colour, 32-bit XOR bits.
// andRow 0: AND rows padded to 16 bits.
inline std::vector<BYTE> CursorRecordBytes(uint32_t flags, int x, int y, int w, int h, int hot,
                                           uint32_t colour, int andRowBytes = 0) {
    const uint16_t andRow = static_cast<uint16_t>(andRowBytes ? andRowBytes : ((w + 15) / 16) * 2);
    std::vector<BYTE> rec(packet::kCursorMasksOffset + andRow * h + 4 * w * h + 4, 0);
    packet::WriteCursorRecord(
        rec.data(),
        packet::CursorRecord{flags, 1, x, y, static_cast<uint16_t>(hot), static_cast<uint16_t>(hot),
                             static_cast<uint16_t>(w), static_cast<uint16_t>(h), andRow, 1, 32});
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

}  // namespace vantrel::test

inline bool operator==(const RECT& a, const RECT& b) {
    return EqualRect(&a, &b) != FALSE;
}
inline std::ostream& operator<<(std::ostream& os, const RECT& r) {
    return os << "{" << r.left << "," << r.top << "," << r.right << "," << r.bottom << "}";
}
