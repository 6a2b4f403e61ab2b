// Pixmend.dll, the image-utility library: start-up entry and the row converters that turn
// deep pixels into the stream's 16-bit 5-5-5 pixels (bit 15 zero, red 14-10, green 9-5,
// blue 4-0, little-endian). Each converter writes exactly one 16-bit pixel per source pixel.
#pragma once

#include <windows.h>

extern "C" {

BOOL WINAPI PixmendInit(void);
// cbSource / 4 pixels of blue, green, red, unused -> cbSource / 2 bytes.
UINT WINAPI ConvertRow32To555(const void* source, void* dest, UINT cbSource);
// cbSource / 3 pixels of blue, green, red -> 2 * cbSource / 3 bytes.
UINT WINAPI ConvertRow24To555(const void* source, void* dest, UINT cbSource);
// cbSource / 2 pixels of 5-6-5 -> cbSource bytes.
UINT WINAPI ConvertRow565To555(const void* source, void* dest, UINT cbSource);
}
