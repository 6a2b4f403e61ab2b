// Following the input desktop on NT: the capture thread checks before it starts and after every
// wake-up whether its desktop still receives the user's input, re-attaches itself when it does
// not, and goes back to the desktop it started on when it ends.
//
// Free functions without state; each works on the calling thread's desktop only and may be
// called from any thread. Failures end in FALSE plus fixed texts on the debugger output.
#pragma once

#include <windows.h>

namespace vantrel {

// TRUE when the calling thread's desktop is the input desktop (names compared byte for byte),
// or when the platform is not NT.
BOOL IsInputDesktopCurrent() noexcept;

// Attaches the calling thread to the named desktop, or to the input desktop for a null name.
// On success the desktop opened here stays open as the thread's desktop and the thread's
// previous desktop handle is closed.
BOOL SelectDesktop(const char* name) noexcept;

// Attaches the calling thread to desktop; on success the thread's previous desktop handle is
// closed (a failed close is reported and still counts as success). On failure desktop stays
// open and the caller's.
BOOL SelectHDESK(HDESK desktop) noexcept;

}  // namespace vantrel
