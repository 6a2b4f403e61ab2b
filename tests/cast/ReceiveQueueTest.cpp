// The receive queue on its own: created once, its capacity, and order under two threads (far
// more blocks than slots, so the indexes wrap). Its time-out, and Stop winning over filled slots
// and waking the receiver's thread, are checked through DesktopReceiver (CastComponentsTest).
#include <windows.h>

#include <gtest/gtest.h>

#include <thread>

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
