// What the fuzz targets share: a check that ends the run with a message (libFuzzer then keeps
// the input as a crash) and a reader that takes the fuzzer's bytes apart. Several targets read
// their input as records, each a u16 little-endian length and that many bytes: a sequence of
// datagrams or fragments as they arrived.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#define FUZZ_CHECK(cond)                                      \
    do {                                                      \
        if (!(cond))                                          \
            ::vantrel::fuzz::Fail(#cond, __FILE__, __LINE__); \
    } while (0)

namespace vantrel::fuzz {

[[noreturn]] inline void Fail(const char* what, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, what);
    std::abort();
}

// Reads every byte of [p, p + n) so that AddressSanitizer sees a view that runs past its buffer.
inline unsigned Touch(const void* p, std::size_t n) {
    const auto* b = static_cast<const volatile std::uint8_t*>(p);
    unsigned sum = 0;
    for (std::size_t i = 0; i < n; ++i)
        sum += b[i];
    return sum;
}

class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) noexcept : p_(data), left_(size) {}

    std::size_t Left() const noexcept { return left_; }
    // 0 once the bytes are used up.
    std::uint8_t U8() noexcept {
        if (!left_)
            return 0;
        --left_;
        return *p_++;
    }
    std::uint16_t U16() noexcept { return static_cast<std::uint16_t>(U8() | U8() << 8); }
    std::uint32_t U32() noexcept { return U16() | static_cast<std::uint32_t>(U16()) << 16; }
    // Up to n bytes (fewer at the end).
    const std::uint8_t* Take(std::size_t n, std::size_t* got) noexcept {
        *got = n < left_ ? n : left_;
        const std::uint8_t* at = p_;
        p_ += *got;
        left_ -= *got;
        return at;
    }
    // The next record; false when no bytes are left.
    bool Record(const std::uint8_t** data, std::size_t* size) noexcept {
        if (!left_)
            return false;
        const std::size_t n = U16();
        *data = Take(n, size);
        return true;
    }

  private:
    const std::uint8_t* p_;
    std::size_t left_;
};

}  // namespace vantrel::fuzz
