// The type library as a host's tools read it from the registry (version 1.0): its name, the
// coclasses and their interfaces, their help strings; and the DLL's resources.
#include <windows.h>
#include <oleauto.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "ModuleTestSupport.h"
#include "wincom/ComPtr.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::test {
namespace {

// "Coclass Interface ...": the implemented interfaces in order, the first the default.
const std::pair<const CLSID*, const char*> kCoclasses[] = {
    {&CLSID_DesktopCapture, "DesktopCapture IDesktopCapture"},
    {&CLSID_DesktopRecorder, "DesktopRecorder IDesktopRecorder IDataTransmitter"},
    {&CLSID_DesktopCaster, "DesktopCaster IDesktopCaster IDataTransmitter"},
    {&CLSID_DesktopReceiver, "DesktopReceiver IDesktopReceiver"},
    {&CLSID_DesktopRender, "DesktopRender IDesktopRender IDataTransmitter"},
    {&CLSID_DesktopReader, "DesktopReader IDesktopReader"},
    {&CLSID_DesktopIPCServer, "DesktopIPCServer IDataTransmitter"},
    {&CLSID_DesktopIPCRender, "DesktopIPCRender IDataTransmitter"},
    {&CLSID_DesktopIPCServer2, "DesktopIPCServer2 IDesktopIPCServer"},
};

std::string Narrow(BSTR s) {
    std::string out(s, s + SysStringLen(s));
    SysFreeString(s);
    return out;
}

std::pair<std::string, std::string> NameAndHelp(ITypeInfo* info) {
    BSTR name = nullptr, help = nullptr;
    EXPECT_EQ(S_OK, info->GetDocumentation(MEMBERID_NIL, &name, &help, nullptr, nullptr));
    return {Narrow(name), Narrow(help)};
}

ComPtr<ITypeInfo> ImplementedType(ITypeInfo* info, UINT index) {
    HREFTYPE ref = 0;
    ComPtr<ITypeInfo> implemented;
    if (SUCCEEDED(info->GetRefTypeOfImplType(index, &ref)))
        info->GetRefTypeInfo(ref, implemented.Put());
    return implemented;
}

TYPEATTR Attributes(ITypeInfo* info) {
    TYPEATTR* attr = nullptr;
    TYPEATTR copy = {};
    if (SUCCEEDED(info->GetTypeAttr(&attr))) {
        copy = *attr;
        info->ReleaseTypeAttr(attr);
    }
    return copy;
}

class TypeLibTest : public ModuleTest {
  protected:
    void SetUp() override {
        ModuleTest::SetUp();
        ASSERT_EQ(S_OK, LoadRegTypeLib(LIBID_VANTRELLib, 1, 0, LOCALE_NEUTRAL, typeLib_.Put()));
    }
    ComPtr<ITypeLib> typeLib_;
};

// Every coclass lists its interfaces, the first the default. Every interface's help string is
// its name and " Interface" (IFrameBuffer's says IDataTransmitter).
TEST_F(TypeLibTest, LibraryCoclassesAndInterfacesCarryTheirNamesHelpAndVersion) {
    BSTR name = nullptr, help = nullptr;
    ASSERT_EQ(S_OK, typeLib_->GetDocumentation(-1, &name, &help, nullptr, nullptr));
    EXPECT_EQ("VANTRELLib", Narrow(name));
    EXPECT_EQ("Vantrel 1.0 Type Library", Narrow(help));
    // The DLL's version resource says 1.0 alike, and it carries its icon.
    std::vector<BYTE> version(GetFileVersionInfoSizeA(Dll().path.c_str(), nullptr));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT size = 0;
    ASSERT_TRUE(GetFileVersionInfoA(Dll().path.c_str(), 0, static_cast<DWORD>(version.size()),
                                    version.data()) &&
                VerQueryValueA(version.data(), "\\", reinterpret_cast<void**>(&fixed), &size));
    EXPECT_EQ(0x00010000u, fixed->dwFileVersionMS);
    EXPECT_TRUE(UniqueIcon(static_cast<HICON>(
        LoadImageA(Dll().module, MAKEINTRESOURCEA(201), IMAGE_ICON, 32, 32, 0))));
    for (const auto& [clsid, expected] : kCoclasses) {
        SCOPED_TRACE(expected);
        ComPtr<ITypeInfo> info;
        ASSERT_EQ(S_OK, typeLib_->GetTypeInfoOfGuid(*clsid, info.Put()));
        auto [actual, help] = NameAndHelp(info.Get());
        EXPECT_EQ(actual + " Class", help);
        const TYPEATTR attr = Attributes(info.Get());
        EXPECT_EQ(TKIND_COCLASS, attr.typekind);
        for (UINT i = 0; i < attr.cImplTypes; ++i) {
            ComPtr<ITypeInfo> implemented = ImplementedType(info.Get(), i);
            ASSERT_TRUE(implemented);
            actual += " " + NameAndHelp(implemented.Get()).first;
            INT flags = 0;
            EXPECT_EQ(S_OK, info->GetImplTypeFlags(i, &flags));
            EXPECT_EQ(i == 0, (flags & IMPLTYPEFLAG_FDEFAULT) != 0) << i;
        }
        EXPECT_EQ(expected, actual);
    }
    std::vector<std::string> interfaces;
    for (UINT i = 0; i < typeLib_->GetTypeInfoCount(); ++i) {
        ComPtr<ITypeInfo> info;
        ASSERT_EQ(S_OK, typeLib_->GetTypeInfo(i, info.Put()));
        const TYPEATTR attr = Attributes(info.Get());
        if (attr.typekind != TKIND_INTERFACE && attr.typekind != TKIND_DISPATCH)
            continue;
        const auto [name, help] = NameAndHelp(info.Get());
        interfaces.push_back(name);
        EXPECT_EQ((name == "IFrameBuffer" ? "IDataTransmitter" : name) + " Interface", help);
    }
    std::sort(interfaces.begin(), interfaces.end());
    EXPECT_EQ((std::vector<std::string>{"IDataTransmitter", "IDesktopCapture", "IDesktopCaster",
                                        "IDesktopIPCServer", "IDesktopReader", "IDesktopReceiver",
                                        "IDesktopRecorder", "IDesktopRender", "IFrameBuffer"}),
              interfaces);
}

}  // namespace
}  // namespace vantrel::test
