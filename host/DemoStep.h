// One stage of the classroom demo (host/Demo): the live capture today; render, record and cast
// join as further steps. A step gets what it needs at construction, prints its own lines and
// tells whether it passed. Steps use the registered COM objects only, as any host does.
#pragma once

#include <windows.h>

#include <cstdio>
#include <string>

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

}  // namespace vantrel::host
