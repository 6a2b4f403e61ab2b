// The sending half of FecCoder: each fragment goes out at once as a data datagram and is
// folded into the group's correction blocks; a group closes when it holds its size of
// fragments (Encode) or when the caller drains it, and its correction datagrams follow. A
// drain ends a burst: with corrections configured, its group's end marks follow.
// Pure: no Windows headers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "FecDatagram.h"

namespace transport {

struct FecSpan {
    const std::uint8_t* data;
    std::size_t length;
};

class FecEncoder {
  public:
    static constexpr int kMaxEncodeOutput = 1 + kFecMaxRepair;
    static constexpr int kMaxDrainOutput = kFecMaxRepair + kFecEndMarks;

    // False (and no change) for values outside 1..32, 0..32, 1..kFecMaxPacketLimit. Drops the
    // group being built; the next datagrams carry the new epoch.
    bool Configure(int groupSize, int repairCount, int maxFragment, std::uint32_t epoch);
    void Reset(std::uint32_t epoch) noexcept;
    void SetChecksum(bool on) noexcept { checksum_ = on; }

    // -1 for a fragment of no bytes or more than the largest; otherwise the number of
    // datagrams written to out (at most kMaxEncodeOutput), valid until the next call.
    int Encode(const std::uint8_t* fragment, std::size_t length, FecSpan* out) noexcept;
    // Closes a partial group: its correction datagrams, then the end marks of the group closed
    // last unless a drain already followed it (at most kMaxDrainOutput).
    int Drain(FecSpan* out) noexcept;

    int GroupSize() const noexcept { return groupSize_; }
    int RepairCount() const noexcept { return repairCount_; }
    std::size_t MaxFragment() const noexcept { return maxFragment_; }

  private:
    std::uint8_t* Repair(int j) noexcept { return repairs_.data() + j * repairStride_; }
    int CloseGroup(FecSpan* out) noexcept;

    int groupSize_ = 0;
    int repairCount_ = 0;
    std::size_t maxFragment_ = 0;
    std::size_t repairStride_ = 0;
    bool checksum_ = false;
    std::uint32_t epoch_ = 0;
    std::uint32_t group_ = 0;
    int dataInGroup_ = 0;
    int previousGroupSize_ = 0;       // data datagrams of the group closed last; 0 before the first
    bool previousEnded_ = false;      // a drain came after the group closed last
    std::size_t codedLength_ = 0;     // longest block of the group so far; repairs are zero beyond
    std::vector<std::uint8_t> data_;  // the data datagram being handed out
    std::vector<std::uint8_t> repairs_;  // repairCount_ datagrams of repairStride_ bytes
    std::uint8_t endMarks_[kFecEndMarks][kFecHeaderSize] = {};
};

}  // namespace transport
