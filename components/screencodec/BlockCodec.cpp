// The compressor behind ScreenCodec: decides filter and method per block, writes and checks
// blocks. Sizes are computed in 64 bits: a 32-bit length plus a header must not wrap.
#include "BlockCodec.h"

#define XXH_STATIC_LINKING_ONLY
#include <common/xxhash.h>

#include <cstring>
#include <new>

#include "wincom/Result.h"

namespace screencodec {
namespace {

const HRESULT kTooSmall = HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
const HRESULT kInvalid = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
const HRESULT kBadCheck = HRESULT_FROM_WIN32(ERROR_CRC);

// Scratch memory kept between calls: every payload of the stream fits (0x180000 bytes).
constexpr std::size_t kKeptScratch = 2u << 20;

// A context is replaced after this many input bytes, so that its window indices stay far below
// 2 GB: on this 32-bit build, zstd 1.5.4 fed gigabytes through one context (its indices grow from
// frame to frame until it rebases them near 2.5 GB) came to read outside its input, which a long
// benchmark run hit after 7 to 18 GB; a live lesson passes that within hours.
constexpr std::uint64_t kRenewAfter = 1ull << 30;

// zstd level for each interface level 1-9.
constexpr int kZstdLevels[9] = {1, 2, 3, 5, 7, 9, 12, 15, 19};

// The palette pays while at most one pixel in this many escapes; beyond, the band is mostly
// photograph and the delta filter does better.
constexpr std::size_t kMaxEscapeShare = 2;

bool IsMode(ULONG mode) noexcept {
    return mode == BlockCodec::kModeStrong || mode == BlockCodec::kModeFast;
}

int ModeIndex(ULONG mode) noexcept {
    return mode == BlockCodec::kModeStrong ? 0 : 1;
}

std::uint32_t CheckValue(std::uint8_t version, const std::uint8_t* data, std::size_t cb) noexcept {
    if (version == BlockHeader::kVersionDeflate)
        return static_cast<std::uint32_t>(crc32(0, data, static_cast<uInt>(cb)));
    return static_cast<std::uint32_t>(XXH32(data, cb, 0));
}

}  // namespace

bool BlockCodec::Buffer::Reserve(std::size_t n) noexcept {
    if (n <= size)
        return true;
    data.reset(new (std::nothrow) std::uint8_t[n]);
    size = data ? n : 0;
    return data != nullptr;
}

BlockCodec::BlockCodec() noexcept = default;

BlockCodec::~BlockCodec() {
    for (ZSTD_CCtx* c : compressors_)
        ZSTD_freeCCtx(c);
    ZSTD_freeDCtx(decompressor_);
    if (inflaterReady_)
        inflateEnd(&inflater_);
}

HRESULT BlockCodec::SetLevel(ULONG mode, ULONG level) noexcept {
    if (!IsMode(mode) || level < 1 || level > 9)
        return E_INVALIDARG;
    const int i = ModeIndex(mode);
    if (levels_[i] != level)
        DropCompressor(i);
    levels_[i] = level;
    return S_OK;
}

HRESULT BlockCodec::GetLevel(ULONG mode, ULONG* level) const noexcept {
    if (!level)
        return E_POINTER;
    if (!IsMode(mode))
        return E_INVALIDARG;
    *level = levels_[ModeIndex(mode)];
    return S_OK;
}

ZSTD_CCtx* BlockCodec::Compressor(ULONG mode) noexcept {
    const int i = ModeIndex(mode);
    if (compressors_[i])
        return compressors_[i];
    ZSTD_CCtx* c = ZSTD_createCCtx();
    if (!c)
        return nullptr;
    // The block header carries the length and the check value; the frame need not repeat them.
    // No payload exceeds 0x180000 bytes, so a 2 MiB window sees all of it.
    const bool ok = !ZSTD_isError(ZSTD_CCtx_setParameter(c, ZSTD_c_compressionLevel,
                                                         kZstdLevels[levels_[i] - 1])) &&
                    !ZSTD_isError(ZSTD_CCtx_setParameter(c, ZSTD_c_windowLog, 21)) &&
                    !ZSTD_isError(ZSTD_CCtx_setParameter(c, ZSTD_c_contentSizeFlag, 0)) &&
                    !ZSTD_isError(ZSTD_CCtx_setParameter(c, ZSTD_c_checksumFlag, 0)) &&
                    !ZSTD_isError(ZSTD_CCtx_setParameter(c, ZSTD_c_dictIDFlag, 0));
    if (!ok) {
        ZSTD_freeCCtx(c);
        return nullptr;
    }
    compressors_[i] = c;
    return c;
}

void BlockCodec::DropCompressor(int i) noexcept {
    ZSTD_freeCCtx(compressors_[i]);
    compressors_[i] = nullptr;
    fed_[i] = 0;
}

void BlockCodec::RenewAfter(ULONG mode, std::size_t fed) noexcept {
    const int i = ModeIndex(mode);
    fed_[i] += fed;
    if (fed_[i] >= kRenewAfter)
        DropCompressor(i);
}

z_stream* BlockCodec::Inflater() noexcept {
    if (!inflaterReady_) {
        inflater_ = z_stream{};
        if (inflateInit2(&inflater_, -15) != Z_OK)
            return nullptr;
        inflaterReady_ = true;
    } else if (inflateReset(&inflater_) != Z_OK) {
        return nullptr;
    }
    return &inflater_;
}

bool BlockCodec::FilterInput(const std::uint8_t* src, std::size_t cb,
                             const PixelFilter& filter) noexcept {
    const std::size_t chunks = filter.Chunks(cb);
    const std::size_t mapBytes = filter.MapBytes(cb);
    if (chunks == 0 || !filtered_.Reserve(cb) || !map_.Reserve(mapBytes))
        return false;
    std::uint8_t* out = filtered_.data.get();
    std::uint8_t* map = map_.data.get();
    std::memset(map, 0, mapBytes);
    bool any = false;
    for (std::size_t c = 0; c < chunks; ++c) {
        if (filter.LooksPhotographic(src, cb, c)) {
            filter.FilterChunk(src, cb, c, out);
            map[c / 8] |= static_cast<std::uint8_t>(1u << (c % 8));
            any = true;
        } else {
            filter.CopyChunk(src, cb, c, out);
        }
    }
    return any;
}

HRESULT BlockCodec::Compress(const std::uint8_t* src, std::size_t cb, std::uint8_t* dst,
                             ULONG* cbDest, ULONG mode) noexcept {
    const std::uint64_t capacity = *cbDest;
    *cbDest = 0;
    if (!IsMode(mode))
        return E_INVALIDARG;

    BlockHeader header;
    header.mode = static_cast<std::uint8_t>(mode);
    header.originalLength = static_cast<std::uint32_t>(cb);

    PixelFilter filter = PixelFilter::ForPayload(src, cb);
    const std::uint8_t* input = src;
    std::size_t inputLength = cb;
    if (filter.kind() != PixelFilter::kNone) {
        const std::size_t transformed =
            filtered_.Reserve(cb + Palette::kMaxGrowth)
                ? palette_.Apply(filter, src, cb, filtered_.data.get(), kMaxEscapeShare)
                : 0;
        if (transformed) {
            input = filtered_.data.get();
            inputLength = transformed;
            header.filter = filter.kind() == PixelFilter::kDelta555 ? BlockHeader::kPalette555
                                                                    : BlockHeader::kPalette565;
            header.filterOffset = filter.offset();
            header.mapLength = 4;
            header.transformedLength = static_cast<std::uint32_t>(transformed);
        } else if (FilterInput(src, cb, filter)) {
            input = filtered_.data.get();
            header.filter = filter.kind();
            header.filterOffset = filter.offset();
            header.mapLength = static_cast<std::uint32_t>(filter.MapBytes(cb));
        }
    }

    // zstd only pays when its block is smaller than the stored one; when even the stored block
    // does not fit, zstd only has to fit.
    const std::uint64_t stored = MaxBlockSize(cb);
    const std::uint64_t fixed = header.Size();
    const std::uint64_t room = stored <= capacity ? stored - 1 : capacity;
    if (room > fixed) {
        ZSTD_CCtx* c = Compressor(mode);
        if (!c)
            return E_OUTOFMEMORY;
        // zstd can give up on a destination that its result would just fit; below its bound
        // it writes into a scratch buffer and the block is copied when it fits.
        const std::size_t limit = static_cast<std::size_t>(room - fixed);
        const std::size_t bound = ZSTD_compressBound(inputLength);
        std::uint8_t* out = dst + fixed;
        if (limit < bound) {
            if (!packed_.Reserve(bound))
                return E_OUTOFMEMORY;
            out = packed_.data.get();
        }
        const std::size_t body =
            ZSTD_compress2(c, out, limit < bound ? bound : limit, input, inputLength);
        RenewAfter(mode, inputLength);
        if (ZSTD_isError(body) && ZSTD_getErrorCode(body) == ZSTD_error_memory_allocation)
            return E_OUTOFMEMORY;
        const bool fits = !ZSTD_isError(body) && body <= limit;
        if (fits && out != dst + fixed)
            std::memcpy(dst + fixed, out, body);
        if (fits) {
            header.method = BlockHeader::kZstd;
            header.bodyLength = static_cast<std::uint32_t>(body);
            header.dataCrc = CheckValue(header.version, dst + fixed, body);
            if (header.IsPalette())
                std::memcpy(dst + BlockHeader::kFixedSize, &header.transformedLength, 4);
            else if (header.mapLength)
                std::memcpy(dst + BlockHeader::kFixedSize, map_.data.get(), header.mapLength);
            header.Write(dst);
            *cbDest = static_cast<ULONG>(fixed + body);
            return S_OK;
        }
    }
    if (stored > capacity)
        return kTooSmall;
    header.method = BlockHeader::kStored;
    header.dataCrc = CheckValue(header.version, src, cb);
    header.filter = PixelFilter::kNone;
    header.filterOffset = 0;
    header.mapLength = 0;
    header.bodyLength = static_cast<std::uint32_t>(cb);
    if (cb)
        std::memmove(dst + BlockHeader::kFixedSize, src, cb);
    header.Write(dst);
    *cbDest = static_cast<ULONG>(stored);
    return S_OK;
}

HRESULT BlockCodec::Inflate(const BlockHeader& header, const std::uint8_t* body,
                            std::uint8_t* dst) noexcept {
    z_stream* s = Inflater();
    if (!s)
        return E_OUTOFMEMORY;
    s->next_in = const_cast<Bytef*>(body);
    s->avail_in = header.bodyLength;
    s->next_out = dst;
    s->avail_out = header.originalLength;
    // Z_FINISH with room for exactly the original bytes: anything but a stream that ends
    // there, using every body byte, is a damaged block.
    const int rc = inflate(s, Z_FINISH);
    if (rc != Z_STREAM_END || s->avail_in != 0 || s->total_out != header.originalLength)
        return rc == Z_MEM_ERROR ? E_OUTOFMEMORY : kInvalid;
    return S_OK;
}

HRESULT BlockCodec::Restore(const BlockHeader& header, const std::uint8_t* block,
                            std::uint8_t* dst) noexcept {
    const std::uint8_t* body = block + header.Size();
    if (header.ChecksBody() &&
        CheckValue(header.version, body, header.bodyLength) != header.dataCrc)
        return kBadCheck;
    if (header.method == BlockHeader::kStored) {
        if (header.originalLength)
            std::memmove(dst, body, header.originalLength);
    } else {
        if (header.method == BlockHeader::kDeflate) {
            RETURN_IF_FAILED(Inflate(header, body, dst));
        } else {
            if (!decompressor_ && !(decompressor_ = ZSTD_createDCtx()))
                return E_OUTOFMEMORY;
            const bool palette = header.IsPalette();
            const std::size_t length = palette ? header.transformedLength : header.originalLength;
            if (palette && !transformed_.Reserve(length))
                return E_OUTOFMEMORY;
            std::uint8_t* out = palette ? transformed_.data.get() : dst;
            // Room for exactly the expected bytes: zstd refuses to write more, and a frame that
            // ends early or leaves body bytes over is damaged.
            const std::size_t n =
                ZSTD_decompressDCtx(decompressor_, out, length, body, header.bodyLength);
            if (ZSTD_isError(n) || n != length)
                return ZSTD_getErrorCode(n) == ZSTD_error_memory_allocation ? E_OUTOFMEMORY
                                                                            : kInvalid;
            if (header.ChecksRestored() && CheckValue(header.version, out, n) != header.dataCrc)
                return kBadCheck;
            if (palette &&
                !Palette::Restore(header.Filter(), out, length, dst, header.originalLength))
                return kInvalid;
        }
        if (header.filter != PixelFilter::kNone && !header.IsPalette())
            header.Filter().Unfilter(dst, header.originalLength, block + BlockHeader::kFixedSize);
    }
    if (!header.ChecksOriginal())
        return S_OK;
    return CheckValue(header.version, dst, header.originalLength) == header.dataCrc ? S_OK
                                                                                    : kBadCheck;
}

HRESULT BlockCodec::Decompress(const std::uint8_t* src, std::size_t cb, std::uint8_t* dst,
                               ULONG* cbDest) noexcept {
    const ULONG capacity = *cbDest;
    *cbDest = 0;
    BlockHeader header;
    RETURN_IF_FAILED(header.Read(src, cb));
    if (header.originalLength > capacity)
        return kTooSmall;
    RETURN_IF_FAILED(Restore(header, src, dst));
    *cbDest = header.originalLength;
    return S_OK;
}

HRESULT BlockCodec::Check(const std::uint8_t* src, std::size_t cb) noexcept {
    BlockHeader header;
    RETURN_IF_FAILED(header.Read(src, cb));
    if (!checked_.Reserve(header.originalLength ? header.originalLength : 1))
        return E_OUTOFMEMORY;
    const HRESULT hr = Restore(header, src, checked_.data.get());
    // A block may claim far more than any payload (up to its body's limit): its memory is not
    // kept for later calls.
    if (checked_.size > kKeptScratch)
        checked_ = Buffer();
    if (transformed_.size > kKeptScratch)
        transformed_ = Buffer();
    return hr;
}

}  // namespace screencodec
