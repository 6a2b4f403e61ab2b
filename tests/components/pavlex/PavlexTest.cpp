// Pavlex.dll through its exports, the way the capture thread uses it, on the virtual display:
// what this test draws must come back as covering rectangles, pointer moves and shapes as
// cursor records, and calls out of order must fail without harm.
#include <windows.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "common/Screen.h"
#include "contracts/Pavlex.h"
#include "wincom/UniqueHandle.h"
#include "stream/Packet.h"

using namespace vantrel;
using test::PaintedWindow;
using test::PumpMessages;

namespace {

constexpr DWORD kPatience = 5000;  // ms; generous, the machine is shared

// Waits on event, pumping messages; resets it as the capture does.
bool WaitAndReset(HANDLE event, DWORD timeout) {
    const DWORD start = GetTickCount();
    for (DWORD elapsed = 0; elapsed < timeout; elapsed = GetTickCount() - start) {
        PumpMessages();
        if (MsgWaitForMultipleObjects(1, &event, FALSE, timeout - elapsed, QS_ALLINPUT) ==
            WAIT_OBJECT_0)
            return ResetEvent(event) != FALSE;
    }
    return false;
}

// Every area lies inside the union of rects.
bool Covers(const std::vector<RECT>& rects, const std::vector<RECT>& areas) {
    UniqueRgn all(CreateRectRgn(0, 0, 0, 0)), rest(CreateRectRgn(0, 0, 0, 0));
    for (const RECT& r : rects) {
        UniqueRgn one(CreateRectRgnIndirect(&r));
        CombineRgn(all.get(), all.get(), one.get(), RGN_OR);
    }
    return std::all_of(areas.begin(), areas.end(), [&](const RECT& a) {
        UniqueRgn area(CreateRectRgnIndirect(&a));
        return CombineRgn(rest.get(), area.get(), all.get(), RGN_DIFF) == NULLREGION;
    });
}

int ThreadCount() {
    UniqueFile snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL more = Thread32First(snapshot.get(), &entry); more;
         more = Thread32Next(snapshot.get(), &entry))
        count += entry.th32OwnerProcessID == GetCurrentProcessId();
    return count;
}

// A topmost popup of one colour, with 4 x 4 white dots every 20 pixels when asked. A pointer
// window shows the cross over its left half and the arrow over its right half; only it is
// activated, because the platform reports the pointer of the foreground window's thread and,
// without a window manager, deactivating a window takes seconds.
class TestWindow {
  public:
    TestWindow(const RECT& r, COLORREF colour, bool pointerWindow = false)
        : colour_(colour),
          window_(
              r, [this](HDC dc, const RECT& client) { Paint(dc, client); }, pointerWindow) {
        if (pointerWindow)
            window_.SplitPointer();
        PumpMessages();
    }
    void repaint(COLORREF colour, bool dots = false) {
        colour_ = colour;
        dots_ = dots;
        window_.Repaint();
    }

  private:
    void Paint(HDC dc, const RECT& client) {
        UniqueBrush fill(CreateSolidBrush(colour_));
        FillRect(dc, &client, fill.get());
        for (int y = 0; dots_ && y < client.bottom; y += 20) {
            for (int x = 0; x < client.right; x += 20) {
                const RECT dot{x, y, x + 4, y + 4};
                FillRect(dc, &dot, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
            }
        }
    }

    COLORREF colour_;
    bool dots_ = false;
    PaintedWindow window_;
};

class PavlexCapture : public testing::Test {
  protected:
    void SetUp() override {
        SetCursorPos(1000, 740);  // out of the way of the windows drawn here
        ASSERT_TRUE(DispInitCapture());
        ASSERT_TRUE(DispRegisterCursorUpdate(&cursorEvent_, kPavlexCursorBufferSize));
        ASSERT_TRUE(DispRegisterScreenUpdate(&screenEvent_, kPavlexScreenBufferSize));
    }
    void TearDown() override {
        EXPECT_TRUE(DispUnRegisterScreenUpdate());
        EXPECT_TRUE(DispUnRegisterCursorUpdate());
        EXPECT_TRUE(DispDoneCapture());
    }

    // Fetches screen lists into rects_ until done() or the time runs out. Every list holds 1 to
    // 513 rectangles, all on the screen.
    bool CollectScreen(DWORD timeout, const std::function<bool()>& done) {
        const RECT screen{0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
        for (const DWORD start = GetTickCount(); GetTickCount() - start < timeout;) {
            PavlexScreenUpdate* update = nullptr;
            if (!WaitAndReset(screenEvent_, 50) || !DispGetScreenUpdate(&update)) {
                if (done())
                    return true;
                continue;
            }
            EXPECT_GE(update->count, 1u);
            EXPECT_LE(update->count, kPavlexMaxRects);
            for (DWORD i = 0; i < update->count; ++i) {
                RECT r = update->rects[i], clipped;
                EXPECT_TRUE(IntersectRect(&clipped, &r, &screen) && EqualRect(&clipped, &r));
                rects_.push_back(r);
            }
            lastList_ = GetTickCount();
        }
        return false;
    }
    // Drains lists until none has come for 400 ms; false when the screen never settles.
    bool Settle() {
        lastList_ = GetTickCount();
        const bool quiet =
            CollectScreen(kPatience, [&] { return GetTickCount() - lastList_ > 400; });
        rects_.clear();
        return quiet;
    }

    // The merged record pending now, copied into record_ and parsed as the receiver does.
    packet::CursorRecordView TakeRecord() {
        BYTE* record = nullptr;
        packet::CursorRecordView view;
        EXPECT_TRUE(DispGetCursorUpdate(&record));
        record_.assign(kPavlexCursorBufferSize, 0);
        if (record)
            record_.assign(record, record + kPavlexCursorBufferSize);
        EXPECT_EQ(packet::CursorError::None,
                  packet::ParseCursorRecord(record_.data(), kPavlexCursorBufferSize, &view));
        EXPECT_LE(packet::SenderCursorRecordLength(view.record), kPavlexCursorBufferSize);
        return view;
    }

    HANDLE cursorEvent_ = nullptr;
    HANDLE screenEvent_ = nullptr;
    std::vector<RECT> rects_;
    DWORD lastList_ = 0;
    std::vector<BYTE> record_;
};

// Draws icon at width x height on black and on white; both pictures.
std::vector<COLORREF> Render(HICON icon, int width, int height) {
    WindowDc screen(nullptr);
    UniqueHdc dc(CreateCompatibleDC(screen.get()));
    UniqueBitmap bitmap(CreateCompatibleBitmap(screen.get(), width, height));
    SelectObjectGuard select(dc.get(), bitmap.get());
    std::vector<COLORREF> pixels;
    for (int stock : {BLACK_BRUSH, WHITE_BRUSH}) {
        const RECT all{0, 0, width, height};
        FillRect(dc.get(), &all, static_cast<HBRUSH>(GetStockObject(stock)));
        DrawIconEx(dc.get(), 0, 0, icon, width, height, 0, nullptr, DI_NORMAL);
        for (int i = 0; i < width * height; ++i)
            pixels.push_back(GetPixel(dc.get(), i % width, i / width));
    }
    return pixels;
}

}  // namespace

TEST_F(PavlexCapture, RepaintedWindowIsCoveredByRectanglesNearItThenNothingComes) {
    const RECT area{120, 90, 320, 240};
    TestWindow window(area, RGB(200, 40, 120));
    ASSERT_TRUE(Settle()) << "the screen never became quiet";

    window.repaint(RGB(20, 180, 60));
    EXPECT_TRUE(CollectScreen(kPatience, [&] { return Covers(rects_, {area}); }));
    RECT nearby = area, outside;
    InflateRect(&nearby, 32, 32);
    for (const RECT& r : rects_)
        EXPECT_FALSE(SubtractRect(&outside, &r, &nearby));

    ASSERT_TRUE(Settle());
    EXPECT_FALSE(WaitAndReset(screenEvent_, 500));
    auto* update = reinterpret_cast<PavlexScreenUpdate*>(0xdeadbeef);
    EXPECT_FALSE(DispGetScreenUpdate(&update));
    EXPECT_EQ(reinterpret_cast<PavlexScreenUpdate*>(0xdeadbeef), update);
}

// The reference is read inside the registration, on the caller's thread: a change made as soon
// as it returns (the capture grabs its first picture then) is reported, whenever the detector's
// thread gets to run.
TEST_F(PavlexCapture, ChangeRightAfterRegistrationIsReported) {
    const RECT area{400, 300, 560, 420};
    TestWindow window(area, RGB(10, 90, 200));
    for (COLORREF colour : {RGB(240, 200, 10), RGB(30, 160, 90), RGB(150, 20, 20)}) {
        ASSERT_TRUE(Settle());
        ASSERT_TRUE(DispUnRegisterScreenUpdate());
        ASSERT_TRUE(DispRegisterScreenUpdate(&screenEvent_, kPavlexScreenBufferSize));
        window.repaint(colour);
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 0, QS_ALLINPUT);  // puts it on the screen
        EXPECT_TRUE(CollectScreen(kPatience, [&] { return Covers(rects_, {area}); }));
    }
}

TEST_F(PavlexCapture, ScatteredDotsComeInListsOfAtMost513ThatCoverEveryDot) {
    const RECT screen{0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
    TestWindow window(screen, RGB(0, 0, 0));
    ASSERT_TRUE(Settle());
    std::vector<RECT> dots;
    for (LONG y = 0; y < screen.bottom; y += 20) {
        for (LONG x = 0; x < screen.right; x += 20)
            dots.push_back(RECT{x, y, x + 4, y + 4});
    }
    window.repaint(RGB(0, 0, 0), true);
    EXPECT_TRUE(CollectScreen(kPatience, [&] { return Covers(rects_, dots); }));
}

TEST_F(PavlexCapture, PointerMovesBecomePositionRecords) {
    // The first record after registration carries the current shape and position.
    ASSERT_TRUE(WaitAndReset(cursorEvent_, kPatience));
    const packet::CursorRecordView first = TakeRecord();
    EXPECT_TRUE(first.newShape && first.newPosition);
    EXPECT_EQ(1000, first.record.x);
    EXPECT_EQ(740, first.record.y);
    for (POINT target : {POINT{300, 200}, POINT{301, 420}, POINT{0, 0}}) {
        SetCursorPos(target.x, target.y);
        ASSERT_TRUE(WaitAndReset(cursorEvent_, kPatience));
        const packet::CursorRecordView view = TakeRecord();
        EXPECT_EQ(packet::kCursorNewPosition, view.record.flags);
        EXPECT_EQ(target.x, view.record.x);
        EXPECT_EQ(target.y, view.record.y);
    }
}

TEST_F(PavlexCapture, ShapeUnderThePointerBecomesAShapeRecordThatDrawsTheSame) {
    TestWindow window(RECT{100, 100, 500, 300}, RGB(200, 40, 120), true);
    std::vector<std::uint8_t> shapes[2];
    for (int i = 0; i < 2; ++i) {
        HCURSOR expected = LoadCursorA(nullptr, i == 0 ? IDC_CROSS : IDC_ARROW);
        const LONG x = i == 0 ? 150 : 450;
        SetCursorPos(x, 200);
        CURSORINFO info{};
        info.cbSize = sizeof info;
        for (const DWORD start = GetTickCount(); GetCursorInfo(&info) && info.hCursor != expected &&
                                                 GetTickCount() - start < kPatience;)
            WaitAndReset(cursorEvent_, 20);
        ASSERT_EQ(expected, info.hCursor) << "the platform never showed the shape";
        // The poll that reports this move sees the shape too: the last shape up to it is the one.
        SetCursorPos(x + 1, 200);
        std::vector<BYTE> shaped;
        LONG seen = -1;
        for (const DWORD start = GetTickCount();
             seen != x + 1 && GetTickCount() - start < kPatience;) {
            if (!WaitAndReset(cursorEvent_, 50))
                continue;
            const packet::CursorRecordView view = TakeRecord();
            seen = view.record.x;
            if (view.newShape)
                shaped = record_;
        }
        ASSERT_EQ(x + 1, seen);
        ASSERT_FALSE(shaped.empty());
        packet::CursorRecordView view;
        ASSERT_EQ(packet::CursorError::None,
                  packet::ParseCursorRecord(shaped.data(), kPavlexCursorBufferSize, &view));
        shapes[i].assign(view.shape, view.xorBits + view.xorBitsSize);

        // The receiver's way: CreateIcon from the record, XOR bits right after the mask.
        UniqueIcon icon(CreateIcon(nullptr, view.record.width, view.record.height, 1,
                                   view.record.bitsPerPixel, view.andMask, view.xorBits));
        ASSERT_TRUE(icon);
        ICONINFO original{};
        ASSERT_TRUE(GetIconInfo(expected, &original));
        UniqueBitmap mask(original.hbmMask), colour(original.hbmColor);
        BITMAP bm{};
        GetObjectA(mask.get(), sizeof bm, &bm);
        const int height = colour ? bm.bmHeight : bm.bmHeight / 2;
        // Unless it had to be scaled, it must draw pixel for pixel the same.
        if (bm.bmWidth == view.record.width && height == view.record.height) {
            EXPECT_EQ(original.xHotspot, view.record.hotSpotX);
            EXPECT_EQ(original.yHotspot, view.record.hotSpotY);
            EXPECT_TRUE(Render(expected, bm.bmWidth, height) ==
                        Render(icon.get(), bm.bmWidth, height));
        }
    }
    EXPECT_NE(shapes[0], shapes[1]);
}

// Every round: calls out of order fail and leave their outputs alone, and the detector thread is
// gone once nothing is registered. The first round ends with registrations still standing.
TEST(PavlexCalls, OutOfOrderCallsFailCleanlyAndCaptureRunsAgainAfterDone) {
    auto* record = reinterpret_cast<BYTE*>(0xdeadbeef);
    auto* update = reinterpret_cast<PavlexScreenUpdate*>(0xdeadbeef);
    auto* event = reinterpret_cast<HANDLE>(0xdeadbeef);
    auto nothingWorks = [&] {
        EXPECT_FALSE(DispGetCursorUpdate(&record));
        EXPECT_FALSE(DispGetScreenUpdate(&update));
        EXPECT_FALSE(DispRegisterCursorUpdate(&event, kPavlexCursorBufferSize));
        EXPECT_FALSE(DispRegisterScreenUpdate(&event, kPavlexScreenBufferSize));
        EXPECT_FALSE(DispUnRegisterScreenUpdate());
        EXPECT_FALSE(DispUnRegisterCursorUpdate());
        EXPECT_FALSE(DispCheckDisplayHook());
        EXPECT_FALSE(DispDoneCapture());
    };
    for (int round = 0; round < 3; ++round) {
        nothingWorks();
        ASSERT_TRUE(DispInitCapture()) << round;
        // Measured here: gtest starts a thread of its own at the first failure or trace.
        const int threadsBefore = ThreadCount();
        EXPECT_FALSE(DispInitCapture());
        EXPECT_FALSE(DispGetCursorUpdate(&record));
        EXPECT_FALSE(DispRegisterCursorUpdate(nullptr, kPavlexCursorBufferSize));
        EXPECT_FALSE(DispRegisterCursorUpdate(&event, kPavlexCursorBufferSize - 1));
        EXPECT_FALSE(DispRegisterScreenUpdate(&event, kPavlexScreenBufferSize - 1));
        HANDLE cursorEvent = nullptr, screenEvent = nullptr;
        ASSERT_TRUE(DispRegisterCursorUpdate(&cursorEvent, kPavlexCursorBufferSize));
        ASSERT_TRUE(DispRegisterScreenUpdate(&screenEvent, kPavlexScreenBufferSize));
        EXPECT_FALSE(DispRegisterCursorUpdate(&event, kPavlexCursorBufferSize));
        EXPECT_FALSE(DispRegisterScreenUpdate(&event, kPavlexScreenBufferSize));
        EXPECT_FALSE(DispGetCursorUpdate(nullptr));
        EXPECT_FALSE(DispGetScreenUpdate(nullptr));
        // A running detector reports the pointer as soon as it is registered.
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(cursorEvent, kPatience));
        BYTE* got = nullptr;
        EXPECT_TRUE(DispGetCursorUpdate(&got));
        EXPECT_FALSE(DispCheckDisplayHook());  // the display did not change
        if (round > 0) {
            EXPECT_TRUE(DispUnRegisterScreenUpdate());
            EXPECT_GT(ThreadCount(), threadsBefore) << round;
            EXPECT_TRUE(DispUnRegisterCursorUpdate());
            EXPECT_EQ(threadsBefore, ThreadCount()) << round;
        }
        EXPECT_TRUE(DispDoneCapture());
        EXPECT_EQ(threadsBefore, ThreadCount()) << round;
    }
    nothingWorks();
    EXPECT_EQ(reinterpret_cast<BYTE*>(0xdeadbeef), record);
    EXPECT_EQ(reinterpret_cast<PavlexScreenUpdate*>(0xdeadbeef), update);
    EXPECT_EQ(reinterpret_cast<HANDLE>(0xdeadbeef), event);
}
