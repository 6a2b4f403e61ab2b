// Receive queue of the multicast receiver (see ReceiveQueue.h).
#include "cast/ReceiveQueue.h"

#include <new>

namespace vantrel {

bool ReceiveQueue::CreateSlots(int slotCount, uint32_t slotSize) noexcept {
    if (IsCreated() || slotCount <= 0 || slotSize == 0)
        return false;
    const uint64_t bytes = static_cast<uint64_t>(slotCount) * slotSize;
    if (bytes > 0x40000000)
        return false;
    std::unique_ptr<BYTE[]> memory(new (std::nothrow) BYTE[static_cast<size_t>(bytes)]);
    std::unique_ptr<BYTE*[]> table(new (std::nothrow) BYTE*[slotCount]);
    UniqueHandle freeSlots(CreateSemaphoreA(nullptr, slotCount, slotCount, nullptr));
    UniqueHandle filledSlots(CreateSemaphoreA(nullptr, 0, slotCount, nullptr));
    UniqueEvent stop(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!memory || !table || !freeSlots || !filledSlots || !stop)
        return false;
    for (int i = 0; i < slotCount; ++i)
        table[i] = memory.get() + static_cast<size_t>(i) * slotSize;
    slotSize_ = slotSize;
    slotCount_ = slotCount;
    slotMemory_ = std::move(memory);
    freeSlots_ = std::move(freeSlots);
    filledSlots_ = std::move(filledSlots);
    stop_ = std::move(stop);
    writeIndex_ = 0;
    readIndex_ = 0;
    slotTable_ = std::move(table);
    return true;
}

void ReceiveQueue::DestroySlots() noexcept {
    if (!IsCreated())
        return;
    slotTable_.reset();
    slotMemory_.reset();
    freeSlots_.reset();
    filledSlots_.reset();
    stop_.reset();
    slotSize_ = 0;
    slotCount_ = 0;
    writeIndex_ = 0;
    readIndex_ = 0;
}

bool ReceiveQueue::Wait(HANDLE semaphore, DWORD timeoutMs) noexcept {
    const HANDLE handles[2] = {stop_.get(), semaphore};
    return WaitForMultipleObjects(2, handles, FALSE, timeoutMs) == WAIT_OBJECT_0 + 1;
}

BYTE* ReceiveQueue::AcquireWriteSlot(DWORD timeoutMs) noexcept {
    if (!IsCreated() || !Wait(freeSlots_.get(), timeoutMs))
        return nullptr;
    return slotTable_[writeIndex_];
}

void ReceiveQueue::CommitWriteSlot() noexcept {
    if (!IsCreated())
        return;
    writeIndex_ = (writeIndex_ + 1) % slotCount_;
    ReleaseSemaphore(filledSlots_.get(), 1, nullptr);
}

BYTE* ReceiveQueue::AcquireReadSlot(DWORD timeoutMs) noexcept {
    if (!IsCreated() || !Wait(filledSlots_.get(), timeoutMs))
        return nullptr;
    return slotTable_[readIndex_];
}

void ReceiveQueue::CommitReadSlot() noexcept {
    if (!IsCreated())
        return;
    readIndex_ = (readIndex_ + 1) % slotCount_;
    ReleaseSemaphore(freeSlots_.get(), 1, nullptr);
}

void ReceiveQueue::SetRunning(bool running) noexcept {
    if (!IsCreated())
        return;
    if (running)
        ResetEvent(stop_.get());
    else
        SetEvent(stop_.get());
}

}  // namespace vantrel
