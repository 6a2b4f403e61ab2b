// Registration under HKEY_CLASSES_ROOT through the DLL's own exports: the keys of each class, the
// type library, and that unregistering removes exactly those, twice harmlessly; the registered
// type library as a host's tools read it. The tests leave the DLL registered, as the harness had
// it.
#include <windows.h>
#include <oleauto.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ModuleTestSupport.h"
#include "wincom/ComPtr.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::test {
namespace {

using Keys = std::set<std::string>;

UniqueHkey Open(const std::string& path) {
    UniqueHkey key;
    if (RegOpenKeyExA(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS)
        key.reset();
    return key;
}

std::set<std::string> Subkeys(const std::string& path) {
    std::set<std::string> names;
    UniqueHkey key = Open(path);
    char name[256];
    for (DWORD i = 0, size = sizeof name;
         key && RegEnumKeyExA(key.get(), i, name, &size, nullptr, nullptr, nullptr, nullptr) ==
                    ERROR_SUCCESS;
         ++i, size = sizeof name)
        names.insert(name);
    return names;
}

// A string value of a key under HKEY_CLASSES_ROOT (name null: its default value); "(none)" when
// there is none.
std::string Value(const std::string& path, const char* name = nullptr) {
    char data[MAX_PATH * 2];
    DWORD size = sizeof data;
    return RegGetValueA(HKEY_CLASSES_ROOT, path.c_str(), name, RRF_RT_REG_SZ, nullptr, data,
                        &size) == ERROR_SUCCESS
               ? data
               : "(none)";
}

// The keys of HKEY_CLASSES_ROOT that registration touches, one level deep, as "root\name".
Keys TakeSnapshot() {
    Keys s;
    for (const std::string root : {"", "CLSID", "TypeLib", "Interface"})
        for (const std::string& name : Subkeys(root))
            s.insert(root + "\\" + name);
    return s;
}

Keys Minus(const Keys& a, const Keys& b) {
    Keys diff;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::inserter(diff, diff.end()));
    return diff;
}

class RegistrationTest : public ModuleTest {
  protected:
    void TearDown() override {
        EXPECT_EQ(S_OK, Dll().registerServer());
        ModuleTest::TearDown();
    }
};

TEST_F(RegistrationTest, RegisterWritesTheKeysOfEveryClassAndUnregisterExactlyRemovesThem) {
    ASSERT_EQ(S_OK, Dll().registerServer());
    char modulePath[MAX_PATH];
    ASSERT_NE(0u, GetModuleFileNameA(Dll().module, modulePath, MAX_PATH));
    Keys expected{"TypeLib\\" + GuidString(LIBID_VANTRELLib)}, ourInterfaces;
    for (const ServedClass& c : kServedClasses) {
        SCOPED_TRACE(c.name);
        const std::string independent = std::string("Vantrel.") + c.name;
        const std::string progId = independent + ".1";
        const std::string clsid = "CLSID\\" + GuidString(*c.clsid);
        expected.insert({"\\" + independent, "\\" + progId, clsid});
        for (const std::string& id : {progId, independent}) {
            CLSID found{};  // as a host finds the class
            EXPECT_EQ(S_OK, CLSIDFromProgID(std::wstring(id.begin(), id.end()).c_str(), &found));
            EXPECT_TRUE(IsEqualCLSID(*c.clsid, found)) << id;
        }
        EXPECT_EQ(modulePath, Value(clsid + "\\InprocServer32"));
        // The render needs its window's thread.
        EXPECT_EQ(c.name == std::string("DesktopRender") ? "Apartment" : "both",
                  Value(clsid + "\\InprocServer32", "ThreadingModel"));
        EXPECT_EQ(progId, Value(clsid + "\\ProgID"));
        EXPECT_EQ(independent, Value(clsid + "\\VersionIndependentProgID"));
    }
    // In the type library only.
    EXPECT_FALSE(Open("CLSID\\" + GuidString(CLSID_DesktopIPCServer2)));

    BSTR typeLibPath = nullptr;
    ASSERT_EQ(S_OK, QueryPathOfRegTypeLib(LIBID_VANTRELLib, 1, 0, LOCALE_NEUTRAL, &typeLibPath));
    EXPECT_EQ(modulePath, std::string(typeLibPath, typeLibPath + SysStringLen(typeLibPath)));
    SysFreeString(typeLibPath);

    const Keys registered = TakeSnapshot();
    ASSERT_EQ(S_OK, Dll().unregisterServer());
    const Keys unregistered = TakeSnapshot();
    for (const IID* iid : kLibraryInterfaces)
        ourInterfaces.insert("Interface\\" + GuidString(*iid));
    Keys removed;  // but our interfaces, which may go or stay
    for (const std::string& key : Minus(registered, unregistered))
        if (!ourInterfaces.count(key))
            removed.insert(key);
    EXPECT_EQ(expected, removed);
    EXPECT_EQ(Keys{}, Minus(unregistered, registered));

    EXPECT_EQ(S_OK, Dll().unregisterServer());
    EXPECT_EQ(unregistered, TakeSnapshot());
    ASSERT_EQ(S_OK, Dll().registerServer());
    EXPECT_EQ(registered, TakeSnapshot());
}

// The type library as a host's tools read it (version 1.0): its name, every coclass with the
// default interface that QueryInterface answers first, and every interface. (The IDL's help
// strings and the coclasses' further rows are not restated here.)
TEST_F(RegistrationTest, TypeLibraryNamesEachCoclassWithItsDefaultInterface) {
    ComPtr<ITypeLib> lib;
    ASSERT_EQ(S_OK, LoadRegTypeLib(LIBID_VANTRELLib, 1, 0, LOCALE_NEUTRAL, lib.Put()));
    BSTR name = nullptr;
    ASSERT_EQ(S_OK, lib->GetDocumentation(-1, &name, nullptr, nullptr, nullptr));
    EXPECT_EQ(L"VANTRELLib", std::wstring(name, SysStringLen(name)));
    SysFreeString(name);
    std::vector<std::pair<const CLSID*, const IID*>> coclasses = {
        {&CLSID_DesktopIPCServer2, &IID_IDesktopIPCServer}};
    for (const ServedClass& c : kServedClasses)
        coclasses.emplace_back(c.clsid, c.interfaces.front());
    for (const auto& [clsid, iid] : coclasses) {
        SCOPED_TRACE(GuidString(*clsid));
        ComPtr<ITypeInfo> info, implemented;
        HREFTYPE ref = 0;
        INT flags = 0;
        TYPEATTR* attr = nullptr;
        ASSERT_EQ(S_OK, lib->GetTypeInfoOfGuid(*clsid, info.Put()));
        ASSERT_EQ(S_OK, info->GetRefTypeOfImplType(0, &ref));
        ASSERT_EQ(S_OK, info->GetRefTypeInfo(ref, implemented.Put()));
        EXPECT_EQ(S_OK, info->GetImplTypeFlags(0, &flags));
        EXPECT_TRUE(flags & IMPLTYPEFLAG_FDEFAULT);
        ASSERT_EQ(S_OK, implemented->GetTypeAttr(&attr));
        EXPECT_TRUE(IsEqualIID(*iid, attr->guid)) << GuidString(attr->guid);
        implemented->ReleaseTypeAttr(attr);
    }
    for (const IID* iid : kLibraryInterfaces) {
        ComPtr<ITypeInfo> info;
        EXPECT_EQ(S_OK, lib->GetTypeInfoOfGuid(*iid, info.Put())) << GuidString(*iid);
    }
}

}  // namespace
}  // namespace vantrel::test
