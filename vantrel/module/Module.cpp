// Vantrel.dll's entry points: the class table of the eight classes it serves, their cached class
// objects, the unload rule and registration under HKEY_CLASSES_ROOT with the type library held
// as resource TYPELIB 1. DesktopIPCServer2 is in the type library only and is never served.
#include <windows.h>
#include <olectl.h>

#include <iterator>

#include "Vantrel.h"
#include "capture/DesktopCapture.h"
#include "cast/DesktopCaster.h"
#include "cast/DesktopReceiver.h"
#include "ipc/DesktopIPCRender.h"
#include "ipc/DesktopIPCServer.h"
#include "wincom/ClassFactory.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/Registrar.h"
#include "record/DesktopReader.h"
#include "record/DesktopRecorder.h"
#include "render/DesktopRender.h"

namespace vantrel {
namespace {

// Registration order is table order. Every name follows from the class name.
#define VANTREL_CLASS(name, threadingModel) \
    { &CLSID_##name, #name " Class", "Vantrel." #name ".1", "Vantrel." #name, threadingModel }

const ClassRegistration kRegistrations[] = {
    VANTREL_CLASS(DesktopCapture, "both"),     VANTREL_CLASS(DesktopRecorder, "both"),
    VANTREL_CLASS(DesktopCaster, "both"),      VANTREL_CLASS(DesktopReceiver, "both"),
    VANTREL_CLASS(DesktopRender, "Apartment"), VANTREL_CLASS(DesktopReader, "both"),
    VANTREL_CLASS(DesktopIPCServer, "both"),   VANTREL_CLASS(DesktopIPCRender, "both"),
};

#undef VANTREL_CLASS

const ClassTableEntry kClasses[] = {
    {&CLSID_DesktopCapture, CreateComObject<DesktopCapture>},
    {&CLSID_DesktopRecorder, CreateComObject<DesktopRecorder>},
    {&CLSID_DesktopCaster, CreateComObject<DesktopCaster>},
    {&CLSID_DesktopReceiver, CreateComObject<DesktopReceiver>},
    {&CLSID_DesktopRender, CreateComObject<DesktopRender>},
    {&CLSID_DesktopReader, CreateComObject<DesktopReader>},
    {&CLSID_DesktopIPCServer, CreateComObject<DesktopIPCServer>},
    {&CLSID_DesktopIPCRender, CreateComObject<DesktopIPCRender>},
};

static_assert(std::size(kRegistrations) == std::size(kClasses));

HMODULE g_module = nullptr;
// Its destructor, at unload, releases the cached class objects.
ClassTable g_classes(kClasses, std::size(kClasses));

}  // namespace
}  // namespace vantrel

using namespace vantrel;

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, void*) {
    if (reason == DLL_PROCESS_ATTACH)
        g_module = instance;
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
    return g_classes.GetClassObject(rclsid, riid, ppv);
}

STDAPI DllCanUnloadNow() {
    return CanUnloadModule();
}

STDAPI DllRegisterServer() {
    const HRESULT classes = RegisterClasses(g_module, kRegistrations, std::size(kRegistrations));
    const HRESULT typeLib = RegisterModuleTypeLib(g_module);
    return FAILED(classes) ? classes : typeLib;
}

STDAPI DllUnregisterServer() {
    const HRESULT classes = UnregisterClasses(kRegistrations, std::size(kRegistrations));
    const HRESULT typeLib = UnregisterModuleTypeLib(g_module);
    return FAILED(classes) ? classes : typeLib;
}
