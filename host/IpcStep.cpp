// The demo's shared-memory stage (see IpcStep.h).
#include "IpcStep.h"

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "AnimatedBoard.h"
#include "Vantrel.h"
#include "common/Screen.h"
#include "wincom/ComPtr.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::host {

namespace {

constexpr DWORD kAnimationMs = 2000;
constexpr DWORD kFrameMs = 40;
constexpr DWORD kSettleLimitMs = 8000;
constexpr int kSessions[] = {0, 7};

// A viewer's picture as 5-5-5 pixels, top row first; empty while it has none or in another
// format.
std::vector<uint16_t> PictureOf(IDesktopRender* viewer) {
    unsigned long size = 0;
    if (viewer->GetCurrectImage(&size, nullptr) != S_OK || size <= sizeof(BITMAPINFOHEADER))
        return {};
    std::vector<BYTE> image(size);
    if (viewer->GetCurrectImage(&size, image.data()) != S_OK)
        return {};
    BITMAPINFOHEADER h;
    std::memcpy(&h, image.data(), sizeof h);
    if (h.biBitCount != 16 || h.biCompression != BI_RGB)
        return {};
    std::vector<uint16_t> px((size - sizeof h) / 2);
    std::memcpy(px.data(), image.data() + sizeof h, px.size() * 2);
    return px;
}

// Pixels that differ, outside a box around the pointer (drawn into the shared picture, never
// seen by a screen grab).
long Differences(const std::vector<uint16_t>& picture, const std::vector<uint16_t>& screen,
                 int width) {
    if (picture.size() != screen.size())
        return -1;
    POINT pointer{};
    GetCursorPos(&pointer);
    long wrong = 0;
    for (size_t i = 0; i < picture.size(); ++i) {
        const long x = static_cast<long>(i % width), y = static_cast<long>(i / width);
        const bool nearPointer =
            x >= pointer.x - 32 && x < pointer.x + 64 && y >= pointer.y - 32 && y < pointer.y + 64;
        wrong += !nearPointer && picture[i] != screen[i];
    }
    return wrong;
}

// A top-most popup that holds the viewers' windows as children.
class Stage {
  public:
    explicit Stage(const RECT& where) {
        WNDCLASSA wc{};
        wc.lpfnWndProc = DefWindowProcA;
        wc.hInstance = GetModuleHandleA(nullptr);
        wc.lpszClassName = "VantrelDemoStage";
        RegisterClassA(&wc);
        window_.reset(CreateWindowExA(WS_EX_TOPMOST | WS_EX_NOACTIVATE, wc.lpszClassName, "",
                                      WS_POPUP | WS_CLIPCHILDREN, where.left, where.top,
                                      where.right - where.left, where.bottom - where.top, nullptr,
                                      nullptr, wc.hInstance, nullptr));
        if (window_)
            ShowWindow(window_.get(), SW_SHOWNOACTIVATE);
    }
    HWND Get() const noexcept { return window_.get(); }

  private:
    UniqueHwnd window_;
};

}  // namespace

bool IpcStep::Run(std::FILE* out, std::string* failure) noexcept {
    try {
        return RunChecked(out, failure);
    } catch (const std::bad_alloc&) {
        *failure = "out of memory";
        return false;
    }
}

bool IpcStep::RunChecked(std::FILE* out, std::string* failure) {
    ComPtr<IDesktopCapture> capture;
    ComPtr<IDataTransmitter> serverSink;
    ComPtr<IDesktopIPCServer> server;
    HRESULT hr = CoCreateInstance(CLSID_DesktopCapture, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_IDesktopCapture, capture.PutVoid());
    if (SUCCEEDED(hr))
        hr = CoCreateInstance(CLSID_DesktopIPCServer, nullptr, CLSCTX_INPROC_SERVER,
                              IID_IDataTransmitter, serverSink.PutVoid());
    if (SUCCEEDED(hr))
        hr = serverSink.As(&server);
    if (FAILED(hr)) {
        *failure = HResultText("the capture or the server could not be created", hr);
        return false;
    }
    server->SetMaxIPCClients(8);
    if (FAILED(hr = server->StartIPCServer())) {
        *failure = HResultText("StartIPCServer failed", hr);
        return false;
    }

    std::vector<ComPtr<IDesktopRender>> viewers;
    for (int session : kSessions) {
        ComPtr<IDesktopRender> viewer;
        hr = CoCreateInstance(CLSID_DesktopIPCRender, nullptr, CLSCTX_INPROC_SERVER,
                              IID_IDesktopRender, viewer.PutVoid());
        if (SUCCEEDED(hr))
            hr = viewer->SetSessionId(session);
        if (SUCCEEDED(hr))
            hr = viewer->Run();
        if (hr != S_OK) {
            *failure = HResultText(
                ("viewer of session " + std::to_string(session) + " could not be started").c_str(),
                hr);
            server->StopIPCServer();
            return false;
        }
        viewers.push_back(std::move(viewer));
    }

    const int width = GetSystemMetrics(SM_CXSCREEN), height = GetSystemMetrics(SM_CYSCREEN);
    std::vector<long> wrong(viewers.size(), -1);
    DWORD settled = 0;
    {
        AnimatedBoard board(RECT{width / 4, height / 4, width * 3 / 4, height * 3 / 4});
        hr = board.IsOpen() ? capture->RegisterDataTransmitter(serverSink.Get()) : E_FAIL;
        if (SUCCEEDED(hr))
            hr = capture->Run();
        if (SUCCEEDED(hr)) {
            for (const DWORD start = GetTickCount(); GetTickCount() - start < kAnimationMs;) {
                board.Step();
                test::PumpFor(kFrameMs);
            }
            bool equal = false;
            for (const DWORD start = GetTickCount();
                 !equal && (settled = GetTickCount() - start) < kSettleLimitMs;
                 test::PumpFor(100)) {
                const std::vector<uint16_t> screen = test::GrabScreen555(RECT{0, 0, width, height});
                equal = true;
                for (size_t i = 0; i < viewers.size(); ++i) {
                    wrong[i] = Differences(PictureOf(viewers[i].Get()), screen, width);
                    equal = equal && wrong[i] == 0;
                }
            }
            capture->Stop();
        }
        capture->UnregisterDataTransmitter(serverSink.Get());
    }
    if (FAILED(hr)) {
        *failure = HResultText("the capture could not stream into the server", hr);
    } else {
        std::fprintf(out,
                     "  %.1f s of a %dx%d screen with an animated window, server polling 8 "
                     "session ids\n",
                     kAnimationMs / 1000.0, width, height);
        for (size_t i = 0; i < viewers.size(); ++i) {
            if (wrong[i] == 0) {
                std::fprintf(out, "  viewer of session %d: picture equals the screen at 5-5-5\n",
                             kSessions[i]);
            } else {
                *failure = "the viewer of session " + std::to_string(kSessions[i]) +
                           (wrong[i] < 0 ? " has no picture of the screen's size"
                                         : " differs from the screen in " +
                                               std::to_string(wrong[i]) + " pixels");
            }
        }
        if (failure->empty()) {
            std::fprintf(out, "  (%lu ms after the last frame)\n",
                         static_cast<unsigned long>(settled));
            // Side by side on the lower half of the screen, for whoever watches the display, in
            // a stage that is never activated (an active window takes seconds to go away).
            Stage stage(RECT{0, height / 2, width, height});
            for (size_t i = 0; i < viewers.size() && stage.Get(); ++i) {
                const long left = static_cast<long>(i) * width / 2;
                viewers[i]->SetParentWindow(stage.Get());
                viewers[i]->SetWindowPosition(left, 0, left + width / 2, height / 2);
                viewers[i]->SetVisible(TRUE);
            }
            test::PumpFor(500);
            for (auto& viewer : viewers) {
                viewer->SetVisible(FALSE);
                viewer->SetParentWindow(nullptr);  // before the stage takes its children along
            }
        }
    }
    for (auto& viewer : viewers)
        viewer->Stop();
    server->StopIPCServer();
    return failure->empty();
}

}  // namespace vantrel::host
