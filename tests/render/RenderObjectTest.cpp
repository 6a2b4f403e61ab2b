// DesktopRender through COM as a host uses it, fed by a synthetic desktop: the window, its
// placement, background, cursor and close request; the notifications of a picture's life and the
// idle timer; broken packets and asynchronous hand-over; the frame-buffer export; the input drain;
// the view rectangles, drag and scroll bars; what each view shows on the screen; the cursor move
// modes; palettes; release from another thread.
#include <windows.h>
#include <process.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "common/ScreenTestSupport.h"
#include "wincom/Window.h"

namespace vantrel::test {
namespace {

// The notification codes as a host knows them.
constexpr WPARAM RN_FORMATCHANGED = 1, RN_PICTURECOMPLETE = 2, RN_CLOSEREQUEST = 3, RN_IDLE = 4,
                 RN_VIEWCHANGED = 5;
constexpr UINT kNotifyMessage = WM_APP + 7;
constexpr DWORD kNotifyParam = 0x5A5A1234;

// A top-level popup (never activated) that records every message sent or posted to it, but
// what its own default handling sends it: a parent for the render's window, or its drain.
class HostWindow {
  public:
    explicit HostWindow(const RECT& where = {0, 0, 400, 300}, bool visible = false) {
        window_.Observe([this](UINT m, WPARAM, LPARAM) {
            if (!window_.Nested())
                messages_.push_back(m);
        });
        WindowClassInfo cls;
        cls.name = "VantrelTestHost";
        window_.Create(cls, WS_EX_NOACTIVATE | WS_EX_TOPMOST, "host",
                       WS_POPUP | WS_CLIPCHILDREN | (visible ? WS_VISIBLE : 0), where.left,
                       where.top, where.right - where.left, where.bottom - where.top);
        messages_.clear();
    }
    HWND Handle() const { return window_.Handle(); }
    const std::vector<UINT>& Messages() const { return messages_; }

  private:
    std::vector<UINT> messages_;
    Window window_;  // last: its destruction still reaches the observer
};

// COM, a codec, a notification window, a host window and one render made by its class object.
class RenderTest : public ScreenTest {
  protected:
    void SetUp() override {
        ScreenTest::SetUp();
        ASSERT_TRUE(render_ = Create<IDesktopRender>(CLSID_DesktopRender));
        ASSERT_EQ(S_OK, render_.As(&transmitter_));
        ASSERT_EQ(S_OK, render_->SetNotifyWindow(notes_.Handle(), kNotifyMessage, kNotifyParam));
    }
    void TearDown() override {
        transmitter_.Reset();
        render_.Reset();
        PumpFor(20);
        ScreenTest::TearDown();
    }
    HWND RenderWindow() {
        HWND h = nullptr;
        EXPECT_EQ(S_OK, render_->GetWindowHandle(&h));
        return h;
    }
    // r of desk (default: all of it) sent to the render; the number of packets.
    int Feed(PacketSource& desk, const RECT& r = {}) {
        EXPECT_EQ(S_OK, desk.Register(transmitter_.Get()));
        const int packets = desk.Send(IsRectEmpty(&r) ? desk.Whole() : r);
        desk.Unregister(transmitter_.Get());
        return packets;
    }
    // The codes posted so far, in order, of those in only; each carries the host's parameter.
    // Posted notifications arrive once this thread pumps.
    std::vector<WPARAM> Codes(const std::vector<WPARAM>& only) {
        PumpFor(30);
        std::vector<WPARAM> out;
        for (const auto& n : notes_.Notes()) {
            EXPECT_EQ(kNotifyParam, static_cast<DWORD>(n.lParam));
            if (std::count(only.begin(), only.end(), n.wParam))
                out.push_back(n.wParam);
        }
        return out;
    }
    // Forgets the notifications posted so far, also those not delivered yet.
    void ClearCodes() {
        PumpFor(30);
        notes_.Clear();
    }

    NotifyWindow notes_{kNotifyMessage};
    HostWindow host_;
    ComPtr<IDesktopRender> render_;
    ComPtr<IDataTransmitter> transmitter_;
};

constexpr RECT kWhole{0, 0, 1024, 768};

TEST_F(RenderTest, WindowClassPlacementStylesCursorAndClose) {
    const HWND w = RenderWindow();
    ASSERT_TRUE(IsWindow(w));
    EXPECT_EQ(0u, GetClassLongPtrA(w, GCLP_HCURSOR));  // no class cursor overrides SetCursor
    long visible = 0xdeadbeef;
    ASSERT_EQ(S_OK, render_->GetVisible(&visible));
    EXPECT_EQ(0, visible);
    auto kind = [&] { return GetWindowLongA(w, GWL_STYLE) & (WS_POPUP | WS_CHILD); };
    EXPECT_EQ(static_cast<LONG>(WS_POPUP), kind());

    // Tracking limits apply to the top-level window only.
    auto limits = [&] {
        MINMAXINFO mmi{};
        SendMessageA(w, WM_GETMINMAXINFO, 0, reinterpret_cast<LPARAM>(&mmi));
        return RECT{mmi.ptMinTrackSize.x, mmi.ptMinTrackSize.y, mmi.ptMaxTrackSize.x,
                    mmi.ptMaxSize.y};
    };
    ASSERT_EQ(S_OK, render_->SetMaxMinSize(800, 600, 120, 90));
    EXPECT_EQ(RECT({120, 90, 800, 600}), limits());

    HostWindow parent({100, 50, 500, 350}, true);
    ASSERT_EQ(S_OK, render_->SetParentWindow(parent.Handle()));
    EXPECT_EQ(S_FALSE, render_->SetParentWindow(parent.Handle()));
    EXPECT_EQ(parent.Handle(), GetParent(w));
    EXPECT_EQ(static_cast<LONG>(WS_CHILD), kind());
    EXPECT_NE(120, limits().left);
    // Placement in the parent's client coordinates, read back in screen coordinates.
    ASSERT_EQ(S_OK, render_->SetWindowPosition(10, 20, 210, 170));
    long l = 0xdeadbeef, t = 0xdeadbeef, r = 0xdeadbeef, b = 0xdeadbeef;
    ASSERT_EQ(S_OK, render_->GetWindowPosition(&l, &t, &r, &b));
    EXPECT_EQ(RECT({110, 70, 310, 220}), RECT({l, t, r, b}));
    ASSERT_EQ(S_OK, render_->SetVisible(TRUE));
    ASSERT_EQ(S_OK, render_->GetVisible(&visible));
    EXPECT_EQ(0x10000000, visible);  // the style bit itself

    // WM_CLOSE only asks.
    ClearCodes();
    SendMessageA(w, WM_CLOSE, 0, 0);
    EXPECT_EQ(std::vector<WPARAM>{RN_CLOSEREQUEST}, Codes({RN_CLOSEREQUEST}));
    EXPECT_TRUE(IsWindow(w));
    ASSERT_EQ(S_OK, render_->SetParentWindow(nullptr));
    EXPECT_EQ(static_cast<LONG>(WS_POPUP), kind());
}

// The idle timer ticks until a picture is complete; three bands then post RN_FORMATCHANGED and
// RN_PICTURECOMPLETE once, right after the last; a new desktop size is announced alone, new
// colour masks alone not at all; Run and ResetContent start a picture's life again.
TEST_F(RenderTest, PictureLifeNotificationsAndReadBack) {
    ASSERT_EQ(S_OK, render_->SetIdleTimeout(30));
    PumpFor(200);
    EXPECT_GE(Codes({RN_IDLE}).size(), 2u);
    PacketSource desk(codec_.Get(), 1024, 768, 7);
    long w = 0xdeadbeef, h = 0xdeadbeef, bpp = 0xdeadbeef;
    EXPECT_EQ(E_FAIL, render_->GetDesktopInfomation(&w, &h, &bpp));
    EXPECT_EQ(0xdeadbeef, static_cast<unsigned long>(w));
    unsigned long size = 0xdeadbeef;
    EXPECT_EQ(E_FAIL, render_->GetCurrectImage(&size, nullptr));
    EXPECT_EQ(0xdeadbeefu, size);

    const std::vector<WPARAM> picture = {RN_FORMATCHANGED, RN_PICTURECOMPLETE};
    ASSERT_EQ(1, Feed(desk, {0, 0, 1024, 256}));
    ASSERT_EQ(1, Feed(desk, {0, 256, 1024, 512}));
    EXPECT_EQ(std::vector<WPARAM>(), Codes(picture));
    ASSERT_EQ(1, Feed(desk, {0, 512, 1024, 768}));
    EXPECT_EQ(picture, Codes(picture));
    ClearCodes();
    PumpFor(200);
    EXPECT_EQ(std::vector<WPARAM>(), Codes({RN_IDLE}));

    ASSERT_EQ(S_OK, render_->GetDesktopInfomation(&w, &h, &bpp));
    EXPECT_EQ(RECT({0, 0, 1024, 768}), RECT({0, 0, w, h}));
    EXPECT_EQ(16, bpp);
    // 40 + 2048 x 768: forty bytes more than one packet buffer.
    ASSERT_EQ(S_OK, render_->GetCurrectImage(&size, nullptr));
    EXPECT_EQ(40u + 0x180000u, size);
    std::vector<BYTE> image(size, 0xCD);
    size -= 1;
    EXPECT_EQ(E_FAIL, render_->GetCurrectImage(&size, image.data()));
    EXPECT_EQ(0xCD, image[0]);
    const std::vector<BYTE> got = CurrentImage(render_.Get());
    ASSERT_EQ(40u + 0x180000u, got.size());
    EXPECT_EQ(desk.Rows(kWhole), std::vector<BYTE>(got.begin() + 40, got.end()));

    ClearCodes();
    Feed(desk);
    EXPECT_EQ(std::vector<WPARAM>(), Codes(picture));
    PacketSource smaller(codec_.Get(), 800, 600, 8);
    Feed(smaller, {0, 0, 800, 300});
    EXPECT_EQ(std::vector<WPARAM>{RN_FORMATCHANGED}, Codes(picture));
    Feed(smaller, {0, 300, 800, 600});
    EXPECT_EQ(std::vector<WPARAM>{RN_FORMATCHANGED}, Codes(picture));
    ClearCodes();
    for (const std::vector<DWORD>& masks :
         {std::vector<DWORD>{0xF800, 0x07E0, 0x001F}, std::vector<DWORD>{0x7C00, 0x03E0, 0x001F}}) {
        PacketSource masked(codec_.Get(), Bmi(800, 600, 16, BI_BITFIELDS, masks), 9);
        Feed(masked, {0, 0, 800, 8});
    }
    EXPECT_EQ(std::vector<WPARAM>{RN_FORMATCHANGED}, Codes(picture));
    EXPECT_EQ(0x7C00u, packet::LoadU32(&CurrentImage(render_.Get())[40]));

    ASSERT_EQ(S_OK, render_->Run());
    EXPECT_EQ(E_FAIL, render_->GetDesktopInfomation(&w, &h, &bpp));
    ClearCodes();
    Feed(smaller);
    EXPECT_EQ(picture, Codes(picture));
    // ResetContent keeps the picture painted over, and arms the idle timer again.
    ASSERT_EQ(S_OK, render_->ResetContent());
    ASSERT_EQ(S_OK, render_->GetDesktopInfomation(&w, &h, &bpp));
    PumpFor(200);
    EXPECT_GE(Codes({RN_IDLE}).size(), 2u);
}

// A spoilt packet changes nothing, handed over either way. A good one handed over
// asynchronously is applied once this thread pumps; a second waits for the first (which cannot
// run while this thread is busy) and is dropped after its second.
TEST_F(RenderTest, BrokenPacketsChangeNothingAsynchronousOnesWaitTheirTurn) {
    PacketSource desk(codec_.Get(), 1024, 768, 1);
    std::vector<BYTE> cursor = desk.CursorPacket(3, 10, 10);  // before any frame: ignored
    EXPECT_EQ(S_OK, transmitter_->Transfer(cursor.data(), static_cast<ULONG>(cursor.size()), 0));
    EXPECT_TRUE(CurrentImage(render_.Get()).empty());
    Feed(desk);
    const std::vector<BYTE> before = CurrentImage(render_.Get());
    ASSERT_FALSE(before.empty());

    desk.Paint(99);
    const size_t first = desk.recorder.PacketCount();
    desk.Send({0, 0, 1024, 64});
    std::vector<BYTE> p = desk.recorder.Packets().at(first).bytes;
    packet::StoreU32(&p[4], packet::LoadU32(&p[4]) + 1);  // the codec's refusals: StreamCodecTest
    for (long async : {FALSE, TRUE})
        EXPECT_EQ(S_OK, transmitter_->Transfer(p.data(), static_cast<ULONG>(p.size()), async));
    PumpFor(20);
    EXPECT_TRUE(before == CurrentImage(render_.Get()));

    p = desk.recorder.Packets().at(first).bytes;
    EXPECT_EQ(S_OK, transmitter_->Transfer(p.data(), static_cast<ULONG>(p.size()), 1));
    EXPECT_TRUE(before == CurrentImage(render_.Get()));
    const DWORD start = GetTickCount();
    EXPECT_EQ(S_OK, transmitter_->Transfer(p.data(), static_cast<ULONG>(p.size()), 1));
    EXPECT_GE(GetTickCount() - start, 900u);
    ASSERT_TRUE(WaitUntil([&] { return !(before == CurrentImage(render_.Get())); }));
    const std::vector<BYTE> after = CurrentImage(render_.Get()), band = desk.Rows({0, 0, 1024, 64});
    EXPECT_TRUE(std::equal(band.begin(), band.end(), after.begin() + 40));
    EXPECT_EQ(S_OK, transmitter_->Flush());
}

TEST_F(RenderTest, FullScreenDataRebuildsTheSamePictureInASecondRender) {
    ComPtr<IFrameBuffer> frames;
    ASSERT_EQ(S_OK, render_.As(&frames));
    std::vector<BYTE> buffer(packet::kBufferSize);
    unsigned long size = 0xdeadbeef;
    EXPECT_EQ(E_FAIL, frames->GetFullScreenData(buffer.data(), &size, TRUE));
    EXPECT_EQ(E_FAIL, frames->GetFullScreenDataUncompressed(buffer.data(), &size));
    EXPECT_EQ(0xdeadbeefu, size);
    void* info = reinterpret_cast<void*>(0xdeadbeef);
    ASSERT_EQ(S_OK, frames->GetBitmapInfo(&info));
    EXPECT_EQ(nullptr, info);

    PacketSource desk(codec_.Get(), 1024, 768, 11);
    Feed(desk);
    ASSERT_EQ(S_OK, frames->GetBitmapInfo(&info));
    ASSERT_NE(nullptr, info);
    EXPECT_EQ(1024, static_cast<BITMAPINFO*>(info)->bmiHeader.biWidth);

    ComPtr<IDesktopRender> second = Create<IDesktopRender>(CLSID_DesktopRender);
    ComPtr<IDataTransmitter> secondIn;
    ASSERT_EQ(S_OK, second.As(&secondIn));
    int packets = 0;
    LONG nextRow = 0;
    for (long first = TRUE;; first = FALSE) {
        size = 0xdeadbeef;
        const HRESULT hr = frames->GetFullScreenData(buffer.data(), &size, first);
        if (hr == S_FALSE)
            break;
        ASSERT_EQ(S_OK, hr);
        ASSERT_EQ(packet::LoadU32(&buffer[4]), size);
        packet::FrameHeader header;
        ASSERT_TRUE(packet::ReadFrameHeader(buffer.data(), size, &header));
        EXPECT_EQ(RECT(kWhole), header.desktop);
        EXPECT_EQ(nextRow, header.band.top);  // whole rows, band after band
        nextRow = header.band.bottom;
        EXPECT_EQ(S_OK, secondIn->Transfer(buffer.data(), size, FALSE));
        ASSERT_LT(++packets, 100);
    }
    EXPECT_EQ(768, nextRow);
    EXPECT_GE(packets, 2);  // 1.5 MB of rows do not fit one packet
    EXPECT_TRUE(CurrentImage(render_.Get()) == CurrentImage(second.Get()));
    // After the last band S_FALSE stays until a new first call; the packet still names the
    // desktop, its length and band stay as they were.
    size = 0xdeadbeef;
    std::fill(buffer.begin(), buffer.begin() + 48, BYTE{0xAB});
    EXPECT_EQ(S_FALSE, frames->GetFullScreenData(buffer.data(), &size, FALSE));
    EXPECT_EQ(0xdeadbeefu, size);
    std::vector<uint32_t> words(9);
    for (size_t i = 0; i < words.size(); ++i)
        words[i] = packet::LoadU32(&buffer[4 * i]);
    EXPECT_EQ((std::vector<uint32_t>{packet::kFrameMagic, 0xABABABAB, 0, 0, 0, 1024, 768, 16,
                                     0xABABABAB}),
              words);
    // Uncompressed: bottom row first, whole rows only.
    size = 2048 * 3 + 100;
    ASSERT_EQ(S_OK, frames->GetFullScreenDataUncompressed(buffer.data(), &size));
    EXPECT_EQ(2048u * 3, size);
    size = 0x180000;
    ASSERT_EQ(S_OK, frames->GetFullScreenDataUncompressed(buffer.data(), &size));
    ASSERT_EQ(0x180000u, size);
    const std::vector<BYTE> top = desk.Rows({0, 0, 1024, 1});
    EXPECT_TRUE(std::equal(top.begin(), top.end(), buffer.begin() + 2048 * 767));
}

TEST_F(RenderTest, DrainGetsCopiesOfExactlyTheInputMessages) {
    HostWindow drain;
    ASSERT_EQ(S_OK, render_->SetMessageDrainWindow(drain.Handle()));
    std::vector<UINT> want;
    for (UINT m = 0x7A; m <= 0x210; m = m == 0x7C ? 0xF0 : m == 0x110 ? 0x1F0 : m + 1) {
        if ((m >= 0x100 && m <= 0x108) || (m >= 0x200 && m <= 0x209) || m == 0x7B)
            want.push_back(m);
        PostMessageA(RenderWindow(), m, 0, MAKELPARAM(5, 5));
    }
    PumpFor(50);
    ReleaseCapture();
    EXPECT_EQ(want, drain.Messages());
}

// The view rectangles answer as the scroll mode allows, and the client area shows on the screen
// (at 5-5-5) the part of the picture they name: 1:1, halved (each pixel one of the four it
// stands for, the margin in the background colour), and in follow mode the corner the pointer
// pulls the view to. A drag in scroll mode stops at the edges and the scroll bars follow it;
// outside scroll mode a drag does nothing at all.
TEST_F(RenderTest, ViewRectanglesDragAndScrollBarsFollowTheScrollMode) {
    HostWindow parent({0, 0, 400, 300}, true);
    ASSERT_EQ(S_OK, render_->SetParentWindow(parent.Handle()));
    ASSERT_EQ(S_OK, render_->SetWindowPosition(0, 0, 400, 300));
    ASSERT_EQ(S_OK, render_->SetVisible(TRUE));
    const HWND w = RenderWindow();
    EXPECT_EQ(S_FALSE, render_->SetSourcePosition(1, 2, 3, 4));  // follow mode, the default
    ClearCodes();
    ASSERT_EQ(S_OK, render_->SetScrollMode(1));
    EXPECT_EQ(std::vector<WPARAM>{RN_VIEWCHANGED}, Codes({RN_VIEWCHANGED}));
    ASSERT_EQ(S_OK, render_->SetScrollMode(0));

    // The outer size that shows the picture 1:1 in the current style; 0 without a picture.
    long iw = 0xdeadbeef, ih = 0xdeadbeef;
    ASSERT_EQ(S_OK, render_->GetIdelWindowSize(&iw, &ih));
    EXPECT_EQ(RECT({0, 0, 0, 0}), RECT({0, 0, iw, ih}));
    PacketSource desk(codec_.Get(), 1024, 768, 5);
    Feed(desk);
    RECT outer{0, 0, 1024, 768};
    AdjustWindowRectEx(&outer, static_cast<DWORD>(GetWindowLongA(w, GWL_STYLE)), FALSE,
                       static_cast<DWORD>(GetWindowLongA(w, GWL_EXSTYLE)));
    ASSERT_EQ(S_OK, render_->GetIdelWindowSize(&iw, &ih));
    EXPECT_EQ(RECT({0, 0, outer.right - outer.left, outer.bottom - outer.top}),
              RECT({0, 0, iw, ih}));

    const std::vector<BYTE> rows = desk.Rows();
    auto at = [&](LONG x, LONG y) { return packet::LoadU16(&rows[2 * (y * 1024 + x)]); };
    // The client pixels that do not fit, once the screen has caught up or the patience ran out.
    auto misfits = [&](const std::function<bool(LONG, LONG, uint16_t)>& fits) {
        long wrong = -1;
        WaitUntil([&] {
            const std::vector<uint32_t> shot = GrabScreen32({0, 0, 400, 300});
            wrong = 0;
            for (LONG y = 0; y < 300; ++y)
                for (LONG x = 0; x < 400; ++x)
                    wrong += !fits(x, y, To555(shot[y * 400 + x]));
            return wrong == 0;
        });
        return wrong;
    };
    long l = 0xdeadbeef, t = 0xdeadbeef, r = 0xdeadbeef, b = 0xdeadbeef;
    auto source = [&] {
        EXPECT_EQ(S_OK, render_->GetSourcePosition(&l, &t, &r, &b));
        return RECT{l, t, r, b};
    };
    EXPECT_EQ(S_OK, render_->SetSourcePosition(560, 380, 960, 680));
    EXPECT_EQ(S_FALSE, render_->IsUsingDefaultSource());
    EXPECT_EQ(RECT({560, 380, 960, 680}), source());
    EXPECT_EQ(0, misfits([&](LONG x, LONG y, uint16_t px) { return px == at(560 + x, 380 + y); }));
    ASSERT_EQ(S_OK, render_->SetDestinationPosition(0, 0, 200, 150));
    ASSERT_EQ(S_OK, render_->GetDestinationPosition(&l, &t, &r, &b));  // repaints
    EXPECT_EQ(0, misfits([&](LONG x, LONG y, uint16_t px) {
                  if (x >= 200 || y >= 150)
                      return px == To555(0x008080);
                  for (int d = 0; d < 4; ++d)
                      if (px == at(560 + 2 * x + d % 2, 380 + 2 * y + d / 2))
                          return true;
                  return false;
              }));
    EXPECT_EQ(S_OK, render_->SetDefaultDestinationPosition());
    EXPECT_EQ(S_OK, render_->SetDefaultSourcePosition());
    EXPECT_EQ(S_OK, render_->IsUsingDefaultSource());

    ASSERT_EQ(S_OK, render_->SetScrollMode(2));
    auto drag = [&](POINT from, POINT to) {
        SendMessageA(w, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(from.x, from.y));
        SendMessageA(w, WM_MOUSEMOVE, MK_LBUTTON, MAKELPARAM(to.x, to.y));
        SendMessageA(w, WM_LBUTTONUP, 0, MAKELPARAM(to.x, to.y));
    };
    auto bars = [&] { return GetWindowLongA(w, GWL_STYLE) & (WS_HSCROLL | WS_VSCROLL); };
    EXPECT_EQ(RECT({0, 0, 400, 300}), source());
    drag({390, 290}, {-400, -400});  // the picture follows the mouse, up to the edge
    EXPECT_EQ(RECT({624, 468, 1024, 768}), source());
    EXPECT_EQ(0, bars());
    ASSERT_EQ(S_OK, render_->EnableDragMove(FALSE));
    drag({10, 10}, {390, 290});  // enabled, this would move the view up and left
    EXPECT_EQ(RECT({624, 468, 1024, 768}), source());
    EXPECT_NE(w, GetCapture());
    ASSERT_EQ(S_OK, render_->EnableDragMove(TRUE));

    // Scroll bars: range 0..1024, a page of the client width. (The requests: ViewGeometry.)
    ASSERT_EQ(S_OK, render_->ShowScrollBar(TRUE));
    PumpFor(30);
    ASSERT_EQ(static_cast<LONG>(WS_HSCROLL | WS_VSCROLL), bars());
    RECT client;
    GetClientRect(w, &client);
    SCROLLINFO si{};
    si.cbSize = sizeof si;
    si.fMask = SIF_ALL;
    ASSERT_TRUE(GetScrollInfo(w, SB_HORZ, &si));
    EXPECT_EQ(RECT({0, 1024, static_cast<LONG>(client.right), 0}),
              RECT({si.nMin, si.nMax, static_cast<LONG>(si.nPage), 0}));
    SendMessageA(w, WM_VSCROLL, MAKEWPARAM(SB_THUMBTRACK, 100), 0);
    EXPECT_EQ(100, source().top);

    // Follow mode takes the bars away; a drag there neither moves the view nor reports it.
    ASSERT_EQ(S_OK, render_->SetScrollMode(1));
    EXPECT_EQ(0, bars());
    const RECT follow = source();
    ClearCodes();
    drag({200, 150}, {100, 100});
    EXPECT_EQ(follow, source());
    EXPECT_EQ(std::vector<WPARAM>(), Codes({RN_VIEWCHANGED}));
    std::vector<BYTE> cursor = desk.CursorPacket(packet::kCursorNewPosition, 1005, 745);
    EXPECT_EQ(S_OK, transmitter_->Transfer(cursor.data(), static_cast<ULONG>(cursor.size()), 0));
    EXPECT_TRUE(WaitUntil([&] { return source() == RECT{624, 468, 1024, 768}; })) << source();
    // Around the pointer the render may draw it.
    EXPECT_EQ(0, misfits([&](LONG x, LONG y, uint16_t px) {
                  return (x >= 360 && y >= 260) || px == at(624 + x, 468 + y);
              }));
    render_->SetParentWindow(nullptr);
}

// Who moves the drawn pointer in each mode: ViewGeometry; here that the render asks it.
TEST_F(RenderTest, CursorMoveModesDecideWhoMovesTheDrawnPointer) {
    PacketSource desk(codec_.Get(), 1024, 768, 5);
    Feed(desk);
    ASSERT_EQ(S_OK, render_->SetScrollMode(0));  // the whole desktop over the client area
    ASSERT_EQ(S_OK, render_->SetWindowPosition(0, 0, 512, 384));
    auto pointerAt = [&](int x, int y) {
        const std::vector<BYTE> pic = CurrentImage(render_.Get());
        return packet::LoadU16(&pic[40 + (y + 4) * 2048 + 2 * (x + 4)]) == 0x7C00;
    };
    auto stream = [&](uint32_t flags, int x, int y) {
        std::vector<BYTE> p = desk.CursorPacket(flags, x, y);
        transmitter_->Transfer(p.data(), static_cast<ULONG>(p.size()), FALSE);
    };
    auto local = [&](int x, int y) {
        SendMessageA(RenderWindow(), WM_MOUSEMOVE, 0, MAKELPARAM(x, y));
    };
    stream(packet::kCursorNewShape | packet::kCursorNewPosition, 100, 100);
    EXPECT_TRUE(pointerAt(100, 100));  // CMM_REMOTE, the default: the stream moves it
    local(300, 300);
    EXPECT_TRUE(pointerAt(100, 100));                   // ... and the local mouse does not
    ASSERT_EQ(S_OK, render_->SetCursorMoveMode(0, 0));  // CMM_LOCAL
    local(300, 300);                                    // client to desktop: twice
    EXPECT_TRUE(pointerAt(600, 600));
    stream(packet::kCursorNewPosition, 200, 200);
    EXPECT_TRUE(pointerAt(600, 600));
}

// An 8-bit stream brings a palette with every band: the decoding thread replaces it while this
// thread paints, and neither waits for the other for long.
TEST_F(RenderTest, PaletteStreamPaintsWhileAnotherThreadDecodes) {
    ASSERT_EQ(S_OK, render_->SetParentWindow(host_.Handle()));
    ASSERT_EQ(S_OK, render_->SetWindowPosition(0, 0, 256, 128));
    ASSERT_EQ(S_OK, render_->SetVisible(TRUE));
    ShowWindow(host_.Handle(), SW_SHOWNOACTIVATE);
    PacketSource desk(codec_.Get(), 256, 128, 9, 8);
    ASSERT_EQ(S_OK, desk.Register(transmitter_.Get()));
    std::atomic<bool> stop{false};
    std::thread sender([&] {
        while (!stop)
            for (LONG top = 0; top < 128; top += 32)
                desk.Send({0, top, 256, top + 32});
    });
    const DWORD start = GetTickCount();
    // One message at a time: the stream keeps the window invalid, so a queue is never empty.
    while (GetTickCount() - start < 500) {
        InvalidateRect(RenderWindow(), nullptr, FALSE);
        UpdateWindow(RenderWindow());
        MSG msg;
        if (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE))
            DispatchMessageA(&msg);
    }
    stop = true;
    sender.join();
    desk.Unregister(transmitter_.Get());
    const std::vector<BYTE> picture = CurrentImage(render_.Get());
    ASSERT_EQ(40u + 1024u + 256u * 128u, picture.size());  // header, colour table, rows
    EXPECT_EQ(desk.Rows({0, 0, 256, 128}),
              std::vector<BYTE>(picture.begin() + 1064, picture.end()));
    render_->SetParentWindow(nullptr);
}

// The apartment's own thread keeps pumping while another thread lets go of the render, as a
// source's worker does after Unregister.
TEST_F(RenderTest, ReleasedOnAnotherThreadTheWindowClosesOnItsOwnThread) {
    PacketSource desk(codec_.Get(), 320, 240, 5);
    Feed(desk);
    const HWND w = RenderWindow();
    ASSERT_EQ(S_OK, render_->SetParentWindow(host_.Handle()));
    IDataTransmitter* last = transmitter_.Get();
    last->AddRef();
    transmitter_.Reset();
    render_.Reset();
    struct Worker {
        static unsigned __stdcall Release(void* p) {
            static_cast<IDataTransmitter*>(p)->Release();
            return 0;
        }
    };
    const UniqueHandle worker(
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, Worker::Release, last, 0, nullptr)));
    ASSERT_TRUE(worker);
    // The worker must not wait for this thread, which is not pumping yet. Until the window has
    // closed, the library that holds its procedure stays loaded.
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(worker.get(), kPatience));
    using CanUnload = HRESULT(STDAPICALLTYPE*)();
    const auto canUnload = reinterpret_cast<CanUnload>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleA("Vantrel.dll"), "DllCanUnloadNow")));
    ASSERT_TRUE(canUnload);
    EXPECT_TRUE(IsWindow(w));
    EXPECT_EQ(S_FALSE, canUnload());
    EXPECT_TRUE(WaitUntil([&] { return !IsWindow(w); })) << "the render window stayed";
    EXPECT_EQ(nullptr, FindWindowExA(host_.Handle(), nullptr, nullptr, nullptr));
    EXPECT_EQ(S_OK, canUnload());
}

}  // namespace
}  // namespace vantrel::test
