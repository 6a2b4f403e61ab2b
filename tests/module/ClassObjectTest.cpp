// Class objects and objects of the eight served classes through COM: QueryInterface rows,
// creation with and without an outer object, the class that is not served, the unload rule, the
// cached class objects and the sources' sink tables.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "ModuleTestSupport.h"
#include "common/FakeSink.h"
#include "wincom/ComPtr.h"

namespace vantrel::test {
namespace {

ULONG Refs(IUnknown* p) {
    p->AddRef();
    return p->Release();
}

// A controlling object that answers IUnknown itself and hands every other IID to its inner
// object; lives on the stack.
class Outer final : public IUnknown {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (!IsEqualIID(riid, IID_IUnknown))
            return inner ? inner->QueryInterface(riid, ppv) : (*ppv = nullptr, E_NOINTERFACE);
        *ppv = static_cast<IUnknown*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs; }

    IUnknown* inner = nullptr;
    std::atomic<ULONG> refs{1};
};

using ClassObjectTest = ModuleTest;

// Also the unload rule for each class: a live object holds the module through any interface.
TEST_F(ClassObjectTest, QueryInterfaceAnswersExactlyEachClassRow) {
    for (const ServedClass& c : kServedClasses) {
        SCOPED_TRACE(c.name);
        ComPtr<IUnknown> object;
        ASSERT_EQ(S_OK, CoCreateInstance(*c.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                         object.PutVoid()));
        const ULONG refs = Refs(object.Get());
        std::vector<const IID*> probed(std::begin(kLibraryInterfaces),
                                       std::end(kLibraryInterfaces));
        probed.insert(probed.end(), {&IID_IDispatch, &IID_IClassFactory, &IID_IPersist});
        for (const IID* iid : probed) {
            SCOPED_TRACE(GuidString(*iid));
            void* p = kSentinel;
            const HRESULT hr = object->QueryInterface(*iid, &p);
            if (std::none_of(c.interfaces.begin(), c.interfaces.end(),
                             [&](const IID* row) { return IsEqualIID(*row, *iid); })) {
                EXPECT_EQ(E_NOINTERFACE, hr);
                EXPECT_EQ(nullptr, p);
                continue;
            }
            ASSERT_EQ(S_OK, hr);
            ComPtr<IUnknown> answered, identity;
            answered.Attach(static_cast<IUnknown*>(p));
            EXPECT_EQ(refs + 1, Refs(object.Get()));
            // The identity is the first interface of the row, whichever interface is asked.
            ASSERT_EQ(S_OK, answered->QueryInterface(IID_IUnknown, identity.PutVoid()));
            EXPECT_EQ(object.Get(), identity.Get());
        }
        EXPECT_EQ(refs, Refs(object.Get()));
        EXPECT_EQ(E_POINTER, object->QueryInterface(*c.interfaces.front(), nullptr));

        ComPtr<IUnknown> last;
        ASSERT_EQ(S_OK, object->QueryInterface(*c.interfaces.back(), last.PutVoid()));
        object.Reset();
        EXPECT_EQ(S_FALSE, Dll().canUnloadNow());
        last.Reset();
        EXPECT_EQ(S_OK, Dll().canUnloadNow());
    }
}

// Only the eight classes are served, and a class object answers only IUnknown and
// IClassFactory. An inner object is its own identity and counts on the outer object only
// through the interfaces it hands out.
TEST_F(ClassObjectTest, CreateInstanceChecksArgumentsAndAggregates) {
    void* none = kSentinel;
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE,
              Dll().getClassObject(CLSID_DesktopIPCServer2, IID_IClassFactory, &none));
    EXPECT_EQ(nullptr, none);
    none = kSentinel;
    EXPECT_EQ(E_NOINTERFACE,
              Dll().getClassObject(CLSID_DesktopCapture, IID_IDesktopCapture, &none));
    EXPECT_EQ(nullptr, none);
    for (const ServedClass& c : kServedClasses) {
        SCOPED_TRACE(c.name);
        Outer outer;
        ComPtr<IClassFactory> factory;
        ASSERT_EQ(S_OK, CoGetClassObject(*c.clsid, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                                         factory.PutVoid()));
        EXPECT_EQ(E_POINTER, factory->CreateInstance(nullptr, IID_IUnknown, nullptr));
        none = kSentinel;
        EXPECT_EQ(CLASS_E_NOAGGREGATION,
                  factory->CreateInstance(&outer, *c.interfaces.front(), &none));
        EXPECT_EQ(nullptr, none);
        factory.Reset();

        IUnknown* inner = nullptr;
        ASSERT_EQ(S_OK, CoCreateInstance(*c.clsid, &outer, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                         reinterpret_cast<void**>(&inner)));
        outer.inner = inner;
        const ULONG outerRefs = outer.refs;
        ComPtr<IUnknown> p, identity;
        ASSERT_EQ(S_OK, inner->QueryInterface(IID_IUnknown, p.PutVoid()));
        EXPECT_EQ(inner, p.Get());
        EXPECT_EQ(outerRefs, outer.refs);
        ASSERT_EQ(S_OK, inner->QueryInterface(*c.interfaces.back(), p.PutVoid()));
        EXPECT_EQ(outerRefs + 1, outer.refs);
        ASSERT_EQ(S_OK, p->QueryInterface(IID_IUnknown, identity.PutVoid()));
        EXPECT_EQ(&outer, identity.Get());
        identity.Reset();
        p.Reset();
        EXPECT_EQ(outerRefs, outer.refs);
        EXPECT_EQ(0u, inner->Release());
        EXPECT_EQ(S_OK, Dll().canUnloadNow());
    }
}

// Each class object is created once, also when the first requests race, and kept; a held class
// object and LockServer keep the module.
TEST_F(ClassObjectTest, ConcurrentRequestsGetOneClassObjectPerClass) {
    const size_t classes = kServedClasses.size();
    std::vector<void*> got(8 * classes, kSentinel);
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            while (!go) {
            }
            for (size_t i = 0; i < classes; ++i) {
                const size_t c = t % 2 ? classes - 1 - i : i;  // every class contended
                EXPECT_EQ(S_OK, Dll().getClassObject(*kServedClasses[c].clsid, IID_IClassFactory,
                                                     &got[t * classes + c]));
            }
        });
    go = true;
    for (std::thread& thread : threads)
        thread.join();
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i % classes], got[i]) << kServedClasses[i % classes].name;
        EXPECT_TRUE(i >= classes || std::count(got.begin(), got.begin() + classes, got[i]) == 1);
    }
    for (void* p : got)
        if (p && p != kSentinel)
            static_cast<IUnknown*>(p)->Release();
    EXPECT_EQ(S_OK, Dll().canUnloadNow());
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK,
              Dll().getClassObject(CLSID_DesktopCapture, IID_IClassFactory, factory.PutVoid()));
    EXPECT_EQ(got[0], factory.Get());
    EXPECT_EQ(S_FALSE, Dll().canUnloadNow());
    ASSERT_EQ(S_OK, factory->LockServer(TRUE));
    factory.Reset();
    EXPECT_EQ(S_FALSE, Dll().canUnloadNow());
    ASSERT_EQ(S_OK,
              Dll().getClassObject(CLSID_DesktopCapture, IID_IClassFactory, factory.PutVoid()));
    ASSERT_EQ(S_OK, factory->LockServer(FALSE));
    factory.Reset();
    EXPECT_EQ(S_OK, Dll().canUnloadNow());
}

// The three sources of the stream hold the same five-slot table: one reference per
// registration, no duplicate check, E_FAIL when full or unknown, E_POINTER for null.
template <typename I>
void CheckSinkTable(REFCLSID clsid) {
    const ComPtr<I> source = Create<I>(clsid);
    ASSERT_TRUE(source);
    FakeSink sink, stranger;
    EXPECT_EQ(E_POINTER, source->RegisterDataTransmitter(nullptr));
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

TEST_F(ClassObjectTest, SourcesHoldFiveCountedSlots) {
    CheckSinkTable<IDesktopCapture>(CLSID_DesktopCapture);
    CheckSinkTable<IDesktopReader>(CLSID_DesktopReader);
    CheckSinkTable<IDesktopReceiver>(CLSID_DesktopReceiver);
}

}  // namespace
}  // namespace vantrel::test
