#include "wincom/Window.h"

namespace vantrel {

bool Window::RegisterClassOnce(const WindowClassInfo& cls) noexcept {
    if (!cls.name)
        return false;
    WNDCLASSEXA existing{};
    existing.cbSize = sizeof existing;
    if (GetClassInfoExA(ThisModule(), cls.name, &existing))
        return true;
    WNDCLASSEXA wc{};
    wc.cbSize = sizeof wc;
    wc.style = cls.style;
    wc.lpfnWndProc = Procedure;
    wc.hInstance = ThisModule();
    wc.hIcon = cls.icon;
    wc.hIconSm = cls.smallIcon;
    wc.hCursor = cls.cursor ? cls.cursor : LoadCursorA(nullptr, IDC_ARROW);
    wc.hbrBackground = cls.background;
    wc.lpszClassName = cls.name;
    // Another thread may have registered it meanwhile.
    return RegisterClassExA(&wc) || GetLastError() == ERROR_CLASS_ALREADY_EXISTS;
}

Window::~Window() {
    Destroy();
}

void Window::On(UINT message, Handler handler) {
    for (auto& [m, h] : handlers_) {
        if (m == message) {
            h = std::move(handler);
            return;
        }
    }
    handlers_.emplace_back(message, std::move(handler));
}

bool Window::Create(const WindowClassInfo& cls, DWORD exStyle, const char* title, DWORD style,
                    int x, int y, int width, int height, HWND parent, HMENU menu) noexcept {
    if (hwnd_ || !RegisterClassOnce(cls))
        return false;
    // hwnd_ is set by WM_NCCREATE, so handlers of the creation messages see it.
    const HWND created = CreateWindowExA(exStyle, cls.name, title, style, x, y, width, height,
                                         parent, menu, ThisModule(), this);
    if (!created)
        hwnd_ = nullptr;
    return created != nullptr;
}

void Window::Destroy() noexcept {
    const HWND hwnd = hwnd_;
    if (!hwnd)
        return;
    if (GetWindowThreadProcessId(hwnd, nullptr) == GetCurrentThreadId()) {
        DestroyWindow(hwnd);  // WM_NCDESTROY clears hwnd_
    } else {
        SetWindowLongPtrA(hwnd, GWLP_USERDATA, 0);
        PostMessageA(hwnd, WM_CLOSE, 0, 0);
    }
    hwnd_ = nullptr;
}

LRESULT CALLBACK Window::Procedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        auto* self = static_cast<Window*>(reinterpret_cast<CREATESTRUCTA*>(lParam)->lpCreateParams);
        self->hwnd_ = hwnd;
        SetWindowLongPtrA(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    }
    auto* self = reinterpret_cast<Window*>(GetWindowLongPtrA(hwnd, GWLP_USERDATA));
    if (!self)
        return DefWindowProcA(hwnd, message, wParam, lParam);
    if (message == WM_NCDESTROY) {
        const LRESULT result = self->Dispatch(message, wParam, lParam);
        SetWindowLongPtrA(hwnd, GWLP_USERDATA, 0);
        self->hwnd_ = nullptr;
        return result;
    }
    return self->Dispatch(message, wParam, lParam);
}

LRESULT Window::Dispatch(UINT message, WPARAM wParam, LPARAM lParam) noexcept {
    const HWND hwnd = hwnd_;
    for (auto& [m, handler] : handlers_) {
        if (m != message || !handler)
            continue;
        try {
            if (std::optional<LRESULT> result = handler(wParam, lParam))
                return *result;
        } catch (...) {
        }
        break;
    }
    return DefWindowProcA(hwnd, message, wParam, lParam);
}

}  // namespace vantrel
