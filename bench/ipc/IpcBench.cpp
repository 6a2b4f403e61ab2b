// Shared-memory server benchmark (scripts/bench ipc). A DesktopIPCServer made through COM is fed
// full-screen updates of a 1024 x 768 16-bit desktop while 1, 8 or 30 viewers (SharedImageClient,
// the viewer side of DesktopIPCRender, each with its own image and thread) answer its passes.
// Per update: the decode into the shared image (Transfer), the time until the first and the last
// viewer hold the new pixels and were told of every changed area (the update's bands may take
// more than one pass), and the server's passes from the end of the decode until it clears its
// flags after its last 20 ms pause; then the signalling part of one pass alone (without the
// pause), the server's cost per viewer. Prints a table; no thresholds.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <memory>
#include <vector>

#include "ScreenCodec.h"
#include "Vantrel.h"
#include "common/BenchClock.h"
#include "common/BenchStream.h"
#include "ipc/SharedChannel.h"
#include "ipc/SharedImageClient.h"
#include "wincom/ComPtr.h"
#include "wincom/KernelObjects.h"

using namespace vantrel;

namespace {

constexpr int kWidth = 1024, kHeight = 768, kUpdates = 20;

// kUpdates full-screen updates of desktop-like content that moves a little each time.
std::vector<bench::Packets> MakeUpdates(IScreenCodec* codec) {
    std::vector<bench::Packets> updates;
    for (int u = 0; u < kUpdates; ++u) {
        DesktopImage image;
        bench::OpenDesktopImage(image, kWidth, kHeight, u);
        updates.push_back(bench::EncodeRegion(image, codec, RECT{0, 0, kWidth, kHeight}));
    }
    return updates;
}

// One viewer: its image over the pixel section, and when the notices since Expect covered the
// whole desktop (8 x 8 cells; an update's bands may reach it in more than one pass).
class BenchViewer final : public SharedImageClient::Viewer {
  public:
    explicit BenchViewer(std::atomic<int>* covered) : covered_(covered), client_(image_, *this) {}
    bool Start(int id) { return client_.Start(id) == S_OK; }
    void Stop() { client_.Stop(); }
    void Expect() {
        cells_.assign(kCells, false);
        missing_ = kCells;
    }
    double coveredAt = 0;

  private:
    static constexpr int kCols = kWidth / 8, kRows = kHeight / 8, kCells = kCols * kRows;
    void OnImageOpened(const RECT&, bool) noexcept override {}
    void OnRectsChanged(const RECT* rects, UINT count, POINT) noexcept override {
        if (missing_ == 0)
            return;
        for (UINT i = 0; i < count; ++i)
            for (int y = std::max(0L, rects[i].top / 8);
                 y < std::min<LONG>(kRows, (rects[i].bottom + 7) / 8); ++y)
                for (int x = std::max(0L, rects[i].left / 8);
                     x < std::min<LONG>(kCols, (rects[i].right + 7) / 8); ++x)
                    if (!cells_[y * kCols + x]) {
                        cells_[y * kCols + x] = true;
                        --missing_;
                    }
        if (missing_ == 0) {
            coveredAt = bench::Seconds();
            ++*covered_;
        }
    }
    std::atomic<int>* covered_;
    std::vector<bool> cells_;
    int missing_ = 0;
    DesktopImage image_;
    SharedImageClient client_;
};

struct Row {
    double decodeMs = 0, firstMs = 0, lastMs = 0, passMs = 0, signalMs = 0;
};

// Polls without sleeping: the figures are latencies.
bool WaitFor(const std::function<bool()>& done) {
    return test::WaitUntil(done, 20000, 0);
}

bool Measure(int viewers, const std::vector<bench::Packets>& updates, Row* out) {
    ComPtr<IDataTransmitter> sink;
    ComPtr<IDesktopIPCServer> server;
    if (FAILED(CoCreateInstance(CLSID_DesktopIPCServer, nullptr, CLSCTX_INPROC_SERVER,
                                IID_IDataTransmitter, sink.PutVoid())) ||
        FAILED(sink.As(&server)))
        return false;
    UniqueMapping section = TryOpenNamedSection(ipc::kControlSectionName);
    UniqueViewOfFile view = MapWholeSection(section.get());
    if (!view)
        return false;
    const auto* flags = reinterpret_cast<volatile const DWORD*>(
        static_cast<const BYTE*>(view.get()) + ipc::kFlagsOffset);

    std::atomic<int> noticed{0};
    std::vector<std::unique_ptr<BenchViewer>> clients;
    for (int id = 0; id < viewers; ++id) {
        clients.push_back(std::make_unique<BenchViewer>(&noticed));
        if (!clients.back()->Start(id))
            return false;
    }
    server->SetMaxIPCClients(viewers);
    server->StartIPCServer();

    std::vector<Row> rows;
    for (size_t u = 0; u < updates.size(); ++u) {
        noticed = 0;
        for (auto& c : clients)
            c->Expect();
        const double start = bench::Seconds();
        for (const auto& p : updates[u])
            sink->Transfer(const_cast<BYTE*>(p.data()), static_cast<unsigned long>(p.size()), 0);
        const double decoded = bench::Seconds();
        if (!WaitFor([&] { return noticed >= viewers; }) || !WaitFor([&] { return *flags == 0; }))
            return false;
        const double passEnd = bench::Seconds();
        // Passes of the format change and of a band collapsing late are not steady state.
        if (u < 2)
            continue;
        Row r;
        r.decodeMs = 1000 * (decoded - start);
        double first = 1e9, last = 0;
        for (const auto& c : clients) {
            first = std::min(first, c->coveredAt);
            last = std::max(last, c->coveredAt);
        }
        r.firstMs = 1000 * (first - start);
        r.lastMs = 1000 * (last - start);
        r.passMs = 1000 * (passEnd - decoded);
        rows.push_back(r);
        Sleep(30);  // let a pass for a collapsed wake-up finish
        WaitFor([&] { return *flags == 0; });
    }
    server->StopIPCServer();
    // The signalling part of a pass alone, the server stopped: every viewer is woken, reads the
    // (now empty) flags and answers.
    double signalled = 0;
    for (int i = 0; i < 10; ++i) {
        const double t0 = bench::Seconds();
        if (ipc::NotifyClients(viewers).signalled != viewers)
            return false;
        signalled += 1000 * (bench::Seconds() - t0) - ipc::kPassPauseMs;
    }
    for (auto& c : clients)
        c->Stop();
    Row mean;
    for (const Row& r : rows) {
        mean.decodeMs += r.decodeMs / rows.size();
        mean.firstMs += r.firstMs / rows.size();
        mean.lastMs += r.lastMs / rows.size();
        mean.passMs += r.passMs / rows.size();
    }
    mean.signalMs = signalled / 10;
    *out = mean;
    return true;
}

}  // namespace

int main() {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    ComPtr<IScreenCodec> codec = bench::OpenCodec();
    if (!codec)
        return 1;
    const auto updates = MakeUpdates(codec.Get());
    std::printf("full-screen update %d x %d x 16, %zu packets, mean of %d updates\n", kWidth,
                kHeight, updates.back().size(), kUpdates - 2);
    std::printf("%8s %10s %14s %13s %13s %10s %15s\n", "viewers", "decode ms", "first view ms",
                "last view ms", "passes ms", "signal ms", "per viewer ms");
    for (int viewers : {1, 8, 30}) {
        Row r;
        if (!Measure(viewers, updates, &r)) {
            std::printf("%8d  failed\n", viewers);
            continue;
        }
        std::printf("%8d %10.2f %14.2f %13.2f %13.2f %10.2f %15.3f\n", viewers, r.decodeMs,
                    r.firstMs, r.lastMs, r.passMs, r.signalMs, r.signalMs / viewers);
    }
    codec.Reset();
    CoUninitialize();
    return 0;
}
