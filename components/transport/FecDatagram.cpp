#include "FecDatagram.h"

#include <zlib.h>

#include "Gf256.h"

namespace transport {
namespace {

constexpr std::uint8_t kVersion = 2;
constexpr std::uint8_t kFlagChecksum = 1;
constexpr std::uint8_t kFlagRepair = 2;
constexpr std::uint8_t kFlagEnd = 4;
constexpr std::uint8_t kFlagEndMark = 8;

void Put16(std::uint8_t* p, std::uint32_t v) noexcept {
    p[0] = static_cast<std::uint8_t>(v);
    p[1] = static_cast<std::uint8_t>(v >> 8);
}
void Put32(std::uint8_t* p, std::uint32_t v) noexcept {
    Put16(p, v);
    Put16(p + 2, v >> 16);
}
std::uint32_t Get16(const std::uint8_t* p) noexcept {
    return p[0] | (p[1] << 8);
}
std::uint32_t Get32(const std::uint8_t* p) noexcept {
    return Get16(p) | (Get16(p + 2) << 16);
}

std::uint32_t DatagramCrc(const std::uint8_t* datagram, std::size_t length) noexcept {
    static const std::uint8_t kZero[4] = {};
    uLong crc = crc32(0, datagram, 20);
    crc = crc32(crc, kZero, 4);
    return static_cast<std::uint32_t>(
        crc32(crc, datagram + kFecHeaderSize, static_cast<uInt>(length - kFecHeaderSize)));
}

}  // namespace

std::uint8_t FecCoefficient(int repair, int data) noexcept {
    return GfInv(static_cast<std::uint8_t>((kFecMaxGroup + repair) ^ data));
}

void WriteFecHeader(std::uint8_t* d, const FecHeader& h) noexcept {
    d[0] = 'V';
    d[1] = 'F';
    d[2] = kVersion;
    d[3] = (h.checksum ? kFlagChecksum : 0) | (h.repair ? kFlagRepair : 0) |
           (h.end ? kFlagEnd : 0) | (h.endMark ? kFlagEndMark : 0);
    Put32(d + 4, h.epoch);
    Put32(d + 8, h.group);
    d[12] = static_cast<std::uint8_t>(h.index);
    d[13] = static_cast<std::uint8_t>(h.dataCount);
    d[14] = static_cast<std::uint8_t>(h.repairCount);
    d[15] = 0;
    Put16(d + 16, static_cast<std::uint32_t>(h.payloadLength));
    Put16(d + 18, 0);
    Put32(d + 20, 0);
    Put32(d + 20, DatagramCrc(d, kFecHeaderSize + (h.checksum ? h.payloadLength : 0)));
}

bool ParseFecDatagram(const std::uint8_t* d, std::size_t length, std::size_t maxFragment,
                      FecHeader* h) noexcept {
    if (!d || length < kFecHeaderSize || d[0] != 'V' || d[1] != 'F' || d[2] != kVersion)
        return false;
    const std::uint8_t flags = d[3];
    if ((flags & ~(kFlagChecksum | kFlagRepair | kFlagEnd | kFlagEndMark)) || d[15] ||
        Get16(d + 18))
        return false;
    FecHeader r;
    r.checksum = flags & kFlagChecksum;
    r.repair = flags & kFlagRepair;
    r.end = flags & kFlagEnd;
    r.endMark = flags & kFlagEndMark;
    r.epoch = Get32(d + 4);
    r.group = Get32(d + 8);
    r.index = d[12];
    r.dataCount = d[13];
    r.repairCount = d[14];
    r.payloadLength = Get16(d + 16);
    if (length != kFecHeaderSize + r.payloadLength || r.repairCount > kFecMaxRepair)
        return false;
    if (r.endMark) {
        if (r.repair || r.end || r.index >= kFecEndMarks || r.dataCount < 1 ||
            r.dataCount > kFecMaxGroup || r.repairCount < 1 || r.payloadLength)
            return false;
    } else if (r.repair) {
        if (r.dataCount < 1 || r.dataCount > kFecMaxGroup || r.index >= r.repairCount ||
            r.payloadLength < 3 || r.payloadLength > maxFragment + 2)
            return false;
    } else if (r.end && r.repair) {
        return false;
    } else if (r.dataCount > kFecMaxGroup || r.index >= kFecMaxGroup || r.payloadLength < 1 ||
               r.payloadLength > maxFragment || (r.end && !r.dataCount)) {
        return false;
    }
    if (Get32(d + 20) != DatagramCrc(d, r.checksum ? length : kFecHeaderSize))
        return false;
    *h = r;
    return true;
}

}  // namespace transport
