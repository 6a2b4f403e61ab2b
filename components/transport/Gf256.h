// Arithmetic in GF(256) (polynomial 0x11D) for the Reed-Solomon erasure code of FecEncoder and
// FecDecoder. The multiply-add over a block is the FEC's whole cost; it runs on SSSE3 split
// tables where the CPU has them (checked once, at load) and on a full product table otherwise.
// Pure: no Windows headers, so it also builds natively.
#pragma once

#include <cstddef>
#include <cstdint>

#include "wincom/CpuFeatures.h"

namespace transport {

std::uint8_t GfMul(std::uint8_t a, std::uint8_t b) noexcept;
// The inverse of a non-zero element (0 for 0).
std::uint8_t GfInv(std::uint8_t a) noexcept;

// dst[i] ^= c * src[i] for i < n.
void GfMulAdd(std::uint8_t* dst, const std::uint8_t* src, std::uint8_t c, std::size_t n) noexcept;

enum class GfKernel { kScalar, kSsse3 };

// The kernel GfMulAdd uses; chosen from cpuid when the module loads.
GfKernel ActiveGfKernel() noexcept;
using vantrel::CpuHasSsse3;
// For benchmarks and tests that compare the kernels: false (and no change) when the CPU lacks
// the kernel. Not for concurrent use with GfMulAdd.
bool SelectGfKernel(GfKernel kernel) noexcept;

}  // namespace transport
