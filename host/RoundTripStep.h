// First stage of the demo: the desktop stream's round trip without a screen. A synthetic desktop
// is written into a DesktopImage, and the library's StreamEncoder turns it into frame packets
// (the whole desktop, then a few typed updates merged in an UpdateRegion) and a 32 x 32 pointer
// into cursor packets, compressed with the registered ScreenCodec and fanned out through a
// SinkTable to a counting sink and a decoding sink; two broken packets follow. It passes when
// the decoder rebuilt the desktop and pointer exactly, both sinks saw every packet and both
// broken packets were refused.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>

#include "DemoStep.h"
#include "ScreenCodec.h"
#include "SyntheticDesktop.h"
#include "SyntheticPointer.h"
#include "wincom/ComPtr.h"
#include "stream/DesktopImage.h"
#include "stream/SinkTable.h"
#include "stream/StreamEncoder.h"

namespace vantrel::host {

class RoundTripStep final : public DemoStep {
  public:
    explicit RoundTripStep(IScreenCodec* codec);

    const char* Name() const noexcept override {
        return "round trip: packets -> sink table -> counting sink + decoding sink";
    }
    bool Run(std::FILE* out, std::string* failure) noexcept override;

  private:
    struct Tally {
        uint32_t packets = 0;
        uint64_t raw = 0;   // bytes handed to the codec
        uint64_t sent = 0;  // whole packets
    };

    bool RunChecked(std::FILE* out, std::string* failure);
    // r of the synthetic desktop (copied into the image first) through the encoder's band loop.
    bool SendRect(const RECT& r, std::string* failure);
    bool SendCursor(uint32_t flags, int32_t x, int32_t y, std::string* failure);
    // Two packets every decoder must ignore; returns their bytes.
    uint64_t SendBroken();

    ComPtr<IScreenCodec> codec_;
    SyntheticDesktop desktop_;
    SyntheticPointer pointer_;
    SinkTable sinks_;
    DesktopImage image_;
    StreamEncoder encoder_{image_, sinks_};
    Tally frames_;
    Tally cursors_;
    POINT lastPosition_{};
};

}  // namespace vantrel::host
