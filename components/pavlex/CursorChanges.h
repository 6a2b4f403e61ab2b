// Cursor changes waiting for the capture thread. Changes made between two fetches merge into
// one record: flags OR-ed, the newest position and shape. Its event is signalled exactly while
// a record is pending.
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

#include "CursorShape.h"
#include "wincom/CriticalSection.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::pavlex {

class CursorChanges {
  public:
    // Creates the manual-reset event (owned here, handed out through *event) and the record
    // buffer. False when already open or when the capture's bufferSize cannot hold the largest
    // record.
    bool open(HANDLE* event, DWORD bufferSize);
    void close() noexcept;
    bool isOpen() noexcept;

    // flags: packet::kCursorNewShape, kCursorNewPosition. shape is read only with kCursorNewShape.
    void add(DWORD flags, POINT position, const CursorShape& shape);
    // Hands out the pending record, valid and writable until the next call; false when nothing
    // is pending or not open.
    bool take(BYTE** record);

  private:
    CriticalSection lock_;  // guards everything below
    UniqueEvent event_;
    DWORD pendingFlags_ = 0;
    POINT position_{};
    CursorShape shape_;  // the newest shape reported
    std::vector<std::uint8_t> delivered_;
};

}  // namespace vantrel::pavlex
