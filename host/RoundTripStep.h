// First stage of the demo: the desktop stream's round trip without a screen. Frame packets
// (bands of a synthetic desktop, then a few typed updates merged in an UpdateRegion) and cursor
// packets (a 32 x 32 pointer) are compressed with the registered ScreenCodec and fanned out
// through a SinkTable to a counting sink and a decoding sink; two broken packets follow. It
// passes when the decoder rebuilt the desktop and pointer exactly, both sinks saw every packet
// and both broken packets were refused.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>

#include "DemoStep.h"
#include "ScreenCodec.h"
#include "SyntheticDesktop.h"
#include "SyntheticPointer.h"
#include "platform/ComPtr.h"
#include "stream/SinkTable.h"

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
    // The band loop: r snapped to the grid and clipped, cut into bands that fit a packet.
    bool SendRect(const RECT& r, std::string* failure);
    bool SendCursor(uint32_t flags, int32_t x, int32_t y, std::string* failure);
    void SendBroken();

    ComPtr<IScreenCodec> codec_;
    SyntheticDesktop desktop_;
    SyntheticPointer pointer_;
    SinkTable sinks_;
    std::unique_ptr<BYTE[]> work_;    // payload before compression
    std::unique_ptr<BYTE[]> packet_;  // packet being built
    std::vector<BYTE> lastCursorPacket_;
    Tally frames_;
    Tally cursors_;
    POINT lastPosition_{};
};

}  // namespace vantrel::host
