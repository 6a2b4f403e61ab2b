// Sink table: registration results, slot order and reuse, reference counting, delivery past
// failing sinks, and registration changes while another thread delivers.
#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/FakeSink.h"
#include "platform/UniqueHandle.h"
#include "stream/SinkTable.h"

using namespace vantrel;
using vantrel::test::CallJournal;
using vantrel::test::FakeSink;
using Journal = std::vector<std::string>;

namespace {

const BYTE kPacket[] = {'H', 'M', 'R', 'F', 5, 0, 0, 0, 1, 2, 3, 4};

class SinkTableTest : public testing::Test {
  protected:
    FakeSink* Sink(const std::string& name) {
        sinks_.push_back(std::make_unique<FakeSink>(name, &journal_));
        return sinks_.back().get();
    }
    Journal Deliver(IDataTransmitter* skip = nullptr) {
        journal_.Clear();
        table_.Deliver(kPacket, sizeof kPacket, skip);
        return journal_.Entries();
    }
    void TearDown() override {
        for (const auto& sink : sinks_) {
            while (table_.UnregisterDataTransmitter(sink.get()) == S_OK) {
            }
            EXPECT_EQ(0, sink->Refs()) << sink->Name();
            EXPECT_EQ(std::vector<std::string>(), sink->Faults()) << sink->Name();
        }
    }

    CallJournal journal_;
    SinkTable table_;
    std::vector<std::unique_ptr<FakeSink>> sinks_;
};

TEST_F(SinkTableTest, DeliversToEverySlotInOrderWithThePacketAsGiven) {
    FakeSink* a = Sink("A");
    FakeSink* b = Sink("B");
    FakeSink* c = Sink("C");
    for (FakeSink* s : {a, b, c})
        ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(s));

    EXPECT_EQ((Journal{"A.Transfer", "B.Transfer", "C.Transfer"}), Deliver());
    for (FakeSink* s : {a, b, c}) {
        ASSERT_EQ(1u, s->PacketCount());
        const FakeSink::Packet p = s->Packets()[0];
        EXPECT_EQ(sizeof kPacket, p.cbData);
        EXPECT_EQ(std::vector<BYTE>(kPacket, kPacket + sizeof kPacket), p.bytes);
        EXPECT_EQ(FALSE, p.bAsync);
    }

    journal_.Clear();
    EXPECT_EQ(3, table_.Flush());
    EXPECT_EQ((Journal{"A.Flush", "B.Flush", "C.Flush"}), journal_.Entries());
}

TEST_F(SinkTableTest, EmptyTableCallsNobody) {
    EXPECT_EQ(0, table_.Deliver(kPacket, sizeof kPacket));
    EXPECT_EQ(0, table_.Flush());
    EXPECT_EQ(0, table_.Count());
}

TEST_F(SinkTableTest, SixthRegistrationFailsAndTheFirstFiveStillReceive) {
    std::vector<FakeSink*> five;
    for (int i = 0; i < 5; ++i) {
        five.push_back(Sink(std::to_string(i)));
        ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(five.back()));
    }
    FakeSink* sixth = Sink("6");
    EXPECT_EQ(E_FAIL, table_.RegisterDataTransmitter(sixth));
    EXPECT_EQ(0, sixth->AddRefs());
    EXPECT_EQ(5, table_.Count());

    EXPECT_EQ(5, table_.Deliver(kPacket, sizeof kPacket));
    for (FakeSink* s : five)
        EXPECT_EQ(1u, s->PacketCount());
    EXPECT_EQ(0u, sixth->PacketCount());
    EXPECT_EQ(E_FAIL, table_.UnregisterDataTransmitter(sixth));
}

TEST_F(SinkTableTest, SameSinkTwiceFillsTwoSlotsAndLeavesTheLowerFirst) {
    FakeSink* a = Sink("A");
    FakeSink* b = Sink("B");
    ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(a));
    ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(a));
    ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(b));
    EXPECT_EQ(2, a->Refs());
    EXPECT_EQ((Journal{"A.Transfer", "A.Transfer", "B.Transfer"}), Deliver());

    // The first unregistration empties slot 0, so a newcomer now comes first.
    ASSERT_EQ(S_OK, table_.UnregisterDataTransmitter(a));
    EXPECT_EQ(1, a->Refs());
    FakeSink* c = Sink("C");
    ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(c));
    EXPECT_EQ((Journal{"C.Transfer", "A.Transfer", "B.Transfer"}), Deliver());

    ASSERT_EQ(S_OK, table_.UnregisterDataTransmitter(a));
    EXPECT_EQ(E_FAIL, table_.UnregisterDataTransmitter(a));
    EXPECT_EQ(0, a->Refs());
    EXPECT_EQ(2, a->AddRefs());
    EXPECT_EQ(2, a->Releases());
}

TEST_F(SinkTableTest, FreedSlotIsReusedByTheNextRegistration) {
    FakeSink* a = Sink("A");
    FakeSink* b = Sink("B");
    FakeSink* c = Sink("C");
    FakeSink* d = Sink("D");
    for (FakeSink* s : {a, b, c})
        ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(s));
    ASSERT_EQ(S_OK, table_.UnregisterDataTransmitter(a));
    ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(d));
    EXPECT_EQ((Journal{"D.Transfer", "B.Transfer", "C.Transfer"}), Deliver());
    EXPECT_EQ(0u, a->PacketCount());
}

TEST_F(SinkTableTest, FailingSinkDoesNotStopLaterSlots) {
    FakeSink* a = Sink("A");
    FakeSink* b = Sink("B");
    FakeSink* c = Sink("C");
    a->FailWith(E_FAIL);
    b->FailWith(E_OUTOFMEMORY);
    for (FakeSink* s : {a, b, c})
        ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(s));
    EXPECT_EQ((Journal{"A.Transfer", "B.Transfer", "C.Transfer"}), Deliver());
    EXPECT_EQ(3, table_.Flush());
    EXPECT_EQ(1, c->Flushes());
}

TEST_F(SinkTableTest, SkippedPointerMissesDeliveryOnly) {
    FakeSink* a = Sink("A");
    FakeSink* b = Sink("B");
    FakeSink* c = Sink("C");
    for (FakeSink* s : {a, b, c})
        ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(s));
    EXPECT_EQ((Journal{"A.Transfer", "C.Transfer"}), Deliver(b));
    journal_.Clear();
    table_.Flush();
    EXPECT_EQ((Journal{"A.Flush", "B.Flush", "C.Flush"}), journal_.Entries());
}

TEST_F(SinkTableTest, NullAndUnknownPointersChangeNothing) {
    FakeSink* a = Sink("A");
    FakeSink* stranger = Sink("S");
    ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(a));
    EXPECT_EQ(E_POINTER, table_.RegisterDataTransmitter(nullptr));
    EXPECT_EQ(E_POINTER, table_.UnregisterDataTransmitter(nullptr));
    EXPECT_EQ(E_FAIL, table_.UnregisterDataTransmitter(stranger));
    EXPECT_EQ(1, table_.Count());
    EXPECT_EQ((Journal{"A.Transfer"}), Deliver());
    EXPECT_EQ(0, stranger->AddRefs() + stranger->Releases());
}

TEST_F(SinkTableTest, OneReferencePerRegistrationAndNoneForDelivery) {
    FakeSink* a = Sink("A");
    ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(a));
    EXPECT_EQ(1, a->AddRefs());
    for (int i = 0; i < 3; ++i)
        table_.Deliver(kPacket, sizeof kPacket);
    table_.Flush();
    EXPECT_EQ(1, a->AddRefs());
    EXPECT_EQ(0, a->Releases());
    ASSERT_EQ(S_OK, table_.UnregisterDataTransmitter(a));
    EXPECT_EQ(1, a->Releases());
    EXPECT_EQ(0, a->Refs());
}

TEST_F(SinkTableTest, DestroyedTableLeavesRegisteredSinksAlone) {
    FakeSink* a = Sink("A");
    {
        SinkTable table;
        ASSERT_EQ(S_OK, table.RegisterDataTransmitter(a));
    }
    EXPECT_EQ(0, a->Releases());
    a->Release();  // the reference the client failed to take back, for TearDown's balance
}

// ---- Changes while the worker thread delivers --------------------------------------------------

// Runs one delivery of kPacket on its own thread.
class DeliveryThread {
  public:
    DeliveryThread(SinkTable& table, int rounds = 1) : table_(table), rounds_(rounds) {
        thread_.reset(CreateThread(nullptr, 0, &DeliveryThread::Run, this, 0, nullptr));
    }
    ~DeliveryThread() { Join(); }
    bool Join() {
        return !thread_ ||
               WaitForSingleObject(thread_.get(), FakeSink::kHoldLimitMs * 2) == WAIT_OBJECT_0;
    }
    explicit operator bool() const { return static_cast<bool>(thread_); }

  private:
    static DWORD WINAPI Run(void* self) {
        auto* t = static_cast<DeliveryThread*>(self);
        for (int i = 0; i < t->rounds_; ++i)
            t->table_.Deliver(kPacket, sizeof kPacket);
        return 0;
    }
    SinkTable& table_;
    const int rounds_;
    UniqueThread thread_;
};

TEST_F(SinkTableTest, UnregisteredDuringItsTransferIsReleasedAfterTheCallReturns) {
    FakeSink* a = Sink("A");
    FakeSink* b = Sink("B");
    FakeSink* c = Sink("C");
    FakeSink* d = Sink("D");
    for (FakeSink* s : {a, b, c})
        ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(s));
    a->HoldTransfers();
    journal_.Clear();
    DeliveryThread worker(table_);
    ASSERT_TRUE(worker);
    ASSERT_TRUE(a->WaitHeld(FakeSink::kHoldLimitMs));

    // While A's Transfer runs: A leaves, D takes its slot, C leaves. Nothing here may wait for
    // the Transfer to end.
    EXPECT_EQ(S_OK, table_.UnregisterDataTransmitter(a));
    EXPECT_EQ(S_OK, table_.RegisterDataTransmitter(d));
    EXPECT_EQ(S_OK, table_.UnregisterDataTransmitter(c));
    EXPECT_TRUE(a->InCall()) << "registration waited for a running Transfer";
    EXPECT_EQ(0, a->Releases());
    EXPECT_EQ(1, c->Releases());

    a->Unblock();
    ASSERT_TRUE(worker.Join());
    // Slot 0 was already passed when D arrived; C was gone when the delivery reached it.
    EXPECT_EQ((Journal{"A.Transfer", "C.Release", "A.TransferEnd", "A.Release", "B.Transfer"}),
              journal_.Entries());
    EXPECT_EQ(0, a->Refs());
    EXPECT_EQ((Journal{"D.Transfer", "B.Transfer"}), Deliver());
}

TEST_F(SinkTableTest, ReregisteredDuringItsTransferKeepsOneReference) {
    FakeSink* a = Sink("A");
    ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(a));
    a->HoldTransfers();
    DeliveryThread worker(table_);
    ASSERT_TRUE(a->WaitHeld(FakeSink::kHoldLimitMs));
    EXPECT_EQ(S_OK, table_.UnregisterDataTransmitter(a));
    EXPECT_EQ(S_OK, table_.RegisterDataTransmitter(a));
    a->Unblock();
    ASSERT_TRUE(worker.Join());
    EXPECT_EQ(1, a->Refs());
    EXPECT_EQ(2, a->AddRefs());
    EXPECT_EQ(1u, a->PacketCount());
}

TEST_F(SinkTableTest, RegistrationChurnAgainstAWorkerKeepsCountsAndOrder) {
    // The worker delivers while this thread keeps replacing B; A and C never move.
    FakeSink* a = Sink("A");
    FakeSink* b = Sink("B");
    FakeSink* c = Sink("C");
    ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(a));
    ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(b));
    ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(c));
    const int rounds = 2000;
    {
        DeliveryThread worker(table_, rounds);
        for (int i = 0; i < rounds; ++i) {
            ASSERT_EQ(S_OK, table_.UnregisterDataTransmitter(b));
            ASSERT_EQ(S_OK, table_.RegisterDataTransmitter(b));
        }
        ASSERT_TRUE(worker.Join());
    }
    EXPECT_EQ(static_cast<size_t>(rounds), a->PacketCount());
    EXPECT_EQ(static_cast<size_t>(rounds), c->PacketCount());
    EXPECT_LE(b->PacketCount(), static_cast<size_t>(rounds));
    EXPECT_EQ(1, b->Refs());
    EXPECT_EQ(rounds + 1, b->AddRefs());

    // Within every delivery A comes first and C last, with B at most once between them.
    const Journal entries = journal_.Entries();
    std::string last = "C.Transfer";
    for (const std::string& e : entries) {
        if (e == "B.Release")
            continue;
        if (e == "A.Transfer") {
            EXPECT_EQ("C.Transfer", last);
        } else if (e == "B.Transfer") {
            EXPECT_EQ("A.Transfer", last);
        } else {
            EXPECT_NE("C.Transfer", last) << e;
        }
        last = e;
    }
}

}  // namespace
