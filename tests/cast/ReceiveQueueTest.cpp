// The receive queue on its own: capacity and the producer's time-out, the stop event winning
// over filled slots and waking blocked threads, index wrap-around, and order under two threads.
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

TEST(ReceiveQueue, CreatedOnceAndHandsOutNothingUntilThen) {
    ReceiveQueue q;
    EXPECT_FALSE(q.IsCreated());
    EXPECT_EQ(nullptr, q.AcquireWriteSlot(0));
    EXPECT_FALSE(q.CreateSlots(0, 16));
    EXPECT_FALSE(q.CreateSlots(4, 0));
    ASSERT_TRUE(q.CreateSlots(4, 16));
    EXPECT_FALSE(q.CreateSlots(8, 32)) << "a second CreateSlots must change nothing";
    EXPECT_EQ(16u, q.slotSize());
    q.DestroySlots();
    q.DestroySlots();
    EXPECT_EQ(nullptr, q.AcquireWriteSlot(0));
    ASSERT_TRUE(q.CreateSlots(2048, 1504));
    EXPECT_NE(nullptr, q.AcquireWriteSlot(0));
}

// The receiver's callback waits 100 ms for a slot, then drops its datagram.
TEST(ReceiveQueue, AFullQueueRefusesTheNextBlockAfterTheTimeout) {
    ReceiveQueue q;
    const int kSlots = 8;
    ASSERT_TRUE(q.CreateSlots(kSlots, 8));
    for (int i = 0; i < kSlots; ++i)
        Put(q, i);
    const DWORD start = GetTickCount();
    EXPECT_EQ(nullptr, q.AcquireWriteSlot(100));
    const DWORD waited = GetTickCount() - start;
    EXPECT_GE(waited, 90u);
    EXPECT_LT(waited, 2000u);
    // One slot consumed frees exactly one.
    EXPECT_EQ(0u, Take(q));
    Put(q, 100);
    EXPECT_EQ(nullptr, q.AcquireWriteSlot(0));
    for (DWORD expected : {1, 2, 3, 4, 5, 6, 7, 100})
        EXPECT_EQ(expected, Take(q));
    EXPECT_EQ(0xdeadbeefu, Take(q, 20));
}

TEST(ReceiveQueue, IndexesWrapAndBlocksComeOutInOrder) {
    ReceiveQueue q;
    ASSERT_TRUE(q.CreateSlots(3, 4));
    std::vector<BYTE*> slots;
    for (int i = 0; i < 7; ++i) {
        BYTE* w = q.AcquireWriteSlot(0);
        ASSERT_NE(nullptr, w);
        slots.push_back(w);
        q.CommitWriteSlot();
        EXPECT_EQ(w, q.AcquireReadSlot(0));
        q.CommitReadSlot();
    }
    for (int i = 3; i < 7; ++i)
        EXPECT_EQ(slots[i - 3], slots[i]) << "slot " << i;
    EXPECT_NE(slots[0], slots[1]);
    EXPECT_NE(slots[1], slots[2]);

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
}

TEST(ReceiveQueue, StopWinsOverFilledSlotsAndWakesBlockedThreads) {
    ReceiveQueue q;
    ASSERT_TRUE(q.CreateSlots(2, 4));
    Put(q, 1);
    q.SetRunning(false);
    EXPECT_EQ(nullptr, q.AcquireReadSlot(INFINITE)) << "a filled slot must not come out";
    EXPECT_EQ(nullptr, q.AcquireWriteSlot(INFINITE));
    q.SetRunning(true);
    EXPECT_EQ(1u, Take(q));

    // A consumer blocked without a time limit and a producer blocked on a full queue both wake.
    Put(q, 2);
    Put(q, 3);
    std::atomic<int> woken{0};
    std::thread producer([&] { woken += q.AcquireWriteSlot(INFINITE) == nullptr; });
    ReceiveQueue empty;
    ASSERT_TRUE(empty.CreateSlots(2, 4));
    std::thread consumer([&] { woken += empty.AcquireReadSlot(INFINITE) == nullptr; });
    Sleep(100);
    EXPECT_EQ(0, woken.load());
    q.SetRunning(false);
    empty.SetRunning(false);
    producer.join();
    consumer.join();
    EXPECT_EQ(2, woken.load());
}
