// The type library as a host's tools read it from the registry: library attributes, every
// interface's names, help strings, parameter names and vtable slots, and the coclasses. Also the
// DLL's other resources.
#include <windows.h>
#include <oleauto.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ModuleTestSupport.h"
#include "platform/ComPtr.h"

namespace vantrel::test {
namespace {

struct InterfaceRow {
    const IID* iid;
    const char* name;
    const char* help;
    std::vector<const char*> methods;  // "Method param1 param2 ...", vtable order
};

// Names letter for letter as hosts compile against them, misspellings included.
const std::vector<InterfaceRow>& Interfaces() {
    static const std::vector<InterfaceRow> rows = {
        {&IID_IDataTransmitter,
         "IDataTransmitter",
         "IDataTransmitter Interface",
         {"Transfer lpvData cbData bAsync", "Flush"}},
        {&IID_IDesktopCapture,
         "IDesktopCapture",
         "IDesktopCapture Interface",
         {"Run", "Stop", "SetCompatibleMode bCompatibleMode", "GetCompatibleMode pbCompatibleMode",
          "RegisterDataTransmitter pDataTransmitter", "UnregisterDataTransmitter pDataTransmitter",
          "RequestFullScreen", "SetCapturePriority nPriority", "SetIdleFlushTimeout dwTimeout",
          "SetRecordLogo hBmp"}},
        {&IID_IDesktopRecorder,
         "IDesktopRecorder",
         "IDesktopRecorder Interface",
         {"Run", "Stop", "Open lpszFileName bAppend", "Close",
          "SetNotifyWindow hWndNotify uMsg dwParam", "GetDuration pdwDuration"}},
        {&IID_IDesktopCaster,
         "IDesktopCaster",
         "IDesktopCaster Interface",
         {"CreateSession lpszLocalIpAddress lpszIpAddress wPort nNumFecPacketsInGroup bCheckSum",
          "DestroySession", "Run", "Stop"}},
        {&IID_IDesktopReceiver,
         "IDesktopReceiver",
         "IDesktopReceiver Interface",
         {"JoinSession lpszLocalIpAddress lpszIpAddress wPort", "LeaveSession", "Run", "Stop",
          "RegisterDataTransmitter pDataTransmitter", "UnregisterDataTransmitter pDataTransmitter",
          "SetSourceFilter dwSourceFilter"}},
        {&IID_IDesktopRender,
         "IDesktopRender",
         "IDesktopRender Interface",
         {"SetParentWindow hWndParent",
          "SetNotifyWindow hWndNotify uMsg dwParam",
          "SetMessageDrainWindow hWndMessageDrain",
          "GetParentWindow phWndParent",
          "GetNotifyWindow phWndNotify",
          "GetMessageDrainWindow phWndMsgDrain",
          "SetWindowPosition lLeft lTop lRight lBottom",
          "GetWindowPosition plLeft plTop plRight plBottom",
          "SetVisible bVisible",
          "GetVisible pbVisible",
          "SetSourcePosition lLeft lTop lRight lBottom",
          "GetSourcePosition plLeft plTop plRight plBottom",
          "SetDefaultSourcePosition",
          "IsUsingDefaultSource",
          "SetDestinationPosition lLeft lTop lRight lBottom",
          "GetDestinationPosition plLeft plTop plRight plBottom",
          "SetDefaultDestinationPosition",
          "IsUsingDefaultDestination",
          "GetCurrectImage pcbImage lpBuffer",
          "GetDesktopInfomation plWidth plHeight plBitsPixel",
          "GetPaletteEntries nStart nEntires pnRetrieved lpPalette",
          "Run",
          "Stop",
          "SetTopMostWindow bTopMost",
          "SetScrollMode nScrollMode",
          "GetStyle pdwStyle pdwExStyle",
          "ModifyStyle dwRemove dwAdd dwFlags",
          "SetWindowCaption lpszCaption",
          "SetCursor hCursorNormal hCursorSpan hCursorSpanning",
          "GetWindowHandle phWnd",
          "GetIdelWindowSize lWidth lHeight",
          "SetMaxMinSize lMaxWidth lMaxHeight lMinWidth lMinHeight",
          "ResetContent",
          "ModifyStyleEx dwRemove dwAdd dwFlags",
          "SetCursorMoveMode nMode dwSwitchTimeout",
          "SetIdleTimeout dwTimeout",
          "ShowScrollBar bShow",
          "EnableDragMove bEnable",
          "SetSessionId nId"}},
        {&IID_IDesktopReader,
         "IDesktopReader",
         "IDesktopReader Interface",
         {"Open lpszFileName", "Close", "Run", "Pause", "Stop",
          "SetNotifyWindow hWndNotify uMsg dwParam", "GetDuration pdwDuration",
          "GetCurrentPosition pdwPosition", "SetCurrentPosition dwPosition",
          "RegisterDataTransmitter pDataTransmitter", "UnregisterDataTransmitter pDataTransmitter",
          "SetIdleFlushTimeout dwTimeout", "RequestFullScreen", "RegisterFrameBuffer pFrameBuffer",
          "UnregisterFrameBuffer", "SetSpeedFactor dwFactor"}},
        {&IID_IFrameBuffer,
         "IFrameBuffer",
         "IDataTransmitter Interface",
         {"GetFullScreenData lpvData pcbData bFirst",
          "GetFullScreenDataUncompressed lpvData pcbData", "GetBitmapInfo lpvBmpInfo"}},
        {&IID_IDesktopIPCServer,
         "IDesktopIPCServer",
         "IDesktopIPCServer Interface",
         {"StopIPCServer", "SetMaxIPCClients nMaxClients", "StartIPCServer"}},
    };
    return rows;
}

struct CoclassRow {
    const CLSID* clsid;
    const char* name;
    std::vector<std::pair<const IID*, bool>> implemented;  // interface, [default]
};

const std::vector<CoclassRow>& Coclasses() {
    static const std::vector<CoclassRow> rows = {
        {&CLSID_DesktopCapture, "DesktopCapture", {{&IID_IDesktopCapture, true}}},
        {&CLSID_DesktopRecorder,
         "DesktopRecorder",
         {{&IID_IDesktopRecorder, true}, {&IID_IDataTransmitter, false}}},
        {&CLSID_DesktopCaster,
         "DesktopCaster",
         {{&IID_IDesktopCaster, true}, {&IID_IDataTransmitter, false}}},
        {&CLSID_DesktopReceiver, "DesktopReceiver", {{&IID_IDesktopReceiver, true}}},
        {&CLSID_DesktopRender,
         "DesktopRender",
         {{&IID_IDesktopRender, true}, {&IID_IDataTransmitter, false}}},
        {&CLSID_DesktopReader, "DesktopReader", {{&IID_IDesktopReader, true}}},
        {&CLSID_DesktopIPCServer, "DesktopIPCServer", {{&IID_IDataTransmitter, true}}},
        {&CLSID_DesktopIPCRender, "DesktopIPCRender", {{&IID_IDataTransmitter, true}}},
        {&CLSID_DesktopIPCServer2, "DesktopIPCServer2", {{&IID_IDesktopIPCServer, true}}},
    };
    return rows;
}

std::string Narrow(BSTR s) {
    std::string out;
    if (s)
        out.assign(s, s + SysStringLen(s));
    SysFreeString(s);
    return out;
}

std::pair<std::string, std::string> NameAndHelp(ITypeInfo* info, MEMBERID id) {
    BSTR name = nullptr, help = nullptr;
    EXPECT_EQ(S_OK, info->GetDocumentation(id, &name, &help, nullptr, nullptr));
    return {Narrow(name), Narrow(help)};
}

std::vector<std::string> Split(const char* s) {
    std::istringstream in(s);
    std::vector<std::string> words;
    for (std::string w; in >> w;)
        words.push_back(w);
    return words;
}

GUID GuidOf(ITypeInfo* info) {
    TYPEATTR* attr = nullptr;
    if (FAILED(info->GetTypeAttr(&attr)))
        return GUID_NULL;
    const GUID guid = attr->guid;
    info->ReleaseTypeAttr(attr);
    return guid;
}

ComPtr<ITypeInfo> ImplementedType(ITypeInfo* info, UINT index) {
    HREFTYPE ref = 0;
    ComPtr<ITypeInfo> implemented;
    if (SUCCEEDED(info->GetRefTypeOfImplType(index, &ref)))
        info->GetRefTypeInfo(ref, implemented.Put());
    return implemented;
}

class TypeLibTest : public ComTest {
  protected:
    void SetUp() override {
        ComTest::SetUp();
        ASSERT_EQ(S_OK, LoadRegTypeLib(LIBID_VANTRELLib, 1, 0, LOCALE_NEUTRAL, typeLib_.Put()));
    }
    ComPtr<ITypeLib> typeLib_;
};

TEST_F(TypeLibTest, LibraryNameHelpAndVersion) {
    BSTR name = nullptr, help = nullptr;
    ASSERT_EQ(S_OK, typeLib_->GetDocumentation(-1, &name, &help, nullptr, nullptr));
    EXPECT_EQ("VANTRELLib", Narrow(name));
    EXPECT_EQ("Vantrel 1.0 Type Library", Narrow(help));
    TLIBATTR* attr = nullptr;
    ASSERT_EQ(S_OK, typeLib_->GetLibAttr(&attr));
    EXPECT_TRUE(IsEqualGUID(LIBID_VANTRELLib, attr->guid));
    EXPECT_EQ(1, attr->wMajorVerNum);
    EXPECT_EQ(0, attr->wMinorVerNum);
    EXPECT_EQ(SYS_WIN32, attr->syskind);
    typeLib_->ReleaseTLibAttr(attr);
}

TEST_F(TypeLibTest, InterfacesMatchTheirNamesAndVtables) {
    for (const InterfaceRow& row : Interfaces()) {
        SCOPED_TRACE(row.name);
        ComPtr<ITypeInfo> info;
        ASSERT_EQ(S_OK, typeLib_->GetTypeInfoOfGuid(*row.iid, info.Put()));
        TYPEATTR* attr = nullptr;
        ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
        const bool dual = attr->typekind == TKIND_DISPATCH;
        info->ReleaseTypeAttr(attr);
        // Only IDesktopIPCServer is marked dual: its vtable part still starts after IUnknown.
        const bool isIpcServer = IsEqualIID(*row.iid, IID_IDesktopIPCServer);
        EXPECT_EQ(isIpcServer, dual);
        if (dual) {
            info = ImplementedType(info.Get(), static_cast<UINT>(-1));
            ASSERT_TRUE(info);
        }

        EXPECT_EQ(std::make_pair(std::string(row.name), std::string(row.help)),
                  NameAndHelp(info.Get(), MEMBERID_NIL));
        ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
        EXPECT_EQ(TKIND_INTERFACE, attr->typekind);
        EXPECT_EQ(row.methods.size(), attr->cFuncs);
        EXPECT_EQ(1, attr->cImplTypes);
        if (isIpcServer) {
            EXPECT_EQ(TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION,
                      attr->wTypeFlags & (TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION));
        }
        const WORD functions = attr->cFuncs;
        info->ReleaseTypeAttr(attr);
        ComPtr<ITypeInfo> base = ImplementedType(info.Get(), 0);
        ASSERT_TRUE(base);
        EXPECT_TRUE(IsEqualGUID(IID_IUnknown, GuidOf(base.Get())));

        for (WORD i = 0; i < functions && i < row.methods.size(); ++i) {
            const std::vector<std::string> expected = Split(row.methods[i]);
            SCOPED_TRACE(expected[0]);
            FUNCDESC* func = nullptr;
            ASSERT_EQ(S_OK, info->GetFuncDesc(i, &func));
            EXPECT_EQ(static_cast<SHORT>((3 + i) * sizeof(void*)), func->oVft);
            EXPECT_EQ(VT_HRESULT, func->elemdescFunc.tdesc.vt);
            EXPECT_EQ(expected.size() - 1, static_cast<size_t>(func->cParams));
            if (isIpcServer) {
                EXPECT_EQ(i + 1, func->memid);
            }
            BSTR names[8] = {};
            UINT count = 0;
            EXPECT_EQ(S_OK, info->GetNames(func->memid, names, 8, &count));
            std::vector<std::string> actual;
            for (UINT n = 0; n < count; ++n)
                actual.push_back(Narrow(names[n]));
            EXPECT_EQ(expected, actual);
            EXPECT_EQ(std::make_pair(expected[0], "method " + expected[0]),
                      NameAndHelp(info.Get(), func->memid));
            info->ReleaseFuncDesc(func);
        }
    }
}

TEST_F(TypeLibTest, CoclassesListTheirInterfaces) {
    for (const CoclassRow& row : Coclasses()) {
        SCOPED_TRACE(row.name);
        ComPtr<ITypeInfo> info;
        ASSERT_EQ(S_OK, typeLib_->GetTypeInfoOfGuid(*row.clsid, info.Put()));
        EXPECT_EQ(std::make_pair(std::string(row.name), std::string(row.name) + " Class"),
                  NameAndHelp(info.Get(), MEMBERID_NIL));
        TYPEATTR* attr = nullptr;
        ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
        EXPECT_EQ(TKIND_COCLASS, attr->typekind);
        EXPECT_EQ(row.implemented.size(), attr->cImplTypes);
        const WORD count = attr->cImplTypes;
        info->ReleaseTypeAttr(attr);
        for (UINT i = 0; i < count && i < row.implemented.size(); ++i) {
            ComPtr<ITypeInfo> implemented = ImplementedType(info.Get(), i);
            ASSERT_TRUE(implemented);
            EXPECT_TRUE(IsEqualGUID(*row.implemented[i].first, GuidOf(implemented.Get()))) << i;
            INT flags = 0;
            EXPECT_EQ(S_OK, info->GetImplTypeFlags(i, &flags));
            EXPECT_EQ(row.implemented[i].second, (flags & IMPLTYPEFLAG_FDEFAULT) != 0) << i;
        }
    }
}

TEST_F(TypeLibTest, ResourcesHoldTypeLibIconAndVersion) {
    const HMODULE module = VantrelDll::Get().module();
    EXPECT_NE(nullptr, FindResourceA(module, MAKEINTRESOURCEA(1), "TYPELIB"));
    HICON icon =
        static_cast<HICON>(LoadImageA(module, MAKEINTRESOURCEA(201), IMAGE_ICON, 32, 32, 0));
    EXPECT_NE(nullptr, icon);
    if (icon)
        DestroyIcon(icon);

    const std::string& path = VantrelDll::Get().path();
    std::vector<BYTE> version(GetFileVersionInfoSizeA(path.c_str(), nullptr));
    ASSERT_FALSE(version.empty());
    ASSERT_TRUE(
        GetFileVersionInfoA(path.c_str(), 0, static_cast<DWORD>(version.size()), version.data()));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT size = 0;
    ASSERT_TRUE(VerQueryValueA(version.data(), "\\", reinterpret_cast<void**>(&fixed), &size));
    EXPECT_EQ(0x00010000u, fixed->dwFileVersionMS);  // 1.0, as the type library
    EXPECT_EQ(static_cast<DWORD>(VFT_DLL), fixed->dwFileType);
}

}  // namespace
}  // namespace vantrel::test
