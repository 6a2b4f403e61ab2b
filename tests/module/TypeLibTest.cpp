// The type library as a host's tools read it from the registry (version 1.0): its name, the
// coclasses and their interfaces.
#include <windows.h>
#include <oleauto.h>

#include <string>
#include <utility>
#include <vector>

#include "ModuleTestSupport.h"
#include "wincom/ComPtr.h"

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

std::string NameOf(ITypeInfo* info) {
    BSTR name = nullptr;
    EXPECT_EQ(S_OK, info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr));
    return Narrow(name);
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

// Every coclass lists its interfaces, the first the default; every interface is there. (Help
// strings and the version resource restate the IDL and the resource script.)
TEST_F(TypeLibTest, LibraryCoclassesAndInterfacesCarryTheirNames) {
    BSTR name = nullptr;
    ASSERT_EQ(S_OK, typeLib_->GetDocumentation(-1, &name, nullptr, nullptr, nullptr));
    EXPECT_EQ("VANTRELLib", Narrow(name));
    for (const auto& [clsid, expected] : kCoclasses) {
        SCOPED_TRACE(expected);
        ComPtr<ITypeInfo> info;
        ASSERT_EQ(S_OK, typeLib_->GetTypeInfoOfGuid(*clsid, info.Put()));
        std::string actual = NameOf(info.Get());
        const TYPEATTR attr = Attributes(info.Get());
        EXPECT_EQ(TKIND_COCLASS, attr.typekind);
        for (UINT i = 0; i < attr.cImplTypes; ++i) {
            ComPtr<ITypeInfo> implemented = ImplementedType(info.Get(), i);
            ASSERT_TRUE(implemented);
            actual += " " + NameOf(implemented.Get());
            INT flags = 0;
            EXPECT_EQ(S_OK, info->GetImplTypeFlags(i, &flags));
            EXPECT_EQ(i == 0, (flags & IMPLTYPEFLAG_FDEFAULT) != 0) << i;
        }
        EXPECT_EQ(expected, actual);
    }
    for (const IID* iid : kLibraryInterfaces) {
        ComPtr<ITypeInfo> info;
        EXPECT_EQ(S_OK, typeLib_->GetTypeInfoOfGuid(*iid, info.Put())) << GuidString(*iid);
    }
}

}  // namespace
}  // namespace vantrel::test
