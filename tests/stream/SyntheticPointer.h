// The round-trip test's pointer: a 32 x 32 arrow at 32 bpp with its 1-bit AND mask, laid out as the
// cursor record the capture hook hands over and the stream carries.
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

namespace vantrel::test {

class SyntheticPointer {
  public:
    static constexpr uint16_t kSize = 32;

    SyntheticPointer();

    // A record with these flags at (x, y), as many bytes as the sender's length rule counts.
    std::vector<BYTE> Record(uint32_t flags, int32_t x, int32_t y) const;
    // AND mask then XOR bits, as every record with a new shape carries them.
    const std::vector<BYTE>& Masks() const noexcept { return masks_; }

  private:
    std::vector<BYTE> masks_;
};

}  // namespace vantrel::test
