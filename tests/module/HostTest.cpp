// A host's view of the library: nothing but the generated header, objects found by ProgID and
// used through their default interfaces.
#include <windows.h>
#include <objbase.h>

#include <string>

#include <gtest/gtest.h>

#include "Vantrel.h"

namespace {

struct HostCase {
    const wchar_t* progId;  // version-independent; the version-dependent one adds ".1"
    const CLSID* clsid;
    const IID* iid;            // the default interface
    bool (*use)(IUnknown* p);  // one call a host can make on a fresh object
};

template <typename T, typename V>
bool Reads(IUnknown* p, HRESULT (STDMETHODCALLTYPE T::*get)(V*), V expected) {
    V value = (V)(UINT_PTR)0xdeadbeef;  // integers and handles alike
    return (static_cast<T*>(p)->*get)(&value) == S_OK && value == expected;
}

const HostCase kCases[] = {
    {L"Vantrel.DesktopCapture", &CLSID_DesktopCapture, &IID_IDesktopCapture,
     [](IUnknown* p) { return Reads(p, &IDesktopCapture::GetCompatibleMode, 0L); }},
    {L"Vantrel.DesktopRecorder", &CLSID_DesktopRecorder, &IID_IDesktopRecorder,
     [](IUnknown* p) { return Reads(p, &IDesktopRecorder::GetDuration, 0UL); }},
    {L"Vantrel.DesktopCaster", &CLSID_DesktopCaster, &IID_IDesktopCaster,
     [](IUnknown* p) { return static_cast<IDesktopCaster*>(p)->Run() == S_OK; }},
    {L"Vantrel.DesktopReceiver", &CLSID_DesktopReceiver, &IID_IDesktopReceiver,
     [](IUnknown* p) { return static_cast<IDesktopReceiver*>(p)->SetSourceFilter(0) == S_OK; }},
    {L"Vantrel.DesktopRender", &CLSID_DesktopRender, &IID_IDesktopRender,
     [](IUnknown* p) { return Reads(p, &IDesktopRender::GetNotifyWindow, HWND{}); }},
    {L"Vantrel.DesktopReader", &CLSID_DesktopReader, &IID_IDesktopReader,
     [](IUnknown* p) { return Reads(p, &IDesktopReader::GetCurrentPosition, 0UL); }},
    {L"Vantrel.DesktopIPCServer", &CLSID_DesktopIPCServer, &IID_IDataTransmitter,
     [](IUnknown* p) { return static_cast<IDataTransmitter*>(p)->Flush() == S_OK; }},
    {L"Vantrel.DesktopIPCRender", &CLSID_DesktopIPCRender, &IID_IDataTransmitter,
     [](IUnknown* p) { return static_cast<IDataTransmitter*>(p)->Flush() == S_OK; }},
};

TEST(HostTest, CreatesEveryClassByProgId) {
    ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    for (const HostCase& c : kCases) {
        for (const std::wstring& progId :
             {std::wstring(c.progId), c.progId + std::wstring(L".1")}) {
            SCOPED_TRACE(std::string(progId.begin(), progId.end()));
            CLSID clsid = {};
            ASSERT_EQ(S_OK, CLSIDFromProgID(progId.c_str(), &clsid));
            EXPECT_TRUE(IsEqualCLSID(*c.clsid, clsid));
            IUnknown* object = nullptr;
            ASSERT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, *c.iid,
                                             reinterpret_cast<void**>(&object)));
            EXPECT_TRUE(c.use(object));
            EXPECT_EQ(0u, object->Release());
        }
    }
    CoUninitialize();
}

}  // namespace
