// Row kernels of Pixmend.dll. The DLL is built for plain i686, so the SSE2 kernels are compiled
// for SSE2 alone and only run once SelectKernels has seen the processor support it. Every kernel
// keeps the 5 high bits of each channel and reads and writes unaligned memory.
#include "RowConverter.h"

#include <windows.h>

#include <emmintrin.h>

#include "wincom/Unaligned.h"

namespace pixmend {
namespace {

volatile LONG g_sse2 = 0;  // 1 once SelectKernels found SSE2; never goes back to 0

using vantrel::LoadU16;
using vantrel::LoadU32;
using vantrel::StoreU16;
using vantrel::StoreU32;

// x holds blue in bits 0-7, green 8-15, red 16-23.
inline std::uint16_t Pack888(std::uint32_t x) noexcept {
    return static_cast<std::uint16_t>(((x >> 3) & 0x001Fu) | ((x >> 6) & 0x03E0u) |
                                      ((x >> 9) & 0x7C00u));
}

inline std::uint16_t Pack565(std::uint32_t v) noexcept {
    return static_cast<std::uint16_t>(((v >> 1) & 0x7FE0u) | (v & 0x1Fu));
}

void Scalar32(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels) noexcept {
    for (std::size_t i = 0; i < pixels; ++i)
        StoreU16(dst + 2 * i, Pack888(LoadU32(src + 4 * i)));
}

void Scalar24(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels) noexcept {
    std::size_t i = 0;
    // Four pixels are three whole words: no byte is read outside the source row.
    for (; i + 4 <= pixels; i += 4) {
        const std::uint8_t* s = src + 3 * i;
        const std::uint32_t a = LoadU32(s), b = LoadU32(s + 4), c = LoadU32(s + 8);
        const std::uint32_t p0 = Pack888(a);
        const std::uint32_t p1 = Pack888((a >> 24) | (b << 8));
        const std::uint32_t p2 = Pack888((b >> 16) | (c << 16));
        const std::uint32_t p3 = Pack888(c >> 8);
        const std::uint32_t lo = p0 | (p1 << 16), hi = p2 | (p3 << 16);
        StoreU32(dst + 2 * i, lo);
        StoreU32(dst + 2 * i + 4, hi);
    }
    for (; i < pixels; ++i) {
        const std::uint8_t* s = src + 3 * i;
        StoreU16(dst + 2 * i,
                 Pack888(s[0] | (s[1] << 8) | (static_cast<std::uint32_t>(s[2]) << 16)));
    }
}

void Scalar565(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels) noexcept {
    for (std::size_t i = 0; i < pixels; ++i)
        StoreU16(dst + 2 * i, Pack565(LoadU16(src + 2 * i)));
}

__attribute__((target("sse2"))) inline __m128i Pack888x4(__m128i x) noexcept {
    const __m128i b = _mm_and_si128(_mm_srli_epi32(x, 3), _mm_set1_epi32(0x001F));
    const __m128i g = _mm_and_si128(_mm_srli_epi32(x, 6), _mm_set1_epi32(0x03E0));
    const __m128i r = _mm_and_si128(_mm_srli_epi32(x, 9), _mm_set1_epi32(0x7C00));
    return _mm_or_si128(_mm_or_si128(b, g), r);
}

__attribute__((target("sse2"))) void Sse2_32(const std::uint8_t* src, std::uint8_t* dst,
                                             std::size_t pixels) noexcept {
    std::size_t i = 0;
    for (; i + 8 <= pixels; i += 8) {
        const __m128i a = Pack888x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 4 * i)));
        const __m128i b =
            Pack888x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 4 * i + 16)));
        // Every value is below 0x8000, so the signed saturating pack is exact.
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * i), _mm_packs_epi32(a, b));
    }
    Scalar32(src + 4 * i, dst + 2 * i, pixels - i);
}

__attribute__((target("sse2"))) void Sse2_565(const std::uint8_t* src, std::uint8_t* dst,
                                              std::size_t pixels) noexcept {
    const __m128i rg = _mm_set1_epi16(0x7FE0);
    const __m128i b = _mm_set1_epi16(0x001F);
    std::size_t i = 0;
    for (; i + 8 <= pixels; i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * i));
        const __m128i out =
            _mm_or_si128(_mm_and_si128(_mm_srli_epi16(v, 1), rg), _mm_and_si128(v, b));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * i), out);
    }
    Scalar565(src + 2 * i, dst + 2 * i, pixels - i);
}

// SSE2 has no byte shuffle, so 24-bit pixels are spread to 32-bit lanes with shifts: four
// pixels (12 bytes) per lane group, two groups per iteration. The 16-byte load of the second
// group reaches 4 bytes past its 12, which the loop bound keeps inside the row.
__attribute__((target("sse2"))) inline __m128i Spread24x4(__m128i v) noexcept {
    // v bytes: p0(0-2) p1(3-5) p2(6-8) p3(9-11) x x x x
    const __m128i mask = _mm_set1_epi32(0x00FFFFFF);
    const __m128i l0 = v;                     // p0 in lane 0
    const __m128i l1 = _mm_srli_si128(v, 3);  // p1 in lane 0
    const __m128i l2 = _mm_srli_si128(v, 6);  // p2 in lane 0
    const __m128i l3 = _mm_srli_si128(v, 9);  // p3 in lane 0
    const __m128i p01 = _mm_unpacklo_epi32(l0, l1);
    const __m128i p23 = _mm_unpacklo_epi32(l2, l3);
    return _mm_and_si128(_mm_unpacklo_epi64(p01, p23), mask);
}

__attribute__((target("sse2"))) void Sse2_24(const std::uint8_t* src, std::uint8_t* dst,
                                             std::size_t pixels) noexcept {
    std::size_t i = 0;
    // 8 pixels are 24 bytes; the second 16-byte load starts at byte 12 and ends at byte 28,
    // so 10 pixels (30 bytes) must remain.
    for (; i + 10 <= pixels; i += 8) {
        const std::uint8_t* s = src + 3 * i;
        const __m128i a =
            Pack888x4(Spread24x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s))));
        const __m128i b =
            Pack888x4(Spread24x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 12))));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * i), _mm_packs_epi32(a, b));
    }
    Scalar24(src + 3 * i, dst + 2 * i, pixels - i);
}

}  // namespace

void RowConverter::SelectKernels() noexcept {
    if (IsProcessorFeaturePresent(PF_XMMI64_INSTRUCTIONS_AVAILABLE))
        InterlockedExchange(&g_sse2, 1);
}

bool RowConverter::UsingSse2() noexcept {
    return g_sse2 != 0;
}

void RowConverter::From32(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels) noexcept {
    if (UsingSse2())
        Sse2_32(src, dst, pixels);
    else
        Scalar32(src, dst, pixels);
}

void RowConverter::From24(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels) noexcept {
    if (UsingSse2())
        Sse2_24(src, dst, pixels);
    else
        Scalar24(src, dst, pixels);
}

void RowConverter::From565(const std::uint8_t* src, std::uint8_t* dst,
                           std::size_t pixels) noexcept {
    if (UsingSse2())
        Sse2_565(src, dst, pixels);
    else
        Scalar565(src, dst, pixels);
}

}  // namespace pixmend
