// The type library as a host's tools read it from the registry: library attributes, each
// interface's names, help strings and vtable slots, the coclasses; and the DLL's resources.
#include <windows.h>
#include <oleauto.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "ModuleTestSupport.h"
#include "wincom/ComPtr.h"

namespace vantrel::test {
namespace {

struct InterfaceRow {
    const IID* iid;
    const char* name;
    const char* methods;  // "Method param param; Method ...", vtable order
};

// Letter for letter as hosts compile against them, misspellings included.
const InterfaceRow kInterfaces[] = {
    {&IID_IDataTransmitter, "IDataTransmitter", "Transfer lpvData cbData bAsync; Flush"},
    {&IID_IDesktopCapture, "IDesktopCapture",
     "Run; Stop; SetCompatibleMode bCompatibleMode; GetCompatibleMode pbCompatibleMode; "
     "RegisterDataTransmitter pDataTransmitter; UnregisterDataTransmitter pDataTransmitter; "
     "RequestFullScreen; SetCapturePriority nPriority; SetIdleFlushTimeout dwTimeout; "
     "SetRecordLogo hBmp"},
    {&IID_IDesktopRecorder, "IDesktopRecorder",
     "Run; Stop; Open lpszFileName bAppend; Close; SetNotifyWindow hWndNotify uMsg dwParam; "
     "GetDuration pdwDuration"},
    {&IID_IDesktopCaster, "IDesktopCaster",
     "CreateSession lpszLocalIpAddress lpszIpAddress wPort nNumFecPacketsInGroup bCheckSum; "
     "DestroySession; Run; Stop"},
    {&IID_IDesktopReceiver, "IDesktopReceiver",
     "JoinSession lpszLocalIpAddress lpszIpAddress wPort; LeaveSession; Run; Stop; "
     "RegisterDataTransmitter pDataTransmitter; UnregisterDataTransmitter pDataTransmitter; "
     "SetSourceFilter dwSourceFilter"},
    {&IID_IDesktopRender, "IDesktopRender",
     "SetParentWindow hWndParent; SetNotifyWindow hWndNotify uMsg dwParam; "
     "SetMessageDrainWindow hWndMessageDrain; GetParentWindow phWndParent; "
     "GetNotifyWindow phWndNotify; GetMessageDrainWindow phWndMsgDrain; "
     "SetWindowPosition lLeft lTop lRight lBottom; "
     "GetWindowPosition plLeft plTop plRight plBottom; SetVisible bVisible; GetVisible pbVisible; "
     "SetSourcePosition lLeft lTop lRight lBottom; "
     "GetSourcePosition plLeft plTop plRight plBottom; SetDefaultSourcePosition; "
     "IsUsingDefaultSource; SetDestinationPosition lLeft lTop lRight lBottom; "
     "GetDestinationPosition plLeft plTop plRight plBottom; SetDefaultDestinationPosition; "
     "IsUsingDefaultDestination; GetCurrectImage pcbImage lpBuffer; "
     "GetDesktopInfomation plWidth plHeight plBitsPixel; "
     "GetPaletteEntries nStart nEntires pnRetrieved lpPalette; Run; Stop; "
     "SetTopMostWindow bTopMost; SetScrollMode nScrollMode; GetStyle pdwStyle pdwExStyle; "
     "ModifyStyle dwRemove dwAdd dwFlags; SetWindowCaption lpszCaption; "
     "SetCursor hCursorNormal hCursorSpan hCursorSpanning; GetWindowHandle phWnd; "
     "GetIdelWindowSize lWidth lHeight; SetMaxMinSize lMaxWidth lMaxHeight lMinWidth lMinHeight; "
     "ResetContent; ModifyStyleEx dwRemove dwAdd dwFlags; SetCursorMoveMode nMode dwSwitchTimeout; "
     "SetIdleTimeout dwTimeout; ShowScrollBar bShow; EnableDragMove bEnable; SetSessionId nId"},
    {&IID_IDesktopReader, "IDesktopReader",
     "Open lpszFileName; Close; Run; Pause; Stop; SetNotifyWindow hWndNotify uMsg dwParam; "
     "GetDuration pdwDuration; GetCurrentPosition pdwPosition; SetCurrentPosition dwPosition; "
     "RegisterDataTransmitter pDataTransmitter; UnregisterDataTransmitter pDataTransmitter; "
     "SetIdleFlushTimeout dwTimeout; RequestFullScreen; RegisterFrameBuffer pFrameBuffer; "
     "UnregisterFrameBuffer; SetSpeedFactor dwFactor"},
    {&IID_IFrameBuffer, "IFrameBuffer",
     "GetFullScreenData lpvData pcbData bFirst; GetFullScreenDataUncompressed lpvData pcbData; "
     "GetBitmapInfo lpvBmpInfo"},
    {&IID_IDesktopIPCServer, "IDesktopIPCServer",
     "StopIPCServer; SetMaxIPCClients nMaxClients; StartIPCServer"},
};

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

std::pair<std::string, std::string> NameAndHelp(ITypeInfo* info, MEMBERID id = MEMBERID_NIL) {
    BSTR name = nullptr, help = nullptr;
    EXPECT_EQ(S_OK, info->GetDocumentation(id, &name, &help, nullptr, nullptr));
    return {Narrow(name), Narrow(help)};
}

// "A p; B" -> {"A p", "B"}
std::vector<std::string> Split(const std::string& list) {
    std::vector<std::string> parts;
    for (size_t from = 0, to = 0; from <= list.size(); from = to + 2) {
        to = std::min(list.find("; ", from), list.size());
        parts.push_back(list.substr(from, to - from));
    }
    return parts;
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
    for (const InterfaceRow& row : kInterfaces) {
        SCOPED_TRACE(row.name);
        ComPtr<ITypeInfo> info;
        ASSERT_EQ(S_OK, typeLib_->GetTypeInfoOfGuid(*row.iid, info.Put()));
        // Only IDesktopIPCServer is dual, yet its vtable part has no IDispatch (the slots show it).
        const bool ipcServer = IsEqualIID(*row.iid, IID_IDesktopIPCServer);
        EXPECT_EQ(ipcServer, Attributes(info.Get()).typekind == TKIND_DISPATCH);
        if (ipcServer) {
            info = ImplementedType(info.Get(), static_cast<UINT>(-1));
            ASSERT_TRUE(info);
        }

        const std::string name = row.name;
        EXPECT_EQ(std::make_pair(
                      name, (name == "IFrameBuffer" ? "IDataTransmitter" : name) + " Interface"),
                  NameAndHelp(info.Get()));
        const TYPEATTR attr = Attributes(info.Get());
        EXPECT_EQ(TKIND_INTERFACE, attr.typekind);
        EXPECT_EQ(ipcServer ? TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION : 0,
                  attr.wTypeFlags & (TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION));

        const std::vector<std::string> expected = Split(row.methods);
        EXPECT_EQ(expected.size(), attr.cFuncs);
        for (WORD i = 0; i < attr.cFuncs; ++i) {
            FUNCDESC* func = nullptr;
            ASSERT_EQ(S_OK, info->GetFuncDesc(i, &func));
            BSTR names[8] = {};
            UINT count = 0;
            EXPECT_EQ(S_OK, info->GetNames(func->memid, names, 8, &count));
            std::string method;
            for (UINT n = 0; n < count; ++n)
                method += (n ? " " : "") + Narrow(names[n]);
            SCOPED_TRACE(method);
            EXPECT_EQ("method " + method.substr(0, method.find(' ')),
                      NameAndHelp(info.Get(), func->memid).second);
            EXPECT_EQ(static_cast<SHORT>((3 + i) * sizeof(void*)), func->oVft);  // after IUnknown
            EXPECT_EQ(VT_HRESULT, func->elemdescFunc.tdesc.vt);
            EXPECT_EQ(static_cast<UINT>(func->cParams) + 1, count);
            if (ipcServer) {
                EXPECT_EQ(i + 1, func->memid);
            }
            EXPECT_EQ(i < expected.size() ? expected[i] : "", method);
            info->ReleaseFuncDesc(func);
        }
    }
}

TEST_F(TypeLibTest, CoclassesListTheirInterfaces) {
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
}

TEST_F(TypeLibTest, ResourcesHoldIconAndVersion) {
    const HMODULE module = Dll().module;
    HICON icon =
        static_cast<HICON>(LoadImageA(module, MAKEINTRESOURCEA(201), IMAGE_ICON, 32, 32, 0));
    EXPECT_NE(nullptr, icon);
    if (icon)
        DestroyIcon(icon);

    const char* path = Dll().path.c_str();
    std::vector<BYTE> version(GetFileVersionInfoSizeA(path, nullptr));
    ASSERT_FALSE(version.empty());
    ASSERT_TRUE(GetFileVersionInfoA(path, 0, static_cast<DWORD>(version.size()), version.data()));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT size = 0;
    ASSERT_TRUE(VerQueryValueA(version.data(), "\\", reinterpret_cast<void**>(&fixed), &size));
    EXPECT_EQ(0x00010000u, fixed->dwFileVersionMS);  // 1.0, as the type library
    EXPECT_EQ(static_cast<DWORD>(VFT_DLL), fixed->dwFileType);
}

}  // namespace
}  // namespace vantrel::test
