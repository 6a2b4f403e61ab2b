// A COM server DLL described by one table: a row per class (CLSID, creator, registration data)
// from which the four exports DllGetClassObject, DllCanUnloadNow, DllRegisterServer and
// DllUnregisterServer are made.
//
// The whole module file of a server DLL:
//
//   #include "wincom/ComServer.h"
//   #include "MyDll.h"          // CLSIDs, generated from the IDL
//   #include "Widget.h"         // class mine::Widget : ..., public vantrel::ComObjectRoot
//
//   namespace {
//   const vantrel::ComClass kClasses[] = {
//       // CLSID_Widget, "Widget Class", ProgIDs "Vantrel.Widget.1" and "Vantrel.Widget"
//       VANTREL_COM_CLASS(Widget, mine::Widget, "both"),
//       // anything else, spelt out
//       {&CLSID_Other, vantrel::CreateComObject<mine::Other>, "Other Class", "Mine.Other.1",
//        "Mine.Other", "Apartment"},
//   };
//   }  // namespace
//
//   VANTREL_COM_SERVER(kClasses, vantrel::TypeLib::None)  // or TypeLib::Resource1
//
// and the DLL's .def exports the four functions by plain name:
//
//   EXPORTS
//       DllCanUnloadNow PRIVATE
//       DllGetClassObject PRIVATE
//       DllRegisterServer PRIVATE
//       DllUnregisterServer PRIVATE
//
// Registration order is table order. No DllMain is needed: the module handle is the image the
// table is linked into.
#pragma once

#include <windows.h>
#include <unknwn.h>

#include <cstddef>

#include "ClassFactory.h"
#include "ComObjectRoot.h"
#include "CriticalSection.h"

namespace vantrel {

struct ComClass {
    const CLSID* clsid;
    CreatorFunction create;
    const char* description;               // default value of the CLSID and ProgID keys
    const char* progId;                    // version-dependent, e.g. "Vantrel.DesktopCapture.1"
    const char* versionIndependentProgId;  // e.g. "Vantrel.DesktopCapture"
    const char* threadingModel;            // "both", "Apartment", ...
};

// Whether DllRegisterServer also registers the type library held as resource TYPELIB 1.
enum class TypeLib { None, Resource1 };

class ComServer {
  public:
    static constexpr std::size_t kMaxClasses = 16;

    template <std::size_t N>
    ComServer(const ComClass (&classes)[N], TypeLib typeLib) noexcept
        : classes_(classes), count_(N), typeLib_(typeLib) {
        static_assert(N <= kMaxClasses, "raise ComServer::kMaxClasses");
    }
    ComServer(const ComServer&) = delete;
    ComServer& operator=(const ComServer&) = delete;
    // At unload: releases the cached class objects.
    ~ComServer();

    // One class object per class, created on first request and kept for the module's life;
    // CLASS_E_CLASSNOTAVAILABLE for a CLSID not in the table.
    HRESULT GetClassObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept;
    // S_OK when no object, server lock or client-held class object keeps the module.
    HRESULT CanUnloadNow() noexcept;
    // Every row (and the type library); the first failure is returned, the rest still done.
    HRESULT Register() noexcept;
    HRESULT Unregister() noexcept;

  private:
    const ComClass* classes_;
    std::size_t count_;
    TypeLib typeLib_;
    CriticalSection lock_;  // guards the first creation of each cached class object
    ClassFactory* cache_[kMaxClasses] = {};
};

}  // namespace vantrel

// The usual row: CLSID_<Name>, "<Name> Class", ProgIDs "Vantrel.<Name>.1" and "Vantrel.<Name>".
#define VANTREL_COM_CLASS(Name, Type, threadingModel)                                           \
    {                                                                                           \
        &CLSID_##Name, ::vantrel::CreateComObject<Type>, #Name " Class", "Vantrel." #Name ".1", \
            "Vantrel." #Name, threadingModel                                                    \
    }

// The server object and the four exports, at file scope of the DLL's module file.
#define VANTREL_COM_SERVER(classes, typeLib)                            \
    namespace {                                                         \
    ::vantrel::ComServer g_comServer(classes, typeLib);                 \
    }                                                                   \
    STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** ppv) { \
        return g_comServer.GetClassObject(clsid, riid, ppv);            \
    }                                                                   \
    STDAPI DllCanUnloadNow() {                                          \
        return g_comServer.CanUnloadNow();                              \
    }                                                                   \
    STDAPI DllRegisterServer() {                                        \
        return g_comServer.Register();                                  \
    }                                                                   \
    STDAPI DllUnregisterServer() {                                      \
        return g_comServer.Unregister();                                \
    }
