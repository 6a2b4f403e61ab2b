// The three sources of the stream through COM, as a host registers sinks with them: each holds
// the same five-slot table (one reference per registration, no duplicate check, E_FAIL when
// full or unknown, E_POINTER for null).
#include <functional>
#include <ostream>

#include "ModuleTestSupport.h"
#include "common/FakeSink.h"

using namespace vantrel::test;

namespace {

struct Source {
    const char* name;
    std::function<HRESULT(IUnknown*, IDataTransmitter*)> add;
    std::function<HRESULT(IUnknown*, IDataTransmitter*)> remove;
    const CLSID* clsid;
    const IID* iid;
};

void PrintTo(const Source& source, std::ostream* os) {
    *os << source.name;
}

template <typename I>
Source MakeSource(const char* name, const CLSID& clsid, const IID& iid) {
    return {name,
            [](IUnknown* s, IDataTransmitter* t) {
                return static_cast<I*>(s)->RegisterDataTransmitter(t);
            },
            [](IUnknown* s, IDataTransmitter* t) {
                return static_cast<I*>(s)->UnregisterDataTransmitter(t);
            },
            &clsid, &iid};
}

class SourceSinkTable : public ComTest, public testing::WithParamInterface<Source> {};

TEST_P(SourceSinkTable, FiveSlotsCountedReferencesAndRefusals) {
    const Source& source = GetParam();
    IUnknown* object = nullptr;
    ASSERT_EQ(S_OK, CoCreateInstance(*source.clsid, nullptr, CLSCTX_INPROC_SERVER, *source.iid,
                                     reinterpret_cast<void**>(&object)));
    FakeSink sink, stranger;
    EXPECT_EQ(E_POINTER, source.add(object, nullptr));
    EXPECT_EQ(E_POINTER, source.remove(object, nullptr));
    EXPECT_EQ(E_FAIL, source.remove(object, &stranger));
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(S_OK, source.add(object, &sink)) << i;
    EXPECT_EQ(E_FAIL, source.add(object, &stranger));
    EXPECT_EQ(5, sink.Refs());
    EXPECT_EQ(0, stranger.Refs());
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(S_OK, source.remove(object, &sink)) << i;
    EXPECT_EQ(E_FAIL, source.remove(object, &sink));
    EXPECT_EQ(0, sink.Refs());
    object->Release();
}

INSTANTIATE_TEST_SUITE_P(
    Sources, SourceSinkTable,
    testing::Values(
        MakeSource<IDesktopCapture>("Capture", CLSID_DesktopCapture, IID_IDesktopCapture),
        MakeSource<IDesktopReader>("Reader", CLSID_DesktopReader, IID_IDesktopReader),
        MakeSource<IDesktopReceiver>("Receiver", CLSID_DesktopReceiver, IID_IDesktopReceiver)),
    [](const testing::TestParamInfo<Source>& info) { return std::string(info.param.name); });

}  // namespace
