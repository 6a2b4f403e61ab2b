#include "DeskPrefOverride.h"

namespace vantrel::test {

DeskPrefOverride::DeskPrefOverride(const char* name, DWORD value) : name_(name) {
    RegCreateKeyExA(HKEY_LOCAL_MACHINE, "Software\\Korvane\\Tessaroom\\DeskPref", 0, nullptr, 0,
                    KEY_ALL_ACCESS, nullptr, key_.put(), nullptr);
    DWORD size = sizeof previous_;
    if (RegQueryValueExA(key_.get(), name, nullptr, nullptr, reinterpret_cast<BYTE*>(&previous_),
                         &size) != ERROR_SUCCESS)
        previous_ = kNoValue;
    Set(value);
}

void DeskPrefOverride::Set(DWORD value) {
    if (value == kNoValue)
        RegDeleteValueA(key_.get(), name_);
    else
        RegSetValueExA(key_.get(), name_, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                       sizeof value);
}

}  // namespace vantrel::test
