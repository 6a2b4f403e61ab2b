// The fragment: the unit the caster hands to the error-correction coder and the receiver gets
// back from it. A 12-byte header (message number, offset of the data in its packet, the packet's
// total length; u32 little-endian) and 1 to 1,400 bytes of the packet.
//
// Pure code without Windows headers: the fuzz targets build it natively.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace vantrel::cast {

constexpr uint32_t kFragmentHeaderSize = 12;
constexpr uint32_t kMaxFragmentData = 1400;
constexpr uint32_t kMaxFragmentSize = kFragmentHeaderSize + kMaxFragmentData;  // 1,412
// The largest packet anyone accepts, and the reassembly buffer's size.
constexpr uint32_t kMaxPacketSize = 0x180000;

struct FragmentHeader {
    uint32_t messageNumber;
    uint32_t offset;
    uint32_t totalLength;
};

void WriteFragmentHeader(uint8_t* out, const FragmentHeader& header) noexcept;
// False when length is below the header's size.
bool ReadFragmentHeader(const uint8_t* fragment, size_t length, FragmentHeader* header) noexcept;

// Cuts one packet into fragments built one at a time in a caller's buffer of at least
// kMaxFragmentSize bytes: offsets 0, 1,400, 2,800...; all with the one message number. An
// empty packet gives no fragment.
class Fragmenter {
  public:
    Fragmenter(uint8_t* buffer, uint32_t messageNumber, const void* packet,
               uint32_t length) noexcept;
    // Builds the next fragment in the buffer; returns its whole length (header included), or 0
    // when the packet is used up.
    uint32_t Next() noexcept;

  private:
    uint8_t* buffer_;
    const uint8_t* packet_;
    uint32_t length_;
    uint32_t offset_ = 0;
};

// Puts packets together again from fragments that may come in any order. It does not remember
// which fragments came, only how many data bytes of the current message: a duplicate counts
// twice, and a fragment of another message number gives the current one up.
class Reassembler {
  public:
    Reassembler() noexcept;
    // False when the buffer could not be allocated; Add then drops everything.
    bool Ready() const noexcept { return buffer_ != nullptr; }
    void Reset() noexcept;

    // Takes one fragment. True when it completed a packet: packet() holds packetLength bytes,
    // valid until the next Add. Fragments shorter than a header, data that would end beyond
    // kMaxPacketSize and packets claiming more than that are dropped.
    bool Add(const uint8_t* fragment, size_t length, uint32_t* packetLength) noexcept;
    const uint8_t* packet() const noexcept { return buffer_.get(); }

    uint32_t messageNumber() const noexcept { return messageNumber_; }
    uint32_t bytesReceived() const noexcept { return bytesReceived_; }

  private:
    std::unique_ptr<uint8_t[]> buffer_;
    uint32_t messageNumber_ = 0;
    uint32_t bytesReceived_ = 0;
};

}  // namespace vantrel::cast
