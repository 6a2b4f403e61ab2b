// A sink of the demo that decodes what it receives the way every decoder must: accepts or
// refuses each packet through the packet module, decompresses the body with the screen codec,
// checks the payload or record, and rebuilds the desktop's 16-bit pixels and the pointer from
// them. The round-trip step compares the rebuilt state with what was sent.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ScreenCodec.h"
#include "Vantrel.h"
#include "platform/ComObjectRoot.h"
#include "platform/ComPtr.h"
#include "stream/Packet.h"

namespace vantrel::host {

class DecodingSink final : public IDataTransmitter, public ComObjectRoot {
  public:
    explicit DecodingSink(IUnknown* outer) noexcept;

    // Before the first Transfer: the codec to decompress with.
    void SetCodec(IScreenCodec* codec) noexcept { codec_ = ComPtr<IScreenCodec>(codec); }

    VANTREL_COM_IUNKNOWN
    HRESULT STDMETHODCALLTYPE Transfer(void* lpvData, unsigned long cbData,
                                       long bAsync) noexcept override;
    HRESULT STDMETHODCALLTYPE Flush() noexcept override;

    // What was decoded; read once the source is quiet.
    uint32_t Frames() const noexcept { return frames_; }
    uint32_t Cursors() const noexcept { return cursors_; }
    uint64_t PayloadBytes() const noexcept { return payloadBytes_; }
    uint32_t Refused() const noexcept { return refused_; }
    // Why packets were dropped beyond the acceptance rules (codec or payload checks); empty
    // when every accepted packet decoded.
    const std::string& Problems() const noexcept { return problems_; }
    const RECT& Desktop() const noexcept { return desktop_; }
    const std::vector<uint16_t>& Pixels() const noexcept { return pixels_; }
    // AND mask and XOR bits of the last shape, and the last position.
    const std::vector<BYTE>& PointerMasks() const noexcept { return pointerMasks_; }
    POINT PointerPosition() const noexcept { return pointer_; }

  protected:
    HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept override;

  private:
    void Problem(const char* what) noexcept;
    // Decompresses an accepted packet's body into buffer_; its size, or 0 on failure.
    uint32_t Decompress(const void* packet, uint32_t cbData, packet::Verdict verdict) noexcept;
    // Throw std::bad_alloc only; Transfer catches it.
    // Throw std::bad_alloc only; Transfer catches it.
    void ApplyFrame(const void* packet, uint32_t cbData);
    void ApplyCursor(const void* packet, uint32_t cbData);

    ComPtr<IScreenCodec> codec_;
    std::unique_ptr<BYTE[]> buffer_;  // packet::kBufferSize bytes
    uint32_t frames_ = 0;
    uint32_t cursors_ = 0;
    uint64_t payloadBytes_ = 0;
    uint32_t refused_ = 0;
    std::string problems_;
    RECT desktop_{};
    std::vector<uint16_t> pixels_;
    std::vector<BYTE> pointerMasks_;
    POINT pointer_{};
};

}  // namespace vantrel::host
