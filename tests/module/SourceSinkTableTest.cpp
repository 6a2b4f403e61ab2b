// The three sources of the stream through COM, as a host registers sinks with them: each holds
// the same five-slot table (one reference per registration, no duplicate check, E_FAIL when
// full or unknown, E_POINTER for null).
#include "ModuleTestSupport.h"
#include "common/FakeSink.h"

namespace vantrel::test {
namespace {

template <typename I>
void CheckSinkTable(REFCLSID clsid, const char* name) {
    SCOPED_TRACE(name);
    const ComPtr<I> source = Create<I>(clsid);
    ASSERT_TRUE(source);
    FakeSink sink, stranger;
    EXPECT_EQ(E_POINTER, source->RegisterDataTransmitter(nullptr));
    EXPECT_EQ(E_POINTER, source->UnregisterDataTransmitter(nullptr));
    EXPECT_EQ(E_FAIL, source->UnregisterDataTransmitter(&stranger));
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(S_OK, source->RegisterDataTransmitter(&sink)) << i;
    EXPECT_EQ(E_FAIL, source->RegisterDataTransmitter(&stranger));
    EXPECT_EQ(5, sink.Refs());
    EXPECT_EQ(0, stranger.Refs());
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(S_OK, source->UnregisterDataTransmitter(&sink)) << i;
    EXPECT_EQ(E_FAIL, source->UnregisterDataTransmitter(&sink));
    EXPECT_EQ(0, sink.Refs());
}

using SourceSinkTable = ModuleTest;

TEST_F(SourceSinkTable, FiveSlotsCountedReferencesAndRefusals) {
    CheckSinkTable<IDesktopCapture>(CLSID_DesktopCapture, "capture");
    CheckSinkTable<IDesktopReader>(CLSID_DesktopReader, "reader");
    CheckSinkTable<IDesktopReceiver>(CLSID_DesktopReceiver, "receiver");
}

}  // namespace
}  // namespace vantrel::test
