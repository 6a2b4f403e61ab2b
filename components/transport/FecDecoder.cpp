#include "FecDecoder.h"

#include <algorithm>
#include <cstring>

#include "Gf256.h"

namespace transport {
namespace {

int PopCount(std::uint32_t v) noexcept {
    return __builtin_popcount(v);
}

std::int32_t Distance(std::uint32_t a, std::uint32_t b) noexcept {
    return static_cast<std::int32_t>(a - b);
}

// Inverts the n x n matrix m (row-major, stride kFecMaxGroup) in place into inv; false when
// singular (never for a Cauchy matrix, but the caller must not trust that blindly).
bool Invert(std::uint8_t (*m)[kFecMaxGroup], std::uint8_t (*inv)[kFecMaxGroup], int n) noexcept {
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c)
            inv[r][c] = r == c;
    for (int col = 0; col < n; ++col) {
        int pivot = col;
        while (pivot < n && !m[pivot][col])
            ++pivot;
        if (pivot == n)
            return false;
        if (pivot != col) {
            for (int c = 0; c < n; ++c) {
                std::swap(m[pivot][c], m[col][c]);
                std::swap(inv[pivot][c], inv[col][c]);
            }
        }
        const std::uint8_t scale = GfInv(m[col][col]);
        for (int c = 0; c < n; ++c) {
            m[col][c] = GfMul(m[col][c], scale);
            inv[col][c] = GfMul(inv[col][c], scale);
        }
        for (int r = 0; r < n; ++r) {
            const std::uint8_t f = m[r][col];
            if (r == col || !f)
                continue;
            for (int c = 0; c < n; ++c) {
                m[r][c] ^= GfMul(f, m[col][c]);
                inv[r][c] ^= GfMul(f, inv[col][c]);
            }
        }
    }
    return true;
}

}  // namespace

bool FecDecoder::Configure(int maxFragment) {
    if (maxFragment < 1 || maxFragment > kFecMaxPacketLimit)
        return false;
    maxFragment_ = static_cast<std::size_t>(maxFragment);
    stride_ = (maxFragment_ + 2 + 15) & ~std::size_t{15};
    runStride_ = kFecHeaderSize + maxFragment_ + 2;
    storage_.clear();
    storage_.shrink_to_fit();
    Reset();
    return true;
}

void FecDecoder::Reset() noexcept {
    haveEpoch_ = false;
    haveLeft_ = false;
    runCount_ = 0;
    nextGroup_ = 0;
    nextIndex_ = 0;
    for (Group& g : groups_) {
        std::uint8_t* blocks = g.blocks;
        g = Group();
        g.blocks = blocks;
    }
}

bool FecDecoder::Allocate() noexcept {
    if (!storage_.empty())
        return true;
    const std::size_t groupBytes = stride_ * kBlocks;
    try {
        storage_.resize(groupBytes * kWindow + runStride_ * kConfirm);
    } catch (...) {
        return false;
    }
    for (int i = 0; i < kWindow; ++i)
        groups_[i].blocks = storage_.data() + i * groupBytes;
    for (int i = 0; i < kConfirm; ++i)
        run_[i].bytes = storage_.data() + groupBytes * kWindow + i * runStride_;
    return true;
}

FecDecoder::Group* FecDecoder::Find(std::uint32_t number) noexcept {
    for (Group& g : groups_)
        if (g.used && g.number == number)
            return &g;
    return nullptr;
}

FecDecoder::Group* FecDecoder::FindOrAdd(std::uint32_t number) noexcept {
    if (Group* g = Find(number))
        return g;
    const std::int32_t d = Distance(number, latest_);
    if (d <= -kWindow)
        return nullptr;  // late: its slot may already serve another group
    Group* slot = nullptr;
    for (Group& g : groups_) {
        if (!g.used) {
            slot = &g;
            break;
        }
        if (!slot || Distance(g.number, slot->number) < 0)
            slot = &g;
    }
    if (slot->used && Distance(slot->number, number) > 0)
        return nullptr;  // every group held is newer
    std::uint8_t* blocks = slot->blocks;
    *slot = Group();
    slot->used = true;
    slot->number = number;
    slot->blocks = blocks;
    if (d > 0)
        latest_ = number;
    return slot;
}

FecDecoder::Result FecDecoder::Decode(const std::uint8_t* datagram, std::size_t length,
                                      FecSpan* out, int* count) noexcept {
    *count = 0;
    FecHeader h;
    if (!ParseFecDatagram(datagram, length, maxFragment_, &h) || !Allocate())
        return Result::kDropped;
    if (!haveEpoch_) {
        MoveTo(h.epoch, h.group);
    } else if (!InPlace(h)) {
        return Hold(h, datagram, length, out, count) ? Result::kAccepted : Result::kDropped;
    }
    runCount_ = 0;  // the stream goes on where it was: what was held was stray
    return Accept(h, datagram, out, count) ? Result::kAccepted : Result::kDropped;
}

bool FecDecoder::InPlace(const FecHeader& h) const noexcept {
    const std::int32_t d = Distance(h.group, latest_);
    return h.epoch == epoch_ && d > -kWindow && d <= kWindow;
}

bool FecDecoder::Hold(const FecHeader& h, const std::uint8_t* datagram, std::size_t length,
                      FecSpan* out, int* count) noexcept {
    if (runCount_) {
        const std::int32_t d = Distance(h.group, run_[0].header.group);
        if (h.epoch != run_[0].header.epoch || d <= -kWindow || d >= kWindow)
            runCount_ = 0;
    }
    for (int i = 0; i < runCount_; ++i)
        if (std::memcmp(run_[i].bytes, datagram, kFecHeaderSize) == 0)
            return false;  // a repeat confirms nothing
    Held& held = run_[runCount_++];
    held.header = h;
    held.length = length;
    std::memcpy(held.bytes, datagram, length);
    if (runCount_ < kConfirm)
        return false;

    std::uint32_t first = run_[0].header.group;
    for (int i = 1; i < runCount_; ++i)
        if (Distance(run_[i].header.group, first) < 0)
            first = run_[i].header.group;
    MoveTo(h.epoch, first);
    const int n = runCount_;
    runCount_ = 0;
    bool accepted = false;
    for (int i = 0; i < n; ++i)
        accepted |= Accept(run_[i].header, run_[i].bytes, out, count);
    return accepted;
}

void FecDecoder::MoveTo(std::uint32_t epoch, std::uint32_t group) noexcept {
    const bool back = haveLeft_ && leftEpoch_ == epoch && Distance(leftGroup_, group) >= 0 &&
                      Distance(leftGroup_, group) < kWindow;
    const std::uint32_t backGroup = leftGroup_;
    const int backIndex = leftIndex_;
    haveLeft_ = haveEpoch_;
    leftEpoch_ = epoch_;
    leftGroup_ = nextGroup_;
    leftIndex_ = nextIndex_;
    for (Group& g : groups_) {
        std::uint8_t* blocks = g.blocks;
        g = Group();
        g.blocks = blocks;
    }
    haveEpoch_ = true;
    epoch_ = epoch;
    latest_ = group;
    lastPlace_ = -1;
    orderedRun_ = 0;
    nextGroup_ = back ? backGroup : group;
    nextIndex_ = back ? backIndex : 0;
}

void FecDecoder::NoteOrder(const FecHeader& h) noexcept {
    const int place = h.endMark  ? 2 * kFecMaxGroup + h.index
                      : h.repair ? kFecMaxGroup + h.index
                                 : h.index;
    const std::int32_t d = Distance(h.group, lastGroup_);
    if (lastPlace_ >= 0 && (d < 0 || (d == 0 && place < lastPlace_))) {
        orderedRun_ = 0;
        return;
    }
    lastGroup_ = h.group;
    lastPlace_ = place;
    if (orderedRun_ < kTrustOrder)
        ++orderedRun_;
}

bool FecDecoder::Accept(const FecHeader& h, const std::uint8_t* datagram, FecSpan* out,
                        int* count) noexcept {
    NoteOrder(h);
    const bool ordered = h.repairCount > 0;
    if (ordered && Distance(h.group, nextGroup_) < 0)
        return false;  // its place in the order has passed
    Group* g = FindOrAdd(h.group);
    if (!g || g->done)
        return false;
    if (!g->arrivals)
        g->repairCount = h.repairCount;
    const std::uint8_t* payload = datagram + kFecHeaderSize;
    if (h.repairCount != g->repairCount || !(h.endMark  ? AddEndMark(*g, h)
                                             : h.repair ? AddRepair(*g, h, payload)
                                                        : AddData(*g, h, payload)))
        return false;
    ++g->arrivals;

    // A data datagram tells where the group before it ended, and whether a burst ended there.
    if (!h.repair && !h.endMark && h.dataCount) {
        Group* previous = Find(h.group - 1);
        if (previous && (previous->dataCount ? previous->dataCount == h.dataCount
                                             : Fits(*previous, h.dataCount))) {
            previous->final |= h.end;
            if (!previous->dataCount) {
                previous->dataCount = h.dataCount;
                TryRestore(*previous);
            }
        }
    }
    TryRestore(*g);
    if (!g->done && g->dataMask == 0xFFFFFFFFu)
        g->done = true;

    if (ordered) {
        Release(out, count);
    } else {
        for (int i = 0; i < kFecMaxGroup && *count < kMaxDecodeOutput; ++i)
            if ((g->ready & ~g->handed) & (1u << i))
                Hand(*g, i, out, count);
    }
    return true;
}

bool FecDecoder::Fits(const Group& g, int dataCount) noexcept {
    return dataCount == kFecMaxGroup || !(g.dataMask >> dataCount);
}

bool FecDecoder::AddData(Group& g, const FecHeader& h, const std::uint8_t* payload) noexcept {
    const std::uint32_t bit = 1u << h.index;
    const std::size_t blockLength = h.payloadLength + 2;
    if (((g.dataMask | g.handed) & bit) || (g.dataCount && h.index >= g.dataCount) ||
        (g.codedLength && blockLength > g.codedLength))
        return false;
    std::uint8_t* block = Block(g, h.index);
    block[0] = static_cast<std::uint8_t>(h.payloadLength);
    block[1] = static_cast<std::uint8_t>(h.payloadLength >> 8);
    std::memcpy(block + 2, payload, h.payloadLength);
    std::memset(block + blockLength, 0, stride_ - blockLength);
    g.dataMask |= bit;
    g.ready |= bit;
    if (blockLength > g.longestData)
        g.longestData = blockLength;
    return true;
}

bool FecDecoder::AddRepair(Group& g, const FecHeader& h, const std::uint8_t* payload) noexcept {
    const std::uint32_t bit = 1u << h.index;
    if (g.repairMask & bit)
        return false;
    if (g.dataCount ? h.dataCount != g.dataCount : !Fits(g, h.dataCount))
        return false;
    if (g.codedLength ? h.payloadLength != g.codedLength : g.longestData > h.payloadLength)
        return false;
    g.dataCount = h.dataCount;
    g.codedLength = h.payloadLength;
    std::memcpy(Block(g, kFecMaxGroup + h.index), payload, h.payloadLength);
    g.repairMask |= bit;
    if (h.index > g.tailSeen)
        g.tailSeen = h.index;
    return true;
}

bool FecDecoder::AddEndMark(Group& g, const FecHeader& h) noexcept {
    const std::uint32_t bit = 1u << h.index;
    if ((g.marks & bit) || (g.dataCount ? h.dataCount != g.dataCount : !Fits(g, h.dataCount)))
        return false;
    g.dataCount = h.dataCount;
    g.marks |= bit;
    g.ended = true;
    if (g.repairCount + h.index > g.tailSeen)
        g.tailSeen = g.repairCount + h.index;
    return true;
}

void FecDecoder::TryRestore(Group& g) noexcept {
    if (!g.dataCount || g.done)
        return;
    const std::uint32_t all = g.dataCount == 32 ? 0xFFFFFFFFu : (1u << g.dataCount) - 1;
    const std::uint32_t missing = all & ~g.dataMask;
    const int lost = PopCount(missing);
    if (lost == 0) {
        g.done = true;
        return;
    }
    if (!g.codedLength || PopCount(g.repairMask) < lost)
        return;

    int lostIndex[kFecMaxGroup];
    int repairIndex[kFecMaxGroup];
    for (int i = 0, n = 0; i < g.dataCount; ++i)
        if (missing & (1u << i))
            lostIndex[n++] = i;
    for (int j = 0, n = 0; n < lost; ++j)
        if (g.repairMask & (1u << j))
            repairIndex[n++] = j;

    // Take the received data out of the chosen corrections: what remains is the lost blocks
    // times the square Cauchy part, which is inverted.
    const std::size_t len = g.codedLength;
    for (int a = 0; a < lost; ++a) {
        std::uint8_t* syndrome = Block(g, kFecMaxGroup + repairIndex[a]);
        for (int i = 0; i < g.dataCount; ++i)
            if (g.dataMask & (1u << i))
                GfMulAdd(syndrome, Block(g, i), FecCoefficient(repairIndex[a], i), len);
    }
    std::uint8_t m[kFecMaxGroup][kFecMaxGroup];
    std::uint8_t inv[kFecMaxGroup][kFecMaxGroup];
    for (int a = 0; a < lost; ++a)
        for (int b = 0; b < lost; ++b)
            m[a][b] = FecCoefficient(repairIndex[a], lostIndex[b]);
    g.done = true;
    if (!Invert(m, inv, lost))
        return;
    for (int b = 0; b < lost; ++b) {
        std::uint8_t* block = Block(g, lostIndex[b]);
        std::memset(block, 0, stride_);
        for (int a = 0; a < lost; ++a)
            GfMulAdd(block, Block(g, kFecMaxGroup + repairIndex[a]), inv[b][a], len);
        const std::size_t fragment = block[0] | (block[1] << 8);
        // Without checksums a damaged datagram can yield garbage; never hand out more than
        // the block holds.
        if (fragment >= 1 && fragment <= maxFragment_ && fragment + 2 <= len)
            g.ready |= 1u << lostIndex[b];
    }
}

void FecDecoder::Hand(Group& g, int index, FecSpan* out, int* count) noexcept {
    const std::uint8_t* block = Block(g, index);
    out[(*count)++] = {block + 2, static_cast<std::size_t>(block[0] | (block[1] << 8))};
    g.handed |= 1u << index;
}

bool FecDecoder::Hopeless(const Group& g) const noexcept {
    // Restore was tried (a gap left means what it gave was not a fragment), or is tried with
    // every datagram and nothing more of the group comes.
    if (g.done || g.final)
        return true;
    // The group ended a burst and the stream keeps its order: the only datagrams of it still
    // to come are corrections sent after the latest one in, or overtaken by it.
    if (g.ended && orderedRun_ >= kTrustOrder) {
        const std::uint32_t all = g.dataCount == 32 ? 0xFFFFFFFFu : (1u << g.dataCount) - 1;
        int coming = 0;
        for (int j = std::max(0, g.tailSeen - kReorderDepth); j < g.repairCount; ++j)
            coming += !(g.repairMask & (1u << j));
        if (PopCount(all & ~g.dataMask) > PopCount(g.repairMask) + coming)
            return true;
    }
    // Datagrams arrive in any order, so a gap can still fill from this group's own datagrams
    // until enough of the later groups have come: those were sent after all of this one.
    int later = 0;
    for (const Group& other : groups_)
        if (other.used && Distance(other.number, g.number) > 0)
            later += other.arrivals;
    return later >= kReorderSlack;
}

void FecDecoder::Release(FecSpan* out, int* count) noexcept {
    for (;;) {
        if (Distance(latest_, nextGroup_) >= kWindow) {
            // The window has moved past: what the cursor waited for is gone.
            nextGroup_ = latest_ - (kWindow - 1);
            nextIndex_ = 0;
        }
        Group* g = Find(nextGroup_);
        if (!g) {
            // Nothing of it came, and a later group has: none of it will.
            if (Distance(latest_, nextGroup_) <= 0)
                return;
            ++nextGroup_;
            nextIndex_ = 0;
            continue;
        }
        if (nextIndex_ >= (g->dataCount ? g->dataCount : kFecMaxGroup)) {
            ++nextGroup_;
            nextIndex_ = 0;
            continue;
        }
        const std::uint32_t bit = 1u << nextIndex_;
        if (g->ready & bit) {
            if (*count == kMaxDecodeOutput)
                return;
            Hand(*g, nextIndex_++, out, count);
            continue;
        }
        if (!g->givenUp)
            g->givenUp = Hopeless(*g);
        if (!g->givenUp)
            return;
        g->handed |= bit;
        ++nextIndex_;
    }
}

}  // namespace transport
