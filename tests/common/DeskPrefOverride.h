// A DeskPref registry value (HKEY_LOCAL_MACHINE\Software\Korvane\Tessaroom\DeskPref) set for
// the length of a test or a benchmark scenario; the previous state comes back afterwards.
#pragma once

#include <windows.h>

#include "wincom/UniqueHandle.h"

namespace vantrel::test {

class DeskPrefOverride {
  public:
    static constexpr DWORD kNoValue = 0xFFFFFFFF;  // the value is absent
    DeskPrefOverride(const char* name, DWORD value) : name_(name) {
        RegCreateKeyExA(HKEY_LOCAL_MACHINE, "Software\\Korvane\\Tessaroom\\DeskPref", 0, nullptr, 0,
                        KEY_ALL_ACCESS, nullptr, key_.put(), nullptr);
        DWORD size = sizeof previous_;
        if (RegQueryValueExA(key_.get(), name, nullptr, nullptr,
                             reinterpret_cast<BYTE*>(&previous_), &size) != ERROR_SUCCESS)
            previous_ = kNoValue;
        Set(value);
    }
    ~DeskPrefOverride() { Set(previous_); }
    DeskPrefOverride(const DeskPrefOverride&) = delete;
    DeskPrefOverride& operator=(const DeskPrefOverride&) = delete;
    bool Ok() const { return static_cast<bool>(key_); }
    void Set(DWORD value) {
        if (value == kNoValue)
            RegDeleteValueA(key_.get(), name_);
        else
            RegSetValueExA(key_.get(), name_, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                           sizeof value);
    }

  private:
    const char* name_;
    UniqueHkey key_;
    DWORD previous_ = kNoValue;
};

}  // namespace vantrel::test
