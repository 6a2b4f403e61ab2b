// Input desktop switching (see InputDesktop.h). The platform test is repeated on every call:
// nothing about the system is cached.
#include "capture/InputDesktop.h"

#include <cstdio>
#include <cstring>

#include "wincom/UniqueHandle.h"

namespace vantrel {
namespace {

// GENERIC_WRITE with read objects, create window, create menu, hook control, enumerate, write
// objects and switch desktop; the journal rights are not asked for.
constexpr ACCESS_MASK kDesktopAccess = 0x400001CF;
constexpr DWORD kNameSize = 256;

static_assert(sizeof(OSVERSIONINFOA) == 148, "the version query takes the 148-byte structure");

bool IsNt() noexcept {
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof version;
    return GetVersionExA(&version) && version.dwPlatformId == VER_PLATFORM_WIN32_NT;
}

bool ReadName(HDESK desktop, char (&name)[kNameSize]) noexcept {
    DWORD needed = 0;
    if (!GetUserObjectInformationA(desktop, UOI_NAME, name, kNameSize, &needed))
        return false;
    name[kNameSize - 1] = '\0';
    return true;
}

enum class Attach { Done, NoName, Refused };

// SelectHDESK's steps after the platform test; the caller decides what a failure closes.
Attach AttachThread(HDESK desktop) noexcept {
    const HDESK previous = GetThreadDesktop(GetCurrentThreadId());
    char name[kNameSize];
    if (!ReadName(desktop, name))
        return Attach::NoName;
    if (!SetThreadDesktop(desktop)) {
        const DWORD error = GetLastError();
        OutputDebugStringA("unable to SetThreadDesktop\n");
        char text[kNameSize + 40];
        std::snprintf(text, sizeof text, "ERROR: Set Desktop: %s, %08lX\n", name,
                      static_cast<unsigned long>(error));
        OutputDebugStringA(text);
        return Attach::Refused;
    }
    // The previous handle is ours to close now; that normally fails while other threads of the
    // process still use that desktop, and the switch stands all the same.
    UniqueDesktop old(previous);
    if (!old.reset())
        OutputDebugStringA("SelectHDESK failed to close old desktop\n");
    return Attach::Done;
}

}  // namespace

BOOL IsInputDesktopCurrent() noexcept {
    if (!IsNt())
        return TRUE;
    const HDESK threadDesktop = GetThreadDesktop(GetCurrentThreadId());
    UniqueDesktop input(OpenInputDesktop(0, FALSE, kDesktopAccess));
    if (!input)
        return FALSE;
    char threadName[kNameSize];
    char inputName[kNameSize];
    const bool named = ReadName(threadDesktop, threadName) && ReadName(input.get(), inputName);
    if (!input.reset())
        OutputDebugStringA("failed to close input desktop\n");
    return named && std::strcmp(threadName, inputName) == 0;
}

BOOL SelectDesktop(const char* name) noexcept {
    if (!IsNt())
        return name == nullptr;
    UniqueDesktop desktop(name ? OpenDesktopA(name, 0, FALSE, kDesktopAccess)
                               : OpenInputDesktop(0, FALSE, kDesktopAccess));
    if (!desktop) {
        OutputDebugStringA("unable to open desktop\n");
        return FALSE;
    }
    if (AttachThread(desktop.get()) != Attach::Done) {
        if (!desktop.reset())
            OutputDebugStringA("SelectDesktop failed to close desktop\n");
        return FALSE;
    }
    // Stays open as the thread's desktop; the next switch closes it as the previous one.
    (void)desktop.release();
    return TRUE;
}

BOOL SelectHDESK(HDESK desktop) noexcept {
    if (!IsNt())
        return TRUE;
    return AttachThread(desktop) == Attach::Done;
}

}  // namespace vantrel
