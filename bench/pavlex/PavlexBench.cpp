// Change-detection cost per poll of Pavlex.dll's detector (scripts/bench pavlex): one grab
// (GDI BitBlt into a 32-bit DIB section), the tile comparison with the previous grab and the
// merge into at most 513 rectangles, for an idle screen, a typed line, scattered dots and a
// full change. 1024 x 768 grabs the virtual screen; 1920 x 1080 grabs a memory bitmap of that
// size when the screen is smaller. Prints a table; no pass/fail thresholds.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <vector>

#include "RectMerger.h"
#include "ScreenFrame.h"
#include "TileMap.h"
#include "common/BenchClock.h"
#include "contracts/Pavlex.h"
#include "wincom/UniqueHandle.h"

using namespace vantrel;
using namespace vantrel::pavlex;

namespace {

double MsPerCall(const std::function<void()>& fn) {
    return 1000.0 * bench::SecondsPerCall(fn);
}

struct Scenario {
    const char* name;
    std::function<void(std::vector<std::uint32_t>&, int width, int height)> change;
};

const Scenario kScenarios[] = {
    {"idle", [](std::vector<std::uint32_t>&, int, int) {}},
    {"typed line",
     [](std::vector<std::uint32_t>& p, int w, int) {
         for (int y = 300; y < 316; ++y) {
             for (int x = 100; x < 500; x += 3)
                 p[y * w + x] ^= 0xFFFFFF;
         }
     }},
    {"dots / 20 px",
     [](std::vector<std::uint32_t>& p, int w, int h) {
         for (int y = 0; y < h; y += 20) {
             for (int x = 0; x < w; x += 20)
                 p[y * w + x] ^= 0xFFFFFF;
         }
     }},
    {"full change",
     [](std::vector<std::uint32_t>& p, int, int) {
         for (std::uint32_t& v : p)
             v ^= 0x010101;
     }},
};

void Run(const char* label, HDC source, int width, int height) {
    ScreenFrame frame;
    if (!frame.create(source, width, height)) {
        std::printf("%-22s cannot allocate frames\n", label);
        return;
    }
    const double grab = MsPerCall([&] { frame.grab(source); });
    std::vector<std::uint32_t> before(static_cast<size_t>(width) * height);
    for (size_t i = 0; i < before.size(); ++i)
        before[i] = static_cast<std::uint32_t>(i * 2654435761u);
    for (const Scenario& s : kScenarios) {
        std::vector<std::uint32_t> after = before;
        s.change(after, width, height);
        const FrameView a{reinterpret_cast<const std::uint8_t*>(before.data()), width, height,
                          width * 4};
        const FrameView b{reinterpret_cast<const std::uint8_t*>(after.data()), width, height,
                          width * 4};
        TileMap map(width, height);
        const double compare = MsPerCall([&] {
            map.clear();
            map.markChanges(a, b);
        });
        size_t rects = 0;
        const double merge =
            MsPerCall([&] { rects = RectMerger::merge(map, kPavlexMaxRects).size(); });
        const double poll = grab + compare + merge;
        std::printf("%-22s %-13s %8.2f %9.2f %8.3f %8.2f %7.1f%% %6zu\n", label, s.name, grab,
                    compare, merge, poll, poll * 30 / 10, rects);
    }
}

}  // namespace

int main() {
    std::printf("Pavlex change detection per poll (tiles %d px, at most %d rectangles)\n",
                TileMap::kDefaultTileSize, static_cast<int>(kPavlexMaxRects));
    std::printf("%-22s %-13s %8s %9s %8s %8s %8s %6s\n", "frame", "change", "grab ms", "compare",
                "merge", "poll ms", "CPU@30/s", "rects");
    WindowDc screen(nullptr);
    const int sw = GetDeviceCaps(screen.get(), HORZRES), sh = GetDeviceCaps(screen.get(), VERTRES);
    if (sw == 1024 && sh == 768) {
        Run("1024x768 screen", screen.get(), 1024, 768);
    } else {
        std::printf("(screen is %dx%d, not 1024x768: grabbing its top-left part)\n", sw, sh);
        Run("1024x768 screen part", screen.get(), 1024, 768);
    }
    if (sw >= 1920 && sh >= 1080) {
        Run("1920x1080 screen", screen.get(), 1920, 1080);
    } else {
        // A memory bitmap stands in for a screen of that size.
        UniqueHdc memory(CreateCompatibleDC(screen.get()));
        UniqueBitmap bitmap(CreateCompatibleBitmap(screen.get(), 1920, 1080));
        SelectObjectGuard select(memory.get(), bitmap.get());
        Run("1920x1080 synthetic", memory.get(), 1920, 1080);
    }
    std::printf("compare and merge run on synthetic frames; CPU@30/s is poll time x 30 per s\n");
    return 0;
}
