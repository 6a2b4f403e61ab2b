// Registration checks and object creation (see ComClasses.h).
#include "ComClasses.h"

#include <winsock2.h>
#include <iphlpapi.h>

#include <vector>

#include "ScreenCodec.h"
#include "Transport.h"
#include "Vantrel.h"
#include "wincom/ComPtr.h"

namespace vantrel::host {

namespace classes {
const ComClass kCapture{&CLSID_DesktopCapture, "DesktopCapture", "Vantrel.dll"};
const ComClass kRender{&CLSID_DesktopRender, "DesktopRender", "Vantrel.dll"};
const ComClass kRecorder{&CLSID_DesktopRecorder, "DesktopRecorder", "Vantrel.dll"};
const ComClass kReader{&CLSID_DesktopReader, "DesktopReader", "Vantrel.dll"};
const ComClass kCaster{&CLSID_DesktopCaster, "DesktopCaster", "Vantrel.dll"};
const ComClass kReceiver{&CLSID_DesktopReceiver, "DesktopReceiver", "Vantrel.dll"};
const ComClass kIpcServer{&CLSID_DesktopIPCServer, "DesktopIPCServer", "Vantrel.dll"};
const ComClass kIpcRender{&CLSID_DesktopIPCRender, "DesktopIPCRender", "Vantrel.dll"};
// The objects above create these themselves; without them they would run but show nothing.
const ComClass kScreenCodec{&CLSID_ScreenCodec, "ScreenCodec", "ScreenCodec.dll"};
const ComClass kMulticastSender{&CLSID_MulticastSender, "MulticastSender", "Transport.dll"};
const ComClass kMulticastReceiver{&CLSID_MulticastReceiver, "MulticastReceiver", "Transport.dll"};
const ComClass kFecCoder{&CLSID_FecCoder, "FecCoder", "Transport.dll"};
}  // namespace classes

namespace {

std::string Problem(const ComClass& cls, HRESULT hr) {
    const std::string how = std::string(" (register it with: regsvr32 ") + cls.dll + ")";
    if (hr == REGDB_E_CLASSNOTREG || hr == REGDB_E_READREGDB || hr == REGDB_E_KEYMISSING)
        return std::string("the class ") + cls.name + " is not registered: " + cls.dll +
               " is not installed" + how;
    return WithCode(std::string("the class ") + cls.name + " is registered but " + cls.dll +
                        " cannot be loaded from where the registration points" + how,
                    hr);
}

}  // namespace

Outcome CheckRegistered(std::initializer_list<const ComClass*> needed) {
    for (const ComClass* cls : needed) {
        ComPtr<IClassFactory> factory;
        const HRESULT hr = CoGetClassObject(*cls->clsid, CLSCTX_INPROC_SERVER, nullptr,
                                            IID_IClassFactory, factory.PutVoid());
        if (FAILED(hr))
            return Outcome::Fail(kExitNotRegistered, Problem(*cls, hr));
    }
    return Outcome::Success();
}

Outcome Create(const ComClass& cls, REFIID iid, void** object) {
    const HRESULT hr = CoCreateInstance(*cls.clsid, nullptr, CLSCTX_INPROC_SERVER, iid, object);
    if (SUCCEEDED(hr))
        return Outcome::Success();
    if (hr == REGDB_E_CLASSNOTREG || hr == CO_E_DLLNOTFOUND || hr == CO_E_ERRORINDLL ||
        HRESULT_CODE(hr) == ERROR_MOD_NOT_FOUND)
        return Outcome::Fail(kExitNotRegistered, Problem(cls, hr));
    return Outcome::Fail(kExitFailed,
                         WithCode(std::string(cls.name) + " could not be created", hr));
}

Outcome CheckLocalInterface(const char* text, ULONG address) {
    // The addresses of this machine's interfaces (binding a socket is no test: Wine lets a
    // socket bind to any address).
    ULONG size = 0;
    std::vector<BYTE> table;
    DWORD result = GetIpAddrTable(nullptr, &size, FALSE);
    for (int tries = 0; result == ERROR_INSUFFICIENT_BUFFER && tries < 3; ++tries) {
        table.resize(size);
        result = GetIpAddrTable(reinterpret_cast<MIB_IPADDRTABLE*>(table.data()), &size, FALSE);
    }
    if (result != NO_ERROR)
        return Outcome::Fail(kExitNetwork, "the addresses of this machine cannot be read");
    const auto* rows = reinterpret_cast<const MIB_IPADDRTABLE*>(table.data());
    for (DWORD i = 0; i < rows->dwNumEntries; ++i)
        if (rows->table[i].dwAddr == address)
            return Outcome::Success();
    return Outcome::Fail(kExitNetwork, std::string("the interface ") + text +
                                           " is not an address of this machine: it cannot be "
                                           "reached (give --interface one of its own)");
}

}  // namespace vantrel::host
