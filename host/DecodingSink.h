// A sink of the demo that decodes what it receives with the library's shared StreamDecoder into
// a DesktopImage of its own, the way a render does, and keeps the last pointer shape and
// position. The demo's steps compare its picture and pointer with what was sent or with the
// screen.
//
// Threads: Transfer runs on the source's thread (the capture thread in the capture step); the
// readers run on the demo's thread. lock_ keeps them apart.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ScreenCodec.h"
#include "Vantrel.h"
#include "wincom/ComObjectRoot.h"
#include "wincom/ComPtr.h"
#include "wincom/CriticalSection.h"
#include "stream/DesktopImage.h"
#include "stream/StreamDecoder.h"

namespace vantrel::host {

class DecodingSink final : public IDataTransmitter,
                           public ComObjectRoot,
                           private StreamDecoder::Owner {
  public:
    explicit DecodingSink(IUnknown* outer) noexcept;

    // Before the first Transfer: the codec to decompress with (a reference is kept).
    void SetCodec(IScreenCodec* codec) noexcept;

    VANTREL_COM_IUNKNOWN
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;
    HRESULT STDMETHODCALLTYPE Flush() noexcept override;

    uint32_t Frames() const noexcept;
    uint32_t Cursors() const noexcept;
    // Packets the decoder did not accept, and cursor packets before any picture.
    uint32_t Refused() const noexcept;
    // Why accepted packets were not applied; empty when every one was.
    std::string Problems() const;
    RECT Desktop() const noexcept;
    // The decoded picture as 5-5-5 pixels, row 0 first, without the pointer drawn over it;
    // empty before a 16-bit picture exists.
    std::vector<uint16_t> Picture();
    // AND mask and XOR bits of the last shape, and the last position.
    std::vector<BYTE> PointerMasks() const;
    POINT PointerPosition() const noexcept;

  protected:
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

  private:
    void OnCursorChanged(const RECT& area, const POINT* position) noexcept override;
    void Problem(const char* what) noexcept;
    void KeepShape() noexcept;

    mutable CriticalSection lock_;  // guards everything below
    ComPtr<IScreenCodec> codec_;
    DesktopImage image_;
    StreamDecoder decoder_;
    uint32_t frames_ = 0;
    uint32_t cursors_ = 0;
    uint32_t refused_ = 0;
    std::string problems_;
    std::vector<BYTE> pointerMasks_;
    POINT pointer_{};
};

}  // namespace vantrel::host
