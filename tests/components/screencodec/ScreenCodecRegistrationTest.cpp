// ScreenCodec.dll's own exports: registration writes and removes the class keys the host's
// CoCreateInstance relies on, and the module stays loaded while its objects live. The DLL is
// left registered, as the harness registered it.
#include <windows.h>

#include <ScreenCodec.h>

#include <string>

#include <gtest/gtest.h>

#include "platform/ComPtr.h"
#include "platform/Registrar.h"
#include "platform/UniqueHandle.h"

namespace {

struct ModuleTraits {
    using pointer = HMODULE;
    static pointer invalid() noexcept { return nullptr; }
    static bool close(pointer p) noexcept { return FreeLibrary(p) != FALSE; }
};
using UniqueModule = vantrel::UniqueAny<ModuleTraits>;

std::string ClsidKey() {
    char clsid[40];
    vantrel::GuidToRegistryString(CLSID_ScreenCodec, clsid, sizeof clsid);
    return std::string("CLSID\\") + clsid;
}

bool KeyExists(const std::string& key) {
    vantrel::UniqueHkey k;
    return RegOpenKeyExA(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, k.put()) == ERROR_SUCCESS;
}

std::string Value(const std::string& key, const char* name) {
    char buf[MAX_PATH] = {};
    DWORD cb = sizeof buf;
    if (RegGetValueA(HKEY_CLASSES_ROOT, key.c_str(), name, RRF_RT_REG_SZ, nullptr, buf, &cb) !=
        ERROR_SUCCESS)
        return "<missing>";
    return buf;
}

template <typename F>
F Export(HMODULE module, const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

class Registration : public testing::Test {
  protected:
    void SetUp() override {
        module_.reset(LoadLibraryA("ScreenCodec.dll"));
        ASSERT_TRUE(module_);
        registerServer_ = Export<Entry>(module_.get(), "DllRegisterServer");
        unregisterServer_ = Export<Entry>(module_.get(), "DllUnregisterServer");
        canUnload_ = Export<Entry>(module_.get(), "DllCanUnloadNow");
        getClassObject_ = Export<GetClassObject>(module_.get(), "DllGetClassObject");
        ASSERT_TRUE(registerServer_ && unregisterServer_ && canUnload_ && getClassObject_);
        ASSERT_HRESULT_SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    }
    void TearDown() override {
        if (registerServer_) {
            EXPECT_EQ(S_OK, registerServer_());
        }
        CoUninitialize();
    }

    using Entry = HRESULT(STDAPICALLTYPE*)();
    using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    UniqueModule module_;
    Entry registerServer_ = nullptr, unregisterServer_ = nullptr, canUnload_ = nullptr;
    GetClassObject getClassObject_ = nullptr;
};

TEST_F(Registration, RegisterWritesTheClassKeysAndUnregisterRemovesThem) {
    const std::string clsid = ClsidKey();
    ASSERT_EQ(S_OK, unregisterServer_());
    EXPECT_EQ(S_OK, unregisterServer_()) << "unregistering twice is harmless";
    EXPECT_FALSE(KeyExists(clsid));
    EXPECT_FALSE(KeyExists("Vantrel.ScreenCodec"));
    EXPECT_FALSE(KeyExists("Vantrel.ScreenCodec.1"));
    vantrel::ComPtr<IScreenCodec> codec;
    EXPECT_EQ(REGDB_E_CLASSNOTREG,
              CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER, IID_IScreenCodec,
                               codec.PutVoid()));

    ASSERT_EQ(S_OK, registerServer_());
    EXPECT_EQ("ScreenCodec Class", Value(clsid, nullptr));
    EXPECT_EQ("Vantrel.ScreenCodec.1", Value(clsid + "\\ProgID", nullptr));
    EXPECT_EQ("Vantrel.ScreenCodec", Value(clsid + "\\VersionIndependentProgID", nullptr));
    EXPECT_EQ("both", Value(clsid + "\\InprocServer32", "ThreadingModel"));
    char path[MAX_PATH];
    ASSERT_NE(0u, GetModuleFileNameA(module_.get(), path, MAX_PATH));
    EXPECT_EQ(0, lstrcmpiA(path, Value(clsid + "\\InprocServer32", nullptr).c_str()));
    for (const char* progId : {"Vantrel.ScreenCodec", "Vantrel.ScreenCodec.1"}) {
        EXPECT_EQ("ScreenCodec Class", Value(progId, nullptr));
        CLSID fromProgId{};
        wchar_t wide[64];
        MultiByteToWideChar(CP_ACP, 0, progId, -1, wide, 64);
        ASSERT_EQ(S_OK, CLSIDFromProgID(wide, &fromProgId)) << progId;
        EXPECT_TRUE(IsEqualCLSID(CLSID_ScreenCodec, fromProgId)) << progId;
    }
    EXPECT_EQ(S_OK, CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER,
                                     IID_IScreenCodec, codec.PutVoid()));
}

TEST_F(Registration, ObjectsKeepTheModuleLoaded) {
    EXPECT_EQ(S_OK, canUnload_());
    vantrel::ComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, getClassObject_(CLSID_ScreenCodec, IID_IClassFactory, factory.PutVoid()));
    EXPECT_EQ(S_FALSE, canUnload_());
    vantrel::ComPtr<IScreenCodec> codec;
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IScreenCodec, codec.PutVoid()));
    factory.Reset();
    EXPECT_EQ(S_FALSE, canUnload_());
    codec.Reset();
    EXPECT_EQ(S_OK, canUnload_());

    ASSERT_EQ(CLASS_E_CLASSNOTAVAILABLE,
              getClassObject_(IID_IScreenCodec, IID_IClassFactory, factory.PutVoid()));
}

}  // namespace
