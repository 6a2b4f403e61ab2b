// Entry points of Transport.dll: the class table (MulticastSender, MulticastReceiver, FecCoder),
// registration, and the module count that DllCanUnloadNow reports.
#include <windows.h>

#include <Transport.h>

#include <iterator>

#include "FecCoder.h"
#include "MulticastReceiver.h"
#include "MulticastSender.h"
#include "wincom/ClassFactory.h"
#include "wincom/Registrar.h"

namespace {

HMODULE g_module = nullptr;

const vantrel::ClassTableEntry kClasses[] = {
    {&CLSID_MulticastSender, vantrel::CreateComObject<transport::MulticastSender>},
    {&CLSID_MulticastReceiver, vantrel::CreateComObject<transport::MulticastReceiver>},
    {&CLSID_FecCoder, vantrel::CreateComObject<transport::FecCoder>},
};

const vantrel::ClassRegistration kRegistrations[] = {
    {&CLSID_MulticastSender, "MulticastSender Class", "Vantrel.MulticastSender.1",
     "Vantrel.MulticastSender", "both"},
    {&CLSID_MulticastReceiver, "MulticastReceiver Class", "Vantrel.MulticastReceiver.1",
     "Vantrel.MulticastReceiver", "both"},
    {&CLSID_FecCoder, "FecCoder Class", "Vantrel.FecCoder.1", "Vantrel.FecCoder", "both"},
};

vantrel::ClassTable& Classes() {
    static vantrel::ClassTable table(kClasses, std::size(kClasses));
    return table;
}

}  // namespace

extern "C" {

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, void*) {
    if (reason == DLL_PROCESS_ATTACH) {
        g_module = instance;
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
    return Classes().GetClassObject(rclsid, riid, ppv);
}

STDAPI DllCanUnloadNow() {
    return vantrel::CanUnloadModule();
}

STDAPI DllRegisterServer() {
    return vantrel::RegisterClasses(g_module, kRegistrations, std::size(kRegistrations));
}

STDAPI DllUnregisterServer() {
    return vantrel::UnregisterClasses(kRegistrations, std::size(kRegistrations));
}
}
