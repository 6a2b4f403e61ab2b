// What the module tests share: the served classes as a host sees them, the DLL's exports and an
// apartment per test.
#pragma once

#include <windows.h>
#include <objbase.h>

#include <string>
#include <type_traits>
#include <vector>

#include "Vantrel.h"
#include "common/ComTest.h"
#include "wincom/ChildProcess.h"

namespace vantrel::test {

// 0xdeadbeef in out parameters shows whether a call left them untouched.
inline void* const kSentinel = reinterpret_cast<void*>(static_cast<uintptr_t>(0xdeadbeef));

// Every interface of the type library.
inline const IID* const kLibraryInterfaces[] = {
    &IID_IDataTransmitter, &IID_IDesktopCapture,  &IID_IDesktopRecorder,
    &IID_IDesktopCaster,   &IID_IDesktopReceiver, &IID_IDesktopRender,
    &IID_IDesktopReader,   &IID_IFrameBuffer,     &IID_IDesktopIPCServer,
};

struct ServedClass {
    const CLSID* clsid;
    const char* name;
    std::vector<const IID*> interfaces;  // what QueryInterface answers, identity first
};

inline const std::vector<ServedClass> kServedClasses = {
    {&CLSID_DesktopCapture, "DesktopCapture", {&IID_IDesktopCapture}},
    {&CLSID_DesktopRecorder, "DesktopRecorder", {&IID_IDesktopRecorder, &IID_IDataTransmitter}},
    {&CLSID_DesktopCaster, "DesktopCaster", {&IID_IDesktopCaster, &IID_IDataTransmitter}},
    {&CLSID_DesktopReceiver, "DesktopReceiver", {&IID_IDesktopReceiver}},
    {&CLSID_DesktopRender,
     "DesktopRender",
     {&IID_IDesktopRender, &IID_IDataTransmitter, &IID_IFrameBuffer}},
    {&CLSID_DesktopReader, "DesktopReader", {&IID_IDesktopReader}},
    {&CLSID_DesktopIPCServer, "DesktopIPCServer", {&IID_IDataTransmitter, &IID_IDesktopIPCServer}},
    {&CLSID_DesktopIPCRender,
     "DesktopIPCRender",
     {&IID_IDataTransmitter, &IID_IDesktopRender, &IID_IFrameBuffer}},
};

// The Vantrel.dll next to the test program, the file the test prefix registered: COM finds this
// same loaded module, so the exports see the module state COM's objects change.
struct VantrelDll {
    std::string path;
    HMODULE module = nullptr;
    HRESULT(STDAPICALLTYPE* getClassObject)(REFCLSID, REFIID, void**) = nullptr;
    HRESULT(STDAPICALLTYPE* canUnloadNow)() = nullptr;
    HRESULT(STDAPICALLTYPE* registerServer)() = nullptr;
    HRESULT(STDAPICALLTYPE* unregisterServer)() = nullptr;
};

inline const VantrelDll& Dll() {
    static const VantrelDll dll = [] {
        VantrelDll d;
        d.path = ProgramBeside("Vantrel.dll");
        d.module = LoadLibraryA(d.path.c_str());
        auto bind = [&](auto& function, const char* name) {
            function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(
                reinterpret_cast<void*>(GetProcAddress(d.module, name)));
        };
        bind(d.getClassObject, "DllGetClassObject");
        bind(d.canUnloadNow, "DllCanUnloadNow");
        bind(d.registerServer, "DllRegisterServer");
        bind(d.unregisterServer, "DllUnregisterServer");
        return d;
    }();
    return dll;
}

// An apartment per test (common/ComTest.h) and the DLL's exports bound.
class ModuleTest : public ComTest {
  protected:
    void SetUp() override {
        ComTest::SetUp();
        const VantrelDll& dll = Dll();
        ASSERT_TRUE(dll.getClassObject && dll.canUnloadNow && dll.registerServer &&
                    dll.unregisterServer)
            << dll.path;
    }
};

inline std::string GuidString(REFGUID guid) {
    wchar_t wide[40];
    StringFromGUID2(guid, wide, 40);
    return std::string(wide, wide + wcslen(wide));
}

}  // namespace vantrel::test
