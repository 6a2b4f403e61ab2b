// Move-only owners of Win32 handles and GDI objects. One template, parameterised by how the
// resource is closed and which value means "none"; a named alias per kind of resource.
#pragma once

#include <windows.h>

#include <utility>

namespace vantrel {

template <typename Traits>
class UniqueAny {
  public:
    using pointer = typename Traits::pointer;

    UniqueAny() noexcept = default;
    explicit UniqueAny(pointer value) noexcept : value_(value) {}
    UniqueAny(const UniqueAny&) = delete;
    UniqueAny& operator=(const UniqueAny&) = delete;
    UniqueAny(UniqueAny&& other) noexcept : value_(other.release()) {}
    UniqueAny& operator=(UniqueAny&& other) noexcept {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    ~UniqueAny() { reset(); }

    pointer get() const noexcept { return value_; }
    explicit operator bool() const noexcept { return value_ != Traits::invalid(); }

    // Closes what is held and takes ownership of value. Returns false when the close failed.
    bool reset(pointer value = Traits::invalid()) noexcept {
        bool ok = true;
        if (value_ != Traits::invalid())
            ok = Traits::close(value_);
        value_ = value;
        return ok;
    }
    [[nodiscard]] pointer release() noexcept {
        pointer v = value_;
        value_ = Traits::invalid();
        return v;
    }
    // For APIs that return the handle through an out parameter; closes what was held first.
    pointer* put() noexcept {
        reset();
        return &value_;
    }

  private:
    pointer value_ = Traits::invalid();
};

namespace detail {

template <typename T, BOOL(WINAPI* Close)(T), T Invalid>
struct HandleTraits {
    using pointer = T;
    static pointer invalid() noexcept { return Invalid; }
    static bool close(pointer p) noexcept { return Close(p) != FALSE; }
};

// CreateFile reports failure with INVALID_HANDLE_VALUE, every other kernel object with null.
struct FileHandleTraits {
    using pointer = HANDLE;
    static pointer invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static bool close(pointer p) noexcept { return CloseHandle(p) != FALSE; }
};

struct ViewOfFileTraits {
    using pointer = void*;
    static pointer invalid() noexcept { return nullptr; }
    static bool close(pointer p) noexcept { return UnmapViewOfFile(p) != FALSE; }
};

template <typename T>
struct GdiObjectTraits {
    using pointer = T;
    static pointer invalid() noexcept { return nullptr; }
    static bool close(pointer p) noexcept { return DeleteObject(p) != FALSE; }
};

struct RegKeyTraits {
    using pointer = HKEY;
    static pointer invalid() noexcept { return nullptr; }
    static bool close(pointer p) noexcept { return RegCloseKey(p) == ERROR_SUCCESS; }
};

struct LocalMemTraits {
    using pointer = HLOCAL;
    static pointer invalid() noexcept { return nullptr; }
    static bool close(pointer p) noexcept { return LocalFree(p) == nullptr; }
};

}  // namespace detail

using UniqueHandle = UniqueAny<detail::HandleTraits<HANDLE, CloseHandle, nullptr>>;
using UniqueEvent = UniqueHandle;
using UniqueMapping = UniqueHandle;
using UniqueThread = UniqueHandle;
using UniqueFile = UniqueAny<detail::FileHandleTraits>;
using UniqueViewOfFile = UniqueAny<detail::ViewOfFileTraits>;
using UniqueHdc = UniqueAny<detail::HandleTraits<HDC, DeleteDC, nullptr>>;  // CreateCompatibleDC
using UniqueBitmap = UniqueAny<detail::GdiObjectTraits<HBITMAP>>;
using UniqueRgn = UniqueAny<detail::GdiObjectTraits<HRGN>>;
using UniquePalette = UniqueAny<detail::GdiObjectTraits<HPALETTE>>;
using UniqueBrush = UniqueAny<detail::GdiObjectTraits<HBRUSH>>;
using UniqueIcon = UniqueAny<detail::HandleTraits<HICON, DestroyIcon, nullptr>>;
using UniqueHwnd = UniqueAny<detail::HandleTraits<HWND, DestroyWindow, nullptr>>;
using UniqueDesktop = UniqueAny<detail::HandleTraits<HDESK, CloseDesktop, nullptr>>;
using UniqueHkey = UniqueAny<detail::RegKeyTraits>;
using UniqueLocal = UniqueAny<detail::LocalMemTraits>;

// A DC borrowed with GetDC, given back with ReleaseDC.
class WindowDc {
  public:
    explicit WindowDc(HWND hwnd) noexcept : hwnd_(hwnd), dc_(GetDC(hwnd)) {}
    WindowDc(const WindowDc&) = delete;
    WindowDc& operator=(const WindowDc&) = delete;
    WindowDc(WindowDc&& other) noexcept : hwnd_(other.hwnd_), dc_(other.dc_) {
        other.dc_ = nullptr;
    }
    WindowDc& operator=(WindowDc&& other) noexcept {
        if (this != &other) {
            reset();
            hwnd_ = other.hwnd_;
            dc_ = other.dc_;
            other.dc_ = nullptr;
        }
        return *this;
    }
    ~WindowDc() { reset(); }
    HDC get() const noexcept { return dc_; }
    explicit operator bool() const noexcept { return dc_ != nullptr; }
    void reset() noexcept {
        if (dc_)
            ReleaseDC(hwnd_, dc_);
        dc_ = nullptr;
    }

  private:
    HWND hwnd_;
    HDC dc_;
};

// BeginPaint/EndPaint for one WM_PAINT.
class PaintDc {
  public:
    explicit PaintDc(HWND hwnd) noexcept : hwnd_(hwnd) { dc_ = BeginPaint(hwnd_, &ps_); }
    PaintDc(const PaintDc&) = delete;
    PaintDc& operator=(const PaintDc&) = delete;
    ~PaintDc() { EndPaint(hwnd_, &ps_); }
    HDC get() const noexcept { return dc_; }
    const PAINTSTRUCT& paint() const noexcept { return ps_; }

  private:
    HWND hwnd_;
    PAINTSTRUCT ps_{};
    HDC dc_;
};

// Selects an object into a DC and puts the previous one back before the selected object can be
// deleted (declare the guard after the owner of the object).
class SelectObjectGuard {
  public:
    SelectObjectGuard(HDC dc, HGDIOBJ obj) noexcept : dc_(dc), previous_(SelectObject(dc, obj)) {}
    SelectObjectGuard(const SelectObjectGuard&) = delete;
    SelectObjectGuard& operator=(const SelectObjectGuard&) = delete;
    ~SelectObjectGuard() {
        if (previous_ && previous_ != HGDI_ERROR)
            SelectObject(dc_, previous_);
    }
    explicit operator bool() const noexcept { return previous_ && previous_ != HGDI_ERROR; }

  private:
    HDC dc_;
    HGDIOBJ previous_;
};

}  // namespace vantrel
