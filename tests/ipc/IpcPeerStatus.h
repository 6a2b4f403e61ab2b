// What an ipc_peer viewer reports to the test that started it, through a section the test
// makes ("<status name>") and an event the test sets to end the peer ("<status name>.Quit").
#pragma once

#include <windows.h>

namespace vantrel::test {

struct PeerStatus {
    RECT windowRect;        // where the test wants the window (screen pixels)
    volatile LONG ready;    // the viewer runs: the server can reach it
    volatile LONG notices;  // RN_PICTURECOMPLETE received
    // The picture as the viewer last saw it, |height| rows of ((bpp * width) / 8) bytes, top
    // row first.
    volatile LONG pictureBytes;
};

constexpr DWORD kPeerPictureOffset = 4096;
constexpr DWORD kPeerStatusSize = kPeerPictureOffset + 1024 * 768 * 4;

}  // namespace vantrel::test
