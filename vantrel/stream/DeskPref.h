// The library's two registry settings, DWORD values under
// HKEY_LOCAL_MACHINE\Software\Korvane\Tessaroom\DeskPref. Read by the desktop image (its 5-6-5
// conversion switch) and by the capture object (frame rate, header fix-up).
#pragma once

#include <windows.h>

namespace vantrel {

class DeskPref {
  public:
    static constexpr const char* kFixCitrix16bit = "FixCitrix16bit";
    static constexpr const char* kFps = "FPS";

    // The value as a signed 32-bit number; -1 when the key or the value is missing or the value
    // is not 4 bytes long.
    static LONG ReadValue(const char* valueName) noexcept;
    // "FixCitrix16bit" is on only when it reads exactly 1.
    static bool FixCitrix16bit() noexcept { return ReadValue(kFixCitrix16bit) == 1; }
};

}  // namespace vantrel
