// Second stage of the demo: the real screen through DesktopCapture. The registered capture
// object is made through COM with a counting and a decoding sink registered; while a window
// animates on the virtual screen for a few seconds the capture streams it. Once the screen is
// still, the decoded picture must equal the screen at 5-5-5. Prints packets, bytes, flushes and
// the verdict.
#pragma once

#include "DemoStep.h"
#include "ScreenCodec.h"
#include "wincom/ComPtr.h"

namespace vantrel::host {

class CaptureStep final : public DemoStep {
  public:
    explicit CaptureStep(IScreenCodec* codec) noexcept : codec_(codec) {}

    const char* Name() const noexcept override {
        return "capture: screen -> DesktopCapture (COM) -> counting sink + decoding sink";
    }
    bool Run(std::FILE* out, std::string* failure) noexcept override;

  private:
    bool RunChecked(std::FILE* out, std::string* failure);

    ComPtr<IScreenCodec> codec_;
};

}  // namespace vantrel::host
