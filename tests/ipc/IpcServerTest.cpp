// DesktopIPCServer through COM, read through the channel's literal names and offsets: the
// control section at construction, start and stop, the pass (rectangles, cursor, flags, the
// viewers signalled in id order with the time-out), the viewer limit, refused packets (the
// decoder's own refusals are the stream tests'), and a release while a pass waits for a viewer.
#include "IpcTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

class IpcServer : public IpcServerTest {
  protected:
    std::vector<Visit> Visits() {
        std::lock_guard<CriticalSection> guard(logLock_);
        return log_;
    }
    size_t VisitsOf(int id) {
        size_t n = 0;
        for (const Visit& v : Visits())
            n += v.id == id;
        return n;
    }
    // A pass ran to its end: its rectangles are written and the flags cleared.
    bool PassDone(UINT count = 1) {
        return WaitUntil([&] { return control_.Count() >= count && control_.Flags() == 0; });
    }
    // No visit for quietMs and no pass under way.
    bool Settle(DWORD quietMs = 300) {
        size_t count = Visits().size();
        DWORD since = GetTickCount();
        return WaitUntil([&] {
            if (Visits().size() != count) {
                count = Visits().size();
                since = GetTickCount();
            }
            return GetTickCount() - since > quietMs && control_.Flags() == 0;
        });
    }
    std::vector<BYTE> PixelSection() {
        UniqueMapping section = TryOpenNamedSection(control_.Name().c_str());
        UniqueViewOfFile view = section ? MapWholeSection(section.get()) : UniqueViewOfFile();
        const BITMAPINFOHEADER h = control_.Header();
        const size_t size = static_cast<size_t>(((h.biBitCount * h.biWidth + 31) >> 3) & ~3) *
                            static_cast<size_t>(-h.biHeight);
        if (!view)
            return {};
        const BYTE* p = static_cast<const BYTE*>(view.get());
        return std::vector<BYTE>(p, p + size);
    }

    CriticalSection logLock_;
    std::vector<Visit> log_;
};

bool IsPixelSectionName(const std::string& name) {
    if (name.size() != 17 || name.compare(0, 9, "Global\\QX") != 0)
        return false;
    return name.find_first_not_of("0123456789ABCDEF", 9) == std::string::npos;
}

// From construction on the control section names a pixel section in the screen's format. A
// pass publishes the format, the pixels, the rectangles (of a changed corner: its grid cell
// only) and a pointer that only moves; a new format, and every start even of an unchanged one,
// re-create the pixel section, and the first pass after that says so.
TEST_F(IpcServer, ControlSectionAtConstructionAndStartStopStates) {
    const std::string first = control_.Name();
    EXPECT_TRUE(IsPixelSectionName(first)) << first;
    EXPECT_EQ(0u, control_.Flags());
    EXPECT_EQ(0u, control_.Header().biSize);  // no pass yet
    EXPECT_TRUE(TryOpenNamedSection(first.c_str()));

    PacketSource source(codec_.Get(), 640, 480, 9);
    InProcessViewer viewer(0, &log_, &logLock_);
    ASSERT_TRUE(viewer.Ok());
    Feed(source.FullScreen());  // not started: ignored
    Sleep(200);
    EXPECT_EQ(first, control_.Name());
    EXPECT_TRUE(Visits().empty());
    EXPECT_EQ(E_FAIL, server_->StopIPCServer());
    EXPECT_EQ(S_OK, server_->StartIPCServer());
    EXPECT_EQ(E_FAIL, server_->StartIPCServer());
    Feed(source.FullScreen());
    ASSERT_TRUE(PassDone());
    ASSERT_TRUE(Settle());
    std::string last = control_.Name();
    EXPECT_TRUE(IsPixelSectionName(last) && last != first) << last;
    EXPECT_EQ(3u, Visits().front().flags);
    const BITMAPINFOHEADER h = control_.Header();
    EXPECT_EQ(40u, h.biSize);
    EXPECT_EQ(640, h.biWidth);
    EXPECT_EQ(-480, h.biHeight);
    EXPECT_EQ(16, h.biBitCount);
    EXPECT_EQ(source.Rows(), PixelSection());
    RECT box{};
    for (UINT i = 0; i < control_.Count(); ++i) {
        const RECT r = control_.Rect(i);
        UnionRect(&box, &box, &r);
    }
    EXPECT_EQ((RECT{0, 0, 640, 480}), box);

    source.Paint(77);
    size_t seen = Visits().size();
    Feed(source.Packets(RECT{100, 50, 110, 60}));
    ASSERT_TRUE(WaitUntil([&] { return Visits().size() > seen && control_.Flags() == 0; }));
    EXPECT_EQ(1u, control_.Count());
    EXPECT_EQ((RECT{96, 48, 112, 64}), control_.Rect(0));
    EXPECT_EQ(1u, Visits().back().flags);
    seen = Visits().size();
    Feed({source.CursorPacket(packet::kCursorNewPosition, 300, 200)});
    ASSERT_TRUE(WaitUntil([&] { return Visits().size() > seen && control_.Flags() == 0; }));
    EXPECT_EQ(300, Visits().back().cursor.x);
    EXPECT_EQ(200, Visits().back().cursor.y);
    EXPECT_EQ(1u, Visits().back().flags);
    EXPECT_GE(control_.Count(), 1u);  // the pointer's old and new places
    EXPECT_EQ(last, control_.Name()) << "the same format keeps its section";

    PacketSource smaller(codec_.Get(), 320, 240, 5);
    for (bool restart : {false, true}) {
        SCOPED_TRACE(restart ? "a start" : "a new format");
        if (restart) {
            EXPECT_EQ(S_OK, server_->StopIPCServer());
            EXPECT_EQ(E_FAIL, server_->StopIPCServer());
            ASSERT_TRUE(Settle());
            ASSERT_EQ(S_OK, server_->StartIPCServer());
        }
        seen = Visits().size();
        Feed(smaller.FullScreen());
        ASSERT_TRUE(WaitUntil([&] { return Visits().size() > seen; }));
        ASSERT_TRUE(Settle());
        EXPECT_TRUE(IsPixelSectionName(control_.Name()) && control_.Name() != last);
        last = control_.Name();
        EXPECT_EQ(320, control_.Header().biWidth);
        EXPECT_EQ(smaller.Rows(), PixelSection());
        EXPECT_EQ(3u, Visits()[seen].flags);
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
    ASSERT_EQ(S_OK, server_->StartIPCServer());
    Feed(source.Packets(RECT{0, 0, 8, 1536}));
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(receive.get(), 10000));
    ResetEvent(receive.get());
    for (LONG x = 16; x < 2048; x += 16)
        Feed(source.Packets(RECT{x, 0, x + 8, 1536}));
    for (LONG y = 0; y < 1536; y += 16)
        Feed(source.Packets(RECT{0, y, 2048, y + 8}));
    SetEvent(complete.get());
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(receive.get(), 10000));
    ResetEvent(receive.get());
    EXPECT_EQ(1u, control_.Flags());
    EXPECT_EQ(4096u, control_.Count());
    EXPECT_EQ((RECT{2032, 1528, 2040, 1536}), control_.Rect(0));
    SetEvent(complete.get());
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(receive.get(), 500)) << "another pass";
    EXPECT_EQ(S_OK, server_->StopIPCServer());
}

// Only ids below the limit are signalled; with a limit of zero or less passes still run to
// their end. The visits add up over the rows, so a late one shows in the next row.
TEST_F(IpcServer, ViewerLimitOfZeroOrLessSignalsNobody) {
    PacketSource source(codec_.Get(), 320, 240, 3);
    InProcessViewer zero(0, &log_, &logLock_), seven(7, &log_, &logLock_),
        eight(8, &log_, &logLock_);
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
        ASSERT_TRUE(PassDone());
        EXPECT_TRUE(WaitUntil([&] { return VisitsOf(0) == row.zero && VisitsOf(7) == row.seven; }));
        ASSERT_TRUE(Settle());
        EXPECT_EQ(row.zero, VisitsOf(0));
        EXPECT_EQ(row.seven, VisitsOf(7));
        EXPECT_EQ(0u, VisitsOf(8));
    }
}

// Nothing a broken packet carries reaches the picture, the control section or a viewer.
TEST_F(IpcServer, RefusedPacketsChangeNothing) {
    PacketSource source(codec_.Get(), 320, 240, 21);
    InProcessViewer viewer(0, &log_, &logLock_);
    ASSERT_EQ(S_OK, server_->StartIPCServer());
    Feed(source.FullScreen());
    ASSERT_TRUE(WaitUntil([&] { return VisitsOf(0) >= 1; }));
    ASSERT_TRUE(Settle());
    const std::string name = control_.Name();
    const std::vector<BYTE> pixels = PixelSection();
    const size_t visits = Visits().size();

    source.Paint(22);
    const std::vector<BYTE> frame = source.Packets(RECT{0, 0, 64, 64}).front();
    const std::vector<BYTE> cursor = source.CursorPacket(packet::kCursorNewPosition, 10, 10);
    std::vector<BYTE> flipped = frame, cut = frame, magic = frame, tooBig = frame;
    for (size_t i = 60; i < flipped.size(); i += 7)
        flipped[i] ^= 0x5A;
    cut.resize(40);
    packet::StoreU32(cut.data() + 4, 40);
    magic[0] = 'X';
    packet::StoreI32(tooBig.data() + 12 + 8, 640);  // desktop wider than its BITMAPINFO
    std::vector<BYTE> shortCursor(cursor.begin(), cursor.begin() + 8);
    const struct {
        const char* what;
        std::vector<BYTE> bytes;
        long delta;
    } cases[] = {
        {"length one byte off", frame, 1},
        {"length one byte short", frame, -1},
        {"damaged body", flipped, 0},
        {"header cut short", cut, 0},
        {"unknown magic", magic, 0},
        {"desktop and format disagree", tooBig, 0},
        {"short cursor packet", shortCursor, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<BYTE> bytes = c.bytes;
        EXPECT_EQ(S_OK, sink_->Transfer(bytes.data(),
                                        static_cast<unsigned long>(bytes.size() + c.delta), FALSE));
    }
    EXPECT_EQ(S_OK, sink_->Transfer(nullptr, 0, FALSE));
    Sleep(300);
    EXPECT_EQ(name, control_.Name());
    EXPECT_EQ(320, control_.Header().biWidth);
    EXPECT_EQ(pixels, PixelSection());
    EXPECT_EQ(visits, Visits().size());
    Feed({frame});
    EXPECT_TRUE(WaitUntil([&] { return Visits().size() > visits; })) << "a whole packet after them";
    EXPECT_TRUE(Settle());
}

// A mute viewer costs the pass the time-out; the viewers around it are still served, in
// ascending id. Releasing the server mid-pass waits for the pass to end.
TEST_F(IpcServer, MuteViewerDelaysThePassAndOthersAreServedInOrder) {
    InProcessViewer first(1, &log_, &logLock_), mute(2, &log_, &logLock_, true),
        third(3, &log_, &logLock_);
    PacketSource source(codec_.Get(), 320, 240, 31);
    ASSERT_EQ(S_OK, server_->StartIPCServer());
    Feed(source.FullScreen());
    ASSERT_TRUE(WaitUntil([&] { return VisitsOf(3) == 1; }, 20000));
    auto visits = Visits();
    ASSERT_EQ(3u, visits.size());
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(i + 1, visits[i].id);
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

}  // namespace
