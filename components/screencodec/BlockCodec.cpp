// The compressor behind ScreenCodec: decides filter and method per block, writes and checks
// blocks. Sizes are computed in 64 bits: a 32-bit length plus a header must not wrap.
#include "BlockCodec.h"

#include <cstring>
#include <new>

#include "wincom/Result.h"

namespace screencodec {
namespace {

const HRESULT kTooSmall = HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
const HRESULT kInvalid = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
const HRESULT kBadCheck = HRESULT_FROM_WIN32(ERROR_CRC);
const std::size_t kFailed = static_cast<std::size_t>(-1);

bool IsMode(ULONG mode) noexcept {
    return mode == BlockCodec::kModeStrong || mode == BlockCodec::kModeFast;
}

std::uint32_t Crc(const std::uint8_t* data, std::size_t cb) noexcept {
    return static_cast<std::uint32_t>(crc32(0, data, static_cast<uInt>(cb)));
}

int InitDeflate(z_stream* s, int level) noexcept {
    // Raw deflate: the block header carries the check value, zlib's own wrapper would repeat it.
    return deflateInit2(s, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
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
    for (int i = 0; i < 2; ++i)
        if (deflaterReady_[i])
            deflateEnd(&deflaters_[i]);
    if (inflaterReady_)
        inflateEnd(&inflater_);
}

HRESULT BlockCodec::SetLevel(ULONG mode, ULONG level) noexcept {
    if (!IsMode(mode) || level < 1 || level > 9)
        return E_INVALIDARG;
    const int i = mode == kModeStrong ? 0 : 1;
    if (levels_[i] != level && deflaterReady_[i]) {
        deflateEnd(&deflaters_[i]);
        deflaterReady_[i] = false;
    }
    levels_[i] = level;
    return S_OK;
}

HRESULT BlockCodec::GetLevel(ULONG mode, ULONG* level) const noexcept {
    if (!level)
        return E_POINTER;
    if (!IsMode(mode))
        return E_INVALIDARG;
    *level = levels_[mode == kModeStrong ? 0 : 1];
    return S_OK;
}

z_stream* BlockCodec::Deflater(ULONG mode) noexcept {
    const int i = mode == kModeStrong ? 0 : 1;
    z_stream* s = &deflaters_[i];
    if (!deflaterReady_[i]) {
        *s = z_stream{};
        if (InitDeflate(s, static_cast<int>(levels_[i])) != Z_OK)
            return nullptr;
        deflaterReady_[i] = true;
    } else if (deflateReset(s) != Z_OK) {
        return nullptr;
    }
    return s;
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

std::size_t BlockCodec::Deflate(z_stream* s, const std::uint8_t* src, std::size_t cb,
                                std::uint8_t* dst, std::size_t limit) noexcept {
    s->next_in = const_cast<Bytef*>(src);
    s->avail_in = static_cast<uInt>(cb);
    s->next_out = dst;
    s->avail_out = static_cast<uInt>(limit);
    // With the whole input and a fixed output, Z_FINISH either ends the stream or stops when
    // the output is full. A stream that fills the output exactly is only known to have ended
    // by one more call with a spare byte it must leave unused.
    int rc = deflate(s, Z_FINISH);
    if (rc == Z_OK && s->avail_out == 0) {
        std::uint8_t spare;
        s->next_out = &spare;
        s->avail_out = 1;
        rc = deflate(s, Z_FINISH);
        if (s->avail_out == 0)
            return kFailed;
    }
    return rc == Z_STREAM_END ? static_cast<std::size_t>(s->total_out) : kFailed;
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
    header.dataCrc = Crc(src, cb);

    PixelFilter filter = PixelFilter::ForPayload(src, cb);
    const std::uint8_t* input = src;
    if (filter.kind() != PixelFilter::kNone && FilterInput(src, cb, filter)) {
        input = filtered_.data.get();
        header.filter = filter.kind();
        header.filterOffset = filter.offset();
        header.mapLength = static_cast<std::uint32_t>(filter.MapBytes(cb));
    }

    // Deflate only pays when its block is smaller than the stored one; when even the stored
    // block does not fit, deflate only has to fit.
    const std::uint64_t stored = MaxBlockSize(cb);
    const std::uint64_t fixed = header.Size();
    const std::uint64_t room = stored <= capacity ? stored - 1 : capacity;
    if (room > fixed) {
        z_stream* s = Deflater(mode);
        if (!s)
            return E_OUTOFMEMORY;
        const std::size_t body =
            Deflate(s, input, cb, dst + fixed, static_cast<std::size_t>(room - fixed));
        if (body != kFailed) {
            header.method = BlockHeader::kDeflate;
            header.bodyLength = static_cast<std::uint32_t>(body);
            if (header.mapLength)
                std::memcpy(dst + BlockHeader::kFixedSize, map_.data.get(), header.mapLength);
            header.Write(dst);
            *cbDest = static_cast<ULONG>(fixed + body);
            return S_OK;
        }
    }
    if (stored > capacity)
        return kTooSmall;
    header.method = BlockHeader::kStored;
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

HRESULT BlockCodec::Restore(const BlockHeader& header, const std::uint8_t* block,
                            std::uint8_t* dst) noexcept {
    const std::uint8_t* body = block + header.Size();
    if (header.method == BlockHeader::kStored) {
        if (header.originalLength)
            std::memmove(dst, body, header.originalLength);
    } else {
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
        if (header.filter != PixelFilter::kNone) {
            const PixelFilter filter(static_cast<PixelFilter::Kind>(header.filter),
                                     header.filterOffset);
            filter.Unfilter(dst, header.originalLength, block + BlockHeader::kFixedSize);
        }
    }
    return Crc(dst, header.originalLength) == header.dataCrc ? S_OK : kBadCheck;
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
    return Restore(header, src, checked_.data.get());
}

}  // namespace screencodec
