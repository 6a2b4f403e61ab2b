#include "KernelObjects.h"

namespace vantrel {
namespace {
void ReportExisting(bool* alreadyExists) noexcept {
    const DWORD err = GetLastError();
    if (alreadyExists)
        *alreadyExists = err == ERROR_ALREADY_EXISTS;
}
}  // namespace

NullDaclSecurity::NullDaclSecurity() noexcept {
    ok_ = InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) &&
          SetSecurityDescriptorDacl(&descriptor_, TRUE, nullptr, FALSE);
    attributes_.nLength = sizeof attributes_;
    attributes_.lpSecurityDescriptor = &descriptor_;
    attributes_.bInheritHandle = FALSE;
}

UniqueEvent CreateNamedEvent(const char* name, bool manualReset, bool initialState,
                             bool* alreadyExists) noexcept {
    NullDaclSecurity security;
    UniqueEvent event(CreateEventA(security.get(), manualReset, initialState, name));
    ReportExisting(alreadyExists);
    return event;
}

UniqueEvent TryOpenNamedEvent(const char* name) noexcept {
    return UniqueEvent(OpenEventA(EVENT_ALL_ACCESS, FALSE, name));
}

UniqueHandle CreateNamedMutex(const char* name, bool* alreadyExists) noexcept {
    NullDaclSecurity security;
    UniqueHandle mutex(CreateMutexA(security.get(), FALSE, name));
    ReportExisting(alreadyExists);
    return mutex;
}

UniqueHandle TryOpenNamedMutex(const char* name) noexcept {
    return UniqueHandle(OpenMutexA(MUTEX_ALL_ACCESS, FALSE, name));
}

UniqueMapping CreateNamedSection(const char* name, DWORD size, bool* alreadyExists) noexcept {
    NullDaclSecurity security;
    UniqueMapping section(
        CreateFileMappingA(INVALID_HANDLE_VALUE, security.get(), PAGE_READWRITE, 0, size, name));
    ReportExisting(alreadyExists);
    return section;
}

UniqueMapping TryOpenNamedSection(const char* name) noexcept {
    return UniqueMapping(OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, name));
}

UniqueViewOfFile MapWholeSection(HANDLE section) noexcept {
    return UniqueViewOfFile(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
}

}  // namespace vantrel
