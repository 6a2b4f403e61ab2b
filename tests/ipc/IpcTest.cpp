// DesktopIPCServer and DesktopIPCRender through COM, read and driven through the channel's
// literal names and offsets (so a wrong constant in the library cannot hide behind the same
// constant here), with in-process viewers that answer or stay mute and log every visit.
#include <windows.h>

#include <string>
#include <thread>
#include <vector>

#include "common/ScreenTestSupport.h"
#include "wincom/KernelObjects.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

// "Global\ScreenUpdate", read-only, by its layout.
class RawControl {
  public:
    bool Open() {
        mapping_ = TryOpenNamedSection("Global\\ScreenUpdate");
        if (mapping_)
            view_.reset(MapViewOfFile(mapping_.get(), FILE_MAP_READ, 0, 0, 66876));
        return (p_ = static_cast<const BYTE*>(view_.get())) != nullptr;
    }
    void Close() {
        view_.reset();
        mapping_.reset();
    }
    std::string Name() const {
        return std::string(reinterpret_cast<const char*>(p_),
                           strnlen(reinterpret_cast<const char*>(p_), 260));
    }
    DWORD Flags() const { return packet::LoadU32(p_ + 0x104); }
    POINT Cursor() const { return POINT{packet::LoadI32(p_ + 0x108), packet::LoadI32(p_ + 0x10C)}; }
    BITMAPINFOHEADER Header() const {
        BITMAPINFOHEADER h;
        std::memcpy(&h, p_ + 0x110, sizeof h);
        return h;
    }
    UINT Count() const { return packet::LoadU32(p_ + 0x538); }
    RECT Rect(UINT i) const {
        RECT r;
        std::memcpy(&r, p_ + 0x53C + 16 * i, sizeof r);
        return r;
    }

  private:
    UniqueMapping mapping_;
    UniqueViewOfFile view_;
    const BYTE* p_ = nullptr;
};

// One answer of a viewer: when it was signalled and what the control section held then.
struct Visit {
    int id;
    DWORD tick, flags;
    POINT cursor;
};
struct VisitLog {
    CriticalSection lock;
    std::vector<Visit> visits;
};

// A viewer of session id on a thread of this process, by the literal names; a mute one never
// sets its complete event. Every visit goes into the shared log, in the order they happened.
class InProcessViewer {
  public:
    InProcessViewer(int id, VisitLog& log, bool mute = false) : id_(id), log_(log), mute_(mute) {
        const std::string n = std::to_string(id);
        receive_ = CreateNamedEvent(("Global\\StudentRecveive" + n).c_str(), true, false);
        complete_ = CreateNamedEvent(("Global\\StudentComplete" + n).c_str(), true, false);
        stop_.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
        thread_ = std::thread([this] { Loop(); });
    }
    ~InProcessViewer() {
        SetEvent(stop_.get());
        thread_.join();
    }

  private:
    void Loop() {
        const HANDLE waits[2] = {stop_.get(), receive_.get()};
        while (WaitForMultipleObjects(2, waits, FALSE, INFINITE) == WAIT_OBJECT_0 + 1) {
            ResetEvent(receive_.get());
            if (!control_.Open())
                continue;
            {
                std::lock_guard<CriticalSection> guard(log_.lock);
                log_.visits.push_back(
                    Visit{id_, GetTickCount(), control_.Flags(), control_.Cursor()});
            }
            if (!mute_)
                SetEvent(complete_.get());
        }
    }
    int id_;
    VisitLog& log_;
    bool mute_;
    RawControl control_;
    UniqueEvent receive_, complete_, stop_;
    std::thread thread_;
};

// COM, a codec, a DesktopIPCServer made by its class object, and the log of in-process viewers.
class IpcServer : public ScreenTest {
  protected:
    void SetUp() override {
        ScreenTest::SetUp();
        MakeServer();
        ASSERT_TRUE(control_.Open());
    }
    void TearDown() override {
        server_.Reset();
        sink_.Reset();
        ScreenTest::TearDown();
    }
    void MakeServer() {
        sink_ = Create<IDataTransmitter>(CLSID_DesktopIPCServer);
        ASSERT_TRUE(sink_ && SUCCEEDED(sink_.As(&server_)));
    }
    void Feed(const std::vector<std::vector<BYTE>>& packets) {
        for (auto p : packets)
            EXPECT_EQ(S_OK, sink_->Transfer(p.data(), static_cast<unsigned long>(p.size()), FALSE));
    }
    // Feeds packets and waits for a pass that visits a viewer to end; that pass's first visit.
    Visit FeedPass(const std::vector<std::vector<BYTE>>& packets) {
        const size_t seen = Visits().size();
        Feed(packets);
        EXPECT_TRUE(WaitUntil([&] { return Visits().size() > seen && control_.Flags() == 0; }));
        EXPECT_TRUE(Settle());
        const auto visits = Visits();
        return visits.size() > seen ? visits[seen] : Visit{};
    }
    std::vector<Visit> Visits() {
        std::lock_guard<CriticalSection> guard(log_.lock);
        return log_.visits;
    }
    size_t VisitsOf(int id) {
        size_t n = 0;
        for (const Visit& v : Visits())
            n += v.id == id;
        return n;
    }
    // No visit for a while and no pass under way.
    bool Settle() {
        return WaitQuiet([&] { return Visits().size(); }, 300) &&
               WaitUntil([&] { return control_.Flags() == 0; });
    }
    std::vector<BYTE> PixelSection() {
        UniqueMapping section = TryOpenNamedSection(control_.Name().c_str());
        UniqueViewOfFile view = section ? MapWholeSection(section.get()) : UniqueViewOfFile();
        const BITMAPINFOHEADER h = control_.Header();
        const size_t size = static_cast<size_t>(((h.biBitCount * h.biWidth + 31) >> 3) & ~3) *
                            static_cast<size_t>(-h.biHeight);
        const BYTE* p = static_cast<const BYTE*>(view.get());
        return p ? std::vector<BYTE>(p, p + size) : std::vector<BYTE>();
    }

    ComPtr<IDataTransmitter> sink_;
    ComPtr<IDesktopIPCServer> server_;
    RawControl control_;
    VisitLog log_;
};

bool IsPixelSectionName(const std::string& name) {
    return name.size() == 17 && name.compare(0, 9, "Global\\QX") == 0 &&
           name.find_first_not_of("0123456789ABCDEF", 9) == std::string::npos;
}

// From construction on the control section names a pixel section in the screen's format. A
// pass publishes the format, the pixels, the rectangles (of a changed corner: its grid cell
// only) and a pointer that only moves; broken packets publish nothing; a new format, and every
// start even of an unchanged one, re-create the pixel section, and the first pass after that
// says so.
TEST_F(IpcServer, ControlSectionAtConstructionAndStartStopStates) {
    const std::string first = control_.Name();
    EXPECT_TRUE(IsPixelSectionName(first)) << first;
    EXPECT_EQ(0u, control_.Flags());
    EXPECT_EQ(0u, control_.Header().biSize);  // no pass yet
    EXPECT_TRUE(TryOpenNamedSection(first.c_str()));

    PacketSource source(codec_.Get(), 640, 480, 9);
    InProcessViewer viewer(0, log_);
    Feed(source.FullScreen());  // not started: ignored
    Sleep(200);
    EXPECT_EQ(first, control_.Name());
    EXPECT_TRUE(Visits().empty());
    EXPECT_EQ(E_FAIL, server_->StopIPCServer());
    EXPECT_EQ(S_OK, server_->StartIPCServer());
    EXPECT_EQ(E_FAIL, server_->StartIPCServer());
    EXPECT_EQ(3u, FeedPass(source.FullScreen()).flags);
    std::string last = control_.Name();
    EXPECT_TRUE(IsPixelSectionName(last) && last != first) << last;
    const BITMAPINFOHEADER h = control_.Header();
    EXPECT_EQ(
        (std::vector<LONG>{40, 640, -480, 16}),
        (std::vector<LONG>{static_cast<LONG>(h.biSize), h.biWidth, h.biHeight, h.biBitCount}));
    EXPECT_EQ(source.Rows(), PixelSection());
    RECT box{};
    for (UINT i = 0; i < control_.Count(); ++i) {
        const RECT r = control_.Rect(i);
        UnionRect(&box, &box, &r);
    }
    EXPECT_EQ((RECT{0, 0, 640, 480}), box);

    // Nothing a broken packet carries (a damaged body, a frame whose desktop disagrees with its
    // format; the acceptance rules are the packet tests') reaches the pixels or a viewer.
    const std::vector<BYTE> pixels = PixelSection();
    const size_t visits = Visits().size();
    source.Paint(77);
    const auto corner = source.Packets(RECT{100, 50, 110, 60});
    std::vector<BYTE> flipped = corner.front(), tooBig = corner.front();
    for (size_t i = 60; i < flipped.size(); i += 7)
        flipped[i] ^= 0x5A;
    packet::StoreI32(tooBig.data() + 12 + 8, 1280);
    Feed({flipped, tooBig, {}});
    Sleep(300);
    EXPECT_EQ(pixels, PixelSection());
    EXPECT_EQ(visits, Visits().size());
    EXPECT_EQ(1u, FeedPass(corner).flags);
    EXPECT_EQ(1u, control_.Count());
    EXPECT_EQ((RECT{96, 48, 112, 64}), control_.Rect(0));
    const Visit moved = FeedPass({source.CursorPacket(packet::kCursorNewPosition, 300, 200)});
    EXPECT_EQ((std::vector<LONG>{1, 300, 200}),
              (std::vector<LONG>{static_cast<LONG>(moved.flags), moved.cursor.x, moved.cursor.y}));
    EXPECT_EQ(last, control_.Name()) << "the same format keeps its section";

    PacketSource smaller(codec_.Get(), 320, 240, 5);
    for (bool restart : {false, true}) {
        SCOPED_TRACE(restart ? "a start" : "a new format");
        if (restart) {
            EXPECT_EQ(S_OK, server_->StopIPCServer());
            ASSERT_TRUE(Settle());
            ASSERT_EQ(S_OK, server_->StartIPCServer());
        }
        EXPECT_EQ(3u, FeedPass(smaller.FullScreen()).flags);
        EXPECT_TRUE(IsPixelSectionName(control_.Name()) && control_.Name() != last);
        last = control_.Name();
        EXPECT_EQ(320, control_.Header().biWidth);
        EXPECT_EQ(smaller.Rows(), PixelSection());
    }
    EXPECT_EQ(S_OK, server_->StopIPCServer());
}

// Strips across a large desktop make a region of some 12,000 rectangles while a pass waits for
// the viewer (answered here by hand): the next pass carries the first 4096 (bottom band first),
// and the rest is not published until it changes again.
TEST_F(IpcServer, APassCarriesTheFirst4096RectanglesOnly) {
    PacketSource source(codec_.Get(), 2048, 1536, 61);
    UniqueEvent receive = CreateNamedEvent("Global\\StudentRecveive0", true, false);
    UniqueEvent complete = CreateNamedEvent("Global\\StudentComplete0", true, false);
    auto nextPass = [&](DWORD ms) {
        const bool signalled = WaitForSingleObject(receive.get(), ms) == WAIT_OBJECT_0;
        ResetEvent(receive.get());
        return signalled;
    };
    ASSERT_EQ(S_OK, server_->StartIPCServer());
    Feed(source.Packets(RECT{0, 0, 8, 1536}));
    ASSERT_TRUE(nextPass(kPatience));
    for (LONG x = 16; x < 2048; x += 16)
        Feed(source.Packets(RECT{x, 0, x + 8, 1536}));
    for (LONG y = 0; y < 1536; y += 16)
        Feed(source.Packets(RECT{0, y, 2048, y + 8}));
    SetEvent(complete.get());
    ASSERT_TRUE(nextPass(kPatience));
    EXPECT_EQ(1u, control_.Flags());
    EXPECT_EQ(4096u, control_.Count());
    EXPECT_EQ((RECT{2032, 1528, 2040, 1536}), control_.Rect(0));
    SetEvent(complete.get());
    EXPECT_FALSE(nextPass(500)) << "another pass";
    EXPECT_EQ(S_OK, server_->StopIPCServer());
}

// Only ids below the limit are signalled; with a limit of zero or less passes still run to
// their end. The visits add up over the rows, so a late one shows in the next row.
TEST_F(IpcServer, ViewerLimitOfZeroOrLessSignalsNobody) {
    PacketSource source(codec_.Get(), 320, 240, 3);
    InProcessViewer zero(0, log_), seven(7, log_), eight(8, log_);
    ASSERT_EQ(S_OK, server_->StartIPCServer());
    const struct {
        int limit;
        size_t zero, seven;
    } rows[] = {{0, 0, 0}, {-5, 0, 0}, {1, 1, 0}, {8, 2, 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.limit);
        EXPECT_EQ(S_OK, server_->SetMaxIPCClients(row.limit));
        source.Paint(static_cast<uint32_t>(row.limit + 100));
        Feed(source.FullScreen());
        ASSERT_TRUE(WaitUntil([&] { return control_.Count() >= 1 && control_.Flags() == 0; }));
        EXPECT_TRUE(WaitUntil([&] { return VisitsOf(0) == row.zero && VisitsOf(7) == row.seven; }));
        ASSERT_TRUE(Settle());
        EXPECT_EQ((std::vector<size_t>{row.zero, row.seven, 0}),
                  (std::vector<size_t>{VisitsOf(0), VisitsOf(7), VisitsOf(8)}));
    }
}

// A mute viewer costs the pass the time-out; the viewers around it are still served, in
// ascending id. Releasing the server mid-pass waits for the pass to end.
TEST_F(IpcServer, MuteViewerDelaysThePassAndOthersAreServedInOrder) {
    InProcessViewer first(1, log_), mute(2, log_, true), third(3, log_);
    PacketSource source(codec_.Get(), 320, 240, 31);
    ASSERT_EQ(S_OK, server_->StartIPCServer());
    Feed(source.FullScreen());
    ASSERT_TRUE(WaitUntil([&] { return VisitsOf(3) == 1; }, 20000));
    auto visits = Visits();
    ASSERT_EQ(3u, visits.size());
    EXPECT_EQ((std::vector<int>{1, 2, 3}),
              (std::vector<int>{visits[0].id, visits[1].id, visits[2].id}));
    EXPECT_GE(visits[2].tick - visits[1].tick, 5000u - 40u);  // tick granularity

    // Second pass: once viewer 1 has answered the server waits for 2; the release waits too.
    source.Paint(32);
    Feed(source.FullScreen());
    ASSERT_TRUE(WaitUntil([&] { return VisitsOf(1) == 2; }, 20000));
    const DWORD start = GetTickCount();
    server_.Reset();
    sink_.Reset();
    EXPECT_GE(GetTickCount() - start, 3000u);
    EXPECT_EQ(2u, VisitsOf(3)) << "the pass ran to its end before the object went";
}

constexpr UINT kNotify = WM_APP + 3;

class IpcRender : public IpcServer {
  protected:
    void SetUp() override {
        IpcServer::SetUp();
        ASSERT_TRUE(render_ = Create<IDesktopRender>(CLSID_DesktopIPCRender));
        render_->SetNotifyWindow(notify_.Handle(), kNotify, 99);
    }
    void TearDown() override {
        if (render_)
            render_->Stop();
        render_.Reset();
        IpcServer::TearDown();
    }
    void DropServer() {
        server_.Reset();
        sink_.Reset();
    }
    // The rows behind the BITMAPINFOHEADER (16-bit: no colour part).
    std::vector<BYTE> Picture() {
        const std::vector<BYTE> image = CurrentImage(render_.Get());
        return image.size() < 40 ? std::vector<BYTE>()
                                 : std::vector<BYTE>(image.begin() + 40, image.end());
    }
    static bool Exists(const char* event, const char* mutex = nullptr) {
        return TryOpenNamedEvent(event) && (!mutex || TryOpenNamedMutex(mutex));
    }

    NotifyWindow notify_{kNotify};
    ComPtr<IDesktopRender> render_;
};

TEST_F(IpcRender, WithoutServerAsSinkAndSessionObjects) {
    DropServer();
    control_.Close();
    ASSERT_FALSE(TryOpenNamedSection("Global\\ScreenUpdate"));
    EXPECT_EQ(static_cast<HRESULT>(-1), render_->Run());
    EXPECT_EQ(S_OK, render_->Stop());

    // As a sink it takes anything and shows nothing.
    ComPtr<IDataTransmitter> transmitter;
    ASSERT_EQ(S_OK, render_.As(&transmitter));
    BYTE junk[64] = {1, 2, 3};
    EXPECT_EQ(S_OK, transmitter->Transfer(junk, sizeof junk, FALSE));
    EXPECT_TRUE(CurrentImage(render_.Get()).empty());

    // With a server: -1 names session 0; an id set while running waits for the next Run.
    MakeServer();
    EXPECT_EQ(S_OK, render_->SetSessionId(-1));
    ASSERT_EQ(S_OK, render_->Run());
    EXPECT_EQ(E_FAIL, render_->Run());
    // Cleared at creation: no BITMAPINFO is published yet, so the viewer waits for no pass.
    for (const char* name : {"Global\\StudentRecveive0", "Global\\StudentComplete0"}) {
        UniqueEvent e = TryOpenNamedEvent(name);
        EXPECT_TRUE(e && WaitForSingleObject(e.get(), 0) == WAIT_TIMEOUT) << name;
    }
    EXPECT_TRUE(TryOpenNamedMutex("Global\\StudentEventMutex0"));
    EXPECT_EQ(S_OK, render_->SetSessionId(7));
    EXPECT_FALSE(Exists("Global\\StudentRecveive7"));
    EXPECT_EQ(S_OK, render_->Stop());
    EXPECT_FALSE(Exists("Global\\StudentRecveive0"));
    ASSERT_EQ(S_OK, render_->Run());
    EXPECT_TRUE(Exists("Global\\StudentRecveive7", "Global\\StudentEventMutex7"));

    // Released while running: the thread ends and the session's objects go with the object.
    transmitter.Reset();
    render_.Reset();
    EXPECT_FALSE(Exists("Global\\StudentRecveive7"));
    EXPECT_FALSE(TryOpenNamedMutex("Global\\StudentEventMutex7"));
}

// The picture from a server in this process; the picture stays when the server goes, and a new
// server (a new section) reaches the same viewer, which tells the picture complete once per Run.
TEST_F(IpcRender, ShowsThePictureKeepsItWhenTheServerGoesAndFollowsANewServer) {
    ASSERT_EQ(S_OK, render_->Run());
    ASSERT_EQ(S_OK, server_->StartIPCServer());
    PacketSource first(codec_.Get(), 320, 240, 41), second(codec_.Get(), 256, 192, 43);
    Feed(first.FullScreen());
    EXPECT_TRUE(WaitUntil([&] { return Picture() == first.Rows(); }));
    EXPECT_TRUE(WaitUntil([&] { return notify_.Count(2, 99) == 1; }));

    DropServer();
    PumpFor(300);
    EXPECT_EQ(first.Rows(), Picture()) << "the last picture stays";
    MakeServer();
    ASSERT_EQ(S_OK, server_->StartIPCServer());
    Feed(second.FullScreen());
    EXPECT_TRUE(WaitUntil([&] { return Picture() == second.Rows(); }));
    EXPECT_EQ(1, notify_.Count(2, 99));
    EXPECT_EQ(S_OK, server_->StopIPCServer());
}

// The viewer against a control section written here by hand, with what a server of ours never
// writes: it retries until a BITMAPINFO is published, repaints the whole image for an empty
// rectangle, copies at most 4096 rectangles of a larger count, and on flag bit 1 reopens the
// section now named, retrying without answering while that fails. ResetContent paints the
// shared pixels over with the background colour.
TEST_F(IpcRender, ViewerFollowsAControlSectionWrittenByHand) {
    DropServer();
    control_.Close();
    UniqueMapping controlSection = CreateNamedSection("Global\\ScreenUpdate", 66876);
    UniqueViewOfFile controlView = MapWholeSection(controlSection.get());
    ASSERT_TRUE(controlView);
    BYTE* c = static_cast<BYTE*>(controlView.get());
    // A 16-bit section of w x h pixels of a pattern, named at 0x000, its BITMAPINFO at 0x110.
    std::vector<BYTE> rows;
    auto publish = [&](const char* name, int w, int h) {
        UniqueMapping section = CreateNamedSection(name, static_cast<DWORD>(w * h * 2));
        UniqueViewOfFile view = MapWholeSection(section.get());
        BYTE* pixels = static_cast<BYTE*>(view.get());
        for (int i = 0; i < w * h; ++i)
            packet::StoreU16(pixels + 2 * i, static_cast<uint16_t>(i * 37));
        rows.assign(pixels, pixels + w * h * 2);
        std::memset(c, 0, 260);
        std::strcpy(reinterpret_cast<char*>(c), name);
        std::memcpy(c + 0x110, Bmi(w, h, 16).data(), 40);
        return std::make_pair(std::move(section), std::move(view));
    };
    // One pass: the fields, then the viewer's receive event; whether it answered within ms.
    UniqueEvent receive, complete;
    auto pass = [&](DWORD flags, std::vector<RECT> rects, DWORD ms) {
        packet::StoreU32(c + 0x104, flags);
        packet::StoreU32(c + 0x538, static_cast<uint32_t>(rects.size()));
        std::memcpy(c + 0x53C, rects.data(), std::min<size_t>(rects.size(), 4096) * sizeof(RECT));
        ResetEvent(complete.get());
        SetEvent(receive.get());
        return WaitForSingleObject(complete.get(), ms) == WAIT_OBJECT_0;
    };

    ASSERT_EQ(S_OK, render_->SetSessionId(3));
    ASSERT_EQ(S_OK, render_->Run());
    receive = TryOpenNamedEvent("Global\\StudentRecveive3");
    complete = TryOpenNamedEvent("Global\\StudentComplete3");
    ASSERT_TRUE(receive && complete);
    PumpFor(100);  // the viewer's first tries find no BITMAPINFO
    auto first = publish("Global\\VantrelIpcTestA", 64, 32);
    ASSERT_TRUE(pass(1, {RECT{}}, kPatience));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(receive.get(), 0)) << "the viewer resets it";
    EXPECT_TRUE(WaitUntil([&] { return Picture() == rows; }));
    ASSERT_TRUE(pass(1, std::vector<RECT>(5000, RECT{0, 0, 8, 8}), kPatience));

    // A re-created section that cannot be opened yet holds the answer back.
    std::strcpy(reinterpret_cast<char*>(c), "Global\\VantrelIpcTestMissing");
    EXPECT_FALSE(pass(2, {}, 300));
    auto second = publish("Global\\VantrelIpcTestB", 32, 16);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(complete.get(), kPatience));
    ASSERT_TRUE(pass(1, {RECT{0, 0, 32, 16}}, kPatience));
    EXPECT_TRUE(WaitUntil([&] { return Picture() == rows; }));

    // The viewer's image is the shared section itself.
    EXPECT_EQ(S_OK, render_->ResetContent());
    const BYTE* pixels = static_cast<const BYTE*>(second.second.get());
    for (int i = 0; i < 32 * 16; ++i)
        ASSERT_EQ(0x0210, packet::LoadU16(pixels + 2 * i)) << i;  // 0x808000 at 5-5-5
    EXPECT_EQ(S_OK, render_->Stop());
}

}  // namespace
