// DesktopCaster: session arguments and the numbering of messages and datagrams.
#include "cast/DesktopCaster.h"

#include "wincom/Result.h"

namespace vantrel {

DesktopCaster::DesktopCaster(IUnknown* outer) noexcept : ComObjectRoot(outer) {}

HRESULT DesktopCaster::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {
        QITABENT(DesktopCaster, IDesktopCaster),
        QITABENT(DesktopCaster, IDataTransmitter),
        {},
    };
    return QISearch(this, rows, riid, ppv);
}

// An out-of-range count is refused before anything is opened or configured.
HRESULT DesktopCaster::CreateSession(LPSTR, LPSTR, unsigned short, int nNumFecPacketsInGroup,
                                     long) noexcept {
    RETURN_HR_IF(E_FAIL,
                 nNumFecPacketsInGroup < 0 || nNumFecPacketsInGroup > kMaxFecPacketsInGroup);
    return E_NOTIMPL;  // needs the multicast sender and the coder
}

HRESULT DesktopCaster::DestroySession() noexcept {
    return E_NOTIMPL;  // needs the multicast sender and the coder
}

HRESULT DesktopCaster::Run() noexcept {
    messageNumber_ = 0;
    datagramCount_ = 0;
    return S_OK;
}

// Sending does not depend on Run: the caster sends until the source lets it go.
HRESULT DesktopCaster::Stop() noexcept {
    return S_OK;
}

HRESULT DesktopCaster::Transfer(void*, unsigned long, long) noexcept {
    return E_NOTIMPL;  // needs the multicast sender and the coder
}

HRESULT DesktopCaster::Flush() noexcept {
    return E_NOTIMPL;  // needs the multicast sender and the coder
}

}  // namespace vantrel
