// The receiving half of FecCoder. A group's correction datagrams restore its missing fragments
// as soon as any `data count` of its datagrams are in. Keeps the latest kWindow groups of the
// stream it follows; anything older, repeated, damaged or inconsistent with what the group
// already holds is dropped.
//
// Fragments leave in the order they were encoded. The receiver puts packets together from
// fragments in arrival order and gives up a packet when a fragment of the next one comes, so a
// fragment restored only when its group closes would be too late (and, handed on then, would
// deliver a stale packet after newer ones). Behind a missing fragment the later ones therefore
// wait until the gap is restored or cannot be any more: kReorderSlack datagrams of later groups
// have come, or the next burst has begun (its data datagrams say so), or, where the stream has
// kept its order for kTrustOrder datagrams, the burst's own end marks came and no correction
// that could fill the gap can still be on its way (it would be late by more than
// kReorderDepth places). Arrival order is trusted only where it has held: datagrams shuffled
// within a group still all count. Without corrections (k = 0) nothing can be restored and
// fragments leave as they come.
//
// Without checksums one damaged or forged datagram could name any group or epoch. The stream
// is where the decoder's window is; a datagram of another epoch or far from the window is
// held, not trusted, until kConfirm such datagrams in a row agree on one place (a restarted
// caster, the stream beyond a long loss, the stream itself after forged datagrams moved the
// window): then the window moves there and the held datagrams are decoded. One stray, damaged
// or forged datagram thus costs nothing, and the decoder follows a new stream within kConfirm
// datagrams.
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
    // Datagrams in sending order after which arrival order is trusted at a burst's end, and
    // the places by which a datagram may still be late there.
    static constexpr int kTrustOrder = 64;
    static constexpr int kReorderDepth = 1;
    // Datagrams in a row that move the window to another epoch or a far place.
    static constexpr int kConfirm = 4;

    enum class Result { kDropped, kAccepted };

    // False for a largest fragment outside 1..kFecMaxPacketLimit. Drops every group.
    bool Configure(int maxFragment);
    void Reset() noexcept;

    // The fragments that may leave now, in encoding order, through out (at most
    // kMaxDecodeOutput; valid until the next call) and *count. What does not fit leaves with
    // the next accepted datagram. kDropped also for a datagram held until others confirm it.
    Result Decode(const std::uint8_t* datagram, std::size_t length, FecSpan* out,
                  int* count) noexcept;

  private:
    static constexpr int kBlocks = kFecMaxGroup + kFecMaxRepair;

    struct Group {
        bool used = false;
        bool done = false;  // restored or whole: later datagrams of it are repeats
        bool givenUp = false;
        bool ended = false;  // closed a burst: an end mark came
        bool final = false;  // the next burst began: nothing more of it comes
        std::uint32_t number = 0;
        std::uint32_t dataMask = 0;    // data datagrams received
        std::uint32_t ready = 0;       // fragments received or restored
        std::uint32_t handed = 0;      // fragments handed out or passed over
        std::uint32_t repairMask = 0;  // correction datagrams received
        std::uint32_t marks = 0;       // end marks received
        int repairCount = 0;
        int tailSeen = -1;               // latest of corrections then end marks received
        int arrivals = 0;                // datagrams accepted
        int dataCount = 0;               // 0 until a datagram tells
        std::size_t codedLength = 0;     // 0 until a correction datagram tells
        std::size_t longestData = 0;     // longest block among the data received
        std::uint8_t* blocks = nullptr;  // kBlocks of stride_ bytes: data, then corrections
    };

    struct Held {
        FecHeader header;
        std::size_t length = 0;
        std::uint8_t* bytes = nullptr;  // runStride_ bytes
    };

    bool Allocate() noexcept;
    bool InPlace(const FecHeader& h) const noexcept;
    // Holds an out-of-place datagram; the kConfirm-th that agrees moves the window.
    bool Hold(const FecHeader& h, const std::uint8_t* datagram, std::size_t length, FecSpan* out,
              int* count) noexcept;
    void MoveTo(std::uint32_t epoch, std::uint32_t group) noexcept;
    bool Accept(const FecHeader& h, const std::uint8_t* datagram, FecSpan* out,
                int* count) noexcept;
    void NoteOrder(const FecHeader& h) noexcept;

    Group* Find(std::uint32_t number) noexcept;
    Group* FindOrAdd(std::uint32_t number) noexcept;
    std::uint8_t* Block(Group& g, int i) noexcept { return g.blocks + i * stride_; }
    bool AddData(Group& g, const FecHeader& h, const std::uint8_t* payload) noexcept;
    bool AddRepair(Group& g, const FecHeader& h, const std::uint8_t* payload) noexcept;
    bool AddEndMark(Group& g, const FecHeader& h) noexcept;
    // A data count that the group's data received so far does not contradict.
    static bool Fits(const Group& g, int dataCount) noexcept;
    // Restores the group once enough is in; marks what it restored ready.
    void TryRestore(Group& g) noexcept;
    void Hand(Group& g, int index, FecSpan* out, int* count) noexcept;
    // Whether the gap the cursor stands at in g can no longer be filled.
    bool Hopeless(const Group& g) const noexcept;
    // Hands out, in order, what no gap holds back any more.
    void Release(FecSpan* out, int* count) noexcept;

    std::size_t maxFragment_ = 0;
    std::size_t stride_ = 0;
    std::size_t runStride_ = 0;
    bool haveEpoch_ = false;
    std::uint32_t epoch_ = 0;
    std::uint32_t latest_ = 0;
    // The latest datagram in sending order (group, then data, corrections, end marks) and how
    // many have come since the last that arrived out of that order.
    std::uint32_t lastGroup_ = 0;
    int lastPlace_ = -1;
    int orderedRun_ = 0;
    // The next fragment to hand out (groups with corrections only).
    std::uint32_t nextGroup_ = 0;
    int nextIndex_ = 0;
    // Where the cursor stood when the window last moved away: coming back to that stream, the
    // decoder hands nothing out twice.
    bool haveLeft_ = false;
    std::uint32_t leftEpoch_ = 0;
    std::uint32_t leftGroup_ = 0;
    int leftIndex_ = 0;
    Group groups_[kWindow];
    Held run_[kConfirm];
    int runCount_ = 0;
    std::vector<std::uint8_t> storage_;  // allocated by the first Decode
};

}  // namespace transport
