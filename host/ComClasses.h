// The registered classes vantrel.exe uses, with the DLL that serves each, so that a missing or
// broken registration is reported by name before anything starts, and the COM apartment of the
// program's one thread (render windows belong to the thread that creates them, which pumps
// their messages).
#pragma once

#include <windows.h>
#include <objbase.h>

#include <initializer_list>

#include "Outcome.h"

namespace vantrel::host {

struct ComClass {
    const CLSID* clsid;
    const char* name;
    const char* dll;
};

namespace classes {
extern const ComClass kCapture, kRender, kRecorder, kReader, kCaster, kReceiver, kIpcServer,
    kIpcRender, kScreenCodec, kMulticastSender, kMulticastReceiver, kFecCoder;
}

// Ok when every class can be served in-process; otherwise says which is not registered (or
// whose DLL cannot be loaded) and how to register it.
Outcome CheckRegistered(std::initializer_list<const ComClass*> needed);

// CoCreateInstance in-process, the failure in words.
Outcome Create(const ComClass& cls, REFIID iid, void** object);

// CoInitializeEx (apartment-threaded) for the life of the command.
class ComApartment {
  public:
    ComApartment() noexcept : hr_(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    ~ComApartment() {
        if (SUCCEEDED(hr_))
            CoUninitialize();
    }
    HRESULT Result() const noexcept { return hr_; }

  private:
    HRESULT hr_;
};

// Ok when address (as ParseIpv4 gives it) belongs to this machine, so that a multicast session
// can be sent or joined through it.
Outcome CheckLocalInterface(const char* text, ULONG address);

}  // namespace vantrel::host
