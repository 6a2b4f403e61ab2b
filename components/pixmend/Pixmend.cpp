// Exports of Pixmend.dll, called by the desktop image while it copies rows out of the screen
// grab. Each converter returns the number of bytes it wrote; the caller does not rely on it.
#include "contracts/Pixmend.h"

#include "RowConverter.h"

using pixmend::RowConverter;

namespace {
const std::uint8_t* Bytes(const void* p) {
    return static_cast<const std::uint8_t*>(p);
}
std::uint8_t* Bytes(void* p) {
    return static_cast<std::uint8_t*>(p);
}
}  // namespace

extern "C" {

BOOL WINAPI PixmendInit(void) {
    RowConverter::SelectKernels();
    return TRUE;
}

UINT WINAPI ConvertRow32To555(const void* source, void* dest, UINT cbSource) {
    if (!source || !dest)
        return 0;
    const UINT pixels = cbSource / 4;
    RowConverter::From32(Bytes(source), Bytes(dest), pixels);
    return 2 * pixels;
}

UINT WINAPI ConvertRow24To555(const void* source, void* dest, UINT cbSource) {
    if (!source || !dest)
        return 0;
    const UINT pixels = cbSource / 3;
    RowConverter::From24(Bytes(source), Bytes(dest), pixels);
    return 2 * pixels;
}

UINT WINAPI ConvertRow565To555(const void* source, void* dest, UINT cbSource) {
    if (!source || !dest)
        return 0;
    const UINT pixels = cbSource / 2;
    RowConverter::From565(Bytes(source), Bytes(dest), pixels);
    return 2 * pixels;
}
}
