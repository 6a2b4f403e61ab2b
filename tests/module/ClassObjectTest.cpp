// Class objects and objects of the eight served classes through COM: QueryInterface rows,
// aggregation, the classes that are not served, the unload rule and the cached class objects.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "ModuleTestSupport.h"
#include "platform/ComPtr.h"

namespace vantrel::test {
namespace {

// Every interface of the library, and some that no class answers.
const std::vector<const IID*> kProbedInterfaces = {
    &IID_IDataTransmitter,  &IID_IDesktopCapture, &IID_IDesktopRecorder, &IID_IDesktopCaster,
    &IID_IDesktopReceiver,  &IID_IDesktopRender,  &IID_IDesktopReader,   &IID_IFrameBuffer,
    &IID_IDesktopIPCServer, &IID_IDispatch,       &IID_IClassFactory,    &IID_IPersist,
};

ULONG Refs(IUnknown* p) {
    p->AddRef();
    return p->Release();
}

bool Answers(const ServedClass& c, REFIID iid) {
    return std::any_of(c.interfaces.begin(), c.interfaces.end(),
                       [&](const IID* row) { return IsEqualIID(*row, iid); });
}

// A controlling object that aggregates one inner object: answers IUnknown itself and hands
// every other IID to the inner object. Counts its references; lives on the stack.
class Outer final : public IUnknown {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (IsEqualIID(riid, IID_IUnknown)) {
            *ppv = static_cast<IUnknown*>(this);
            AddRef();
            return S_OK;
        }
        if (inner)
            return inner->QueryInterface(riid, ppv);
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs; }

    IUnknown* inner = nullptr;
    std::atomic<ULONG> refs{1};
};

using ClassObjectTest = ComTest;

TEST_F(ClassObjectTest, QueryInterfaceAnswersExactlyEachClassRow) {
    for (const ServedClass& c : ServedClasses()) {
        SCOPED_TRACE(c.name);
        ComPtr<IUnknown> object;
        ASSERT_EQ(S_OK, CoCreateInstance(*c.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                         object.PutVoid()));
        const ULONG refs = Refs(object.Get());
        for (const IID* iid : kProbedInterfaces) {
            SCOPED_TRACE(GuidString(*iid));
            void* p = kSentinel;
            const HRESULT hr = object->QueryInterface(*iid, &p);
            if (!Answers(c, *iid)) {
                EXPECT_EQ(E_NOINTERFACE, hr);
                EXPECT_EQ(nullptr, p);
                continue;
            }
            ASSERT_EQ(S_OK, hr);
            ComPtr<IUnknown> answered;
            answered.Attach(static_cast<IUnknown*>(p));
            EXPECT_EQ(refs + 1, Refs(object.Get()));
            // The identity is the first interface of the row, whichever interface is asked.
            ComPtr<IUnknown> identity;
            ASSERT_EQ(S_OK, answered->QueryInterface(IID_IUnknown, identity.PutVoid()));
            EXPECT_EQ(object.Get(), identity.Get());
            if (IsEqualIID(*iid, *c.interfaces.front())) {
                EXPECT_EQ(object.Get(), p);
            }
        }
        EXPECT_EQ(refs, Refs(object.Get()));
        EXPECT_EQ(E_POINTER, object->QueryInterface(*c.interfaces.front(), nullptr));
        EXPECT_EQ(E_POINTER, object->QueryInterface(IID_IDispatch, nullptr));
    }
}

TEST_F(ClassObjectTest, CreateInstanceChecksItsArguments) {
    for (const ServedClass& c : ServedClasses()) {
        SCOPED_TRACE(c.name);
        ComPtr<IClassFactory> factory;
        ASSERT_EQ(S_OK, CoGetClassObject(*c.clsid, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                                         factory.PutVoid()));
        EXPECT_EQ(E_POINTER, factory->CreateInstance(nullptr, IID_IUnknown, nullptr));
        void* p = kSentinel;
        EXPECT_EQ(E_NOINTERFACE, factory->CreateInstance(nullptr, IID_IDispatch, &p));
        EXPECT_EQ(nullptr, p);
    }
    // The objects that could not answer are gone again.
    EXPECT_EQ(S_OK, VantrelDll::Get().CanUnloadNow());
}

TEST_F(ClassObjectTest, AggregatedObjectDelegatesToItsOuter) {
    for (const ServedClass& c : ServedClasses()) {
        SCOPED_TRACE(c.name);
        Outer outer;
        ComPtr<IClassFactory> factory;
        ASSERT_EQ(S_OK, CoGetClassObject(*c.clsid, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                                         factory.PutVoid()));
        for (const IID* iid : {c.interfaces.front(), &IID_IDispatch}) {
            void* p = kSentinel;
            EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(&outer, *iid, &p));
            EXPECT_EQ(nullptr, p);
        }

        IUnknown* inner = nullptr;
        ASSERT_EQ(S_OK, CoCreateInstance(*c.clsid, &outer, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                         reinterpret_cast<void**>(&inner)));
        outer.inner = inner;
        const ULONG outerRefs = outer.refs;
        // The inner unknown is its own identity and does not count on the outer object.
        IUnknown* self = nullptr;
        ASSERT_EQ(S_OK, inner->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&self)));
        EXPECT_EQ(inner, self);
        self->Release();
        EXPECT_EQ(outerRefs, outer.refs);

        for (const IID* iid : c.interfaces) {
            SCOPED_TRACE(GuidString(*iid));
            IUnknown* p = nullptr;
            ASSERT_EQ(S_OK, inner->QueryInterface(*iid, reinterpret_cast<void**>(&p)));
            EXPECT_NE(inner, p);
            EXPECT_EQ(outerRefs + 1, outer.refs);
            IUnknown* identity = nullptr;
            ASSERT_EQ(S_OK, p->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)));
            EXPECT_EQ(&outer, identity);
            identity->Release();
            // Through the outer object and back: every listed interface is reachable.
            for (const IID* other : c.interfaces) {
                IUnknown* q = nullptr;
                EXPECT_EQ(S_OK, p->QueryInterface(*other, reinterpret_cast<void**>(&q)));
                if (q)
                    q->Release();
            }
            p->Release();
            EXPECT_EQ(outerRefs, outer.refs);
        }
        EXPECT_EQ(0u, inner->Release());
    }
    EXPECT_EQ(S_OK, VantrelDll::Get().CanUnloadNow());
}

TEST_F(ClassObjectTest, OnlyTheEightClassesAreServed) {
    const VantrelDll& dll = VantrelDll::Get();
    for (const CLSID* clsid : {&CLSID_DesktopIPCServer2, &LIBID_VANTRELLib, &IID_IDesktopCapture}) {
        void* p = kSentinel;
        EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, dll.GetClassObject(*clsid, IID_IClassFactory, &p));
        EXPECT_EQ(nullptr, p);
    }
    // Never registered either.
    void* p = kSentinel;
    EXPECT_EQ(REGDB_E_CLASSNOTREG,
              CoCreateInstance(CLSID_DesktopIPCServer2, nullptr, CLSCTX_INPROC_SERVER,
                               IID_IDesktopIPCServer, &p));
    // A served class object answers only IUnknown and IClassFactory.
    p = kSentinel;
    EXPECT_EQ(E_NOINTERFACE, dll.GetClassObject(CLSID_DesktopCapture, IID_IDesktopCapture, &p));
    EXPECT_EQ(nullptr, p);
    EXPECT_EQ(S_OK, dll.CanUnloadNow());
}

TEST_F(ClassObjectTest, CanUnloadNowOnlyWithoutLocksAndLiveObjects) {
    const VantrelDll& dll = VantrelDll::Get();
    ASSERT_EQ(S_OK, dll.CanUnloadNow());

    ComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, CoGetClassObject(CLSID_DesktopCapture, CLSCTX_INPROC_SERVER, nullptr,
                                     IID_IClassFactory, factory.PutVoid()));
    EXPECT_EQ(S_FALSE, dll.CanUnloadNow());  // a client holds a class object
    ASSERT_EQ(S_OK, factory->LockServer(TRUE));
    factory.Reset();
    EXPECT_EQ(S_FALSE, dll.CanUnloadNow());
    ASSERT_EQ(S_OK, CoGetClassObject(CLSID_DesktopCapture, CLSCTX_INPROC_SERVER, nullptr,
                                     IID_IClassFactory, factory.PutVoid()));
    ASSERT_EQ(S_OK, factory->LockServer(FALSE));
    EXPECT_EQ(S_FALSE, dll.CanUnloadNow());
    factory.Reset();
    EXPECT_EQ(S_OK, dll.CanUnloadNow());

    for (const ServedClass& c : ServedClasses()) {
        SCOPED_TRACE(c.name);
        ComPtr<IUnknown> object;
        ASSERT_EQ(S_OK, CoCreateInstance(*c.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                         object.PutVoid()));
        EXPECT_EQ(S_FALSE, dll.CanUnloadNow());
        ComPtr<IUnknown> last;
        ASSERT_EQ(S_OK, object->QueryInterface(*c.interfaces.back(), last.PutVoid()));
        object.Reset();
        EXPECT_EQ(S_FALSE, dll.CanUnloadNow());  // alive through another interface
        last.Reset();
        EXPECT_EQ(S_OK, dll.CanUnloadNow());
    }
}

// Each class object is created once, also when the first requests race.
TEST_F(ClassObjectTest, ConcurrentRequestsGetOneClassObjectPerClass) {
    const VantrelDll& dll = VantrelDll::Get();
    const std::vector<ServedClass>& classes = ServedClasses();
    constexpr int kThreads = 8;
    std::vector<std::vector<void*>> got(kThreads, std::vector<void*>(classes.size(), kSentinel));
    std::vector<HRESULT> results(kThreads * classes.size(), E_FAIL);
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            while (!go) {
            }
            for (size_t i = 0; i < classes.size(); ++i) {
                // Half the threads walk the table backwards so that every class is contended.
                const size_t c = t % 2 ? classes.size() - 1 - i : i;
                results[t * classes.size() + c] =
                    dll.GetClassObject(*classes[c].clsid, IID_IClassFactory, &got[t][c]);
            }
        });
    }
    go = true;
    for (std::thread& thread : threads)
        thread.join();

    for (HRESULT hr : results)
        EXPECT_EQ(S_OK, hr);
    for (size_t c = 0; c < classes.size(); ++c) {
        SCOPED_TRACE(classes[c].name);
        for (int t = 1; t < kThreads; ++t)
            EXPECT_EQ(got[0][c], got[t][c]);
        for (size_t other = 0; other < c; ++other)
            EXPECT_NE(got[0][other], got[0][c]);
    }
    for (auto& row : got)
        for (void* p : row)
            if (p && p != kSentinel)
                static_cast<IUnknown*>(p)->Release();
    EXPECT_EQ(S_OK, dll.CanUnloadNow());

    // Cached for the module's life: a later request gets the same object.
    ComPtr<IClassFactory> again;
    ASSERT_EQ(S_OK, dll.GetClassObject(*classes.back().clsid, IID_IClassFactory, again.PutVoid()));
    EXPECT_EQ(got[0].back(), again.Get());
}

}  // namespace
}  // namespace vantrel::test
