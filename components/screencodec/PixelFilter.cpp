// Pixel filter of ScreenCodec.dll. Differences are taken per channel without carries between
// channels (SWAR arithmetic on the 16-bit word), then each channel's difference is folded to
// 0, -1, 1, -2, ... -> 0, 1, 2, 3, ... so that deflate sees small byte values.
#include "PixelFilter.h"

#include <emmintrin.h>

#include <cstring>

#include "wincom/CpuFeatures.h"
#include "wincom/Unaligned.h"
#include "wincom/WinTypes.h"

namespace screencodec {
namespace {

struct Layout555 {
    // Top bit of every field, bit 15 (unused in 5-5-5) counted as a field of its own.
    static constexpr std::uint16_t kTops = 0xC210;
    static constexpr std::uint16_t kFields = 0x7FFF;   // the folded fields
    static constexpr std::uint16_t kBottoms = 0x0421;  // lowest bit of each folded field
    static constexpr std::uint16_t kFoldTops = 0x4210;
    static std::uint16_t Fill(std::uint16_t signs) noexcept {  // signs at field bottoms
        return static_cast<std::uint16_t>(signs * 31);
    }
    static std::uint16_t SignsFromTops(std::uint16_t v) noexcept { return (v & kFoldTops) >> 4; }
};

struct Layout565 {
    static constexpr std::uint16_t kTops = 0x8410;
    static constexpr std::uint16_t kFields = 0xFFFF;
    static constexpr std::uint16_t kBottoms = 0x0821;
    static constexpr std::uint16_t kFoldTops = 0x8410;
    static std::uint16_t Fill(std::uint16_t signs) noexcept {
        return static_cast<std::uint16_t>((signs & 0x0001) * 0x001F |
                                          ((signs & 0x0020) >> 5) * 0x07E0 |
                                          ((signs & 0x0800) >> 11) * 0xF800);
    }
    static std::uint16_t SignsFromTops(std::uint16_t v) noexcept {
        return static_cast<std::uint16_t>(((v >> 4) & 0x0001) | ((v >> 5) & 0x0020) |
                                          ((v >> 4) & 0x0800));
    }
};

template <typename L>
inline std::uint16_t Sub(std::uint16_t a, std::uint16_t b) noexcept {
    return static_cast<std::uint16_t>(((a | L::kTops) - (b & ~L::kTops)) ^ ((a ^ ~b) & L::kTops));
}

template <typename L>
inline std::uint16_t Add(std::uint16_t a, std::uint16_t b) noexcept {
    return static_cast<std::uint16_t>(((a & ~L::kTops) + (b & ~L::kTops)) ^ ((a ^ b) & L::kTops));
}

template <typename L>
inline std::uint16_t Fold(std::uint16_t d) noexcept {
    const std::uint16_t shifted = static_cast<std::uint16_t>((d << 1) & L::kFields & ~L::kBottoms);
    return static_cast<std::uint16_t>((shifted ^ L::Fill(L::SignsFromTops(d))) | (d & ~L::kFields));
}

template <typename L>
inline std::uint16_t Unfold(std::uint16_t z) noexcept {
    const std::uint16_t shifted = static_cast<std::uint16_t>((z >> 1) & L::kFields & ~L::kFoldTops);
    return static_cast<std::uint16_t>((shifted ^ L::Fill(z & L::kBottoms)) | (z & ~L::kFields));
}

using vantrel::LoadU16;
using vantrel::LoadU32;
using vantrel::StoreU16;

// The same arithmetic on eight pixels at once (the DLL is built for plain i686, so SSE2 is used
// where the processor has it). The filter has no chain; the inverse is a running sum, taken
// in three doubling steps inside the register and carried from one register to the next.
bool HasSse2() noexcept {
    static const bool sse2 = vantrel::CpuHasSse2();
    return sse2;
}

template <typename L>
struct Wide {
    __attribute__((target("sse2"))) static __m128i Fill(__m128i signs) noexcept {
        if constexpr (L::kBottoms == Layout555::kBottoms) {
            return _mm_mullo_epi16(signs, _mm_set1_epi16(31));
        } else {
            const __m128i blue = _mm_and_si128(signs, _mm_set1_epi16(0x0001));
            const __m128i green = _mm_and_si128(signs, _mm_set1_epi16(0x0020));
            const __m128i red = _mm_and_si128(signs, _mm_set1_epi16(0x0800));
            return _mm_or_si128(_mm_or_si128(_mm_mullo_epi16(blue, _mm_set1_epi16(0x1F)),
                                             _mm_mullo_epi16(green, _mm_set1_epi16(0x3F))),
                                _mm_mullo_epi16(red, _mm_set1_epi16(0x1F)));
        }
    }
    __attribute__((target("sse2"))) static __m128i Signs(__m128i d) noexcept {
        if constexpr (L::kBottoms == Layout555::kBottoms) {
            return _mm_srli_epi16(_mm_and_si128(d, _mm_set1_epi16(L::kFoldTops)), 4);
        } else {
            const __m128i low = _mm_and_si128(_mm_srli_epi16(d, 4), _mm_set1_epi16(0x0801));
            const __m128i mid = _mm_and_si128(_mm_srli_epi16(d, 5), _mm_set1_epi16(0x0020));
            return _mm_or_si128(low, mid);
        }
    }
    __attribute__((target("sse2"))) static __m128i Sub(__m128i a, __m128i b) noexcept {
        const __m128i tops = _mm_set1_epi16(static_cast<short>(L::kTops));
        const __m128i diff = _mm_sub_epi16(_mm_or_si128(a, tops), _mm_andnot_si128(tops, b));
        const __m128i notB = _mm_xor_si128(b, _mm_set1_epi16(-1));
        return _mm_xor_si128(diff, _mm_and_si128(_mm_xor_si128(a, notB), tops));
    }
    __attribute__((target("sse2"))) static __m128i Add(__m128i a, __m128i b) noexcept {
        const __m128i tops = _mm_set1_epi16(static_cast<short>(L::kTops));
        const __m128i sum = _mm_add_epi16(_mm_andnot_si128(tops, a), _mm_andnot_si128(tops, b));
        return _mm_xor_si128(sum, _mm_and_si128(_mm_xor_si128(a, b), tops));
    }
    __attribute__((target("sse2"))) static __m128i Fold(__m128i d) noexcept {
        const __m128i fields = _mm_set1_epi16(static_cast<short>(L::kFields));
        const __m128i shifted = _mm_and_si128(
            _mm_slli_epi16(d, 1), _mm_set1_epi16(static_cast<short>(L::kFields & ~L::kBottoms)));
        return _mm_or_si128(_mm_xor_si128(shifted, Fill(Signs(d))), _mm_andnot_si128(fields, d));
    }
    __attribute__((target("sse2"))) static __m128i Unfold(__m128i z) noexcept {
        const __m128i fields = _mm_set1_epi16(static_cast<short>(L::kFields));
        const __m128i shifted = _mm_and_si128(
            _mm_srli_epi16(z, 1), _mm_set1_epi16(static_cast<short>(L::kFields & ~L::kFoldTops)));
        const __m128i bottoms = _mm_and_si128(z, _mm_set1_epi16(L::kBottoms));
        return _mm_or_si128(_mm_xor_si128(shifted, Fill(bottoms)), _mm_andnot_si128(fields, z));
    }
};

template <typename L>
__attribute__((target("sse2"), force_align_arg_pointer)) std::size_t FilterWide(
    const std::uint8_t* in, std::uint8_t* out, std::size_t first, std::size_t last) noexcept {
    std::size_t i = first ? first : 1;  // the first pixel of a run has no pixel before it
    for (; i + 8 <= last; i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 2 * i));
        const __m128i prev = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 2 * i - 2));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * i),
                         Wide<L>::Fold(Wide<L>::Sub(v, prev)));
    }
    return i;
}

template <typename L>
__attribute__((target("sse2"), force_align_arg_pointer)) std::size_t UnfilterWide(
    std::uint8_t* data, std::size_t first, std::size_t last) noexcept {
    __m128i carry = _mm_set1_epi16(static_cast<short>(first ? LoadU16(data + 2 * (first - 1)) : 0));
    std::size_t i = first;
    for (; i + 8 <= last; i += 8) {
        __m128i x =
            Wide<L>::Unfold(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 2 * i)));
        x = Wide<L>::Add(x, _mm_slli_si128(x, 2));
        x = Wide<L>::Add(x, _mm_slli_si128(x, 4));
        x = Wide<L>::Add(x, _mm_slli_si128(x, 8));
        x = Wide<L>::Add(x, carry);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(data + 2 * i), x);
        const __m128i high = _mm_shufflehi_epi16(x, _MM_SHUFFLE(3, 3, 3, 3));
        carry = _mm_unpackhi_epi64(high, high);
    }
    return i;
}

template <typename L>
void FilterPixels(const std::uint8_t* in, std::uint8_t* out, std::size_t first,
                  std::size_t last) noexcept {
    // In place (in == out) the wide loop would read pixels it has already replaced.
    const std::size_t wide =
        HasSse2() && in != out && last > first ? FilterWide<L>(in, out, first, last) : first;
    std::uint16_t prev = wide ? LoadU16(in + 2 * (wide - 1)) : 0;
    for (std::size_t i = wide; i < last; ++i) {
        const std::uint16_t v = LoadU16(in + 2 * i);
        StoreU16(out + 2 * i, Fold<L>(Sub<L>(v, prev)));
        prev = v;
    }
    if (wide != first && first == 0 && last > 0)
        StoreU16(out, Fold<L>(Sub<L>(LoadU16(in), 0)));
}

template <typename L>
void UnfilterPixels(std::uint8_t* data, std::size_t first, std::size_t last) noexcept {
    const std::size_t wide = HasSse2() ? UnfilterWide<L>(data, first, last) : first;
    std::uint16_t prev = wide ? LoadU16(data + 2 * (wide - 1)) : 0;
    for (std::size_t i = wide; i < last; ++i) {
        prev = Add<L>(Unfold<L>(LoadU16(data + 2 * i)), prev);
        StoreU16(data + 2 * i, prev);
    }
}

}  // namespace

PixelFilter PixelFilter::ForPayload(const std::uint8_t* data, std::size_t cb) noexcept {
    // BITMAPINFOHEADER: biSize at 0, biBitCount (u16) at 14, biCompression at 16; masks at 40.
    if (cb < 40 || LoadU32(data) != 40)
        return PixelFilter();
    const unsigned bitCount = data[14] | (data[15] << 8);
    const std::uint32_t compression = LoadU32(data + 16);
    if (bitCount != 16)
        return PixelFilter();
    if (compression == BI_RGB)
        return PixelFilter(kDelta555, 40);
    if (compression != BI_BITFIELDS || cb < 52)
        return PixelFilter();
    const std::uint32_t r = LoadU32(data + 40), g = LoadU32(data + 44), b = LoadU32(data + 48);
    if (r == 0xF800 && g == 0x07E0 && b == 0x001F)
        return PixelFilter(kDelta565, 52);
    if (r == 0x7C00 && g == 0x03E0 && b == 0x001F)
        return PixelFilter(kDelta555, 52);
    return PixelFilter();
}

std::size_t PixelFilter::Chunks(std::size_t cb) const noexcept {
    if (kind_ == kNone || cb < offset_)
        return 0;
    const std::size_t pixels = (cb - offset_) / 2;
    return (pixels + kChunkPixels - 1) / kChunkPixels;
}

void PixelFilter::ChunkBytes(std::size_t cb, std::size_t chunk, std::size_t* begin,
                             std::size_t* end) const noexcept {
    const std::size_t pixels = (cb - offset_) / 2;
    const std::size_t last = chunk * kChunkPixels + kChunkPixels;
    *begin = chunk == 0 ? 0 : offset_ + 2 * chunk * kChunkPixels;
    *end = last >= pixels ? cb : offset_ + 2 * last;
}

bool PixelFilter::LooksPhotographic(const std::uint8_t* data, std::size_t cb,
                                    std::size_t chunk) const noexcept {
    const std::uint8_t* pixels = data + offset_;
    const std::size_t count = (cb - offset_) / 2;
    const std::size_t first = chunk * kChunkPixels;
    const std::size_t last = first + kChunkPixels < count ? first + kChunkPixels : count;
    std::uint32_t seen[65536 / 32] = {};
    std::size_t colours = 0;
    for (std::size_t i = first; i < last; ++i) {
        const std::uint16_t v = LoadU16(pixels + 2 * i);
        const std::uint32_t bit = 1u << (v % 32);
        if (seen[v / 32] & bit)
            continue;
        seen[v / 32] |= bit;
        if (++colours > kPhotoColours)
            return true;
    }
    return false;
}

void PixelFilter::FilterChunk(const std::uint8_t* data, std::size_t cb, std::size_t chunk,
                              std::uint8_t* out) const noexcept {
    CopyChunk(data, cb, chunk, out);  // header bytes and the odd last byte
    const std::size_t count = (cb - offset_) / 2;
    const std::size_t first = chunk * kChunkPixels;
    const std::size_t last = first + kChunkPixels < count ? first + kChunkPixels : count;
    if (kind_ == kDelta555)
        FilterPixels<Layout555>(data + offset_, out + offset_, first, last);
    else if (kind_ == kDelta565)
        FilterPixels<Layout565>(data + offset_, out + offset_, first, last);
}

void PixelFilter::CopyChunk(const std::uint8_t* data, std::size_t cb, std::size_t chunk,
                            std::uint8_t* out) const noexcept {
    std::size_t begin, end;
    ChunkBytes(cb, chunk, &begin, &end);
    std::memcpy(out + begin, data + begin, end - begin);
}

void PixelFilter::FilterRun(const std::uint8_t* in, std::uint8_t* out,
                            std::size_t pixels) const noexcept {
    if (kind_ == kDelta555)
        FilterPixels<Layout555>(in, out, 0, pixels);
    else if (kind_ == kDelta565)
        FilterPixels<Layout565>(in, out, 0, pixels);
}

void PixelFilter::UnfilterRun(std::uint8_t* data, std::size_t pixels) const noexcept {
    if (kind_ == kDelta555)
        UnfilterPixels<Layout555>(data, 0, pixels);
    else if (kind_ == kDelta565)
        UnfilterPixels<Layout565>(data, 0, pixels);
}

void PixelFilter::Unfilter(std::uint8_t* data, std::size_t cb,
                           const std::uint8_t* map) const noexcept {
    const std::size_t count = (cb - offset_) / 2;
    const std::size_t chunks = Chunks(cb);
    for (std::size_t c = 0; c < chunks; ++c) {
        if (!(map[c / 8] & (1u << (c % 8))))
            continue;
        const std::size_t first = c * kChunkPixels;
        const std::size_t last = first + kChunkPixels < count ? first + kChunkPixels : count;
        if (kind_ == kDelta555)
            UnfilterPixels<Layout555>(data + offset_, first, last);
        else if (kind_ == kDelta565)
            UnfilterPixels<Layout565>(data + offset_, first, last);
    }
}

}  // namespace screencodec
