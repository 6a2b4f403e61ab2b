// Desktop stream packets: the one place that knows their byte layout. The encoder, decoder,
// capture, recorder, reader, caster and receiver lay out and check packets through this module;
// the cursor record layout itself is Pavlex.dll's contract (contracts/CursorRecordLayout.h).
//
// Every multi-byte field is little-endian and is read and written byte by byte (memcpy on this
// little-endian target): packets, decompressed bodies and records may sit at any address, so
// nothing here casts a packet to a struct.
#pragma once

#include <cstdint>
#include <cstring>

#include "contracts/CursorRecordLayout.h"
#include "wincom/Unaligned.h"
#include "wincom/WinTypes.h"

namespace vantrel::packet {

// ---- Sizes and magics --------------------------------------------------------------------------

// Every packet buffer, every decompression target and the largest packet anyone accepts.
constexpr uint32_t kBufferSize = 0x180000;
constexpr uint32_t kHeadSize = 12;  // magic, length, time: common to both kinds
constexpr uint32_t kFrameHeaderSize = 48;
constexpr uint32_t kCursorHeaderSize = 12;
constexpr uint32_t kMaxFramePayload = kBufferSize - kFrameHeaderSize;    // 0x17FFD0
constexpr uint32_t kMaxCursorPayload = kBufferSize - kCursorHeaderSize;  // 0x17FFF4
constexpr uint32_t kFrameMagic = 0x46524D48;                             // bytes "HMRF"
constexpr uint32_t kCursorMagic = 0x43555248;                            // bytes "HRUC"

// A frame payload's BITMAPINFO: the 40-byte header and its colour part, never above 1064 bytes
// (256 colour entries), the size of the format block every image keeps.
constexpr uint32_t kBitmapInfoHeaderSize = 40;
constexpr uint32_t kMaxBitmapInfoSize = 1064;

// The largest desktop any decoder builds an image for. A frame packet from the network may claim
// any size and every decoder allocates and clears the whole image it claims, so a packet beyond
// these is dropped before anything is allocated: at most 8192 pixels a side and 128 MiB of
// pixel memory (8192 x 8192 at 16 bits, the depth every sender uses above 8 bits).
constexpr int32_t kMaxDesktopSide = 8192;
constexpr uint64_t kMaxDesktopBytes = 128u << 20;

// ---- Little-endian access ----------------------------------------------------------------------

using vantrel::LoadI32;
using vantrel::LoadU16;
using vantrel::LoadU32;
using vantrel::StoreI32;
using vantrel::StoreU16;
using vantrel::StoreU32;

// ---- Common head and acceptance ----------------------------------------------------------------

struct Head {
    uint32_t magic = 0;
    uint32_t length = 0;  // the whole packet, head included
    uint32_t time = 0;    // milliseconds
};

// packet must have kHeadSize readable (or writable) bytes.
Head ReadHead(const void* packet) noexcept;
void WriteHead(void* packet, const Head& head) noexcept;
// The recorder rewrites the time of every packet it stores.
void SetTime(void* packet, uint32_t time) noexcept;

// What a packet handed to Transfer is, or why every decoder ignores it. A refused packet is
// dropped silently: Transfer still succeeds.
enum class Verdict {
    Frame,
    Cursor,
    NoData,          // null pointer
    TooShort,        // shorter than the common head, or than its own kind's header
    LengthMismatch,  // length field differs from cbData
    TooLong,         // above kBufferSize
    UnknownMagic,
};

Verdict Classify(const void* data, uint32_t cbData) noexcept;
inline bool IsAccepted(Verdict v) noexcept {
    return v == Verdict::Frame || v == Verdict::Cursor;
}
const char* VerdictName(Verdict v) noexcept;

struct ByteRange {
    const BYTE* data = nullptr;
    uint32_t size = 0;
};

// The compressed body behind the header of an accepted packet (frame: from offset 48, cursor:
// from offset 12); empty for a refused verdict.
ByteRange BodyOf(const void* packet, uint32_t cbData, Verdict verdict) noexcept;

// ---- Frame packet ------------------------------------------------------------------------------

struct FrameHeader {
    uint32_t time = 0;
    RECT desktop{};  // 0, 0, desktop width, desktop height
    uint32_t bitsPerPixel = 0;
    RECT band{};  // the part of the desktop the payload's rows cover
};

// Writes the 48-byte header of a frame packet whose compressed payload (already at
// packet + kFrameHeaderSize, or put there later) is payloadSize bytes. Returns the packet's
// length, 48 + payloadSize.
uint32_t WriteFrameHeader(void* packet, const FrameHeader& header, uint32_t payloadSize) noexcept;
// Writes what a frame packet says of its desktop (magic, time, desktop rectangle, depth) and
// leaves the length and band alone: the frame-buffer export writes this even when it has no band
// left to give.
void WriteFrameDesktop(void* packet, const FrameHeader& header) noexcept;
// False when packet is null, shorter than 48 bytes or not "HMRF"; *out is then untouched.
bool ReadFrameHeader(const void* packet, uint32_t cbData, FrameHeader* out) noexcept;
// Whether a decoder builds an image for this desktop rectangle and depth: origin 0, 0, sides of
// 1 to kMaxDesktopSide pixels, a DIB depth, and 32-bit aligned rows within kMaxDesktopBytes.
bool DesktopWithinLimits(const RECT& desktop, uint32_t bitsPerPixel) noexcept;

// ---- Frame payload (decompressed): BITMAPINFO, then the band's unpadded rows ------------------

// Header plus colour part: 40 + 12 for BI_BITFIELDS, 40 + 4 * 2^bpp for 8 bpp or less, else 40.
// biClrUsed plays no part.
uint32_t BitmapInfoSize(uint32_t bitCount, uint32_t compression) noexcept;
// ((right - left) * bpp) / 8; 0 for a band of no or negative width.
uint32_t RowBytes(const RECT& band, uint32_t bitsPerPixel) noexcept;
// How many rows of rowBytes fit behind a BITMAPINFO of bitmapInfoSize bytes in one payload:
// the band height an encoder cuts to. 0 when rowBytes is 0.
uint32_t RowsThatFit(uint32_t bitmapInfoSize, uint32_t rowBytes) noexcept;

enum class PayloadError {
    None,
    TooShort,            // not even a BITMAPINFOHEADER
    HeaderSize,          // biSize is not 40
    BitCount,            // not a DIB depth (1, 4, 8, 16, 24, 32)
    Compression,         // neither BI_RGB nor BI_BITFIELDS at 16 or 32 bpp
    BitCountMismatch,    // biBitCount differs from the packet's bits per pixel
    DesktopMismatch,     // biWidth / -biHeight differ from the packet's desktop rectangle
    BitmapInfoTooLarge,  // colour part missing from the payload, or above 1064 bytes
    BadBand,             // band rectangle with negative width or height
    RowsDoNotFit,        // payload shorter than BITMAPINFO + rows x height
};

// A checked look into a decompressed frame payload. Pointers point into the payload.
struct FramePayloadView {
    BITMAPINFOHEADER header{};         // copy of the payload's first 40 bytes
    DWORD masks[3] = {0, 0, 0};        // red, green, blue for BI_BITFIELDS, else 0
    const BYTE* bitmapInfo = nullptr;  // header + colour part, bitmapInfoSize bytes
    uint32_t bitmapInfoSize = 0;
    const BYTE* rows = nullptr;  // rowCount rows of rowBytes, no padding
    uint32_t rowBytes = 0;
    uint32_t rowCount = 0;  // band height
};

// Checks that payload (size bytes, as the codec gave them back) is a whole payload for the band
// and depth of frame. A band outside the desktop is not refused here: decoders report it but
// neither write nor count it.
PayloadError ParseFramePayload(const void* payload, uint32_t size, const FrameHeader& frame,
                               FramePayloadView* out) noexcept;
const char* PayloadErrorName(PayloadError e) noexcept;

// ---- Cursor packet -----------------------------------------------------------------------------

// Writes the 12-byte head of a cursor packet whose compressed record is recordSize bytes.
// Returns the packet's length, 12 + recordSize.
uint32_t WriteCursorHeader(void* packet, uint32_t time, uint32_t recordSize) noexcept;

// Flags, shape present, x and y: the least a record can be.
constexpr uint32_t kCursorPositionRecordSize = 16;

enum class CursorError {
    None,
    TooShort,       // not even flags, shape present and position (16 bytes)
    BadShape,       // new shape of zero size, unknown depth, AND rows too short for the width,
                    // or XOR rows that do not end on a byte
    MasksDoNotFit,  // AND mask + XOR bits run past the record
};

// A checked look into a decompressed cursor record, masks laid out as CursorRecordLayout.h says:
// the XOR bits begin AND bytes per row x height bytes behind the AND mask and hold unpadded rows
// of width x bpp / 8 bytes. A caller that feeds CreateIcon pads both to 16-bit rows.
struct CursorRecordView {
    CursorRecord record;
    bool newShape = false;     // kCursorNewShape or kCursorShapeAlias, and shape present
    bool newPosition = false;  // kCursorNewPosition
    // Filled only when newShape: pointers into the record.
    const BYTE* shape = nullptr;  // record + kCursorShapeOffset
    const BYTE* andMask = nullptr;
    uint32_t andMaskSize = 0;  // AND bytes per row x height
    const BYTE* xorBits = nullptr;
    uint32_t xorBitsSize = 0;  // width x height x bpp / 8
};

// BadShape and MasksDoNotFit still fill *out with the fixed part (flags, position; newShape
// false); TooShort leaves it untouched. A record shorter than the 28 bytes in front of the
// masks reads as if zeros followed it.
CursorError ParseCursorRecord(const void* record, uint32_t size, CursorRecordView* out) noexcept;
const char* CursorErrorName(CursorError e) noexcept;

}  // namespace vantrel::packet
