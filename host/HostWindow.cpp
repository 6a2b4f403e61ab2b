// The host's frame around a render window (see HostWindow.h).
#include "HostWindow.h"

namespace vantrel::host {

namespace {

constexpr DWORD kFrameStyle = WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN;
constexpr int kDefaultWidth = 800, kDefaultHeight = 600;

}  // namespace

HostWindow::~HostWindow() {
    Detach();
    frame_.Destroy();
}

Outcome HostWindow::Show(IDesktopRender* render, const ViewOptions& view) {
    render_ = ComPtr<IDesktopRender>(render);
    frame_.On(WM_SIZE, [this](WPARAM, LPARAM) -> std::optional<LRESULT> {
        Fit();
        return 0;
    });
    frame_.On(WM_CLOSE, [this](WPARAM, LPARAM) -> std::optional<LRESULT> {
        if (onClose_)
            onClose_();
        return 0;
    });
    frame_.On(WM_KEYDOWN, [this](WPARAM key, LPARAM) -> std::optional<LRESULT> {
        if (onKey_)
            onKey_(static_cast<WORD>(key));
        return 0;
    });
    for (UINT message : {kRenderMessage, kReaderMessage, kRecorderMessage})
        frame_.On(message, [this, message](WPARAM code, LPARAM) -> std::optional<LRESULT> {
            if (message == kRenderMessage && code == kCloseRequest && onClose_)
                onClose_();
            if (onNote_)
                onNote_(message, code);
            return 0;
        });
    RECT frame = view.placed ? view.client : RECT{0, 0, kDefaultWidth, kDefaultHeight};
    AdjustWindowRectEx(&frame, kFrameStyle, FALSE, 0);
    const int x = view.placed ? frame.left : CW_USEDEFAULT;
    const int y = view.placed ? frame.top : CW_USEDEFAULT;
    static const WindowClassInfo kClass{"VantrelHostFrame", CS_HREDRAW | CS_VREDRAW};
    if (!frame_.Create(kClass, 0, view.title.c_str(), kFrameStyle, x, y, frame.right - frame.left,
                       frame.bottom - frame.top))
        return Outcome::Fail(kExitFailed, "the window could not be created");

    HRESULT hr = render->SetParentWindow(frame_.Handle());
    if (SUCCEEDED(hr))
        hr = render->SetNotifyWindow(frame_.Handle(), kRenderMessage, 0);
    if (SUCCEEDED(hr))
        hr = render->SetMessageDrainWindow(frame_.Handle());
    if (SUCCEEDED(hr) && view.scrollMode >= 0)
        hr = render->SetScrollMode(view.scrollMode);
    if (SUCCEEDED(hr) && view.sourceGiven)
        hr = render->SetSourcePosition(view.source.left, view.source.top, view.source.right,
                                       view.source.bottom);
    if (FAILED(hr))
        return Outcome::Fail(kExitFailed, WithCode("the render window could not be placed", hr));
    Fit();
    render->SetVisible(TRUE);
    // Shown without taking the focus from where the user works; a click activates it.
    ShowWindow(frame_.Handle(), SW_SHOWNOACTIVATE);
    UpdateWindow(frame_.Handle());
    return Outcome::Success();
}

void HostWindow::Fit() noexcept {
    if (!render_ || !frame_)
        return;
    RECT client;
    GetClientRect(frame_.Handle(), &client);
    render_->SetWindowPosition(0, 0, client.right, client.bottom);
}

void HostWindow::Detach() noexcept {
    if (!render_)
        return;
    render_->SetVisible(FALSE);
    render_->SetNotifyWindow(nullptr, 0, 0);
    render_->SetMessageDrainWindow(nullptr);
    // Back to a top-level window before the frame goes, which would take its children along.
    render_->SetParentWindow(nullptr);
    render_.Reset();
}

}  // namespace vantrel::host
