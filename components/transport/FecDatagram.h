// The datagram FecEncoder writes and FecDecoder reads. Every datagram describes itself; the
// decoder needs nothing else. Layout, little-endian:
//    0  u8[2] "VF"
//    2  u8   version (1)
//    3  u8   flags: bit 0 CRC-32 present, bit 1 correction datagram; other bits 0
//    4  u32  epoch: the encoder's, new at every Configure and Reset
//    8  u32  group number, one more per closed group
//   12  u8   index: of the data datagram in its group (< 32), or of the correction datagram
//   13  u8   data datagrams in the group (correction datagrams, 1 to 32); in a data datagram
//            those of the group before (0 to 32, 0 in an epoch's first group), so that a
//            receiver learns where a group ended even when all its corrections were lost
//   14  u8   correction datagrams in the group (0 to 32; at least 1 in a correction datagram)
//   15  u8   0
//   16  u16  payload length: the fragment's, or the coded block's (fragment length + 2)
//   18  u16  0
//   20  u32  CRC-32 of the whole datagram with this field 0; 0 when bit 0 is clear
//   24  payload
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

struct FecHeader {
    bool checksum = false;
    bool repair = false;
    std::uint32_t epoch = 0;
    std::uint32_t group = 0;
    int index = 0;
    int dataCount = 0;  // of this group (correction datagram) or the one before (data datagram)
    int repairCount = 0;
    std::size_t payloadLength = 0;
};

// The coefficient of data block i in correction block j.
std::uint8_t FecCoefficient(int repair, int data) noexcept;

// Writes the header over datagram[0, kFecHeaderSize) and, when h.checksum, the CRC over the
// header and h.payloadLength bytes of payload that must already follow it.
void WriteFecHeader(std::uint8_t* datagram, const FecHeader& h) noexcept;

// Checks the datagram whole: signature, version, flags, reserved bytes, counts, the length
// against the bytes given and the CRC. The payload limit is the decoder's largest fragment.
bool ParseFecDatagram(const std::uint8_t* datagram, std::size_t length, std::size_t maxFragment,
                      FecHeader* h) noexcept;

}  // namespace transport
