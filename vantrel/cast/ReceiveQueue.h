// ReceiveQueue: a fixed ring of equal slots through which one producer thread (the transport's
// datagram callback) hands blocks to one consumer thread (the receiver's thread), with no copy
// inside the queue and no allocation after CreateSlots. The free semaphore counts the slots the
// producer may fill, the filled semaphore those the consumer may take; the manual-reset stop
// event releases every wait at once and wins over a signalled semaphore.
//
// Threads: the write index belongs to the producer, the read index to the consumer; SetRunning
// may come from a third thread. CreateSlots and DestroySlots run while neither side is inside.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>

#include "wincom/UniqueHandle.h"

namespace vantrel {

class ReceiveQueue {
  public:
    ReceiveQueue() noexcept = default;
    ReceiveQueue(const ReceiveQueue&) = delete;
    ReceiveQueue& operator=(const ReceiveQueue&) = delete;
    ~ReceiveQueue() { DestroySlots(); }

    // False when already created, for a count or size of 0, or when an allocation or a kernel
    // object fails (the queue then stays not created and hands out no slot).
    bool CreateSlots(int slotCount, uint32_t slotSize) noexcept;
    void DestroySlots() noexcept;
    bool IsCreated() const noexcept { return slotTable_ != nullptr; }

    // Null when the queue is not created, stopped, or no slot came within timeoutMs. A slot
    // belongs to the caller until the matching commit.
    BYTE* AcquireWriteSlot(DWORD timeoutMs) noexcept;
    void CommitWriteSlot() noexcept;
    BYTE* AcquireReadSlot(DWORD timeoutMs) noexcept;
    void CommitReadSlot() noexcept;

    // false: signals the stop event (every wait returns null); true: clears it.
    void SetRunning(bool running) noexcept;

    uint32_t slotSize() const noexcept { return slotSize_; }

  private:
    // Waits on the stop event and one semaphore, the event first so that it wins.
    bool Wait(HANDLE semaphore, DWORD timeoutMs) noexcept;

    uint32_t slotSize_ = 0;
    int slotCount_ = 0;
    std::unique_ptr<BYTE*[]> slotTable_;
    std::unique_ptr<BYTE[]> slotMemory_;  // the slots, one block
    UniqueHandle freeSlots_;
    UniqueHandle filledSlots_;
    UniqueEvent stop_;
    int writeIndex_ = 0;
    int readIndex_ = 0;
};

}  // namespace vantrel
