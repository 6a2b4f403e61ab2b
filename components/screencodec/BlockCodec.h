// The compressor behind one ScreenCodec object: the block format of BlockHeader, the pixel
// filter of PixelFilter, the Palette and zstd; zlib's raw deflate only to read the blocks of
// format 1. It keeps its zstd contexts, its zlib stream and its scratch buffers between calls, so
// one instance serves one caller at a time; ScreenCodec holds one per COM object under the object's
// lock.
#pragma once

#include <zlib.h>
#include <zstd.h>
#include <zstd_errors.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "BlockHeader.h"
#include "Palette.h"
#include "PixelFilter.h"
#include "wincom/WinTypes.h"

namespace screencodec {

class BlockCodec {
  public:
    static constexpr ULONG kModeStrong = 1;  // export
    static constexpr ULONG kModeFast = 2;    // live stream
    // Levels 1-9 of the interface pick zstd levels from kZstdLevels.
    static constexpr ULONG kDefaultStrongLevel = 8;
    static constexpr ULONG kDefaultFastLevel = 1;

    BlockCodec() noexcept;
    BlockCodec(const BlockCodec&) = delete;
    BlockCodec& operator=(const BlockCodec&) = delete;
    ~BlockCodec();

    // Largest block Compress can make from cb bytes: a stored block.
    static std::uint64_t MaxBlockSize(std::uint64_t cb) noexcept {
        return cb + BlockHeader::kFixedSize;
    }

    HRESULT SetLevel(ULONG mode, ULONG level) noexcept;
    HRESULT GetLevel(ULONG mode, ULONG* level) const noexcept;

    // Writes one block of at most *cbDest bytes; *cbDest becomes its size. A block that does
    // not fit fails with ERROR_INSUFFICIENT_BUFFER and *cbDest = 0.
    HRESULT Compress(const std::uint8_t* src, std::size_t cb, std::uint8_t* dst, ULONG* cbDest,
                     ULONG mode) noexcept;
    // Restores a block into at most *cbDest bytes; *cbDest becomes the original length, or 0
    // on failure (ERROR_INVALID_DATA for a damaged or foreign block, ERROR_CRC when the
    // block's check value does not match, ERROR_INSUFFICIENT_BUFFER when the bytes would not
    // fit).
    HRESULT Decompress(const std::uint8_t* src, std::size_t cb, std::uint8_t* dst,
                       ULONG* cbDest) noexcept;
    // Decompress into a buffer of its own: S_OK when the block is whole and its check matches.
    HRESULT Check(const std::uint8_t* src, std::size_t cb) noexcept;

  private:
    struct Buffer {
        std::unique_ptr<std::uint8_t[]> data;
        std::size_t size = 0;
        bool Reserve(std::size_t n) noexcept;
    };

    ZSTD_CCtx* Compressor(ULONG mode) noexcept;
    // Frees a mode's context; the next Compress of that mode makes a new one.
    void DropCompressor(int i) noexcept;
    // Counts the bytes a mode's context has taken and drops the context after kRenewAfter.
    void RenewAfter(ULONG mode, std::size_t fed) noexcept;
    z_stream* Inflater() noexcept;
    // Builds the filtered copy of src in filtered_ and the chunk map in map_; false when no
    // chunk gains from the filter (or memory ran out), and the block goes unfiltered.
    bool FilterInput(const std::uint8_t* src, std::size_t cb, const PixelFilter& filter) noexcept;
    HRESULT Inflate(const BlockHeader& header, const std::uint8_t* body,
                    std::uint8_t* dst) noexcept;
    HRESULT Restore(const BlockHeader& header, const std::uint8_t* block,
                    std::uint8_t* dst) noexcept;

    ULONG levels_[2] = {kDefaultStrongLevel, kDefaultFastLevel};
    ZSTD_CCtx* compressors_[2] = {nullptr, nullptr};  // per mode, parameters set once
    std::uint64_t fed_[2] = {0, 0};                   // input bytes through each context
    ZSTD_DCtx* decompressor_ = nullptr;
    z_stream inflater_ = {};
    bool inflaterReady_ = false;
    Palette palette_;
    Buffer filtered_;     // the filtered or palette-transformed input of Compress
    Buffer transformed_;  // what zstd restores of a palette block
    Buffer packed_;       // zstd's output when the caller's room is below zstd's bound
    Buffer map_;          // the chunk map of Compress
    Buffer checked_;      // what Check restores
};

}  // namespace screencodec
