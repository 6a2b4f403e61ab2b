// Early-return helpers that keep the happy path of COM methods straight. Nothing here throws.
// The HRESULT macros also serve the pure parsers in their native build; the last-error ones are
// Windows only.
#pragma once

#include "wincom/WinTypes.h"

#define RETURN_IF_FAILED(expr)      \
    do {                            \
        const HRESULT hr_ = (expr); \
        if (FAILED(hr_))            \
            return hr_;             \
    } while (0)

#define RETURN_HR_IF(hr, cond) \
    do {                       \
        if (cond)              \
            return (hr);       \
    } while (0)

#define RETURN_HR_IF_NULL(hr, ptr) RETURN_HR_IF(hr, (ptr) == nullptr)

#define RETURN_IF_NULL_ALLOC(ptr) RETURN_HR_IF(E_OUTOFMEMORY, (ptr) == nullptr)

#ifdef _WIN32
namespace vantrel {
// The last Win32 error as an HRESULT, never S_OK (a failed call that left no error code still
// failed).
inline HRESULT HResultFromLastError() noexcept {
    const DWORD err = GetLastError();
    return err ? HRESULT_FROM_WIN32(err) : E_FAIL;
}
}  // namespace vantrel

#define RETURN_LAST_ERROR_IF(cond)                    \
    do {                                              \
        if (cond)                                     \
            return ::vantrel::HResultFromLastError(); \
    } while (0)

#define RETURN_LAST_ERROR_IF_NULL(ptr) RETURN_LAST_ERROR_IF((ptr) == nullptr)
#endif
