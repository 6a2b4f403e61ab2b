// Screen changes waiting for the capture thread: the detector adds dirty tiles, the capture
// fetches them as a rectangle list. Its event is signalled exactly while changes are pending.
#pragma once

#include <windows.h>

#include <memory>

#include "TileMap.h"
#include "wincom/CriticalSection.h"
#include "contracts/Pavlex.h"
#include "wincom/UniqueHandle.h"

namespace vantrel::pavlex {

class ScreenChanges {
  public:
    // Creates the manual-reset event (owned here, handed out through *event) and the list
    // buffer. False when already open or out of resources.
    bool open(HANDLE* event);
    void close() noexcept;
    bool isOpen() noexcept;

    // A new screen size: what was pending belongs to the old one and is dropped.
    void resize(int width, int height);
    void add(const TileMap& dirty);
    // Hands out the pending changes as a list, valid until the next call; false when nothing
    // is pending or not open.
    bool take(PavlexScreenUpdate** update);

  private:
    struct List {
        DWORD count;
        RECT rects[kPavlexMaxRects];
    };

    CriticalSection lock_;  // guards everything below
    UniqueEvent event_;
    TileMap pending_;
    std::unique_ptr<List> delivered_;
};

}  // namespace vantrel::pavlex
