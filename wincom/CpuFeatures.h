// What the processor offers beyond plain i686, which every DLL is built for: the vector paths
// of the components are chosen at run time. Header-only and free of Windows headers, so the
// native fuzz builds use it too.
#pragma once

#include <cpuid.h>

namespace vantrel {

inline bool CpuHasSse2() noexcept {
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __get_cpuid(1, &a, &b, &c, &d) && (d & bit_SSE2);
}

inline bool CpuHasSsse3() noexcept {
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __get_cpuid(1, &a, &b, &c, &d) && (c & bit_SSSE3);
}

}  // namespace vantrel
