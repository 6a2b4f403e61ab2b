// Detector thread and its strip scan. It holds a reference on this DLL while it runs, so a host
// that unloads the DLL without DispDoneCapture cannot pull the code from under it.
#include "ChangeDetector.h"

#include <algorithm>
#include <cstring>

#include "CursorChanges.h"
#include "ScreenChanges.h"
#include "wincom/ScreenStrips.h"

namespace vantrel::pavlex {

void ChangeDetector::begin(HDESK desktop, DWORD interval) noexcept {
    stop();
    desktop_ = desktop;
    interval_ = interval ? interval : kDefaultInterval;
    WindowDc screen(nullptr);
    geometry_ = screen ? ReadGeometry(screen.get()) : Geometry{};
    displayChanged_ = false;
    strip_.destroy();
    hashes_ = std::vector<std::uint32_t>();
    haveBaseline_ = false;
    tracker_.reset();
}

bool ChangeDetector::run(bool watchScreen, bool watchCursor) noexcept {
    stop();
    if (!watchScreen) {
        strip_.destroy();
        hashes_ = std::vector<std::uint32_t>();
        haveBaseline_ = false;
    }
    if (watchCursor && !watchCursor_) {
        tracker_.reset();
        cursorStill_ = 0;
    }
    watchScreen_ = watchScreen;
    watchCursor_ = watchCursor;
    if (!watchScreen && !watchCursor)
        return true;
    if (watchScreen && !haveBaseline_) {
        // Failing here is not fatal: the thread takes the baseline at its first poll.
        try {
            WindowDc screen(nullptr);
            if (screen)
                takeBaseline(screen.get());
        } catch (...) {
        }
    }

    if (!stop_)
        stop_.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!stop_)
        return false;
    ResetEvent(stop_.get());
    HMODULE self = nullptr;
    if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                            reinterpret_cast<LPCSTR>(&ChangeDetector::ThreadMain), &self))
        return false;
    thread_.reset(CreateThread(nullptr, 0, &ChangeDetector::ThreadMain, this, 0, nullptr));
    if (!thread_) {
        FreeLibrary(self);
        return false;
    }
    return true;
}

void ChangeDetector::stop() noexcept {
    if (!thread_)
        return;
    SetEvent(stop_.get());
    WaitForSingleObject(thread_.get(), INFINITE);
    thread_.reset();
}

DWORD WINAPI ChangeDetector::ThreadMain(void* self) {
    static_cast<ChangeDetector*>(self)->loop();
    HMODULE module = nullptr;
    GetModuleHandleExA(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<LPCSTR>(&ChangeDetector::ThreadMain), &module);
    FreeLibraryAndExitThread(module, 0);
}

void ChangeDetector::loop() noexcept {
    if (desktop_)
        SetThreadDesktop(desktop_);
    // Deadlines advance by whole intervals so the pace stays steady; after a stall (a slow
    // grab) the schedule starts afresh instead of catching up with a burst.
    DWORD deadline = GetTickCount();
    WindowDc screen(nullptr);
    for (unsigned n = 0;; ++n) {
        try {
            poll(screen, n);
        } catch (...) {
            // Out of memory for this poll: try again at the next one.
        }
        deadline += interval_ * pollsToSkip();
        const DWORD now = GetTickCount();
        DWORD wait = 0;
        if (static_cast<LONG>(deadline - now) > 0) {
            wait = deadline - now;
        } else if (now - deadline > interval_) {
            deadline = now;
        }
        if (WaitForSingleObject(stop_.get(), wait) != WAIT_TIMEOUT)
            break;
    }
}

ChangeDetector::Geometry ChangeDetector::ReadGeometry(HDC screen) noexcept {
    return Geometry{GetDeviceCaps(screen, HORZRES), GetDeviceCaps(screen, VERTRES),
                    GetDeviceCaps(screen, BITSPIXEL)};
}

void ChangeDetector::poll(WindowDc& screen, unsigned n) {
    // The screen DC is kept between polls; a fresh one now and then shows a display change.
    if (n % kGeometryPolls == 0 || !screen) {
        screen = WindowDc(nullptr);
        if (screen) {
            const Geometry now = ReadGeometry(screen.get());
            if (now != geometry_) {
                geometry_ = now;
                haveBaseline_ = false;
                displayChanged_ = true;
            }
        }
    }
    const bool whole = ++scanPoll_ >= kScanPolls;
    if (whole)
        scanPoll_ = 0;
    if (screen && watchScreen_)
        pollScreen(screen.get(), whole);
    if (watchCursor_ && (cursorStill_ < kCursorRestPolls || whole))
        pollCursor();
}

unsigned ChangeDetector::pollsToSkip() noexcept {
    const bool resting = (!watchCursor_ || cursorStill_ >= kCursorRestPolls) &&
                         std::none_of(hot_.begin(), hot_.end(), [](std::uint8_t h) { return h; });
    if (!resting)
        return 1;
    const unsigned polls = static_cast<unsigned>(kScanPolls - scanPoll_);
    scanPoll_ = kScanPolls - 1;
    return polls;
}

bool ChangeDetector::prepare(HDC screen) {
    const int width = geometry_.width, height = geometry_.height;
    if (width <= 0 || height <= 0)
        return false;
    // Check values are kept per pixel row, so strips need not follow the tile rows.
    PrepareScreenReads(screen);
    const int rows = ScreenStripRows(width);
    if (!strip_.valid() || strip_.view().width != width || stripRows_ != rows) {
        if (!strip_.create(screen, width, rows))
            return false;
        stripRows_ = rows;
    }
    if (dirty_.width() != width || dirty_.height() != height || hashes_.empty()) {
        dirty_ = TileMap(width, height);
        hashes_.assign(static_cast<size_t>(height) * dirty_.columns(), 0);
        screen_.resize(width, height);
        haveBaseline_ = false;
    }
    strips_ = (height + stripRows_ - 1) / stripRows_;
    hot_.assign(strips_, 0);
    scanned_.assign(strips_, 0);
    scanPoll_ = 0;
    return true;
}

bool ChangeDetector::takeBaseline(HDC screen) {
    haveBaseline_ = false;
    if (!prepare(screen))
        return false;
    for (int s = 0; s < strips_; ++s) {
        const int top = s * stripRows_;
        const int rows = std::min(stripRows_, geometry_.height - top);
        if (!strip_.grab(screen, top, rows))
            return false;
        const FrameView grabbed = strip_.view();
        for (int i = 0; i < rows; ++i)
            dirty_.hashRow(grabbed.bits + static_cast<ptrdiff_t>(i) * grabbed.stride,
                           hashes_.data() + static_cast<size_t>(top + i) * dirty_.columns());
    }
    haveBaseline_ = true;
    return true;
}

bool ChangeDetector::scanStrip(HDC screen, int strip) {
    const int top = strip * stripRows_;
    const int rows = std::min(stripRows_, geometry_.height - top);
    if (!strip_.grab(screen, top, rows))
        return false;
    const FrameView grabbed = strip_.view();
    return dirty_.markHashedBand(grabbed.bits, grabbed.stride, top, rows, hashes_.data());
}

void ChangeDetector::pollScreen(HDC screen, bool whole) {
    if (!haveBaseline_) {
        takeBaseline(screen);
        return;
    }
    // Strips that changed last time, or all of them when a whole scan is due; a strip that
    // changes brings its neighbours in.
    queue_.clear();
    for (int s = 0; s < strips_; ++s) {
        if (whole || hot_[s])
            queue_.push_back(s);
    }
    std::fill(hot_.begin(), hot_.end(), 0);
    std::fill(scanned_.begin(), scanned_.end(), 0);
    bool changed = false;
    for (size_t q = 0; q < queue_.size(); ++q) {
        const int s = queue_[q];
        if (scanned_[s])
            continue;
        scanned_[s] = 1;
        if (!scanStrip(screen, s))
            continue;
        changed = true;
        hot_[s] = 1;
        if (s > 0)
            queue_.push_back(s - 1);
        if (s + 1 < strips_)
            queue_.push_back(s + 1);
    }
    if (changed) {
        screen_.add(dirty_);
        dirty_.clear();
    }
}

void ChangeDetector::pollCursor() {
    POINT position{};
    const DWORD flags = tracker_.poll(&position);
    if (flags) {
        cursor_.add(flags, position, tracker_.shape());
        cursorStill_ = 0;
    } else if (cursorStill_ < kCursorRestPolls) {
        ++cursorStill_;
    }
}

}  // namespace vantrel::pavlex
