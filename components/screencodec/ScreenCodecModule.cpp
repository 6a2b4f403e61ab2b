// Entry points of ScreenCodec.dll: the class table with its one class, registration, and the
// module count that DllCanUnloadNow reports.
#include <windows.h>

#include <iterator>

#include "ScreenCodec.h"
#include "wincom/ClassFactory.h"
#include "wincom/Registrar.h"

namespace {

HMODULE g_module = nullptr;

const vantrel::ClassTableEntry kClasses[] = {
    {&CLSID_ScreenCodec, vantrel::CreateComObject<screencodec::ScreenCodec>},
};

const vantrel::ClassRegistration kRegistrations[] = {
    {&CLSID_ScreenCodec, "ScreenCodec Class", "Vantrel.ScreenCodec.1", "Vantrel.ScreenCodec",
     "both"},
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
