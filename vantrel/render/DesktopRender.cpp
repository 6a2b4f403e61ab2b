// DesktopRender: packets in through the shared decoder, full pictures out as frame packets.
#include "render/DesktopRender.h"

#include <atomic>
#include <cstring>
#include <mutex>

#include "contracts/Pixmend.h"
#include "stream/Packet.h"
#include "stream/StreamEncoder.h"
#include "wincom/Result.h"

namespace vantrel {
namespace {

using Guard = std::lock_guard<CriticalSection>;

constexpr DWORD kAsyncHandOverMs = 1000;

// Where the next full-picture band starts: one counter for the whole process, every render's.
std::atomic<UINT> g_fullScreenRow{0};

}  // namespace

DesktopRender::DesktopRender(IUnknown* outer) noexcept
    : ComObjectRoot(outer),
      decoder_(image_, *this),
      packetDone_(CreateEventA(nullptr, TRUE, TRUE, nullptr)) {
    PixmendInit();
    // Without a codec no packet decodes; the render still works as a window.
    if (FAILED(CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER, IID_IScreenCodec,
                                codec_.PutVoid())))
        codec_.Reset();
    decoder_.SetCodec(codec_.Get());
    CreateRenderWindow();
}

DesktopRender::~DesktopRender() {
    DestroyRenderWindow();
}

HRESULT DesktopRender::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {
        QITABENT(DesktopRender, IDesktopRender),
        QITABENT(DesktopRender, IDataTransmitter),
        QITABENT(DesktopRender, IFrameBuffer),
        {},
    };
    return QISearch(this, rows, riid, ppv);
}

// Drops the picture's rectangle so that the next frame packet builds the picture anew.
HRESULT DesktopRender::Run() noexcept {
    Guard guard(decodeLock_);
    decoder_.ResetPicture(true);
    return S_OK;
}

HRESULT DesktopRender::Stop() noexcept {
    return S_OK;
}

// Only a shared-memory viewer has a session.
HRESULT DesktopRender::SetSessionId(int) noexcept {
    return S_OK;
}

void DesktopRender::ForgetCompletion() noexcept {
    Guard guard(decodeLock_);
    decoder_.ResetPicture(false);
}

RECT DesktopRender::PictureRect() const noexcept {
    Guard guard(decodeLock_);
    return decoder_.GetDesktopRect();
}

LONG DesktopRender::PictureBitsPixel() const noexcept {
    Guard guard(decodeLock_);
    return static_cast<LONG>(decoder_.GetBitsPixel());
}

bool DesktopRender::IsPictureComplete() const noexcept {
    Guard guard(decodeLock_);
    return decoder_.IsPictureComplete();
}

// ---- Packets ------------------------------------------------------------------------------------

// Asynchronous packets go to the window's thread one at a time; the caller keeps the packet
// until packetDone_ is signalled again.
HRESULT DesktopRender::Transfer(void* lpvData, unsigned long cbData, long bAsync) noexcept {
    if (!bAsync) {
        ProcessPacket(lpvData, cbData);
        return S_OK;
    }
    const HWND hwnd = window().Handle();
    if (!hwnd || WaitForSingleObject(packetDone_.get(), kAsyncHandOverMs) != WAIT_OBJECT_0)
        return S_OK;
    ResetEvent(packetDone_.get());
    if (!PostMessageA(hwnd, RenderWindow::kPacketMessage, reinterpret_cast<WPARAM>(lpvData),
                      static_cast<LPARAM>(cbData)))
        SetEvent(packetDone_.get());
    return S_OK;
}

HRESULT DesktopRender::Flush() noexcept {
    return S_OK;
}

// A packet whose length field disagrees with its size is dropped before anything else; every
// other packet, decoded or not, ends with a layout pass.
void DesktopRender::ProcessPacket(const void* data, DWORD size) noexcept {
    if (packet::Classify(data, size) != packet::Verdict::LengthMismatch) {
        {
            Guard guard(decodeLock_);
            decoder_.Decode(data, size);
        }
        RecalcLayout();
    }
    SetEvent(packetDone_.get());
}

void DesktopRender::OnFormatChanged(bool wasComplete) noexcept {
    if (wasComplete)
        PostNotify(RN_FORMATCHANGED);
}

void DesktopRender::OnBandApplied(const RECT& band) noexcept {
    if (HPALETTE palette = image_.CreateImagePalette())
        window().SetViewPalette(palette);
    window().InvalidateSourceRect(band);
}

void DesktopRender::OnPictureComplete() noexcept {
    PostNotify(RN_FORMATCHANGED);
    PostNotify(RN_PICTURECOMPLETE);
}

bool DesktopRender::AcceptCursorPosition(int, int) noexcept {
    return StreamMovesPointer();
}

void DesktopRender::OnCursorChanged(const RECT& area, const POINT* position) noexcept {
    OnPointerChanged(area, position);
}

// ---- IFrameBuffer -------------------------------------------------------------------------------

// One band of the picture per call, as a frame packet any sink takes, compressed in the codec's
// stronger mode. The caller's buffer holds packet::kBufferSize bytes.
HRESULT DesktopRender::GetFullScreenData(void* lpvData, unsigned long* pcbData,
                                         long bFirst) noexcept {
    RETURN_HR_IF(E_POINTER, !lpvData || !pcbData);
    Guard guard(decodeLock_);
    const RECT picture = decoder_.GetDesktopRect();
    RETURN_HR_IF(E_FAIL, IsRectEmpty(&picture));
    if (bFirst)
        g_fullScreenRow = 0;
    uint32_t row = g_fullScreenRow;
    if (row >= static_cast<uint32_t>(picture.bottom - picture.top)) {
        packet::FrameHeader header;
        header.desktop = picture;
        header.bitsPerPixel = decoder_.GetBitsPixel();
        packet::WriteFrameDesktop(lpvData, header);
        return S_FALSE;  // *pcbData and the length field stay as they were
    }
    const uint32_t length =
        StreamEncoder::ExportBand(image_, codec_.Get(), decoder_.GetBitsPixel(), decoder_.Buffer(),
                                  static_cast<BYTE*>(lpvData), &row);
    g_fullScreenRow = row;
    RETURN_HR_IF(E_FAIL, length == 0);
    *pcbData = length;
    return S_OK;
}

// The picture's rows bottom row first (a bottom-up DIB body), as many whole rows as fit.
HRESULT DesktopRender::GetFullScreenDataUncompressed(void* lpvData,
                                                     unsigned long* pcbData) noexcept {
    RETURN_HR_IF(E_POINTER, !lpvData || !pcbData);
    const RECT picture = PictureRect();
    RETURN_HR_IF(E_FAIL, IsRectEmpty(&picture));
    UINT size = *pcbData, lines = 0;
    if (!image_.CopyRowsBottomUp(&picture, lpvData, &size, 0, &lines))
        size = 0;
    *pcbData = size;
    return S_OK;
}

// The picture's own BITMAPINFO, owned here and replaced when the picture is made anew.
HRESULT DesktopRender::GetBitmapInfo(void** lpvBmpInfo) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, lpvBmpInfo);
    *lpvBmpInfo = const_cast<BITMAPINFO*>(image_.GetBitmapInfo());
    return S_OK;
}

}  // namespace vantrel
