// Pending cursor changes. The record is written at the fetch, from the merged state, into the
// one buffer the capture owns until its next call.
#include "CursorChanges.h"

#include <mutex>

#include "CursorRecord.h"

namespace vantrel::pavlex {

bool CursorChanges::open(HANDLE* event, DWORD bufferSize) {
    std::lock_guard<CriticalSection> hold(lock_);
    if (event_ || !event || bufferSize < CursorRecord::kMaxSize)
        return false;
    UniqueEvent created(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!created)
        return false;
    delivered_.assign(CursorRecord::kMaxSize, 0);
    pendingFlags_ = 0;
    shape_ = CursorShape::transparent();
    event_ = std::move(created);
    *event = event_.get();
    return true;
}

void CursorChanges::close() noexcept {
    std::lock_guard<CriticalSection> hold(lock_);
    event_.reset();
    pendingFlags_ = 0;
    std::vector<std::uint8_t>().swap(delivered_);
}

bool CursorChanges::isOpen() noexcept {
    std::lock_guard<CriticalSection> hold(lock_);
    return static_cast<bool>(event_);
}

void CursorChanges::add(DWORD flags, POINT position, const CursorShape& shape) {
    std::lock_guard<CriticalSection> hold(lock_);
    if (!event_ || !flags)
        return;
    if (flags & packet::kCursorNewShape)
        shape_ = shape;
    pendingFlags_ |= flags;
    position_ = position;
    SetEvent(event_.get());
}

bool CursorChanges::take(BYTE** record) {
    std::lock_guard<CriticalSection> hold(lock_);
    if (!event_ || !record || !pendingFlags_)
        return false;
    if (!CursorRecord::Write(delivered_.data(), delivered_.size(), pendingFlags_, position_,
                             shape_))
        return false;
    pendingFlags_ = 0;
    ResetEvent(event_.get());
    *record = delivered_.data();
    return true;
}

}  // namespace vantrel::pavlex
