// Fragment reassembly as the receiver's thread does it. The input is read twice: as records, a
// sequence of fragments as the coder handed them out (any header, any length); and whole, as a
// packet that the caster's cutting and the receiver's reassembly must give back byte for byte
// whatever order its fragments arrive in.
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "FuzzSupport.h"
#include "cast/Fragment.h"

using namespace vantrel::cast;
using vantrel::fuzz::Input;

namespace {

Reassembler& Receiver() {
    static Reassembler reassembler;
    return reassembler;
}

void Reassemble(const uint8_t* data, size_t size) {
    Reassembler& r = Receiver();
    r.Reset();
    Input in(data, size);
    const uint8_t* fragment;
    size_t length;
    while (in.Record(&fragment, &length)) {
        FragmentHeader header{};
        const bool readable = ReadFragmentHeader(fragment, length, &header);
        FUZZ_CHECK(readable == (length >= kFragmentHeaderSize));
        uint32_t packetLength = 0xDEADBEEF;
        if (!r.Add(fragment, length, &packetLength)) {
            FUZZ_CHECK(packetLength == 0xDEADBEEF);
            continue;
        }
        FUZZ_CHECK(readable && packetLength == header.totalLength);
        FUZZ_CHECK(packetLength <= kMaxPacketSize && r.messageNumber() == header.messageNumber);
        vantrel::fuzz::Touch(r.packet(), packetLength);
    }
}

void CutAndReassemble(const uint8_t* packet, size_t size) {
    const uint32_t message = size >= 4 ? packet[0] | packet[1] << 8 | packet[2] << 16 : 7;
    std::vector<std::vector<uint8_t>> fragments;
    uint8_t buffer[kMaxFragmentSize];
    Fragmenter cutter(buffer, message, packet, static_cast<uint32_t>(size));
    for (uint32_t n; (n = cutter.Next()) != 0;) {
        FUZZ_CHECK(n > kFragmentHeaderSize && n <= kMaxFragmentSize);
        fragments.emplace_back(buffer, buffer + n);
    }
    FUZZ_CHECK(fragments.size() == (size + kMaxFragmentData - 1) / kMaxFragmentData);
    // An order of arrival picked by the packet's own bytes.
    uint32_t x = 0x9E3779B9u ^ static_cast<uint32_t>(size);
    for (size_t i = 0; i < size; ++i)
        x = (x ^ packet[i]) * 0x01000193u;
    for (size_t i = fragments.size(); i > 1; --i) {
        x = x * 1664525u + 1013904223u;
        std::swap(fragments[i - 1], fragments[(x >> 8) % i]);
    }
    Reassembler& r = Receiver();
    r.Reset();
    for (size_t i = 0; i < fragments.size(); ++i) {
        FragmentHeader header;
        FUZZ_CHECK(ReadFragmentHeader(fragments[i].data(), fragments[i].size(), &header));
        FUZZ_CHECK(header.messageNumber == message && header.totalLength == size &&
                   header.offset % kMaxFragmentData == 0);
        uint32_t packetLength = 0;
        const bool done = r.Add(fragments[i].data(), fragments[i].size(), &packetLength);
        FUZZ_CHECK(done == (i + 1 == fragments.size()));
        if (done)
            FUZZ_CHECK(packetLength == size && std::memcmp(r.packet(), packet, size) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!Receiver().Ready())
        return 0;
    Reassemble(data, size);
    if (size <= kMaxPacketSize)
        CutAndReassemble(data, size);
    return 0;
}
