// GF(256) tables and the two multiply-add kernels. The SSSE3 kernel splits each source byte
// into nibbles and looks both up with pshufb in 16-entry product tables of the coefficient;
// its target attribute keeps the rest of the DLL runnable on a plain i686.
#include "Gf256.h"

#include <tmmintrin.h>

namespace transport {
namespace {

struct Tables {
    std::uint8_t exp[512];
    std::uint8_t log[256];
    std::uint8_t mul[256][256];
    alignas(16) std::uint8_t low[256][16];   // c * x for x < 16
    alignas(16) std::uint8_t high[256][16];  // c * (x << 4) for x < 16

    Tables() noexcept {
        unsigned x = 1;
        for (int i = 0; i < 255; ++i) {
            exp[i] = static_cast<std::uint8_t>(x);
            log[x] = static_cast<std::uint8_t>(i);
            x <<= 1;
            if (x & 0x100)
                x ^= 0x11D;
        }
        for (int i = 255; i < 512; ++i)
            exp[i] = exp[i - 255];
        log[0] = 0;
        for (int a = 0; a < 256; ++a) {
            for (int b = 0; b < 256; ++b)
                mul[a][b] = (a && b) ? exp[log[a] + log[b]] : 0;
            for (int n = 0; n < 16; ++n) {
                low[a][n] = mul[a][n];
                high[a][n] = mul[a][n << 4];
            }
        }
    }
};

const Tables& T() noexcept {
    static const Tables tables;
    return tables;
}

void MulAddScalar(std::uint8_t* dst, const std::uint8_t* src, std::uint8_t c,
                  std::size_t n) noexcept {
    const std::uint8_t* row = T().mul[c];
    for (std::size_t i = 0; i < n; ++i)
        dst[i] ^= row[src[i]];
}

__attribute__((target("ssse3"))) void MulAddSsse3(std::uint8_t* dst, const std::uint8_t* src,
                                                  std::uint8_t c, std::size_t n) noexcept {
    const Tables& t = T();
    const __m128i low = _mm_load_si128(reinterpret_cast<const __m128i*>(t.low[c]));
    const __m128i high = _mm_load_si128(reinterpret_cast<const __m128i*>(t.high[c]));
    const __m128i mask = _mm_set1_epi8(0x0F);
    std::size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const __m128i s0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
        const __m128i s1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 16));
        const __m128i p0 =
            _mm_xor_si128(_mm_shuffle_epi8(low, _mm_and_si128(s0, mask)),
                          _mm_shuffle_epi8(high, _mm_and_si128(_mm_srli_epi64(s0, 4), mask)));
        const __m128i p1 =
            _mm_xor_si128(_mm_shuffle_epi8(low, _mm_and_si128(s1, mask)),
                          _mm_shuffle_epi8(high, _mm_and_si128(_mm_srli_epi64(s1, 4), mask)));
        __m128i* d = reinterpret_cast<__m128i*>(dst + i);
        _mm_storeu_si128(d, _mm_xor_si128(_mm_loadu_si128(d), p0));
        _mm_storeu_si128(d + 1, _mm_xor_si128(_mm_loadu_si128(d + 1), p1));
    }
    for (; i + 16 <= n; i += 16) {
        const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
        const __m128i p =
            _mm_xor_si128(_mm_shuffle_epi8(low, _mm_and_si128(s, mask)),
                          _mm_shuffle_epi8(high, _mm_and_si128(_mm_srli_epi64(s, 4), mask)));
        __m128i* d = reinterpret_cast<__m128i*>(dst + i);
        _mm_storeu_si128(d, _mm_xor_si128(_mm_loadu_si128(d), p));
    }
    const std::uint8_t* row = t.mul[c];
    for (; i < n; ++i)
        dst[i] ^= row[src[i]];
}

using MulAddFunction = void (*)(std::uint8_t*, const std::uint8_t*, std::uint8_t,
                                std::size_t) noexcept;

MulAddFunction g_mulAdd = CpuHasSsse3() ? MulAddSsse3 : MulAddScalar;

}  // namespace

std::uint8_t GfMul(std::uint8_t a, std::uint8_t b) noexcept {
    return T().mul[a][b];
}

std::uint8_t GfInv(std::uint8_t a) noexcept {
    return a ? T().exp[255 - T().log[a]] : 0;
}

void GfMulAdd(std::uint8_t* dst, const std::uint8_t* src, std::uint8_t c, std::size_t n) noexcept {
    if (c == 0 || n == 0)
        return;
    g_mulAdd(dst, src, c, n);
}

GfKernel ActiveGfKernel() noexcept {
    return g_mulAdd == MulAddSsse3 ? GfKernel::kSsse3 : GfKernel::kScalar;
}

bool SelectGfKernel(GfKernel kernel) noexcept {
    if (kernel == GfKernel::kSsse3 && !CpuHasSsse3())
        return false;
    g_mulAdd = kernel == GfKernel::kSsse3 ? MulAddSsse3 : MulAddScalar;
    return true;
}

}  // namespace transport
