// The demo's decoding sink (see DecodingSink.h).
#include "DecodingSink.h"

#include <cstring>
#include <mutex>
#include <new>

#include "stream/Packet.h"

namespace vantrel::host {

namespace {

using Guard = std::lock_guard<CriticalSection>;

// Far enough left and up that no pointer shape reaches the picture.
constexpr int kOffPicture = -0x10000;

const char* OutcomeName(StreamDecoder::Outcome outcome) noexcept {
    switch (outcome) {
        case StreamDecoder::Outcome::NoCodec:
            return "no codec or no decode buffer";
        case StreamDecoder::Outcome::CodecFailed:
            return "the codec refused a body";
        case StreamDecoder::Outcome::Damaged:
            return "a body did not match its header";
        case StreamDecoder::Outcome::RebuildFailed:
            return "the picture could not be made in the packet's format";
        default:
            return "unexpected outcome";
    }
}

}  // namespace

DecodingSink::DecodingSink(IUnknown* outer) noexcept
    : ComObjectRoot(outer), decoder_(image_, *this) {}

HRESULT DecodingSink::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(DecodingSink, IDataTransmitter), {}};
    return QISearch(this, rows, riid, ppv);
}

void DecodingSink::SetCodec(IScreenCodec* codec) noexcept {
    Guard guard(lock_);
    codec_ = ComPtr<IScreenCodec>(codec);
    decoder_.SetCodec(codec);
}

// Whatever happened, the source is not told.
HRESULT DecodingSink::Transfer(void* lpvData, unsigned long cbData, long) noexcept {
    Guard guard(lock_);
    const StreamDecoder::Outcome outcome = decoder_.Decode(lpvData, cbData);
    switch (outcome) {
        case StreamDecoder::Outcome::Frame:
            ++frames_;
            break;
        case StreamDecoder::Outcome::Cursor:
            ++cursors_;
            KeepShape();
            break;
        case StreamDecoder::Outcome::Refused:
        case StreamDecoder::Outcome::NoImage:
            ++refused_;
            break;
        default:
            Problem(OutcomeName(outcome));
            break;
    }
    return S_OK;
}

HRESULT DecodingSink::Flush() noexcept {
    return S_OK;
}

void DecodingSink::OnCursorChanged(const RECT&, const POINT* position) noexcept {
    if (position)
        pointer_ = *position;
}

// The decoder's buffer still holds the record it has just applied.
void DecodingSink::KeepShape() noexcept {
    packet::CursorRecordView view;
    if (packet::ParseCursorRecord(decoder_.Buffer(), packet::kBufferSize, &view) !=
            packet::CursorError::None ||
        !view.newShape)
        return;
    try {
        pointerMasks_.assign(view.andMask, view.xorBits + view.xorBitsSize);
    } catch (const std::bad_alloc&) {
        Problem("out of memory");
    }
}

void DecodingSink::Problem(const char* what) noexcept {
    try {
        if (!problems_.empty())
            problems_ += "; ";
        problems_ += what;
    } catch (const std::bad_alloc&) {
    }
}

uint32_t DecodingSink::Frames() const noexcept {
    Guard guard(lock_);
    return frames_;
}

uint32_t DecodingSink::Cursors() const noexcept {
    Guard guard(lock_);
    return cursors_;
}

uint32_t DecodingSink::Refused() const noexcept {
    Guard guard(lock_);
    return refused_;
}

std::string DecodingSink::Problems() const {
    Guard guard(lock_);
    return problems_;
}

RECT DecodingSink::Desktop() const noexcept {
    Guard guard(lock_);
    return decoder_.GetDesktopRect();
}

std::vector<BYTE> DecodingSink::PointerMasks() const {
    Guard guard(lock_);
    return pointerMasks_;
}

POINT DecodingSink::PointerPosition() const noexcept {
    Guard guard(lock_);
    return pointer_;
}

// Moving the pointer off the picture puts back what it covered; it returns afterwards.
std::vector<uint16_t> DecodingSink::Picture() {
    Guard guard(lock_);
    const BITMAPINFO* bmi = image_.GetBitmapInfo();
    if (!bmi || bmi->bmiHeader.biBitCount != 16)
        return {};
    const bool is565 = bmi->bmiHeader.biCompression == BI_BITFIELDS &&
                       reinterpret_cast<const DWORD*>(bmi->bmiColors)[0] == 0xF800;
    RECT whole;
    image_.GetScreenRect(&whole);
    image_.MoveCursor(kOffPicture, kOffPicture);
    std::vector<uint16_t> pixels(static_cast<size_t>(whole.right) * whole.bottom);
    for (LONG y = 0; y < whole.bottom; ++y) {
        uint16_t* row = &pixels[static_cast<size_t>(y) * whole.right];
        std::memcpy(row, image_.GetBits() + y * image_.GetStride(),
                    static_cast<size_t>(whole.right) * 2);
        for (LONG x = 0; is565 && x < whole.right; ++x)
            row[x] = static_cast<uint16_t>(((row[x] >> 11) << 10) | (((row[x] >> 6) & 0x1F) << 5) |
                                           (row[x] & 0x1F));
    }
    image_.MoveCursor(pointer_.x, pointer_.y);
    image_.TakeChangedArea();
    return pixels;
}

}  // namespace vantrel::host
