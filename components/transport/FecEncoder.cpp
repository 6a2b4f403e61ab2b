#include "FecEncoder.h"

#include <cstring>

#include "Gf256.h"

namespace transport {

bool FecEncoder::Configure(int groupSize, int repairCount, int maxFragment, std::uint32_t epoch) {
    if (groupSize < 1 || groupSize > kFecMaxGroup || repairCount < 0 ||
        repairCount > kFecMaxRepair || maxFragment < 1 || maxFragment > kFecMaxPacketLimit)
        return false;
    groupSize_ = groupSize;
    repairCount_ = repairCount;
    maxFragment_ = static_cast<std::size_t>(maxFragment);
    repairStride_ = kFecHeaderSize + maxFragment_ + 2;
    data_.assign(kFecHeaderSize + maxFragment_, 0);
    repairs_.assign(repairStride_ * repairCount_, 0);
    Reset(epoch);
    return true;
}

void FecEncoder::Reset(std::uint32_t epoch) noexcept {
    epoch_ = epoch;
    group_ = 0;
    dataInGroup_ = 0;
    previousGroupSize_ = 0;
    previousEnded_ = false;
    codedLength_ = 0;
}

int FecEncoder::Encode(const std::uint8_t* fragment, std::size_t length, FecSpan* out) noexcept {
    if (!fragment || length < 1 || length > maxFragment_)
        return -1;
    const int index = dataInGroup_++;

    FecHeader h;
    h.checksum = checksum_;
    h.epoch = epoch_;
    h.group = group_;
    h.index = index;
    h.dataCount = previousGroupSize_;
    h.end = previousEnded_ && previousGroupSize_;
    h.repairCount = repairCount_;
    h.payloadLength = length;
    std::memcpy(data_.data() + kFecHeaderSize, fragment, length);
    WriteFecHeader(data_.data(), h);
    out[0] = {data_.data(), kFecHeaderSize + length};

    const std::size_t blockLength = length + 2;
    if (blockLength > codedLength_) {
        for (int j = 0; j < repairCount_; ++j)
            std::memset(Repair(j) + kFecHeaderSize + codedLength_, 0, blockLength - codedLength_);
        codedLength_ = blockLength;
    }
    for (int j = 0; j < repairCount_; ++j) {
        const std::uint8_t c = FecCoefficient(j, index);
        std::uint8_t* block = Repair(j) + kFecHeaderSize;
        block[0] ^= GfMul(c, static_cast<std::uint8_t>(length));
        block[1] ^= GfMul(c, static_cast<std::uint8_t>(length >> 8));
        GfMulAdd(block + 2, fragment, c, length);
    }
    if (dataInGroup_ < groupSize_)
        return 1;
    return 1 + CloseGroup(out + 1);
}

int FecEncoder::Drain(FecSpan* out) noexcept {
    int n = 0;
    if (dataInGroup_)
        n = CloseGroup(out);
    else if (!previousGroupSize_ || previousEnded_)
        return 0;
    previousEnded_ = true;
    if (!repairCount_)
        return n;  // nothing waits for corrections, so nothing waits for the end either
    FecHeader h;
    h.checksum = checksum_;
    h.endMark = true;
    h.epoch = epoch_;
    h.group = group_ - 1;
    h.dataCount = previousGroupSize_;
    h.repairCount = repairCount_;
    for (int i = 0; i < kFecEndMarks; ++i) {
        h.index = i;
        WriteFecHeader(endMarks_[i], h);
        out[n++] = {endMarks_[i], kFecHeaderSize};
    }
    return n;
}

int FecEncoder::CloseGroup(FecSpan* out) noexcept {
    FecHeader h;
    h.checksum = checksum_;
    h.repair = true;
    h.epoch = epoch_;
    h.group = group_;
    h.dataCount = dataInGroup_;
    h.repairCount = repairCount_;
    h.payloadLength = codedLength_;
    for (int j = 0; j < repairCount_; ++j) {
        h.index = j;
        WriteFecHeader(Repair(j), h);
        out[j] = {Repair(j), kFecHeaderSize + codedLength_};
    }
    ++group_;
    previousGroupSize_ = dataInGroup_;
    previousEnded_ = false;
    dataInGroup_ = 0;
    codedLength_ = 0;
    return repairCount_;
}

}  // namespace transport
