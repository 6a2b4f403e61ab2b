// Unaligned reads and writes of the little-endian integers that every format here stores, on a
// little-endian processor: memcpy, which the compiler turns into a single move. Header-only and
// free of Windows headers, so the native fuzz builds use it too.
#pragma once

#include <cstdint>
#include <cstring>

namespace vantrel {

inline std::uint16_t LoadU16(const void* p) noexcept {
    std::uint16_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline std::uint32_t LoadU32(const void* p) noexcept {
    std::uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline std::int32_t LoadI32(const void* p) noexcept {
    return static_cast<std::int32_t>(LoadU32(p));
}
inline void StoreU16(void* p, std::uint16_t v) noexcept {
    std::memcpy(p, &v, sizeof v);
}
inline void StoreU32(void* p, std::uint32_t v) noexcept {
    std::memcpy(p, &v, sizeof v);
}
inline void StoreI32(void* p, std::int32_t v) noexcept {
    StoreU32(p, static_cast<std::uint32_t>(v));
}

}  // namespace vantrel
