// Registry reads of the DeskPref settings.
#include "DeskPref.h"

#include "wincom/UniqueHandle.h"

namespace vantrel {

LONG DeskPref::ReadValue(const char* valueName) noexcept {
    if (!valueName)
        return -1;
    UniqueHkey key;
    if (RegOpenKeyA(HKEY_LOCAL_MACHINE, "Software\\Korvane\\Tessaroom\\DeskPref", key.put()) !=
        ERROR_SUCCESS)
        return -1;
    DWORD value = 0;
    DWORD size = sizeof value;
    DWORD type = 0;
    if (RegQueryValueExA(key.get(), valueName, nullptr, &type, reinterpret_cast<BYTE*>(&value),
                         &size) != ERROR_SUCCESS ||
        size != sizeof value)
        return -1;
    return static_cast<LONG>(value);
}

}  // namespace vantrel
