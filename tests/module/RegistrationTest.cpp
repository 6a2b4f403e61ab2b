// Registration under HKEY_CLASSES_ROOT through the DLL's own exports: the keys written for each
// class, the type library, and that unregistering removes exactly those (twice is harmless).
// Every test leaves the DLL registered, as the harness had it.
#include <windows.h>
#include <oleauto.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "ModuleTestSupport.h"
#include "platform/UniqueHandle.h"

namespace vantrel::test {
namespace {

UniqueHkey OpenClassesKey(const std::string& path) {
    UniqueHkey key;
    if (RegOpenKeyExA(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS)
        key.reset();
    return key;
}

std::set<std::string> Subkeys(const std::string& path) {
    std::set<std::string> names;
    UniqueHkey key = OpenClassesKey(path);
    char name[256];
    for (DWORD i = 0;; ++i) {
        DWORD size = sizeof name;
        if (!key || RegEnumKeyExA(key.get(), i, name, &size, nullptr, nullptr, nullptr, nullptr) !=
                        ERROR_SUCCESS)
            break;
        names.insert(name);
    }
    return names;
}

// Value name -> string data of every value of the key; the default value is named "".
std::map<std::string, std::string> Values(const std::string& path) {
    std::map<std::string, std::string> values;
    UniqueHkey key = OpenClassesKey(path);
    char name[256];
    char data[MAX_PATH * 2];
    for (DWORD i = 0; key; ++i) {
        DWORD nameSize = sizeof name, dataSize = sizeof data, type = 0;
        if (RegEnumValueA(key.get(), i, name, &nameSize, nullptr, &type,
                          reinterpret_cast<BYTE*>(data), &dataSize) != ERROR_SUCCESS)
            break;
        values[name] = type == REG_SZ ? std::string(data) : "<not REG_SZ>";
    }
    return values;
}

bool Exists(const std::string& path) {
    return static_cast<bool>(OpenClassesKey(path));
}

std::string Lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return tolower(c); });
    return s;
}

// The parts of HKEY_CLASSES_ROOT that registration touches, one level deep.
struct Snapshot {
    std::map<std::string, std::set<std::string>> keys;
    explicit Snapshot() {
        for (const char* root : {"", "CLSID", "TypeLib", "Interface"})
            keys[root] = Subkeys(root);
    }
};

std::map<std::string, std::set<std::string>> Minus(const Snapshot& a, const Snapshot& b) {
    std::map<std::string, std::set<std::string>> diff;
    for (const auto& [root, names] : a.keys) {
        std::set<std::string>& out = diff[root];
        for (const std::string& name : names)
            if (!b.keys.at(root).count(name))
                out.insert(name);
    }
    return diff;
}

class RegistrationTest : public ComTest {
  protected:
    void TearDown() override {
        EXPECT_EQ(S_OK, VantrelDll::Get().RegisterServer());
        ComTest::TearDown();
    }
};

TEST_F(RegistrationTest, RegisterWritesTheKeysOfEveryClass) {
    const VantrelDll& dll = VantrelDll::Get();
    ASSERT_EQ(S_OK, dll.RegisterServer());
    char modulePath[MAX_PATH];
    ASSERT_NE(0u, GetModuleFileNameA(dll.module(), modulePath, MAX_PATH));

    for (const ServedClass& c : ServedClasses()) {
        SCOPED_TRACE(c.name);
        const std::string description = std::string(c.name) + " Class";
        const std::string progId = std::string("Vantrel.") + c.name + ".1";
        const std::string independentProgId = std::string("Vantrel.") + c.name;
        const std::string clsid = GuidString(*c.clsid);
        const std::string clsidKey = "CLSID\\" + clsid;

        for (const std::string& id : {progId, independentProgId}) {
            EXPECT_EQ((std::map<std::string, std::string>{{"", description}}), Values(id)) << id;
            EXPECT_EQ(std::set<std::string>{"CLSID"}, Subkeys(id)) << id;
            EXPECT_EQ((std::map<std::string, std::string>{{"", clsid}}), Values(id + "\\CLSID"));
        }
        EXPECT_EQ((std::map<std::string, std::string>{{"", description}}), Values(clsidKey));
        EXPECT_EQ((std::set<std::string>{"InprocServer32", "ProgID", "VersionIndependentProgID"}),
                  Subkeys(clsidKey));
        EXPECT_EQ((std::map<std::string, std::string>{{"", progId}}),
                  Values(clsidKey + "\\ProgID"));
        EXPECT_EQ((std::map<std::string, std::string>{{"", independentProgId}}),
                  Values(clsidKey + "\\VersionIndependentProgID"));
        std::map<std::string, std::string> server = Values(clsidKey + "\\InprocServer32");
        EXPECT_EQ(Lower(modulePath), Lower(server[""]));
        server.erase("");
        EXPECT_EQ((std::map<std::string, std::string>{{"ThreadingModel", c.threadingModel}}),
                  server);
    }

    // Only in the type library: no class key, no ProgID.
    EXPECT_FALSE(Exists("CLSID\\" + GuidString(CLSID_DesktopIPCServer2)));
    EXPECT_FALSE(Exists("Vantrel.DesktopIPCServer2"));
    EXPECT_FALSE(Exists("Vantrel.DesktopIPCServer2.1"));

    BSTR typeLibPath = nullptr;
    ASSERT_EQ(S_OK, QueryPathOfRegTypeLib(LIBID_VANTRELLib, 1, 0, LOCALE_NEUTRAL, &typeLibPath));
    EXPECT_EQ(Lower(modulePath),
              Lower(std::string(typeLibPath, typeLibPath + SysStringLen(typeLibPath))));
    SysFreeString(typeLibPath);
}

TEST_F(RegistrationTest, UnregisterRemovesExactlyWhatRegisterWrote) {
    const VantrelDll& dll = VantrelDll::Get();
    ASSERT_EQ(S_OK, dll.RegisterServer());
    const Snapshot registered;

    ASSERT_EQ(S_OK, dll.UnregisterServer());
    const Snapshot unregistered;
    const auto removed = Minus(registered, unregistered);
    const auto added = Minus(unregistered, registered);

    std::set<std::string> progIds, clsids, ourInterfaces;
    for (const ServedClass& c : ServedClasses()) {
        progIds.insert(std::string("Vantrel.") + c.name);
        progIds.insert(std::string("Vantrel.") + c.name + ".1");
        clsids.insert(GuidString(*c.clsid));
    }
    for (const IID* iid : {&IID_IDataTransmitter, &IID_IDesktopCapture, &IID_IDesktopRecorder,
                           &IID_IDesktopCaster, &IID_IDesktopReceiver, &IID_IDesktopRender,
                           &IID_IDesktopReader, &IID_IFrameBuffer, &IID_IDesktopIPCServer})
        ourInterfaces.insert(GuidString(*iid));

    EXPECT_EQ(progIds, removed.at(""));
    EXPECT_EQ(clsids, removed.at("CLSID"));
    EXPECT_EQ(std::set<std::string>{GuidString(LIBID_VANTRELLib)}, removed.at("TypeLib"));
    for (const std::string& iid : removed.at("Interface"))
        EXPECT_TRUE(ourInterfaces.count(iid)) << "removed someone else's interface key " << iid;
    for (const auto& [root, names] : added)
        EXPECT_TRUE(names.empty()) << root;
    EXPECT_TRUE(Exists("CLSID"));

    // A second removal finds nothing to do and still succeeds.
    EXPECT_EQ(S_OK, dll.UnregisterServer());
    EXPECT_EQ(unregistered.keys, Snapshot().keys);
    ITypeLib* typeLib = nullptr;
    EXPECT_TRUE(FAILED(LoadRegTypeLib(LIBID_VANTRELLib, 1, 0, LOCALE_NEUTRAL, &typeLib)));
    if (typeLib)
        typeLib->Release();

    ASSERT_EQ(S_OK, dll.RegisterServer());
    EXPECT_EQ(registered.keys, Snapshot().keys);
}

}  // namespace
}  // namespace vantrel::test
