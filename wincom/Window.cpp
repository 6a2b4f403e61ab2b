#include "wincom/Window.h"

#include <mutex>
#include <new>

#include "wincom/CriticalSection.h"

namespace vantrel {

// What the window and its object share. The window procedure reaches the object only through it,
// under its lock, so an object detached from another thread is never entered again; the block
// lives until both the object and the window (and any dispatch in progress) have let go of it.
struct Window::Link {
    CriticalSection lock;
    Window* self = nullptr;
    volatile LONG refs = 1;

    void AddRef() noexcept { InterlockedIncrement(&refs); }
    void Release() noexcept {
        if (InterlockedDecrement(&refs) == 0)
            delete this;
    }
};

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
    wc.hCursor = cls.noCursor ? nullptr : cls.cursor ? cls.cursor : LoadCursorA(nullptr, IDC_ARROW);
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

bool Window::OnOwnThread() const noexcept {
    const HWND hwnd = hwnd_;
    return hwnd && GetWindowThreadProcessId(hwnd, nullptr) == GetCurrentThreadId();
}

bool Window::Create(const WindowClassInfo& cls, DWORD exStyle, const char* title, DWORD style,
                    int x, int y, int width, int height, HWND parent, HMENU menu) noexcept {
    if (hwnd_ || !RegisterClassOnce(cls))
        return false;
    if (link_) {  // a window made earlier and destroyed on its own thread
        link_->Release();
        link_ = nullptr;
    }
    Link* link = new (std::nothrow) Link;
    if (!link)
        return false;
    link->self = this;
    link_ = link;
    // hwnd_ is set by WM_NCCREATE, so handlers of the creation messages see it.
    const HWND created = CreateWindowExA(exStyle, cls.name, title, style, x, y, width, height,
                                         parent, menu, ThisModule(), link);
    if (!created)
        hwnd_ = nullptr;
    return created != nullptr;
}

void Window::Destroy() noexcept {
    Link* link = link_;
    link_ = nullptr;
    const HWND hwnd = hwnd_;
    if (hwnd && GetWindowThreadProcessId(hwnd, nullptr) == GetCurrentThreadId()) {
        DestroyWindow(hwnd);  // WM_NCDESTROY clears hwnd_
        if (link) {           // a dispatch further up this thread's stack must not come back to us
            std::lock_guard<CriticalSection> guard(link->lock);
            link->self = nullptr;
        }
    } else if (link) {
        HWND alive = nullptr;
        {
            std::lock_guard<CriticalSection> guard(link->lock);
            alive = hwnd_;  // cleared under this lock when the window went on its own
            link->self = nullptr;
        }
        if (alive)
            PostMessageA(alive, WM_CLOSE, 0, 0);
    }
    hwnd_ = nullptr;
    if (link)
        link->Release();
}

LRESULT CALLBACK Window::Procedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        auto* link = static_cast<Link*>(reinterpret_cast<CREATESTRUCTA*>(lParam)->lpCreateParams);
        link->AddRef();  // the window's reference, given back at WM_NCDESTROY
        // This procedure must stay loaded while the window lives, also once its object has
        // gone (a window detached from another thread closes later, on its own thread).
        ModuleLock::Increment();
        link->self->hwnd_ = hwnd;
        SetWindowLongPtrA(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(link));
    }
    auto* link = reinterpret_cast<Link*>(GetWindowLongPtrA(hwnd, GWLP_USERDATA));
    if (!link)
        return DefWindowProcA(hwnd, message, wParam, lParam);
    link->AddRef();
    LRESULT result;
    {
        std::lock_guard<CriticalSection> guard(link->lock);
        Window* self = link->self;
        if (self) {
            ++self->depth_;
            result = self->Dispatch(hwnd, message, wParam, lParam);
            if (link->self)
                --self->depth_;
        } else {
            result = DefWindowProcA(hwnd, message, wParam, lParam);
        }
        if (message == WM_NCDESTROY) {
            SetWindowLongPtrA(hwnd, GWLP_USERDATA, 0);
            if (link->self)
                link->self->hwnd_ = nullptr;
        }
    }
    if (message == WM_NCDESTROY) {
        link->Release();
        ModuleLock::Decrement();
    }
    link->Release();
    return result;
}

LRESULT Window::Dispatch(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) noexcept {
    if (observer_) {
        try {
            observer_(message, wParam, lParam);
        } catch (...) {
        }
    }
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
