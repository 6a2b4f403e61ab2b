// Sink table: slot order and reuse, delivery past failing sinks, skipping a picture's source,
// and registration changes while another thread delivers.
#include <windows.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "common/FakeSink.h"
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
    // New sinks, registered in this order.
    std::vector<FakeSink*> Registered(std::initializer_list<const char*> names) {
        std::vector<FakeSink*> out;
        for (const char* name : names) {
            out.push_back(Sink(name));
            EXPECT_EQ(S_OK, table_.RegisterDataTransmitter(out.back()));
        }
        return out;
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

// The registration results and counts themselves are checked through every source's COM methods
// (tests/module); here what delivery makes of the table. The skipped object is found by
// identity: each other sink is asked for its IUnknown (the reference goes back at once).
TEST_F(SinkTableTest, DeliversInSlotOrderPastFailuresReusesFreedSlotsAndSkipsBySource) {
    EXPECT_EQ(0, table_.Deliver(kPacket, sizeof kPacket));  // an empty table calls nobody
    const auto sinks = Registered({"1", "2", "3"});
    sinks[0]->FailWith(E_FAIL);
    EXPECT_EQ(S_OK, table_.RegisterDataTransmitter(sinks[0]));  // the same sink in two slots
    EXPECT_EQ((Journal{"1.Transfer", "2.Transfer", "3.Transfer", "1.Transfer"}), Deliver());
    const FakeSink::Packet p = sinks[2]->Packets().at(0);
    EXPECT_EQ(std::vector<BYTE>(kPacket, kPacket + sizeof kPacket), p.bytes);
    EXPECT_EQ(FALSE, p.bAsync);
    EXPECT_EQ(1, sinks[2]->AddRefs());  // one per registration, none per delivery

    // Unregistering empties the first slot that holds the sink: a newcomer comes first.
    ASSERT_EQ(S_OK, table_.UnregisterDataTransmitter(sinks[0]));
    EXPECT_EQ(1, sinks[0]->Refs());
    Registered({"C"});
    EXPECT_EQ((Journal{"C.Transfer", "2.Transfer", "3.Transfer", "1.Transfer"}), Deliver());
    EXPECT_EQ(
        (Journal{"C.Release", "C.Transfer", "3.Release", "3.Transfer", "1.Release", "1.Transfer"}),
        Deliver(sinks[1]));
    journal_.Clear();
    EXPECT_EQ(4, table_.Flush());
    EXPECT_EQ((Journal{"C.Flush", "2.Flush", "3.Flush", "1.Flush"}), journal_.Entries());
}

// ---- Changes while the worker thread delivers --------------------------------------------------

// Delivers kPacket once on another thread.
std::thread Worker(SinkTable& table) {
    return std::thread([&table] { table.Deliver(kPacket, sizeof kPacket); });
}

TEST_F(SinkTableTest, UnregisteredDuringItsTransferIsReleasedAfterTheCallReturnsOrKeptWhenBack) {
    const auto sinks = Registered({"A", "B", "C"});
    FakeSink *a = sinks[0], *c = sinks[2], *d = Sink("D");
    a->HoldTransfers();
    journal_.Clear();
    std::thread worker = Worker(table_);
    EXPECT_TRUE(a->WaitHeld(FakeSink::kHoldLimitMs));

    // While A's Transfer runs: A leaves, D takes its slot, C leaves. Nothing here may wait for
    // the Transfer to end.
    EXPECT_EQ(S_OK, table_.UnregisterDataTransmitter(a));
    EXPECT_EQ(S_OK, table_.RegisterDataTransmitter(d));
    EXPECT_EQ(S_OK, table_.UnregisterDataTransmitter(c));
    EXPECT_TRUE(a->InCall()) << "registration waited for a running Transfer";
    EXPECT_EQ(0, a->Releases());
    EXPECT_EQ(1, c->Releases());

    a->Unblock();
    worker.join();
    // Slot 0 was already passed when D arrived; C was gone when the delivery reached it.
    EXPECT_EQ((Journal{"A.Transfer", "C.Release", "A.TransferEnd", "A.Release", "B.Transfer"}),
              journal_.Entries());
    EXPECT_EQ(0, a->Refs());
    EXPECT_EQ((Journal{"D.Transfer", "B.Transfer"}), Deliver());

    // Unregistered and registered again during its Transfer: one reference remains.
    d->HoldTransfers();
    std::thread again = Worker(table_);
    EXPECT_TRUE(d->WaitHeld(FakeSink::kHoldLimitMs));
    EXPECT_EQ(S_OK, table_.UnregisterDataTransmitter(d));
    EXPECT_EQ(S_OK, table_.RegisterDataTransmitter(d));
    d->Unblock();
    again.join();
    EXPECT_EQ(1, d->Refs());
    EXPECT_EQ(2, d->AddRefs());
}

}  // namespace
