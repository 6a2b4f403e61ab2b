// The datagram FecEncoder writes and FecDecoder reads. Every datagram describes itself; the
// decoder needs nothing else. Layout, little-endian:
//    0  u8[2] "VF"
//    2  u8   version (2)
//    3  u8   flags: bit 0 the CRC covers the whole datagram (else the header only), bit 1
//            correction datagram, bit 2 (data datagrams only) the group before ended a burst,
//            bit 3 end mark; other bits 0
//    4  u32  epoch: the encoder's, new at every Configure and Reset
//    8  u32  group number, one more per closed group
//   12  u8   index: of the data datagram in its group (< 32), of the correction datagram, or
//            of the end mark (< kFecEndMarks)
//   13  u8   data datagrams in the group (correction datagrams and end marks, 1 to 32); in a
//            data datagram those of the group before (0 to 32, 0 in an epoch's first group),
//            so that a receiver learns where a group ended even when all its corrections were
//            lost
//   14  u8   correction datagrams in the group (0 to 32; at least 1 in a correction datagram
//            or end mark)
//   15  u8   0
//   16  u16  payload length: the fragment's, the coded block's (fragment length + 2), or 0 in
//            an end mark
//   18  u16  0
//   20  u32  CRC-32 of what bit 0 says, with this field 0
//   24  payload
// A drain ends a burst: nothing follows until the sender has more. With corrections
// configured, kFecEndMarks header-only end marks follow the corrections of the group it closed
// (or of the group closed last, at its size), and the data datagrams of the next group carry
// bit 2. A receiver holding fragments behind a gap learns from them that no datagram of the
// group is still to come, without waiting for later groups to fill its reordering slack.
// The code works on blocks: a fragment's length as u16, then its bytes, zero-padded to the
// longest block of the group; correction datagram j carries sum over i of C(j, i) * block i in
// GF(256), with the Cauchy coefficients C(j, i) = 1 / ((32 + j) xor i). Any square part of
// that matrix is invertible, so any `data count` datagrams of a group restore it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace transport {

constexpr std::size_t kFecHeaderSize = 24;
constexpr int kFecMaxGroup = 32;
constexpr int kFecMaxRepair = 32;
constexpr int kFecMaxPacketLimit = 4096;
constexpr int kFecEndMarks = 2;

struct FecHeader {
    bool checksum = false;  // the CRC covers the payload too
    bool repair = false;
    bool end = false;  // data: the group before ended a burst
    bool endMark = false;
    std::uint32_t epoch = 0;
    std::uint32_t group = 0;
    int index = 0;
    int dataCount = 0;  // of this group (correction, end mark) or the one before (data)
    int repairCount = 0;
    std::size_t payloadLength = 0;
};

// The coefficient of data block i in correction block j.
std::uint8_t FecCoefficient(int repair, int data) noexcept;

// Writes the header over datagram[0, kFecHeaderSize) with its CRC: when h.checksum, over the
// header and h.payloadLength bytes of payload that must already follow it.
void WriteFecHeader(std::uint8_t* datagram, const FecHeader& h) noexcept;

// Checks the datagram whole: signature, version, flags, reserved bytes, counts, the length
// against the bytes given and the CRC. The payload limit is the decoder's largest fragment.
bool ParseFecDatagram(const std::uint8_t* datagram, std::size_t length, std::size_t maxFragment,
                      FecHeader* h) noexcept;

}  // namespace transport
