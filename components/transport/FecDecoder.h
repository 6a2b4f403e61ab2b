// The receiving half of FecCoder. Data datagrams are handed on as they come; a group's
// correction datagrams restore its missing fragments as soon as any `data count` of its
// datagrams are in. Keeps the latest kWindow groups of the newest epoch seen; anything older,
// repeated, damaged or inconsistent with what the group already holds is dropped.
// Pure: no Windows headers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "FecEncoder.h"

namespace transport {

class FecDecoder {
  public:
    static constexpr int kWindow = 16;
    static constexpr int kMaxDecodeOutput = kFecMaxGroup;

    enum class Result { kDropped, kAccepted };

    // False for a largest fragment outside 1..kFecMaxPacketLimit. Drops every group.
    bool Configure(int maxFragment);
    void Reset() noexcept;

    // The fragments this datagram carries or lets restore, in index order, through out (at
    // most kMaxDecodeOutput; valid until the next call) and *count.
    Result Decode(const std::uint8_t* datagram, std::size_t length, FecSpan* out,
                  int* count) noexcept;

  private:
    static constexpr int kBlocks = kFecMaxGroup + kFecMaxRepair;

    struct Group {
        bool used = false;
        bool done = false;
        std::uint32_t number = 0;
        std::uint32_t dataMask = 0;
        std::uint32_t repairMask = 0;
        int dataCount = 0;               // 0 until a correction datagram tells
        std::size_t codedLength = 0;     // 0 until a correction datagram tells
        std::size_t longestData = 0;     // longest block among the data received
        std::uint8_t* blocks = nullptr;  // kBlocks of stride_ bytes: data, then corrections
    };

    Group* FindGroup(std::uint32_t number) noexcept;
    std::uint8_t* Block(Group& g, int i) noexcept { return g.blocks + i * stride_; }
    // Restores the group once enough is in; adds what it restored to *mask.
    void TryRestore(Group& g, std::uint32_t* mask) noexcept;

    std::size_t maxFragment_ = 0;
    std::size_t stride_ = 0;
    bool haveEpoch_ = false;
    std::uint32_t epoch_ = 0;
    std::uint32_t latest_ = 0;
    Group groups_[kWindow];
    std::vector<std::uint8_t> storage_;  // allocated by the first Decode
};

}  // namespace transport
