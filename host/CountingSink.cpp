// The demo's counting sink (see CountingSink.h).
#include "CountingSink.h"

#include "stream/Packet.h"

namespace vantrel::host {

HRESULT CountingSink::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(CountingSink, IDataTransmitter), {}};
    return QISearch(this, rows, riid, ppv);
}

HRESULT CountingSink::Transfer(void* lpvData, unsigned long cbData, long) noexcept {
    switch (packet::Classify(lpvData, cbData)) {
        case packet::Verdict::Frame:
            ++frames_;
            break;
        case packet::Verdict::Cursor:
            ++cursors_;
            break;
        default:
            ++others_;
            break;
    }
    bytes_ += cbData;
    return S_OK;
}

HRESULT CountingSink::Flush() noexcept {
    ++flushes_;
    return S_OK;
}

}  // namespace vantrel::host
