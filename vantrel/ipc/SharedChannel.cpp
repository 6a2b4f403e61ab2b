// The shared-memory channel: names, control-section fields, and the two sides of the pass.
#include "ipc/SharedChannel.h"

#include <cstdio>
#include <cstring>

#include "stream/DesktopImage.h"
#include "stream/Packet.h"
#include "wincom/KernelObjects.h"

namespace vantrel::ipc {
namespace {

ObjectName Format(const char* pattern, unsigned long value) noexcept {
    ObjectName name{};
    std::snprintf(name.text, sizeof name.text, pattern, value);
    return name;
}

ObjectName FormatId(const char* pattern, int id) noexcept {
    ObjectName name{};
    std::snprintf(name.text, sizeof name.text, pattern, id);
    return name;
}

}  // namespace

ObjectName PixelSectionName(DWORD tick) noexcept {
    return Format("Global\\QX%08lX", tick);
}

ObjectName ReceiveEventName(int sessionId) noexcept {
    return FormatId("Global\\StudentRecveive%d", sessionId);
}

ObjectName CompleteEventName(int sessionId) noexcept {
    return FormatId("Global\\StudentComplete%d", sessionId);
}

ObjectName SlotMutexName(int sessionId) noexcept {
    return FormatId("Global\\StudentEventMutex%d", sessionId);
}

// ---- Control section ---------------------------------------------------------------------------

ControlSection ControlSection::Create() noexcept {
    ControlSection control;
    control.mapping_ = CreateNamedSection(kControlSectionName, kControlSectionSize);
    if (!control.mapping_)
        return control;
    control.view_.reset(
        MapViewOfFile(control.mapping_.get(), FILE_MAP_ALL_ACCESS, 0, 0, kControlSectionSize));
    if (!control.view_) {
        control.Reset();
        return control;
    }
    control.base_ = static_cast<BYTE*>(control.view_.get());
    std::memset(control.base_, 0, kControlSectionSize);
    return control;
}

ControlSection ControlSection::Open() noexcept {
    ControlSection control;
    control.mapping_ = TryOpenNamedSection(kControlSectionName);
    if (!control.mapping_)
        return control;
    control.view_.reset(
        MapViewOfFile(control.mapping_.get(), FILE_MAP_READ, 0, 0, kControlSectionSize));
    if (!control.view_) {
        control.Reset();
        return control;
    }
    control.base_ = static_cast<BYTE*>(control.view_.get());
    return control;
}

void ControlSection::Reset() noexcept {
    base_ = nullptr;
    view_.reset();
    mapping_.reset();
}

void ControlSection::WritePixelName(const char* name) noexcept {
    char field[kPixelNameSize] = {};
    std::strncpy(field, name, kPixelNameSize - 1);
    std::memcpy(base_ + kPixelNameOffset, field, kPixelNameSize);
}

void ControlSection::WriteBitmapInfo(const BITMAPINFO* bmi) noexcept {
    BYTE area[kBitmapInfoSize] = {};
    const UINT size = DesktopImage::GetBitmapInfoSize(bmi);
    std::memcpy(area, bmi, size < kBitmapInfoSize ? size : kBitmapInfoSize);
    std::memcpy(base_ + kBitmapInfoOffset, area, kBitmapInfoSize);
}

void ControlSection::WriteCursor(int x, int y) noexcept {
    packet::StoreI32(base_ + kCursorXOffset, x);
    packet::StoreI32(base_ + kCursorYOffset, y);
}

UINT ControlSection::WriteRects(const std::list<RECT>& rects) noexcept {
    UINT count = 0;
    for (const RECT& r : rects) {
        if (count == kMaxRects)
            break;
        std::memcpy(base_ + kRectsOffset + count * sizeof(RECT), &r, sizeof(RECT));
        ++count;
    }
    packet::StoreU32(base_ + kRectCountOffset, count);
    return count;
}

void ControlSection::SetFlags(DWORD flags) noexcept {
    packet::StoreU32(base_ + kFlagsOffset, flags);
}

DWORD ControlSection::Flags() const noexcept {
    return packet::LoadU32(base_ + kFlagsOffset);
}

ObjectName ControlSection::ReadPixelName() const noexcept {
    ObjectName name{};
    std::memcpy(name.text, base_ + kPixelNameOffset, kPixelNameSize);
    name.text[kPixelNameSize - 1] = '\0';
    return name;
}

// The copy is checked, never the shared bytes, which the server may rewrite meanwhile.
bool ControlSection::ReadBitmapInfo(BYTE* block) const noexcept {
    std::memcpy(block, base_ + kBitmapInfoOffset, kBitmapInfoSize);
    BITMAPINFOHEADER header;
    std::memcpy(&header, block, sizeof header);
    if (header.biSize != sizeof(BITMAPINFOHEADER))
        return false;
    return packet::BitmapInfoSize(header.biBitCount, header.biCompression) <= kBitmapInfoSize;
}

POINT ControlSection::ReadCursor() const noexcept {
    return POINT{packet::LoadI32(base_ + kCursorXOffset), packet::LoadI32(base_ + kCursorYOffset)};
}

UINT ControlSection::ReadRects(RECT* out, UINT capacity) const noexcept {
    UINT count = packet::LoadU32(base_ + kRectCountOffset);
    if (count > kMaxRects)
        count = kMaxRects;
    if (count > capacity)
        count = capacity;
    std::memcpy(out, base_ + kRectsOffset, count * sizeof(RECT));
    return count;
}

// ---- The pass, server side ---------------------------------------------------------------------

PassReport NotifyClients(int maxClients) noexcept {
    PassReport report;
    for (int id = 0; id < maxClients; ++id) {
        UniqueEvent receive = TryOpenNamedEvent(ReceiveEventName(id).c_str());
        if (!receive)
            continue;  // no viewer with this id: no delay
        UniqueEvent complete = TryOpenNamedEvent(CompleteEventName(id).c_str());
        if (!complete)
            continue;
        ResetEvent(complete.get());
        SetEvent(receive.get());
        ++report.signalled;
        if (WaitForSingleObject(complete.get(), kClientTimeoutMs) != WAIT_OBJECT_0)
            ++report.timedOut;
    }
    Sleep(kPassPauseMs);
    return report;
}

// ---- The pass, viewer side ---------------------------------------------------------------------

bool ClientSession::Connect(int sessionId) noexcept {
    sessionId_ = sessionId;
    failed_ = Step::None;
    control_ = ControlSection::Open();
    if (!control_) {
        failed_ = Step::ControlSection;
        return false;
    }
    receive_ = CreateNamedEvent(ReceiveEventName(sessionId).c_str(), true, false);
    if (receive_)
        complete_ = CreateNamedEvent(CompleteEventName(sessionId).c_str(), true, false);
    if (!receive_ || !complete_) {
        failed_ = Step::Events;
        return false;
    }
    return true;
}

bool ClientSession::CreateSlotMutex() noexcept {
    slotMutex_ = CreateNamedMutex(SlotMutexName(sessionId_).c_str());
    if (!slotMutex_)
        failed_ = Step::Mutex;
    return static_cast<bool>(slotMutex_);
}

void ClientSession::Close() noexcept {
    control_.Reset();
    slotMutex_.reset();
    receive_.reset();
    complete_.reset();
}

void ClientSession::Wake() noexcept {
    if (receive_)
        SetEvent(receive_.get());
}

bool ClientSession::WaitForPass() noexcept {
    if (WaitForSingleObject(receive_.get(), INFINITE) != WAIT_OBJECT_0)
        return false;
    ResetEvent(receive_.get());
    return true;
}

void ClientSession::ReadPass(Notice& notice) const noexcept {
    notice.flags = control_.Flags();
    notice.rectCount = 0;
    notice.bitmapInfoValid = false;
    if (!(notice.flags & kFlagRects))
        return;
    notice.rectCount = control_.ReadRects(notice.rects, kMaxRects);
    notice.cursor = control_.ReadCursor();
    notice.bitmapInfoValid = control_.ReadBitmapInfo(notice.bitmapInfo);
}

void ClientSession::Complete() noexcept {
    SetEvent(complete_.get());
}

bool ClientSession::OpenImage(DesktopImage& image, ObjectName& opened) const noexcept {
    image.Close();
    BYTE bmi[kBitmapInfoSize];
    if (!control_.ReadBitmapInfo(bmi))
        return false;
    opened = control_.ReadPixelName();
    return image.OpenFromBitmapInfo(opened.c_str(), reinterpret_cast<const BITMAPINFO*>(bmi)) !=
           FALSE;
}

}  // namespace vantrel::ipc
