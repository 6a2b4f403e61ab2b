// The classroom demo (`vantrel.exe demo`): sets up COM, runs its steps in
// order and ends with one line, "demo: PASS" or "demo: FAIL <step>: <why>". scripts/demo runs it
// in the harness after registering the COM servers.
#pragma once

#include <cstdio>
#include <memory>
#include <vector>

#include "DemoStep.h"

namespace vantrel::host {

class Demo {
  public:
    explicit Demo(std::FILE* out) noexcept : out_(out) {}
    // The process exit code: 0 when every step passed.
    int Run() noexcept;

  private:
    std::FILE* out_;
};

}  // namespace vantrel::host
