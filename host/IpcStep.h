// Third stage of the demo: a terminal server's sharing. DesktopCapture streams the screen while
// a window animates on it into a DesktopIPCServer; two DesktopIPCRender viewers, of sessions 0
// and 7 as in two student sessions, show the picture the server publishes in shared memory.
// Once the screen is still, each viewer's picture must equal the screen at 5-5-5 (apart from the
// pointer, which the server draws into the shared picture); then both windows are shown side by
// side. Everything through COM.
#pragma once

#include "DemoStep.h"

namespace vantrel::host {

class IpcStep final : public DemoStep {
  public:
    const char* Name() const noexcept override {
        return "shared memory: screen -> DesktopCapture -> DesktopIPCServer -> viewers of "
               "sessions 0 and 7";
    }
    bool Run(std::FILE* out, std::string* failure) noexcept override;

  private:
    bool RunChecked(std::FILE* out, std::string* failure);
};

}  // namespace vantrel::host
