// One stage of the classroom demo (host/Demo): the packet round trip and the live capture
// today; render, record and cast join as further steps. A step gets what it needs at construction,
// prints its own lines and tells whether it passed.
#pragma once

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

}  // namespace vantrel::host
