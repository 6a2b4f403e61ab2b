// The two GF(256) multiply-add kernels against the field's definition, at every coefficient
// and at lengths around the vector widths (tails, unaligned starts).
#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "Gf256.h"

namespace {

// Carry-less multiply reduced by 0x11D: the field itself, independent of the tables.
std::uint8_t Multiply(std::uint8_t a, std::uint8_t b) {
    unsigned r = 0, x = a;
    for (int i = 0; i < 8; ++i, x <<= 1)
        if (b & (1u << i))
            r ^= x;
    for (int bit = 14; bit >= 8; --bit)
        if (r & (1u << bit))
            r ^= 0x11Du << (bit - 8);
    return static_cast<std::uint8_t>(r);
}

TEST(Gf256, KernelsMatchTheField) {
    using transport::GfKernel;
    std::vector<GfKernel> kernels = {GfKernel::kScalar};
    if (transport::CpuHasSsse3())
        kernels.push_back(GfKernel::kSsse3);
    const GfKernel active = transport::ActiveGfKernel();
    EXPECT_EQ(transport::CpuHasSsse3() ? GfKernel::kSsse3 : GfKernel::kScalar, active);

    std::mt19937 rng(1);
    std::vector<std::uint8_t> src(100), dst(100), want(100);
    for (GfKernel kernel : kernels) {
        ASSERT_TRUE(transport::SelectGfKernel(kernel));
        for (int c = 0; c < 256; ++c) {
            if (c) {
                EXPECT_EQ(1, transport::GfMul(static_cast<std::uint8_t>(c),
                                              transport::GfInv(static_cast<std::uint8_t>(c))));
            }
            for (std::size_t n : {0u, 1u, 15u, 16u, 17u, 31u, 32u, 33u, 63u, 64u, 67u}) {
                for (auto& b : src)
                    b = static_cast<std::uint8_t>(rng());
                for (auto& b : dst)
                    b = static_cast<std::uint8_t>(rng());
                want = dst;
                const std::size_t at = n % 3;  // unaligned starts
                for (std::size_t i = 0; i < n; ++i)
                    want[at + i] ^= Multiply(static_cast<std::uint8_t>(c), src[at + i]);
                transport::GfMulAdd(dst.data() + at, src.data() + at, static_cast<std::uint8_t>(c),
                                    n);
                ASSERT_EQ(want, dst) << "c " << c << " n " << n;
            }
        }
    }
    transport::SelectGfKernel(active);
}

}  // namespace
