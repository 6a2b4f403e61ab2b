// Pavlex.dll, the display-capture hook library: tells the capture thread which parts of the
// screen and which cursor properties changed. Every call is made on the capture thread.
//
// Its own thread grabs the screen about 30 times a second (HKLM\Software\Vantrel\Pavlex, DWORD
// "GrabsPerSecond", 1 to 100, read by DispInitCapture) and reports the tiles that changed as at
// most 513 rectangles. Calls out of order (a get or unregister before its register, a second
// init or register, done without init) return FALSE. The events belong to the library; they are
// manual-reset and signalled exactly while something is pending.
//
// Cursor records: the shape's width is always a multiple of 16 (at most 32), its height at most
// 32, and each AND-mask row is width / 8 bytes, so the XOR bits begin both (bytes per row x
// height) and (width x height) / 8 bytes behind the AND mask. XOR bits are 1 bpp for monochrome
// pointers and 32 bpp (alpha kept) otherwise. Narrower pointers are padded with transparent
// pixels; larger ones are cropped to their visible part and hot spot, or scaled down when that
// does not fit 32 x 32. A hidden pointer is sent as a fully transparent shape.
#pragma once

#include <windows.h>

extern "C" {

// Buffer sizes the capture registers with.
enum : DWORD {
    kPavlexCursorBufferSize = 4256,  // 32-byte record head + 32x32x32bpp shape + its 1-bit mask
    kPavlexScreenBufferSize = 8212,  // count + 513 rectangles
    kPavlexMaxRects = 513,
};

// What DispGetScreenUpdate hands out: valid until the next call.
struct PavlexScreenUpdate {
    DWORD count;
    RECT rects[1];  // count entries, screen pixels
};

BOOL WINAPI DispInitCapture(void);
// *event becomes signalled when a cursor change is pending.
BOOL WINAPI DispRegisterCursorUpdate(HANDLE* event, DWORD bufferSize);
// *event becomes signalled when screen changes are pending.
BOOL WINAPI DispRegisterScreenUpdate(HANDLE* event, DWORD bufferSize);
// *record receives a cursor record (stream layout), writable until the next call.
BOOL WINAPI DispGetCursorUpdate(BYTE** record);
BOOL WINAPI DispGetScreenUpdate(PavlexScreenUpdate** update);
// Non-zero after a change of display size or depth: the whole screen must be sent again.
BOOL WINAPI DispCheckDisplayHook(void);
BOOL WINAPI DispUnRegisterScreenUpdate(void);
BOOL WINAPI DispUnRegisterCursorUpdate(void);
BOOL WINAPI DispDoneCapture(void);
}
