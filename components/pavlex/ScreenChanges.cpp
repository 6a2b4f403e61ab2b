// Pending screen changes. Dirty tiles are kept rather than rectangles, so changes seen by
// several grabs before a fetch merge for free and the list is built once, at the fetch.
#include "ScreenChanges.h"

#include <algorithm>
#include <mutex>

#include "RectMerger.h"

namespace vantrel::pavlex {

bool ScreenChanges::open(HANDLE* event) {
    std::lock_guard<CriticalSection> hold(lock_);
    if (event_ || !event)
        return false;
    UniqueEvent created(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!created)
        return false;
    delivered_.reset(new List{});
    pending_ = TileMap();
    event_ = std::move(created);
    *event = event_.get();
    return true;
}

void ScreenChanges::close() noexcept {
    std::lock_guard<CriticalSection> hold(lock_);
    event_.reset();
    delivered_.reset();
    pending_ = TileMap();
}

bool ScreenChanges::isOpen() noexcept {
    std::lock_guard<CriticalSection> hold(lock_);
    return static_cast<bool>(event_);
}

void ScreenChanges::resize(int width, int height) {
    std::lock_guard<CriticalSection> hold(lock_);
    pending_ = TileMap(width, height);
    if (event_)
        ResetEvent(event_.get());
}

void ScreenChanges::add(const TileMap& dirty) {
    std::lock_guard<CriticalSection> hold(lock_);
    if (!event_ || dirty.columns() != pending_.columns() || dirty.rows() != pending_.rows() ||
        dirty.tileSize() != pending_.tileSize())
        return;
    pending_.add(dirty);
    SetEvent(event_.get());
}

bool ScreenChanges::take(PavlexScreenUpdate** update) {
    std::lock_guard<CriticalSection> hold(lock_);
    if (!event_ || !update || !pending_.any())
        return false;
    const std::vector<RECT> rects = RectMerger::merge(pending_, kPavlexMaxRects);
    delivered_->count = static_cast<DWORD>(rects.size());
    std::copy(rects.begin(), rects.end(), delivered_->rects);
    pending_.clear();
    ResetEvent(event_.get());
    *update = reinterpret_cast<PavlexScreenUpdate*>(delivered_.get());
    return true;
}

}  // namespace vantrel::pavlex
