// One stage of the classroom demo (host/Demo): the packet round trip and the live capture
// today; render, record and cast join as further steps. A step gets what it needs at construction,
// prints its own lines and tells whether it passed.
#pragma once

#include <windows.h>

#include <cstdio>
#include <string>

#include "Vantrel.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/ComPtr.h"

namespace vantrel::host {

class DemoStep {
  public:
    virtual ~DemoStep() = default;
    virtual const char* Name() const noexcept = 0;
    // Runs the stage, printing to out. False with *failure set when the stage did not hold up.
    virtual bool Run(std::FILE* out, std::string* failure) noexcept = 0;
};

// "what (0x8000FFFF)": a failure line with the result code.
inline std::string HResultText(const char* what, HRESULT hr) {
    char text[32];
    std::snprintf(text, sizeof text, " (0x%08lX)", static_cast<unsigned long>(hr));
    return what + std::string(text);
}

// One of the demo's own sinks, a COM object of this process: *sink holds the reference,
// *object points at the same object for reading its counts.
template <typename T>
HRESULT MakeSink(ComPtr<IDataTransmitter>* sink, T** object) {
    const HRESULT hr = CreateComObject<T>(nullptr, IID_IDataTransmitter, sink->PutVoid());
    *object = SUCCEEDED(hr) ? static_cast<T*>(sink->Get()) : nullptr;
    return hr;
}

}  // namespace vantrel::host
