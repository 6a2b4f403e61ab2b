// The shared-memory channel between one DesktopIPCServer and the DesktopIPCRender viewers of
// every session of the machine: the names of its kernel objects, the control section's layout,
// and both sides of the notification pass. The only code that knows these names and offsets.
//
// The server publishes a desktop image whose pixels live in a named section; the control
// section names that pixel section and carries, pass by pass, the changed rectangles, the
// image's BITMAPINFO and the cursor position. Each viewer owns a receive and a complete event
// (and a slot mutex that only marks its presence); the server signals the viewers one after the
// other and waits for each to copy what it needs before it goes on.
//
// Security: every object either side creates goes through wincom/KernelObjects (null DACL), so
// a viewer in any session or account may open what the server made and the other way round.
#pragma once

#include <windows.h>

#include <cstdint>
#include <list>
#include <memory>

#include "wincom/UniqueHandle.h"

namespace vantrel {
class DesktopImage;
}

namespace vantrel::ipc {

// ---- Names -------------------------------------------------------------------------------------

inline constexpr char kControlSectionName[] = "Global\\ScreenUpdate";
// A kernel object's name, formatted without allocating (the pass runs in noexcept code).
struct ObjectName {
    char text[260];  // the size of the name field in the control section
    const char* c_str() const noexcept { return text; }
};

// "Global\QX%08X" with the server's tick count when the section was made.
ObjectName PixelSectionName(DWORD tick) noexcept;
// Per viewer session, decimal id without leading zeros ("Recveive" is the channel's spelling).
ObjectName ReceiveEventName(int sessionId) noexcept;
ObjectName CompleteEventName(int sessionId) noexcept;
ObjectName SlotMutexName(int sessionId) noexcept;

// ---- Control section layout (little-endian, offsets from its start) ---------------------------

inline constexpr DWORD kControlSectionSize = 0x1053C;  // 66,876 bytes
inline constexpr DWORD kPixelNameOffset = 0x000;       // NUL-terminated, rest zero
inline constexpr DWORD kPixelNameSize = 260;
inline constexpr DWORD kFlagsOffset = 0x104;
inline constexpr DWORD kCursorXOffset = 0x108;  // signed, desktop pixels
inline constexpr DWORD kCursorYOffset = 0x10C;
inline constexpr DWORD kBitmapInfoOffset = 0x110;
inline constexpr DWORD kBitmapInfoSize = 1064;  // 40-byte header + 256 colour entries at most
inline constexpr DWORD kRectCountOffset = 0x538;
inline constexpr DWORD kRectsOffset = 0x53C;
inline constexpr UINT kMaxRects = 4096;
static_assert(kRectsOffset + kMaxRects * sizeof(RECT) == kControlSectionSize);

// Flags: bit 0, this pass carries rectangles, the BITMAPINFO and the cursor position; bit 1,
// the pixel section was re-created (new name and format) since the last pass.
inline constexpr DWORD kFlagRects = 1;
inline constexpr DWORD kFlagNewSection = 2;

// ---- Timing of a pass --------------------------------------------------------------------------

inline constexpr DWORD kClientTimeoutMs = 5000;  // longest wait for one viewer's answer
inline constexpr DWORD kPassPauseMs = 20;        // after every pass that signalled
inline constexpr int kDefaultMaxClients = 256;
inline constexpr DWORD kReopenRetryMs = 50;  // a viewer's pause between failed opens

// ---- Control section ---------------------------------------------------------------------------

// One mapped view of "Global\ScreenUpdate". Fields are read and written byte-wise through the
// offsets above; the section is plain shared memory with no lock of its own (the pass orders
// the two sides, see NotifyClients and ClientSession).
class ControlSection {
  public:
    ControlSection() noexcept = default;
    ControlSection(ControlSection&&) noexcept = default;
    ControlSection& operator=(ControlSection&&) noexcept = default;

    // Server: creates (or, with another server alive, opens) the section read/write and fills
    // it with zeros. Empty on failure.
    static ControlSection Create() noexcept;
    // Viewer: opens the existing section with full access and maps it read-only. Empty when no
    // server exists.
    static ControlSection Open() noexcept;

    explicit operator bool() const noexcept { return base_ != nullptr; }
    void Reset() noexcept;

    // Server side.
    void WritePixelName(const char* name) noexcept;
    // GetBitmapInfoSize bytes of bmi; the rest of the area is zeroed.
    void WriteBitmapInfo(const BITMAPINFO* bmi) noexcept;
    void WriteCursor(int x, int y) noexcept;
    // The first kMaxRects rectangles of rects, then their count. Returns the count.
    UINT WriteRects(const std::list<RECT>& rects) noexcept;
    void SetFlags(DWORD flags) noexcept;

    // Both sides.
    DWORD Flags() const noexcept;

    // Viewer side. Each copies out of the section; nothing read is trusted further than here.
    // Always NUL-terminated, whatever the section holds.
    ObjectName ReadPixelName() const noexcept;
    // False unless the area holds a BITMAPINFO a DIB can be made from (40-byte header, a colour
    // part that fits the area); block receives kBitmapInfoSize bytes.
    bool ReadBitmapInfo(BYTE* block) const noexcept;
    POINT ReadCursor() const noexcept;
    // The count, cut to capacity (and to kMaxRects), and that many rectangles.
    UINT ReadRects(RECT* out, UINT capacity) const noexcept;

  private:
    UniqueMapping mapping_;
    UniqueViewOfFile view_;
    BYTE* base_ = nullptr;
};

// ---- The pass, server side ---------------------------------------------------------------------

struct PassReport {
    int signalled = 0;  // viewers whose receive event was set
    int timedOut = 0;   // of those, viewers that did not answer within kClientTimeoutMs
};

// Signals the viewers with ids 0 .. maxClients - 1 in ascending order: for each present one
// (both events exist) resets its complete event, sets its receive event and waits for the
// complete event at most kClientTimeoutMs. Then pauses kPassPauseMs. The caller holds the lock
// that guards the control section for the whole call: viewers read it while they are signalled.
PassReport NotifyClients(int maxClients) noexcept;

// ---- The pass, viewer side ---------------------------------------------------------------------

// What a viewer copies out of the control section in one pass, so the server may go on.
struct Notice {
    DWORD flags = 0;
    POINT cursor{};
    BYTE bitmapInfo[kBitmapInfoSize] = {};
    bool bitmapInfoValid = false;
    UINT rectCount = 0;
    RECT rects[kMaxRects];
};

// One viewer's presence on the channel: the control section and the session's two events and
// slot mutex. Made in Run, dropped in Stop; the viewer's thread uses it between the two.
class ClientSession {
  public:
    enum class Step { None, ControlSection, Events, Mutex };

    // Opens the control section and creates the session's events. The slot mutex comes later
    // (CreateSlotMutex): Run opens the image in between. On failure, Failed() names the step
    // and what was made stays until Close.
    bool Connect(int sessionId) noexcept;
    bool CreateSlotMutex() noexcept;
    void Close() noexcept;
    Step Failed() const noexcept { return failed_; }

    const ControlSection& Control() const noexcept { return control_; }
    HANDLE ReceiveEvent() const noexcept { return receive_.get(); }

    // Wakes a waiting viewer thread (used by Stop after it set the thread's stop flag).
    void Wake() noexcept;
    // Waits without time-out for the receive event and resets it. False when the wait failed.
    bool WaitForPass() noexcept;
    // Copies the pass's content into notice (flags always; the rest only with kFlagRects).
    void ReadPass(Notice& notice) const noexcept;
    // Tells the server this viewer has read the control section.
    void Complete() noexcept;

    // Closes image and opens it over the pixel section the control section names, with the
    // BITMAPINFO published beside the name; opened receives the name. False (image closed) when
    // either is not usable yet.
    bool OpenImage(DesktopImage& image, ObjectName& opened) const noexcept;

  private:
    ControlSection control_;
    UniqueEvent receive_;
    UniqueEvent complete_;
    UniqueHandle slotMutex_;
    int sessionId_ = 0;
    Step failed_ = Step::None;
};

}  // namespace vantrel::ipc
