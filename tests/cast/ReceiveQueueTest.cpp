// The receive queue on its own: created once, its capacity, order under two threads (far more
// blocks than slots, so the indexes wrap), the stop event winning over filled slots and waking
// blocked threads. The producer's time-out is checked through DesktopReceiver
// (CastComponentsTest).
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "cast/ReceiveQueue.h"

using vantrel::ReceiveQueue;

namespace {

void Put(ReceiveQueue& q, DWORD value, DWORD timeout = 0) {
    BYTE* slot = q.AcquireWriteSlot(timeout);
    ASSERT_NE(nullptr, slot);
    memcpy(slot, &value, sizeof value);
    q.CommitWriteSlot();
}

DWORD Take(ReceiveQueue& q, DWORD timeout = 0) {
    BYTE* slot = q.AcquireReadSlot(timeout);
    if (!slot)
        return 0xdeadbeef;
    DWORD value;
    memcpy(&value, slot, sizeof value);
    q.CommitReadSlot();
    return value;
}

}  // namespace

TEST(ReceiveQueue, CreatedOnceHoldsItsSlotsWrapsAndKeepsOrder) {
    ReceiveQueue q;
    EXPECT_EQ(nullptr, q.AcquireWriteSlot(0));
    EXPECT_FALSE(q.CreateSlots(0, 16));
    EXPECT_FALSE(q.CreateSlots(3, 0));
    ASSERT_TRUE(q.CreateSlots(3, 4));
    EXPECT_FALSE(q.CreateSlots(8, 32)) << "a second CreateSlots must change nothing";
    EXPECT_EQ(4u, q.slotSize());

    // N blocks without a consumer; one consumed frees exactly one.
    for (DWORD i = 0; i < 3; ++i)
        Put(q, i);
    EXPECT_EQ(nullptr, q.AcquireWriteSlot(0));
    EXPECT_EQ(0u, Take(q));
    Put(q, 3);
    EXPECT_EQ(nullptr, q.AcquireWriteSlot(0));
    for (DWORD expected : {1, 2, 3})
        EXPECT_EQ(expected, Take(q));
    EXPECT_EQ(0xdeadbeefu, Take(q, 20));

    // One producer, one consumer, far more blocks than slots.
    const DWORD kBlocks = 20000;
    std::thread producer([&] {
        for (DWORD i = 0; i < kBlocks; ++i)
            Put(q, i, INFINITE);
    });
    DWORD mismatches = 0;
    for (DWORD i = 0; i < kBlocks; ++i)
        mismatches += Take(q, 10000) != i;
    producer.join();
    EXPECT_EQ(0u, mismatches);
    q.DestroySlots();
    q.DestroySlots();
    EXPECT_EQ(nullptr, q.AcquireWriteSlot(0));
    ASSERT_TRUE(q.CreateSlots(2048, 1504));
}

TEST(ReceiveQueue, StopWinsOverFilledSlotsAndWakesBlockedThreads) {
    ReceiveQueue full, empty;
    ASSERT_TRUE(full.CreateSlots(1, 4) && empty.CreateSlots(1, 4));
    Put(full, 1);
    std::atomic<int> woken{0};
    std::thread producer([&] { woken += full.AcquireWriteSlot(INFINITE) == nullptr; });
    std::thread consumer([&] { woken += empty.AcquireReadSlot(INFINITE) == nullptr; });
    Sleep(100);
    EXPECT_EQ(0, woken.load());
    full.SetRunning(false);
    empty.SetRunning(false);
    producer.join();
    consumer.join();
    EXPECT_EQ(2, woken.load());
    EXPECT_EQ(nullptr, full.AcquireReadSlot(INFINITE)) << "a filled slot must not come out";
    full.SetRunning(true);
    EXPECT_EQ(1u, Take(full));
}
