// Pavlex.dll, the display-capture hook library: tells the capture thread which parts of the
// screen and which cursor properties changed. Every call is made on the capture thread.
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
