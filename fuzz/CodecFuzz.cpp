// ScreenCodec's blocks: the header parser and the decoder (stored, deflate of format 1, zstd,
// the delta filter and the palette) on any bytes, and the compressor on the same bytes as a
// payload. The fuzzer's bytes are decoded as they are and once more with the header's check
// value (and, in the current format, the body's) put right, so that mutations reach the
// decoder behind them. Differential: what decodes
// must compress and restore to the same bytes, and compressing any bytes must restore them.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include <zlib.h>

#define XXH_STATIC_LINKING_ONLY
#include <common/xxhash.h>

#include "BlockCodec.h"
#include "FuzzSupport.h"

using screencodec::BlockCodec;
using screencodec::BlockHeader;

namespace {

// The decoders' capacity (a packet buffer).
constexpr ULONG kCapacity = 0x180000;
const HRESULT kTooSmall = HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);

BlockCodec& Codec() {
    static BlockCodec codec;
    return codec;
}

uint8_t* Restored() {
    static const std::unique_ptr<uint8_t[]> buffer(new uint8_t[kCapacity]);
    return buffer.get();
}

// Compresses src in mode into a destination of exactly capacity bytes; when it fits, the block
// must restore to src.
void CompressAndRestore(const uint8_t* src, size_t cb, ULONG mode, ULONG capacity) {
    std::vector<uint8_t> block(capacity);
    ULONG written = capacity;
    const HRESULT hr = Codec().Compress(src, cb, block.data(), &written, mode);
    if (FAILED(hr)) {
        FUZZ_CHECK(written == 0);
        FUZZ_CHECK(hr == kTooSmall && capacity < BlockCodec::MaxBlockSize(cb));
        return;
    }
    FUZZ_CHECK(written <= capacity && written >= BlockHeader::kFixedSize);
    std::vector<uint8_t> again(cb);
    ULONG restored = static_cast<ULONG>(cb);
    FUZZ_CHECK(Codec().Decompress(block.data(), written, again.data(), &restored) == S_OK);
    FUZZ_CHECK(restored == cb && (cb == 0 || std::memcmp(again.data(), src, cb) == 0));
    FUZZ_CHECK(Codec().Check(block.data(), written) == S_OK);
}

// Decodes a block: Decompress and Check agree, and what decodes goes round again. Returns
// whether the header was accepted.
bool Decode(const uint8_t* block, size_t cb) {
    ULONG size = kCapacity;
    const HRESULT hr = Codec().Decompress(block, cb, Restored(), &size);
    BlockHeader header;
    const bool readable = header.Read(block, cb) == S_OK;
    // Check restores into a buffer of its own, whatever length the block claims.
    const HRESULT checked = Codec().Check(block, cb);
    if (FAILED(hr)) {
        FUZZ_CHECK(size == 0);
        if (hr != kTooSmall)
            FUZZ_CHECK(FAILED(checked));
        return readable;
    }
    FUZZ_CHECK(readable && size == header.originalLength && size <= kCapacity);
    FUZZ_CHECK(checked == S_OK);
    const std::vector<uint8_t> original(Restored(), Restored() + size);
    CompressAndRestore(original.data(), original.size(), header.mode,
                       static_cast<ULONG>(BlockCodec::MaxBlockSize(size)));
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > kCapacity)
        return 0;
    if (!Decode(data, size) && size >= BlockHeader::kFixedSize) {
        // Put the check values right for the chunk map the header implies (the parser leaves
        // that length behind even when it refuses the check): the body's, in the current
        // format, then the header's, which covers it.
        BlockHeader header;
        header.Read(data, size);
        if (BlockHeader::kFixedSize + uint64_t{header.mapLength} <= size) {
            std::vector<uint8_t> fixed(data, data + size);
            if (fixed[4] == BlockHeader::kVersion) {
                const size_t body = BlockHeader::kFixedSize + header.mapLength;
                const uint32_t value = XXH32(fixed.data() + body, size - body, 0);
                std::memcpy(fixed.data() + 20, &value, 4);
            }
            uLong crc = crc32(0, fixed.data(), 24);
            crc = crc32(crc, fixed.data() + BlockHeader::kFixedSize, header.mapLength);
            const uint32_t check = static_cast<uint32_t>(crc);
            std::memcpy(fixed.data() + 24, &check, 4);
            Decode(fixed.data(), fixed.size());
        }
    }

    // The same bytes as a payload, in the mode and with the room the first bytes pick: the
    // callers' room (a stored block) or less.
    const ULONG mode = size && (data[0] & 1) ? BlockCodec::kModeStrong : BlockCodec::kModeFast;
    const ULONG room = static_cast<ULONG>(BlockCodec::MaxBlockSize(size));
    const ULONG cut = size > 1 && (data[1] & 0x80) ? std::min<ULONG>(data[1] & 0x3F, room) : 0;
    CompressAndRestore(data, size, mode, room - cut);
    return 0;
}
