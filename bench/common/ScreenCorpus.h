// Real screen content for the benchmarks: scenes drawn with GDI (fonts, lines, fills, gradients)
// in a full-screen window on the virtual display, then grabbed from the screen and reduced to
// 5-5-5 with Pixmend's converter, as the capture does. Made at bench time, so nothing large
// lives in the repository: a document, source code, a spreadsheet, a web page, a photograph
// and a desktop with windows.
#pragma once

#include <windows.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "common/Screen.h"
#include "contracts/Pixmend.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::bench {

struct Screenshot {
    std::string name;
    int width = 0, height = 0;
    std::vector<std::uint16_t> pixels;  // 5-5-5, top-down, no padding
};

namespace corpus {

using Font = UniqueAny<detail::GdiObjectTraits<HFONT>>;

inline void Fill(HDC dc, int l, int t, int r, int b, COLORREF c) {
    UniqueBrush brush(CreateSolidBrush(c));
    RECT rc = {l, t, r, b};
    FillRect(dc, &rc, brush.get());
}

inline void Gradient(HDC dc, int l, int t, int r, int b, COLORREF from, COLORREF to,
                     bool horizontal) {
    TRIVERTEX v[2] = {
        {l, t, static_cast<COLOR16>(GetRValue(from) << 8),
         static_cast<COLOR16>(GetGValue(from) << 8), static_cast<COLOR16>(GetBValue(from) << 8), 0},
        {r, b, static_cast<COLOR16>(GetRValue(to) << 8), static_cast<COLOR16>(GetGValue(to) << 8),
         static_cast<COLOR16>(GetBValue(to) << 8), 0}};
    GRADIENT_RECT g = {0, 1};
    GradientFill(dc, v, 2, &g, 1, horizontal ? GRADIENT_FILL_RECT_H : GRADIENT_FILL_RECT_V);
}

inline Font MakeFont(int height, const char* face, int weight = FW_NORMAL) {
    return Font(CreateFontA(-height, 0, 0, 0, weight, 0, 0, 0, DEFAULT_CHARSET, 0, 0,
                            ANTIALIASED_QUALITY, 0, face));
}

inline void Text(HDC dc, int x, int y, const std::string& s, COLORREF colour) {
    SetTextColor(dc, colour);
    TextOutA(dc, x, y, s.c_str(), static_cast<int>(s.size()));
}

inline void Line(HDC dc, int x0, int y0, int x1, int y1, COLORREF colour) {
    UniqueAny<detail::GdiObjectTraits<HPEN>> pen(CreatePen(PS_SOLID, 1, colour));
    HGDIOBJ old = SelectObject(dc, pen.get());
    MoveToEx(dc, x0, y0, nullptr);
    LineTo(dc, x1, y1);
    SelectObject(dc, old);
}

inline std::string Words(std::mt19937& rng, int count) {
    static const char* words[] = {
        "the",    "screen",  "lesson", "students", "teacher",  "classroom", "window",  "shared",
        "update", "network", "each",   "picture",  "while",    "and",       "because", "of",
        "in",     "a",       "with",   "session",  "recorded", "stream",    "example", "page"};
    std::string s;
    for (int i = 0; i < count; ++i) {
        s += words[rng() % (sizeof words / sizeof *words)];
        s += ' ';
    }
    return s;
}

inline void TitleBar(HDC dc, int l, int t, int r, const char* title) {
    Gradient(dc, l, t, r, t + 22, RGB(10, 36, 106), RGB(166, 202, 240), true);
    Font f = MakeFont(12, "Tahoma", FW_BOLD);
    HGDIOBJ old = SelectObject(dc, f.get());
    Text(dc, l + 6, t + 4, title, RGB(255, 255, 255));
    SelectObject(dc, old);
}

inline void Document(HDC dc, int w, int h) {
    std::mt19937 rng(1);
    Fill(dc, 0, 0, w, h, RGB(128, 128, 128));
    TitleBar(dc, 0, 0, w, "Lesson notes - Writer");
    Fill(dc, 0, 22, w, 60, RGB(236, 233, 216));
    for (int i = 0; i < 18; ++i) {
        RECT b = {6 + i * 28, 28, 30 + i * 28, 54};
        DrawEdge(dc, &b, BDR_RAISEDINNER, BF_RECT);
        Fill(dc, b.left + 6, b.top + 6, b.right - 6, b.bottom - 6,
             RGB(40 + i * 9, 80, 160 - i * 5));
    }
    const int left = w / 2 - 380, right = w / 2 + 380;
    Fill(dc, left, 70, right, h, RGB(255, 255, 255));
    Font heading = MakeFont(22, "Times New Roman", FW_BOLD);
    Font body = MakeFont(15, "Times New Roman");
    HGDIOBJ old = SelectObject(dc, heading.get());
    Text(dc, left + 60, 100, "Chapter 3: Sharing a screen with the class", RGB(0, 0, 0));
    SelectObject(dc, body.get());
    int y = 140;
    for (int para = 0; y < h - 20; ++para) {
        for (int line = 0; line < 4 + static_cast<int>(rng() % 5) && y < h - 20; ++line, y += 19)
            Text(dc, left + 60, y, Words(rng, 11 + rng() % 4), RGB(0, 0, 0));
        y += 12;
    }
    SelectObject(dc, old);
}

inline void Code(HDC dc, int w, int h) {
    std::mt19937 rng(2);
    Fill(dc, 0, 0, w, h, RGB(255, 255, 255));
    TitleBar(dc, 0, 0, w, "CaptureEngine.cpp - Editor");
    Fill(dc, 0, 22, 48, h, RGB(240, 240, 240));
    Fill(dc, 0, 22, w, 44, RGB(236, 233, 216));
    Font mono = MakeFont(14, "Courier New");
    HGDIOBJ old = SelectObject(dc, mono.get());
    SetBkMode(dc, TRANSPARENT);
    static const char* kw[] = {"if", "for", "return", "const", "auto", "while", "static"};
    static const char* ids[] = {"region", "band",   "rect",  "image", "codec", "sink",
                                "packet", "result", "count", "width", "rows",  "Grab"};
    int indent = 0;
    for (int line = 1, y = 48; y < h - 14; ++line, y += 16) {
        Text(dc, 6, y, std::to_string(line), RGB(128, 128, 128));
        const int kind = rng() % 10;
        int x = 60 + indent * 32;
        if (kind == 0) {
            Text(dc, x, y, "// " + Words(rng, 6), RGB(0, 128, 0));
        } else if (kind < 3) {
            Text(dc, x, y, kw[rng() % 7], RGB(0, 0, 255));
            Text(dc, x + 64, y,
                 std::string("(") + ids[rng() % 12] + " < " + ids[rng() % 12] + ") {",
                 RGB(0, 0, 0));
            if (indent < 4)
                ++indent;
        } else if (kind == 3 && indent > 0) {
            --indent;
            Text(dc, x - 32, y, "}", RGB(0, 0, 0));
        } else {
            std::string s = std::string(ids[rng() % 12]) + " = " + ids[rng() % 12] + "." +
                            ids[rng() % 12] + "(" + std::to_string(rng() % 512) + ");";
            Text(dc, x, y, s, RGB(0, 0, 0));
            if (rng() % 3 == 0)
                Text(dc, x + 8 * static_cast<int>(s.size()) + 16, y, "\"" + Words(rng, 2) + "\"",
                     RGB(163, 21, 21));
        }
    }
    SelectObject(dc, old);
}

inline void Spreadsheet(HDC dc, int w, int h) {
    std::mt19937 rng(3);
    Fill(dc, 0, 0, w, h, RGB(255, 255, 255));
    TitleBar(dc, 0, 0, w, "Marks.xls - Sheet");
    Fill(dc, 0, 22, w, 62, RGB(236, 233, 216));
    const int colW = 72, rowH = 18, top = 62, left = 40;
    Fill(dc, 0, top, w, top + rowH, RGB(212, 208, 200));
    Fill(dc, 0, top, left, h, RGB(212, 208, 200));
    Fill(dc, left + 2 * colW, top + 5 * rowH, left + 5 * colW, top + 9 * rowH, RGB(200, 220, 255));
    Font f = MakeFont(12, "Arial");
    HGDIOBJ old = SelectObject(dc, f.get());
    SetBkMode(dc, TRANSPARENT);
    for (int c = 0; left + c * colW < w; ++c) {
        Line(dc, left + c * colW, top, left + c * colW, h, RGB(192, 192, 192));
        Text(dc, left + c * colW + colW / 2 - 4, top + 2, std::string(1, char('A' + c % 26)),
             RGB(0, 0, 0));
    }
    for (int r = 0; top + r * rowH < h; ++r) {
        Line(dc, 0, top + r * rowH, w, top + r * rowH, RGB(192, 192, 192));
        if (r > 0) {
            Text(dc, 8, top + r * rowH + 2, std::to_string(r), RGB(0, 0, 0));
            for (int c = 0; left + c * colW < w; ++c) {
                if (rng() % 5 == 0)
                    continue;
                const std::string v =
                    c == 0 ? Words(rng, 1)
                           : std::to_string(rng() % 1000) + "." + std::to_string(rng() % 10);
                Text(dc, left + c * colW + 4, top + r * rowH + 2, v,
                     rng() % 11 ? RGB(0, 0, 0) : RGB(200, 0, 0));
            }
        }
    }
    SelectObject(dc, old);
}

inline void Photo(HDC dc, int w, int h, std::uint32_t* bits) {
    (void)dc;
    std::mt19937 rng(4);
    std::normal_distribution<double> noise(0, 4);
    auto clamp = [](double v) { return v < 0 ? 0 : v > 255 ? 255 : static_cast<int>(v); };
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const double u = double(x) / w, v = double(y) / h;
            const double hill = std::exp(-30 * ((u - 0.6) * (u - 0.6) + (v - 0.55) * (v - 0.55)));
            const bool sky = v < 0.45 + 0.08 * std::sin(9 * u);
            const int r = clamp((sky ? 90 + 80 * v : 70 + 60 * hill + 30 * std::sin(40 * u * v)) +
                                noise(rng));
            const int g = clamp((sky ? 140 + 60 * v : 110 + 70 * hill) + noise(rng));
            const int b = clamp((sky ? 220 - 40 * v : 50 + 20 * std::cos(25 * u)) + noise(rng));
            bits[y * w + x] = static_cast<std::uint32_t>(r << 16 | g << 8 | b);
        }
    }
}

inline void WebPage(HDC dc, int w, int h, std::uint32_t* bits) {
    std::mt19937 rng(5);
    Fill(dc, 0, 0, w, h, RGB(255, 255, 255));
    TitleBar(dc, 0, 0, w, "School portal - Browser");
    Fill(dc, 0, 22, w, 54, RGB(236, 233, 216));
    Fill(dc, 80, 28, w - 20, 48, RGB(255, 255, 255));
    Fill(dc, 0, 54, w, 130, RGB(32, 90, 160));
    Font title = MakeFont(30, "Arial", FW_BOLD), body = MakeFont(13, "Arial"),
         nav = MakeFont(14, "Arial", FW_BOLD);
    HGDIOBJ old = SelectObject(dc, title.get());
    SetBkMode(dc, TRANSPARENT);
    Text(dc, 40, 74, "Riverside School - Science week", RGB(255, 255, 255));
    SelectObject(dc, nav.get());
    Fill(dc, 0, 130, w, 160, RGB(230, 238, 248));
    const char* items[] = {"Home", "Timetable", "Homework", "Clubs", "Contact"};
    for (int i = 0; i < 5; ++i)
        Text(dc, 40 + i * 130, 138, items[i], RGB(32, 90, 160));
    // An image in the article: a photograph-like block.
    const int il = 40, it = 180, iw = 360, ih = 240;
    std::normal_distribution<double> noise(0, 5);
    for (int y = 0; y < ih; ++y)
        for (int x = 0; x < iw; ++x) {
            const int r = static_cast<int>(150 + 60 * std::sin(x / 40.0) + noise(rng)) & 0xFF;
            const int g = static_cast<int>(120 + 50 * std::cos(y / 30.0) + noise(rng)) & 0xFF;
            bits[(it + y) * w + il + x] = static_cast<std::uint32_t>(r << 16 | g << 8 | 90);
        }
    SelectObject(dc, body.get());
    for (int y = 180; y < h - 60; y += 17)
        Text(dc, 430, y, Words(rng, 8 + rng() % 3), RGB(40, 40, 40));
    for (int y = 440; y < h - 60; y += 17)
        Text(dc, 40, y, Words(rng, 6), RGB(40, 40, 40));
    for (int i = 0; i < 3; ++i) {
        Fill(dc, 430 + i * 150, h - 50, 560 + i * 150, h - 20, RGB(240, 120, 30));
        Text(dc, 450 + i * 150, h - 42, "Read more", RGB(255, 255, 255));
    }
    SelectObject(dc, old);
}

inline void Desktop(HDC dc, int w, int h) {
    std::mt19937 rng(6);
    Fill(dc, 0, 0, w, h, RGB(0, 128, 128));
    Fill(dc, 0, h - 28, w, h, RGB(212, 208, 200));
    Font f = MakeFont(12, "Tahoma");
    HGDIOBJ old = SelectObject(dc, f.get());
    SetBkMode(dc, TRANSPARENT);
    for (int i = 0; i < 6; ++i) {
        Fill(dc, 20, 20 + i * 70, 52, 52 + i * 70, RGB(255, 230, 120 - i * 15));
        Text(dc, 14, 56 + i * 70, "Folder " + std::to_string(i), RGB(255, 255, 255));
    }
    Fill(dc, 120, 60, 700, 520, RGB(255, 255, 255));
    TitleBar(dc, 120, 60, 700, "Notepad");
    for (int y = 90; y < 510; y += 15)
        Text(dc, 126, y, Words(rng, 9), RGB(0, 0, 0));
    Fill(dc, 520, 300, 900, 560, RGB(212, 208, 200));
    TitleBar(dc, 520, 300, 900, "Settings");
    for (int i = 0; i < 4; ++i) {
        RECT b = {540, 340 + i * 40, 700, 368 + i * 40};
        DrawEdge(dc, &b, EDGE_RAISED, BF_RECT);
        Text(dc, 556, 347 + i * 40, "Option " + std::to_string(i + 1), RGB(0, 0, 0));
    }
    SelectObject(dc, old);
}

}  // namespace corpus

// Draws every scene on the screen in turn and grabs it. Empty when the screen cannot be used.
inline std::vector<Screenshot> GrabScreenCorpus() {
    using namespace corpus;
    std::vector<Screenshot> shots;
    const int w = GetSystemMetrics(SM_CXSCREEN), h = GetSystemMetrics(SM_CYSCREEN);
    BITMAPINFO bi{};
    bi.bmiHeader = {sizeof bi.bmiHeader, w, -h, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    WindowDc screen(nullptr);
    UniqueHdc canvas(CreateCompatibleDC(screen.get())), grab(CreateCompatibleDC(screen.get()));
    void *canvasBits = nullptr, *grabBits = nullptr;
    UniqueBitmap canvasDib(
        CreateDIBSection(screen.get(), &bi, DIB_RGB_COLORS, &canvasBits, nullptr, 0));
    UniqueBitmap grabDib(
        CreateDIBSection(screen.get(), &bi, DIB_RGB_COLORS, &grabBits, nullptr, 0));
    if (!canvas || !grab || !canvasDib || !grabDib)
        return shots;
    SelectObjectGuard selectCanvas(canvas.get(), canvasDib.get());
    SelectObjectGuard selectGrab(grab.get(), grabDib.get());
    auto* pixels = static_cast<std::uint32_t*>(canvasBits);

    struct Scene {
        const char* name;
        void (*draw)(HDC, int, int, std::uint32_t*);
    };
    const Scene scenes[] = {
        {"document", [](HDC dc, int w, int h, std::uint32_t*) { Document(dc, w, h); }},
        {"code", [](HDC dc, int w, int h, std::uint32_t*) { Code(dc, w, h); }},
        {"spreadsheet", [](HDC dc, int w, int h, std::uint32_t*) { Spreadsheet(dc, w, h); }},
        {"web page", WebPage},
        {"photo", Photo},
        {"desktop", [](HDC dc, int w, int h, std::uint32_t*) { Desktop(dc, w, h); }},
    };
    for (const Scene& scene : scenes) {
        scene.draw(canvas.get(), w, h, pixels);
        GdiFlush();
        // Shown in a top-most popup over the whole screen, then grabbed back.
        const HDC source = canvas.get();
        test::PaintedWindow window(RECT{0, 0, w, h}, [source](HDC dc, const RECT& client) {
            BitBlt(dc, 0, 0, client.right, client.bottom, source, 0, 0, SRCCOPY);
        });
        // The screen shows the window a little later: grab until two grabs agree with the canvas
        // at its corners (or give up after 5 s and take what is there).
        for (DWORD start = GetTickCount(); GetTickCount() - start < 5000; Sleep(20)) {
            test::PumpMessages();
            BitBlt(grab.get(), 0, 0, w, h, screen.get(), 0, 0, SRCCOPY);
            GdiFlush();
            const auto* g = static_cast<const std::uint32_t*>(grabBits);
            const std::size_t last = static_cast<std::size_t>(w) * h - 1;
            if (((g[0] ^ pixels[0]) & 0xF8F8F8) == 0 &&
                ((g[last] ^ pixels[last]) & 0xF8F8F8) == 0 &&
                ((g[last / 2] ^ pixels[last / 2]) & 0xF8F8F8) == 0)
                break;
        }
        Screenshot shot;
        shot.name = scene.name;
        shot.width = w;
        shot.height = h;
        shot.pixels.resize(static_cast<std::size_t>(w) * h);
        for (int y = 0; y < h; ++y)
            ConvertRow32To555(static_cast<const std::uint8_t*>(grabBits) + 4 * y * w,
                              shot.pixels.data() + y * w, static_cast<UINT>(4 * w));
        shots.push_back(std::move(shot));
    }
    return shots;
}

}  // namespace vantrel::bench
