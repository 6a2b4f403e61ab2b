// What an ipc_peer viewer reports to the test that started it, through a section the test
// makes ("<status name>") and an event the test sets to end the peer ("<status name>.Quit").
// The peer reads the channel by its literal names and offsets, independently of the library.
#pragma once

#include <windows.h>

namespace vantrel::test {

struct PeerStatus {
    RECT windowRect;                // render: where the test wants the window (screen pixels)
    volatile LONG ready;            // events and mutex exist: the server can reach this viewer
    volatile LONG passes;           // viewer: receive events answered; render: RN_PICTURECOMPLETE
    volatile LONG reopens;          // passes with flag bit 1 (pixel section re-created)
    volatile LONG rectsBeforeOpen;  // rectangles announced while no pixel section was mapped
    volatile LONG openFailures;
    char name[260];         // pixel section the viewer maps
    BYTE bitmapInfo[1064];  // the BITMAPINFO it mapped the section with
    // The picture as the viewer last saw it, |height| rows of ((bpp * width) / 8) bytes, top
    // row first.
    volatile LONG pictureBytes;
};

constexpr DWORD kPeerPictureOffset = 4096;
constexpr DWORD kPeerStatusSize = kPeerPictureOffset + 1024 * 768 * 4;

}  // namespace vantrel::test
