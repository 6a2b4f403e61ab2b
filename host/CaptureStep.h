// The demo's live capture: the registered DesktopCapture, made through COM, streams the virtual
// screen to a counting sink for a few seconds while a window animates on it. Prints packets,
// bytes and flushes; passes when packets came, every one starting with a packet magic, and the
// pictures stopped once the screen was still.
#pragma once

#include "DemoStep.h"

namespace vantrel::host {

class CaptureStep final : public DemoStep {
  public:
    const char* Name() const noexcept override {
        return "capture: screen -> DesktopCapture (COM) -> counting sink";
    }
    bool Run(std::FILE* out, std::string* failure) noexcept override;

  private:
    bool RunChecked(std::FILE* out, std::string* failure);
};

}  // namespace vantrel::host
