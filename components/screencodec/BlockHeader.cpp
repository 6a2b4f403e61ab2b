// Reading and writing ScreenCodec.dll's block header (layout in BlockHeader.h).
#include "BlockHeader.h"

#include <zlib.h>

#include "Palette.h"
#include "wincom/Unaligned.h"

namespace screencodec {
namespace {

// Deflate cannot expand data by more than this factor (a 258-byte match in about two bits).
constexpr std::uint64_t kMaxDeflateRatio = 1032;
// Nor zstd by more than this: at best a block of 128 KiB from 4 bytes (3 of header, 1 repeated).
constexpr std::uint64_t kMaxZstdRatio = 32768;

using vantrel::LoadU32;
using vantrel::StoreU32;

std::uint32_t HeaderCrc(const std::uint8_t* block, std::size_t mapLength) noexcept {
    std::uint32_t crc = crc32(0, block, 24);
    return crc32(crc, block + BlockHeader::kFixedSize, static_cast<uInt>(mapLength));
}

const HRESULT kInvalid = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);

}  // namespace

PixelFilter BlockHeader::Filter() const noexcept {
    if (IsPalette())
        return PixelFilter(filter == kPalette555 ? PixelFilter::kDelta555 : PixelFilter::kDelta565,
                           filterOffset);
    return PixelFilter(static_cast<PixelFilter::Kind>(filter), filterOffset);
}

void BlockHeader::Write(std::uint8_t* out) const noexcept {
    StoreU32(out, kTag);
    out[4] = version;
    out[5] = method;
    out[6] = filter;
    out[7] = mode;
    StoreU32(out + 8, originalLength);
    StoreU32(out + 12, bodyLength);
    StoreU32(out + 16, filterOffset);
    StoreU32(out + 20, dataCrc);
    StoreU32(out + 24, HeaderCrc(out, mapLength));
}

HRESULT BlockHeader::Read(const std::uint8_t* block, std::size_t cb) noexcept {
    if (cb < kFixedSize || LoadU32(block) != kTag)
        return kInvalid;
    version = block[4];
    method = block[5];
    filter = block[6];
    mode = block[7];
    originalLength = LoadU32(block + 8);
    bodyLength = LoadU32(block + 12);
    filterOffset = LoadU32(block + 16);
    dataCrc = LoadU32(block + 20);
    const std::uint8_t packed = version == kVersionDeflate ? kDeflate : kZstd;
    if (version < kVersionDeflate || version > kVersion || (method != kStored && method != packed))
        return kInvalid;
    if (mode != 1 && mode != 2)
        return kInvalid;
    if (!PixelFilter::IsKnownKind(filter) && !(IsPalette() && version != kVersionDeflate))
        return kInvalid;

    mapLength = 0;
    if (IsPalette()) {
        // At least one pixel behind the offset; the transform adds at most its colour table.
        mapLength = 4;
        if (method == kStored || cb < kFixedSize + mapLength ||
            static_cast<std::uint64_t>(filterOffset) + 2 > originalLength)
            return kInvalid;
        transformedLength = LoadU32(block + kFixedSize);
        if (transformedLength < filterOffset + 2 + 2 + (originalLength - filterOffset) / 2 ||
            transformedLength > static_cast<std::uint64_t>(originalLength) + Palette::kMaxGrowth)
            return kInvalid;
    } else if (filter != PixelFilter::kNone) {
        const PixelFilter f(static_cast<PixelFilter::Kind>(filter), filterOffset);
        if (method == kStored || f.Chunks(originalLength) == 0)
            return kInvalid;
        mapLength = static_cast<std::uint32_t>(f.MapBytes(originalLength));
    } else if (filterOffset != 0) {
        return kInvalid;
    }
    if (static_cast<std::uint64_t>(kFixedSize) + mapLength + bodyLength != cb)
        return kInvalid;
    if (LoadU32(block + 24) != HeaderCrc(block, mapLength))
        return kInvalid;

    if (method == kStored && bodyLength != originalLength)
        return kInvalid;
    if (method == kDeflate && originalLength > bodyLength * kMaxDeflateRatio)
        return kInvalid;
    if (method == kZstd &&
        (IsPalette() ? transformedLength : originalLength) > bodyLength * kMaxZstdRatio)
        return kInvalid;
    if (mapLength && !IsPalette()) {
        // Bits past the last chunk are never set by a writer.
        const PixelFilter f(static_cast<PixelFilter::Kind>(filter), filterOffset);
        const std::size_t chunks = f.Chunks(originalLength);
        const std::uint8_t last = block[kFixedSize + mapLength - 1];
        if (chunks % 8 && (last >> (chunks % 8)))
            return kInvalid;
    }
    return S_OK;
}

}  // namespace screencodec
