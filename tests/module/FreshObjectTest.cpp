// What a fresh object of each class answers before anything is running or open: construction
// defaults, stored settings and refused calls, each call on a new object.
#include <windows.h>

#include <atomic>

#include "ModuleTestSupport.h"
#include "platform/ComPtr.h"

namespace vantrel::test {
namespace {

constexpr DWORD kUntouched = 0xdeadbeef;

template <typename I>
ComPtr<I> As(IUnknown* object) {
    ComPtr<I> p;
    object->QueryInterface(__uuidof(I), p.PutVoid());
    return p;
}

// Passes hr through when every value still holds the sentinel, else E_UNEXPECTED.
template <typename... T>
HRESULT Untouched(HRESULT hr, T... values) {
    return (((DWORD)(UINT_PTR)values == kUntouched) && ...) ? hr : E_UNEXPECTED;
}

// An IFrameBuffer that only counts its references.
class CountingFrameBuffer final : public IFrameBuffer {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs; }
    HRESULT STDMETHODCALLTYPE GetFullScreenData(void*, unsigned long*, long) override {
        return E_FAIL;
    }
    HRESULT STDMETHODCALLTYPE GetFullScreenDataUncompressed(void*, unsigned long*) override {
        return E_FAIL;
    }
    HRESULT STDMETHODCALLTYPE GetBitmapInfo(void**) override { return E_FAIL; }
    std::atomic<ULONG> refs{1};
};

struct FreshCase {
    const char* what;
    const CLSID* clsid;
    HRESULT expected;
    HRESULT (*call)(IUnknown* object);
};

#define CALL(I, expr)            \
    [](IUnknown* o) -> HRESULT { \
        auto p = As<I>(o);       \
        return p->expr;          \
    }

const FreshCase kCases[] = {
    {"capture: Stop before Run", &CLSID_DesktopCapture, E_FAIL, CALL(IDesktopCapture, Stop())},
    {"capture: idle flush 149 ms", &CLSID_DesktopCapture, E_FAIL,
     CALL(IDesktopCapture, SetIdleFlushTimeout(149))},
    {"capture: idle flush 150 ms", &CLSID_DesktopCapture, S_OK,
     CALL(IDesktopCapture, SetIdleFlushTimeout(150))},
    {"capture: full screen while stopped", &CLSID_DesktopCapture, S_OK,
     CALL(IDesktopCapture, RequestFullScreen())},
    {"capture: priority while stopped", &CLSID_DesktopCapture, S_OK,
     CALL(IDesktopCapture, SetCapturePriority(THREAD_PRIORITY_ABOVE_NORMAL))},
    {"capture: compatible mode stays 0", &CLSID_DesktopCapture, S_OK,
     [](IUnknown* o) -> HRESULT {
         auto p = As<IDesktopCapture>(o);
         long mode = kUntouched;
         const HRESULT hr = p->SetCompatibleMode(1);
         return hr == S_OK && p->GetCompatibleMode(&mode) == S_OK && mode == 0 ? S_OK : E_FAIL;
     }},
    {"capture: null mode", &CLSID_DesktopCapture, E_POINTER,
     CALL(IDesktopCapture, GetCompatibleMode(nullptr))},
    {"recorder: Run without a file", &CLSID_DesktopRecorder, E_FAIL, CALL(IDesktopRecorder, Run())},
    {"recorder: Close without a file", &CLSID_DesktopRecorder, E_FAIL,
     CALL(IDesktopRecorder, Close())},
    {"recorder: Stop without Run", &CLSID_DesktopRecorder, S_OK, CALL(IDesktopRecorder, Stop())},
    {"recorder: Transfer while not recording", &CLSID_DesktopRecorder, S_FALSE,
     CALL(IDataTransmitter, Transfer(nullptr, 0, FALSE))},
    {"recorder: Flush while not recording", &CLSID_DesktopRecorder, S_FALSE,
     CALL(IDataTransmitter, Flush())},
    {"caster: 33 correction packets", &CLSID_DesktopCaster, E_FAIL,
     CALL(IDesktopCaster, CreateSession(nullptr, nullptr, 0, 33, FALSE))},
    {"caster: -1 correction packets", &CLSID_DesktopCaster, E_FAIL,
     CALL(IDesktopCaster, CreateSession(nullptr, nullptr, 0, -1, FALSE))},
    {"caster: Stop", &CLSID_DesktopCaster, S_OK, CALL(IDesktopCaster, Stop())},
    {"render: parent it already has", &CLSID_DesktopRender, S_FALSE,
     CALL(IDesktopRender, SetParentWindow(nullptr))},
    {"render: source outside manual mode", &CLSID_DesktopRender, S_FALSE,
     CALL(IDesktopRender, SetSourcePosition(0, 0, 10, 10))},
    {"render: destination outside manual mode", &CLSID_DesktopRender, S_FALSE,
     CALL(IDesktopRender, SetDestinationPosition(0, 0, 10, 10))},
    {"render: default source", &CLSID_DesktopRender, S_OK,
     CALL(IDesktopRender, IsUsingDefaultSource())},
    {"render: default destination", &CLSID_DesktopRender, S_OK,
     CALL(IDesktopRender, IsUsingDefaultDestination())},
    {"render: desktop information without a picture", &CLSID_DesktopRender, E_FAIL,
     [](IUnknown* o) {
         long w = kUntouched, h = kUntouched, bpp = kUntouched;
         return Untouched(As<IDesktopRender>(o)->GetDesktopInfomation(&w, &h, &bpp), w, h, bpp);
     }},
    {"render: image without a picture", &CLSID_DesktopRender, E_FAIL,
     [](IUnknown* o) {
         unsigned long size = kUntouched;
         return Untouched(As<IDesktopRender>(o)->GetCurrectImage(&size, nullptr), size);
     }},
    {"render: palette entries write nothing", &CLSID_DesktopRender, S_OK,
     [](IUnknown* o) {
         int retrieved = kUntouched;
         return Untouched(As<IDesktopRender>(o)->GetPaletteEntries(0, 16, &retrieved, nullptr),
                          retrieved);
     }},
    {"render: full screen without a picture", &CLSID_DesktopRender, E_FAIL,
     [](IUnknown* o) {
         BYTE buffer[64];
         unsigned long size = kUntouched;
         return Untouched(As<IFrameBuffer>(o)->GetFullScreenData(buffer, &size, TRUE), size);
     }},
    {"render: idle window size without a picture", &CLSID_DesktopRender, S_OK,
     [](IUnknown* o) -> HRESULT {
         long w = kUntouched, h = kUntouched;
         const HRESULT hr = As<IDesktopRender>(o)->GetIdelWindowSize(&w, &h);
         return w == 0 && h == 0 ? hr : E_UNEXPECTED;
     }},
    {"render: notify window read back", &CLSID_DesktopRender, S_OK,
     [](IUnknown* o) -> HRESULT {
         auto p = As<IDesktopRender>(o);
         const HWND window = GetDesktopWindow();
         HWND notify = nullptr, drain = nullptr, parent = window;
         p->SetNotifyWindow(window, WM_APP, 7);
         p->SetMessageDrainWindow(window);
         const HRESULT hr = p->GetNotifyWindow(&notify);
         p->GetMessageDrainWindow(&drain);
         p->GetParentWindow(&parent);
         return notify == window && drain == window && parent == nullptr ? hr : E_UNEXPECTED;
     }},
    {"reader: Run without a file", &CLSID_DesktopReader, E_FAIL, CALL(IDesktopReader, Run())},
    {"reader: Pause while stopped", &CLSID_DesktopReader, E_FAIL, CALL(IDesktopReader, Pause())},
    {"reader: Stop while stopped", &CLSID_DesktopReader, E_FAIL, CALL(IDesktopReader, Stop())},
    {"reader: seeking", &CLSID_DesktopReader, E_FAIL, CALL(IDesktopReader, SetCurrentPosition(0))},
    {"reader: idle flush 249 ms", &CLSID_DesktopReader, E_FAIL,
     CALL(IDesktopReader, SetIdleFlushTimeout(249))},
    {"reader: idle flush 250 ms", &CLSID_DesktopReader, S_OK,
     CALL(IDesktopReader, SetIdleFlushTimeout(250))},
    {"reader: the current speed factor", &CLSID_DesktopReader, S_FALSE,
     CALL(IDesktopReader, SetSpeedFactor(1))},
    {"reader: Close without a file", &CLSID_DesktopReader, S_OK, CALL(IDesktopReader, Close())},
    {"reader: one frame buffer, one reference", &CLSID_DesktopReader, S_OK,
     [](IUnknown* o) -> HRESULT {
         auto p = As<IDesktopReader>(o);
         CountingFrameBuffer first, second;
         const bool ok = p->RegisterFrameBuffer(&first) == S_OK && first.refs == 2 &&
                         p->RegisterFrameBuffer(&second) == E_FAIL && second.refs == 1 &&
                         p->UnregisterFrameBuffer() == S_OK && first.refs == 1 &&
                         p->UnregisterFrameBuffer() == S_OK && first.refs == 1;
         return ok ? S_OK : E_FAIL;
     }},
    {"IPC server: stop before start", &CLSID_DesktopIPCServer, E_FAIL,
     CALL(IDesktopIPCServer, StopIPCServer())},
    {"IPC server: no clients", &CLSID_DesktopIPCServer, S_OK,
     CALL(IDesktopIPCServer, SetMaxIPCClients(0))},
    {"IPC render: packets are ignored", &CLSID_DesktopIPCRender, S_OK,
     CALL(IDataTransmitter, Transfer(nullptr, 12, FALSE))},
    {"IPC render: no full screen to give", &CLSID_DesktopIPCRender, E_FAIL,
     [](IUnknown* o) {
         unsigned long size = kUntouched;
         return Untouched(As<IFrameBuffer>(o)->GetFullScreenData(nullptr, &size, TRUE), size);
     }},
    {"IPC render: no bitmap info", &CLSID_DesktopIPCRender, E_FAIL,
     [](IUnknown* o) {
         void* info = kSentinel;
         return Untouched(As<IFrameBuffer>(o)->GetBitmapInfo(&info), info);
     }},
    {"IPC render: default session", &CLSID_DesktopIPCRender, S_OK,
     CALL(IDesktopRender, SetSessionId(-1))},
};

#undef CALL

using FreshObjectTest = ComTest;

TEST_F(FreshObjectTest, AnswersBeforeAnythingRuns) {
    for (const FreshCase& c : kCases) {
        SCOPED_TRACE(c.what);
        ComPtr<IUnknown> object;
        ASSERT_EQ(S_OK, CoCreateInstance(*c.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                         object.PutVoid()));
        EXPECT_EQ(c.expected, c.call(object.Get()));
    }
}

}  // namespace
}  // namespace vantrel::test
