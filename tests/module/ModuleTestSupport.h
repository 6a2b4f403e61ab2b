// What the module tests share: the served classes as a host sees them, the DLL loaded next to
// the test program (the file the test prefix has registered), and an apartment per test.
#pragma once

#include <windows.h>
#include <objbase.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Vantrel.h"

namespace vantrel::test {

// 0xdeadbeef in out parameters shows whether a call left them untouched.
inline void* const kSentinel = reinterpret_cast<void*>(static_cast<uintptr_t>(0xdeadbeef));

struct ServedClass {
    const CLSID* clsid;
    const char* name;
    const char* threadingModel;
    std::vector<const IID*> interfaces;  // what QueryInterface answers, identity first
};

inline const std::vector<ServedClass>& ServedClasses() {
    static const std::vector<ServedClass> classes = {
        {&CLSID_DesktopCapture, "DesktopCapture", "both", {&IID_IDesktopCapture}},
        {&CLSID_DesktopRecorder,
         "DesktopRecorder",
         "both",
         {&IID_IDesktopRecorder, &IID_IDataTransmitter}},
        {&CLSID_DesktopCaster,
         "DesktopCaster",
         "both",
         {&IID_IDesktopCaster, &IID_IDataTransmitter}},
        {&CLSID_DesktopReceiver, "DesktopReceiver", "both", {&IID_IDesktopReceiver}},
        {&CLSID_DesktopRender,
         "DesktopRender",
         "Apartment",
         {&IID_IDesktopRender, &IID_IDataTransmitter, &IID_IFrameBuffer}},
        {&CLSID_DesktopReader, "DesktopReader", "both", {&IID_IDesktopReader}},
        {&CLSID_DesktopIPCServer,
         "DesktopIPCServer",
         "both",
         {&IID_IDataTransmitter, &IID_IDesktopIPCServer}},
        {&CLSID_DesktopIPCRender,
         "DesktopIPCRender",
         "both",
         {&IID_IDataTransmitter, &IID_IDesktopRender, &IID_IFrameBuffer}},
    };
    return classes;
}

// Vantrel.dll as COM loads it: the same module, kept loaded for the whole test process so that
// its exports can be called directly.
class VantrelDll {
  public:
    static VantrelDll& Get() {
        static VantrelDll dll;
        return dll;
    }
    HMODULE module() const { return module_; }
    bool complete() const {
        return getClassObject_ && canUnloadNow_ && registerServer_ && unregisterServer_;
    }
    const std::string& path() const { return path_; }

    HRESULT GetClassObject(REFCLSID clsid, REFIID riid, void** ppv) const {
        return getClassObject_(clsid, riid, ppv);
    }
    HRESULT CanUnloadNow() const { return canUnloadNow_(); }
    HRESULT RegisterServer() const { return registerServer_(); }
    HRESULT UnregisterServer() const { return unregisterServer_(); }

  private:
    VantrelDll() {
        char exe[MAX_PATH];
        GetModuleFileNameA(nullptr, exe, MAX_PATH);
        std::string dir(exe);
        path_ = dir.substr(0, dir.find_last_of('\\') + 1) + "Vantrel.dll";
        module_ = LoadLibraryA(path_.c_str());
        if (!module_)
            return;
        getClassObject_ = reinterpret_cast<decltype(getClassObject_)>(
            reinterpret_cast<void*>(GetProcAddress(module_, "DllGetClassObject")));
        canUnloadNow_ = reinterpret_cast<decltype(canUnloadNow_)>(
            reinterpret_cast<void*>(GetProcAddress(module_, "DllCanUnloadNow")));
        registerServer_ = reinterpret_cast<decltype(registerServer_)>(
            reinterpret_cast<void*>(GetProcAddress(module_, "DllRegisterServer")));
        unregisterServer_ = reinterpret_cast<decltype(unregisterServer_)>(
            reinterpret_cast<void*>(GetProcAddress(module_, "DllUnregisterServer")));
    }

    std::string path_;
    HMODULE module_ = nullptr;
    HRESULT(STDAPICALLTYPE* getClassObject_)(REFCLSID, REFIID, void**) = nullptr;
    HRESULT(STDAPICALLTYPE* canUnloadNow_)() = nullptr;
    HRESULT(STDAPICALLTYPE* registerServer_)() = nullptr;
    HRESULT(STDAPICALLTYPE* unregisterServer_)() = nullptr;
};

// Each test runs in a single-threaded apartment, as a host's UI thread does: the render class
// is apartment-threaded and its interfaces have no proxies.
class ComTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
        const VantrelDll& dll = VantrelDll::Get();
        ASSERT_TRUE(dll.complete()) << dll.path();
    }
    void TearDown() override { CoUninitialize(); }
};

inline std::string GuidString(REFGUID guid) {
    wchar_t wide[40];
    StringFromGUID2(guid, wide, 40);
    return std::string(wide, wide + wcslen(wide));
}

}  // namespace vantrel::test
