// The row kernels behind Pixmend.dll's exports: a portable path and an SSE2 path per source
// format, and the choice between them. Pixmend.cpp is the only user.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pixmend {

class RowConverter {
  public:
    // Picks the SSE2 kernels when the processor and the system support them. Idempotent; safe
    // to call from several threads at once. Before the first call the portable kernels run.
    static void SelectKernels() noexcept;
    static bool UsingSse2() noexcept;

    // Each converts `pixels` whole pixels and writes exactly 2 * pixels bytes.
    static void From32(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels) noexcept;
    static void From24(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels) noexcept;
    static void From565(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels) noexcept;
};

}  // namespace pixmend
