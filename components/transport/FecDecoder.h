// The receiving half of FecCoder. A group's correction datagrams restore its missing fragments
// as soon as any `data count` of its datagrams are in. Keeps the latest kWindow groups of the
// newest epoch seen; anything older, repeated, damaged or inconsistent with what the group
// already holds is dropped.
//
// Fragments leave in the order they were encoded. The receiver puts packets together from
// fragments in arrival order and gives up a packet when a fragment of the next one comes, so a
// fragment restored only when its group closes would be too late (and, handed on then, would
// deliver a stale packet after newer ones). Behind a missing fragment the later ones therefore
// wait until the gap is restored or cannot be any more: kReorderSlack datagrams of later groups
// have come (a gap at the end of a burst therefore waits for the next burst). Without
// corrections (k = 0) nothing can be restored and fragments leave as they come.
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
    // A restore can free the rest of its group and what waited behind it.
    static constexpr int kMaxDecodeOutput = kFecMaxGroup + 1;
    // Later datagrams after which a group's missing corrections count as lost, not reordered.
    static constexpr int kReorderSlack = 8;

    enum class Result { kDropped, kAccepted };

    // False for a largest fragment outside 1..kFecMaxPacketLimit. Drops every group.
    bool Configure(int maxFragment);
    void Reset() noexcept;

    // The fragments that may leave now, in encoding order, through out (at most
    // kMaxDecodeOutput; valid until the next call) and *count. What does not fit leaves with
    // the next accepted datagram.
    Result Decode(const std::uint8_t* datagram, std::size_t length, FecSpan* out,
                  int* count) noexcept;

  private:
    static constexpr int kBlocks = kFecMaxGroup + kFecMaxRepair;

    struct Group {
        bool used = false;
        bool done = false;  // restored or whole: later datagrams of it are repeats
        bool givenUp = false;
        std::uint32_t number = 0;
        std::uint32_t dataMask = 0;    // data datagrams received
        std::uint32_t ready = 0;       // fragments received or restored
        std::uint32_t handed = 0;      // fragments handed out or passed over
        std::uint32_t repairMask = 0;  // correction datagrams received
        int repairCount = 0;
        int arrivals = 0;                // datagrams accepted
        int dataCount = 0;               // 0 until a datagram tells
        std::size_t codedLength = 0;     // 0 until a correction datagram tells
        std::size_t longestData = 0;     // longest block among the data received
        std::uint8_t* blocks = nullptr;  // kBlocks of stride_ bytes: data, then corrections
    };

    Group* Find(std::uint32_t number) noexcept;
    Group* FindOrAdd(std::uint32_t number) noexcept;
    std::uint8_t* Block(Group& g, int i) noexcept { return g.blocks + i * stride_; }
    bool AddData(Group& g, const FecHeader& h, const std::uint8_t* payload) noexcept;
    bool AddRepair(Group& g, const FecHeader& h, const std::uint8_t* payload) noexcept;
    // Restores the group once enough is in; marks what it restored ready.
    void TryRestore(Group& g) noexcept;
    void Hand(Group& g, int index, FecSpan* out, int* count) noexcept;
    // Whether the gap the cursor stands at in g can no longer be filled.
    bool Hopeless(const Group& g) const noexcept;
    // Hands out, in order, what no gap holds back any more.
    void Release(FecSpan* out, int* count) noexcept;

    std::size_t maxFragment_ = 0;
    std::size_t stride_ = 0;
    bool haveEpoch_ = false;
    std::uint32_t epoch_ = 0;
    std::uint32_t latest_ = 0;
    // The next fragment to hand out (groups with corrections only).
    std::uint32_t nextGroup_ = 0;
    int nextIndex_ = 0;
    Group groups_[kWindow];
    std::vector<std::uint8_t> storage_;  // allocated by the first Decode
};

}  // namespace transport
