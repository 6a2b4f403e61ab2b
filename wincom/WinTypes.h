// The few Win32 types, constants and macros that the pure parsers use (packets, cursor records,
// codec blocks, the update region): <windows.h> on Windows. The native build of those parsers
// (the libFuzzer targets in fuzz/, clang on Linux) gets definitions of our own with Win32's
// sizes and values instead; nothing else of Win32 may appear in their code.
#pragma once

#ifdef _WIN32
#include <windows.h>
#else
#include <cstdint>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;  // 32 bits, as on Windows (long is 64 bits here)
using ULONG = std::uint32_t;
using HRESULT = std::int32_t;

struct RECT {
    LONG left, top, right, bottom;
};

struct RGBQUAD {
    BYTE rgbBlue, rgbGreen, rgbRed, rgbReserved;
};

struct BITMAPINFOHEADER {
    DWORD biSize;
    LONG biWidth;
    LONG biHeight;
    WORD biPlanes;
    WORD biBitCount;
    DWORD biCompression;
    DWORD biSizeImage;
    LONG biXPelsPerMeter;
    LONG biYPelsPerMeter;
    DWORD biClrUsed;
    DWORD biClrImportant;
};
static_assert(sizeof(RECT) == 16 && sizeof(RGBQUAD) == 4 && sizeof(BITMAPINFOHEADER) == 40,
              "Win32 layouts");

constexpr DWORD BI_RGB = 0;
constexpr DWORD BI_BITFIELDS = 3;

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);

constexpr DWORD ERROR_INVALID_DATA = 13;
constexpr DWORD ERROR_CRC = 23;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;

constexpr HRESULT HRESULT_FROM_WIN32(DWORD error) noexcept {
    return static_cast<LONG>(error) <= 0 ? static_cast<HRESULT>(error)
                                         : static_cast<HRESULT>((error & 0xFFFF) | 0x80070000u);
}
#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#endif
