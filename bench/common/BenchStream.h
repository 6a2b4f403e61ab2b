// What the stream-side benchmarks (stream, render, record, ipc) share: the codec they encode
// with, one desktop-like picture, and that picture cut into frame packets by the stream's own
// encoder. Numbers of different benchmarks are comparable because they encode the same content.
#pragma once

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <vector>

#include "ScreenCodec.h"
#include "common/FakeSink.h"
#include "common/Screen.h"
#include "contracts/Pixmend.h"
#include "stream/DesktopImage.h"
#include "stream/SinkTable.h"
#include "stream/StreamEncoder.h"
#include "wincom/ComPtr.h"

namespace vantrel::bench {

using Packets = std::vector<std::vector<BYTE>>;

// PixmendInit, then ScreenCodec through COM as Vantrel's objects make it; null (and a line on
// the output) when the DLL is not registered. COM is the caller's.
inline ComPtr<IScreenCodec> OpenCodec() {
    PixmendInit();
    ComPtr<IScreenCodec> codec;
    if (FAILED(CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER, IID_IScreenCodec,
                                codec.PutVoid())))
        std::printf("ScreenCodec is not registered\n");
    return codec;
}

// Desktop-like 32-bit pixels (0x00RRGGBB, top row first): a title bar, a side panel, lines of
// "text", a gradient and a photograph-like noisy corner. shift moves the text, changes the noise
// and (its low 5 bits) the colours, so that consecutive pictures differ everywhere.
inline std::vector<uint32_t> DesktopPicture(int w, int h, int shift = 0) {
    std::vector<uint32_t> px(static_cast<size_t>(w) * h);
    uint32_t seed = 42 + shift;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint32_t c = 0xF0F0F0;
            if (y < 30)
                c = 0x2050A0;
            else if (x < w / 5)
                c = 0xD8D8E0;
            else if (y > h * 3 / 4 && x > w * 3 / 4)
                c = (seed = seed * 1664525u + 1013904223u) >> 8;
            else if (y > h / 2 && x > w / 2)
                c = ((x * 255 / w) << 16) | ((y * 255 / h) << 8) | 0x40;
            else if ((y % 18) < 12 && (((x + 8 * shift) / 7 + y / 18) % 9) != 0 &&
                     ((x * 31 + y * 17) % 5) < 2)
                c = 0x202020;
            px[static_cast<size_t>(y) * w + x] =
                (c ^ (static_cast<uint32_t>(shift) & 31) * 0x080808) & 0xFFFFFF;
        }
    return px;
}

// A w x h top-down 16-bit 5-5-5 image holding DesktopPicture (w, h, shift).
inline bool OpenDesktopImage(DesktopImage& image, int w, int h, int shift = 0) {
    if (!image.CreateFromBitmapInfo(test::AsBmi(test::Bmi(w, h, 16))))
        return false;
    const std::vector<uint32_t> px = DesktopPicture(w, h, shift);
    std::vector<uint16_t> rows(px.size());
    for (int y = 0; y < h; ++y)
        ConvertRow32To555(&px[static_cast<size_t>(y) * w], &rows[static_cast<size_t>(y) * w],
                          static_cast<UINT>(4 * w));
    const RECT all{0, 0, w, h};
    return image.PutRows(&all, rows.data()) != FALSE;
}

// The frame packets of r of the image's current contents, as the live stream sends them.
inline Packets EncodeRegion(DesktopImage& image, IScreenCodec* codec, const RECT& r) {
    SinkTable sinks;
    test::FakeSink sink;
    sinks.RegisterDataTransmitter(&sink);
    StreamEncoder encoder(image, sinks);
    encoder.SetCodec(codec);
    encoder.SendRegion(&r);
    sinks.UnregisterDataTransmitter(&sink);
    Packets packets;
    for (test::FakeSink::Packet& p : sink.Packets())
        packets.push_back(std::move(p.bytes));
    return packets;
}

}  // namespace vantrel::bench
