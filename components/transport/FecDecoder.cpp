#include "FecDecoder.h"

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
    storage_.clear();
    storage_.shrink_to_fit();
    Reset();
    return true;
}

void FecDecoder::Reset() noexcept {
    haveEpoch_ = false;
    nextGroup_ = 0;
    nextIndex_ = 0;
    for (Group& g : groups_) {
        std::uint8_t* blocks = g.blocks;
        g = Group();
        g.blocks = blocks;
    }
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
    if (!ParseFecDatagram(datagram, length, maxFragment_, &h))
        return Result::kDropped;
    if (storage_.empty()) {
        try {
            storage_.resize(stride_ * kBlocks * kWindow);
        } catch (...) {
            return Result::kDropped;
        }
        for (int i = 0; i < kWindow; ++i)
            groups_[i].blocks = storage_.data() + i * stride_ * kBlocks;
    }
    if (!haveEpoch_ || h.epoch != epoch_) {
        Reset();
        haveEpoch_ = true;
        epoch_ = h.epoch;
        latest_ = h.group;
        nextGroup_ = h.group;
    }
    const bool ordered = h.repairCount > 0;
    if (ordered && Distance(h.group, nextGroup_) < 0)
        return Result::kDropped;  // its place in the order has passed
    Group* g = FindOrAdd(h.group);
    if (!g || g->done)
        return Result::kDropped;
    if (!g->dataMask && !g->repairMask)
        g->repairCount = h.repairCount;
    const std::uint8_t* payload = datagram + kFecHeaderSize;
    if (h.repairCount != g->repairCount ||
        !(h.repair ? AddRepair(*g, h, payload) : AddData(*g, h, payload)))
        return Result::kDropped;
    ++g->arrivals;

    // A data datagram tells where the group before it ended.
    if (!h.repair && h.dataCount) {
        Group* previous = Find(h.group - 1);
        if (previous && !previous->dataCount &&
            (h.dataCount == kFecMaxGroup || !(previous->dataMask >> h.dataCount))) {
            previous->dataCount = h.dataCount;
            TryRestore(*previous);
        }
    }
    TryRestore(*g);
    if (!g->done && g->dataMask == 0xFFFFFFFFu)
        g->done = true;

    if (ordered) {
        Release(out, count);
    } else {
        for (int i = 0; i < kFecMaxGroup; ++i)
            if ((g->ready & ~g->handed) & (1u << i))
                Hand(*g, i, out, count);
    }
    return Result::kAccepted;
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
    if (g.dataCount ? h.dataCount != g.dataCount
                    : h.dataCount < kFecMaxGroup && (g.dataMask >> h.dataCount))
        return false;
    if (g.codedLength ? h.payloadLength != g.codedLength : g.longestData > h.payloadLength)
        return false;
    g.dataCount = h.dataCount;
    g.codedLength = h.payloadLength;
    std::memcpy(Block(g, kFecMaxGroup + h.index), payload, h.payloadLength);
    g.repairMask |= bit;
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
    // Restore was tried (a gap left means what it gave was not a fragment).
    if (g.done)
        return true;
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
