// A DeskPref registry value (HKEY_LOCAL_MACHINE\Software\Korvane\Tessaroom\DeskPref) set for
// the length of a test or a benchmark scenario; the previous state comes back afterwards.
#pragma once

#include <windows.h>

#include "wincom/UniqueHandle.h"

namespace vantrel::test {

class DeskPrefOverride {
  public:
    static constexpr DWORD kNoValue = 0xFFFFFFFF;  // the value is absent
    DeskPrefOverride(const char* name, DWORD value);
    ~DeskPrefOverride() { Set(previous_); }
    DeskPrefOverride(const DeskPrefOverride&) = delete;
    DeskPrefOverride& operator=(const DeskPrefOverride&) = delete;
    bool Ok() const { return static_cast<bool>(key_); }
    void Set(DWORD value);

  private:
    const char* name_;
    UniqueHkey key_;
    DWORD previous_ = kNoValue;
};

}  // namespace vantrel::test
