// A sink of the demo that only counts: packets and bytes per kind, and flushes. It shows what a
// second registered sink sees of the same stream.
#pragma once

#include <windows.h>

#include <cstdint>

#include "Vantrel.h"
#include "wincom/ComObjectRoot.h"

namespace vantrel::host {

class CountingSink final : public IDataTransmitter, public ComObjectRoot {
  public:
    explicit CountingSink(IUnknown* outer) noexcept : ComObjectRoot(outer) {}

    VANTREL_COM_IUNKNOWN
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;
    HRESULT STDMETHODCALLTYPE Flush() noexcept override;

    // Read once the source is quiet.
    uint32_t Frames() const noexcept { return frames_; }
    uint32_t Cursors() const noexcept { return cursors_; }
    uint32_t Others() const noexcept { return others_; }
    uint64_t Bytes() const noexcept { return bytes_; }
    uint32_t Flushes() const noexcept { return flushes_; }

  protected:
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

  private:
    uint32_t frames_ = 0;
    uint32_t cursors_ = 0;
    uint32_t others_ = 0;
    uint64_t bytes_ = 0;
    uint32_t flushes_ = 0;
};

}  // namespace vantrel::host
