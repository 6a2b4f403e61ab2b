// DesktopCapture: construction, Run and Stop around the capture engine, and the settings.
#include "capture/DesktopCapture.h"

#include <mutex>
#include <new>

#include "stream/DeskPref.h"
#include "contracts/Pixmend.h"
#include "wincom/Result.h"

namespace vantrel {
namespace {

using Guard = std::lock_guard<CriticalSection>;

// "FPS" clamped to 0..6, in frames per second (steps of 5); absent reads as -1, so 0.
int FramesPerSecond(LONG fps, LONG maxFps) noexcept {
    if (fps < 0)
        fps = 0;
    if (fps > maxFps)
        fps = maxFps;
    return static_cast<int>(fps) * 5;
}

}  // namespace

// A missing codec is noticed by Run only; the encoder made its two buffers already.
DesktopCapture::DesktopCapture(IUnknown* outer) noexcept
    : ComObjectRoot(outer), engine_(new (std::nothrow) CaptureEngine) {
    PixmendInit();
    if (!engine_)
        return;
    ComPtr<IScreenCodec> codec;
    if (SUCCEEDED(CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_IScreenCodec, codec.PutVoid())))
        engine_->SetCodec(std::move(codec));
}

HRESULT DesktopCapture::FinalConstruct() noexcept {
    return engine_ ? S_OK : E_OUTOFMEMORY;
}

DesktopCapture::~DesktopCapture() {
    if (engine_ && engine_->IsCaptureThread()) {
        CaptureEngine::Abandon(std::move(engine_));
        return;
    }
    Stop();
}

HRESULT DesktopCapture::InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    static const QITAB rows[] = {QITABENT(DesktopCapture, IDesktopCapture), {}};
    return QISearch(this, rows, riid, ppv);
}

HRESULT DesktopCapture::Run() noexcept {
    Guard guard(lock_);
    RETURN_HR_IF(E_FAIL, running_ || !engine_->HasCodec());
    RETURN_HR_IF(E_OUTOFMEMORY, !engine_->HasBuffers());
    CaptureEngine::Settings settings;
    settings.fixCitrix16bit = DeskPref::FixCitrix16bit();
    settings.framesPerSecond = FramesPerSecond(DeskPref::ReadValue(DeskPref::kFps), kMaxFps);
    settings.priority = capturePriority_;
    RETURN_IF_FAILED(engine_->Start(settings));
    running_ = true;
    return S_OK;
}

// The capture thread cannot wait for its own end: a sink that calls Stop from Transfer is
// refused instead of hanging.
HRESULT DesktopCapture::Stop() noexcept {
    RETURN_HR_IF(E_FAIL, !engine_ || engine_->IsCaptureThread());
    {
        Guard guard(lock_);
        RETURN_HR_IF(E_FAIL, !running_ || stopping_);
        stopping_ = true;
        engine_->SignalStop();
    }
    // While stopping_ is set no other method touches the engine's thread or events.
    engine_->Join();
    Guard guard(lock_);
    stopping_ = false;
    running_ = false;
    return S_OK;
}

HRESULT DesktopCapture::SetCompatibleMode(long) noexcept {
    return S_OK;
}

HRESULT DesktopCapture::GetCompatibleMode(long* pbCompatibleMode) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, pbCompatibleMode);
    *pbCompatibleMode = compatibleMode_;
    return S_OK;
}

HRESULT DesktopCapture::RegisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept {
    return engine_->Sinks().RegisterDataTransmitter(pDataTransmitter);
}

HRESULT DesktopCapture::UnregisterDataTransmitter(IDataTransmitter* pDataTransmitter) noexcept {
    return engine_->Sinks().UnregisterDataTransmitter(pDataTransmitter);
}

// Before Run, after Stop and while a Stop waits there is no thread to ask and the request is
// dropped.
HRESULT DesktopCapture::RequestFullScreen() noexcept {
    Guard guard(lock_);
    if (running_ && !stopping_)
        engine_->RequestFullScreen();
    return S_OK;
}

// Run applies the stored priority to every new capture thread.
HRESULT DesktopCapture::SetCapturePriority(int nPriority) noexcept {
    Guard guard(lock_);
    capturePriority_ = nPriority;
    if (running_ && !stopping_)
        engine_->SetPriority(nPriority);
    return S_OK;
}

HRESULT DesktopCapture::SetIdleFlushTimeout(unsigned long dwTimeout) noexcept {
    RETURN_HR_IF(E_FAIL, dwTimeout < kMinIdleFlushTimeout);
    engine_->SetIdleFlushTimeout(dwTimeout);
    return S_OK;
}

// The image prepares its logo when it opens: a new logo shows from the next Run.
HRESULT DesktopCapture::SetRecordLogo(HBITMAP hBmp) noexcept {
    engine_->SetLogo(hBmp);
    return S_OK;
}

}  // namespace vantrel
