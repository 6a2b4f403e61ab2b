// Fragment header, cutting and reassembly (see Fragment.h).
#include "cast/Fragment.h"

#include <algorithm>
#include <new>

namespace vantrel::cast {

namespace {

uint32_t LoadU32(const uint8_t* p) noexcept {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

void StoreU32(uint8_t* p, uint32_t v) noexcept {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
    p[2] = static_cast<uint8_t>(v >> 16);
    p[3] = static_cast<uint8_t>(v >> 24);
}

}  // namespace

void WriteFragmentHeader(uint8_t* out, const FragmentHeader& header) noexcept {
    StoreU32(out, header.messageNumber);
    StoreU32(out + 4, header.offset);
    StoreU32(out + 8, header.totalLength);
}

bool ReadFragmentHeader(const uint8_t* fragment, size_t length, FragmentHeader* header) noexcept {
    if (!fragment || length < kFragmentHeaderSize)
        return false;
    header->messageNumber = LoadU32(fragment);
    header->offset = LoadU32(fragment + 4);
    header->totalLength = LoadU32(fragment + 8);
    return true;
}

Fragmenter::Fragmenter(uint8_t* buffer, uint32_t messageNumber, const void* packet,
                       uint32_t length) noexcept
    : buffer_(buffer), packet_(static_cast<const uint8_t*>(packet)), length_(packet ? length : 0) {
    // The message number and total length stay in the buffer for every fragment of the packet.
    WriteFragmentHeader(buffer_, FragmentHeader{messageNumber, 0, length});
}

uint32_t Fragmenter::Next() noexcept {
    if (offset_ >= length_)
        return 0;
    const uint32_t n = std::min(length_ - offset_, kMaxFragmentData);
    StoreU32(buffer_ + 4, offset_);
    std::memcpy(buffer_ + kFragmentHeaderSize, packet_ + offset_, n);
    offset_ += n;
    return n + kFragmentHeaderSize;
}

Reassembler::Reassembler() noexcept : buffer_(new (std::nothrow) uint8_t[kMaxPacketSize]) {}

void Reassembler::Reset() noexcept {
    messageNumber_ = 0;
    bytesReceived_ = 0;
}

bool Reassembler::Add(const uint8_t* fragment, size_t length, uint32_t* packetLength) noexcept {
    FragmentHeader header;
    if (!buffer_ || !ReadFragmentHeader(fragment, length, &header))
        return false;
    const size_t n = length - kFragmentHeaderSize;
    if (header.offset > kMaxPacketSize || n > kMaxPacketSize - header.offset)
        return false;
    std::memcpy(buffer_.get() + header.offset, fragment + kFragmentHeaderSize, n);
    if (header.messageNumber != messageNumber_) {
        messageNumber_ = header.messageNumber;
        bytesReceived_ = static_cast<uint32_t>(n);
    } else {
        bytesReceived_ += static_cast<uint32_t>(n);
    }
    // Duplicates can make the count reach a claimed length the buffer cannot hold.
    if (bytesReceived_ != header.totalLength || header.totalLength > kMaxPacketSize)
        return false;
    *packetLength = bytesReceived_;
    return true;
}

}  // namespace vantrel::cast
