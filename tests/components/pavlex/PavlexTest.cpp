// Pavlex.dll through its exports, the way the capture thread uses it, on the virtual display:
// what this test draws must come back as covering rectangles, pointer moves and shapes as
// cursor records, and calls out of order must fail without harm.
#include <windows.h>
#include <tlhelp32.h>

#include <algorithm>
#include <vector>

#include "common/ScreenTestSupport.h"
#include "contracts/Pavlex.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

// Waits on event, pumping messages; resets it as the capture does.
bool WaitAndReset(HANDLE event, DWORD timeout, DWORD pollMs = 5) {
    return WaitUntil([&] { return WaitForSingleObject(event, 0) == WAIT_OBJECT_0; }, timeout,
                     pollMs) &&
           ResetEvent(event);
}

// area lies inside the union of rects.
bool Covers(const std::vector<RECT>& rects, const RECT& area) {
    UniqueRgn rest(CreateRectRgnIndirect(&area));
    for (const RECT& r : rects) {
        UniqueRgn one(CreateRectRgnIndirect(&r));
        CombineRgn(rest.get(), rest.get(), one.get(), RGN_DIFF);
    }
    RECT box;
    return GetRgnBox(rest.get(), &box) == NULLREGION;
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

PaintedWindow::Painter Fill(const COLORREF& colour) {
    return [&colour](HDC dc, const RECT& client) {
        UniqueBrush fill(CreateSolidBrush(colour));
        FillRect(dc, &client, fill.get());
    };
}

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

    // Fetches screen lists into rects_ until they cover area (or, without one, until none has
    // come for 400 ms) or the time runs out. Every list holds 1 to 513 rectangles, all on the
    // screen.
    bool Collect(const RECT* area) {
        const RECT screen{0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
        for (DWORD start = GetTickCount(), last = start; GetTickCount() - start < kPatience;) {
            PavlexScreenUpdate* update = nullptr;
            if (!WaitAndReset(screenEvent_, 50) || !DispGetScreenUpdate(&update)) {
                if (area ? Covers(rects_, *area) : GetTickCount() - last > 400)
                    return true;
                continue;
            }
            EXPECT_TRUE(update->count >= 1 && update->count <= kPavlexMaxRects) << update->count;
            for (const RECT& r : std::vector<RECT>(update->rects, update->rects + update->count)) {
                RECT clipped;
                EXPECT_TRUE(IntersectRect(&clipped, &r, &screen) && clipped == r) << r;
                rects_.push_back(r);
            }
            last = GetTickCount();
        }
        return false;
    }
    // Drains lists until none has come for 400 ms; false when the screen never settles.
    bool Settle() {
        const bool quiet = Collect(nullptr);
        rects_.clear();
        return quiet;
    }

    // The merged record pending now, copied into record_ and parsed as the receiver does.
    packet::CursorRecordView TakeRecord() {
        BYTE* record = nullptr;
        EXPECT_TRUE(DispGetCursorUpdate(&record));
        record_ = record ? std::vector<BYTE>(record, record + kPavlexCursorBufferSize)
                         : std::vector<BYTE>(kPavlexCursorBufferSize);
        const packet::CursorRecordView view = ViewOf(record_);
        EXPECT_LE(packet::SenderCursorRecordLength(view.record), kPavlexCursorBufferSize);
        return view;
    }

    HANDLE cursorEvent_ = nullptr;
    HANDLE screenEvent_ = nullptr;
    std::vector<RECT> rects_;
    std::vector<BYTE> record_;
};

}  // namespace

// A repaint comes back as rectangles near the window, then nothing comes. (That the rectangles
// cover every change on the whole screen, the capture tests show by decoding the stream.)
TEST_F(PavlexCapture, RepaintedWindowIsCoveredByRectanglesNearItThenNothingComes) {
    const RECT area{120, 90, 320, 240};
    COLORREF colour = RGB(200, 40, 120);
    PaintedWindow window(area, Fill(colour));
    PumpMessages();
    ASSERT_TRUE(Settle()) << "the screen never became quiet";
    colour = RGB(20, 180, 60);
    window.Repaint();
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 0, QS_ALLINPUT);  // puts it on the screen
    EXPECT_TRUE(Collect(&area));
    RECT nearby = area, outside;
    InflateRect(&nearby, 32, 32);
    for (const RECT& r : rects_)
        EXPECT_FALSE(SubtractRect(&outside, &r, &nearby)) << r;

    ASSERT_TRUE(Settle());
    EXPECT_FALSE(WaitAndReset(screenEvent_, 500));
    auto* update = reinterpret_cast<PavlexScreenUpdate*>(0xdeadbeef);
    EXPECT_FALSE(DispGetScreenUpdate(&update));
    EXPECT_EQ(reinterpret_cast<PavlexScreenUpdate*>(0xdeadbeef), update);
}

// The first record after registration carries the current shape and position; a move, the
// position alone. Over a window that shows the cross and the arrow, the record that reports a
// move carries the shape there, which draws as the pointer does (that moves and shapes reach
// the stream, the capture tests show).
TEST_F(PavlexCapture, PointerMovesAndShapesBecomeRecordsThatDrawTheSame) {
    ASSERT_TRUE(WaitAndReset(cursorEvent_, kPatience));
    const packet::CursorRecordView first = TakeRecord();
    EXPECT_TRUE(first.newShape && first.newPosition);
    EXPECT_EQ(1000, first.record.x);
    EXPECT_EQ(740, first.record.y);
    SetCursorPos(301, 420);
    ASSERT_TRUE(WaitAndReset(cursorEvent_, kPatience));
    const packet::CursorRecordView moved = TakeRecord();
    EXPECT_EQ(packet::kCursorNewPosition, moved.record.flags);
    EXPECT_EQ(301, moved.record.x);
    EXPECT_EQ(420, moved.record.y);
    // A pointer that has stood still for a while is read less often, but still followed.
    Sleep(1500);
    SetCursorPos(302, 421);
    ASSERT_TRUE(WaitAndReset(cursorEvent_, kPatience));
    EXPECT_EQ(302, TakeRecord().record.x);

    // Only this window is activated: the platform reports the pointer of the foreground
    // window's thread and, without a window manager, deactivating a window takes seconds.
    const COLORREF colour = RGB(200, 40, 120);
    PaintedWindow window(RECT{100, 100, 500, 300}, Fill(colour), true);
    window.SplitPointer();
    PumpMessages();
    for (int i = 0; i < 2; ++i) {
        HCURSOR expected = LoadCursorA(nullptr, i == 0 ? IDC_CROSS : IDC_ARROW);
        const LONG x = i == 0 ? 150 : 450;
        SetCursorPos(x, 200);
        CURSORINFO info{};
        info.cbSize = sizeof info;
        ASSERT_TRUE(WaitUntil([&] {
            WaitAndReset(cursorEvent_, 0);
            return GetCursorInfo(&info) && info.hCursor == expected;
        })) << "the platform never showed the shape";
        // The poll that reports this move sees the shape too: the last shape up to it is the one.
        SetCursorPos(x + 1, 200);
        std::vector<BYTE> shaped;
        ASSERT_TRUE(WaitUntil([&] {
            if (!WaitAndReset(cursorEvent_, 0))
                return false;
            const packet::CursorRecordView view = TakeRecord();
            if (view.newShape)
                shaped = record_;
            return view.record.x == x + 1;
        }));
        ASSERT_FALSE(shaped.empty());
        const packet::CursorRecordView view = ViewOf(shaped);

        // The receiver's way: CreateIcon from the record, XOR bits right after the mask.
        UniqueIcon icon(CreateIcon(nullptr, view.record.width, view.record.height, 1,
                                   view.record.bitsPerPixel, view.andMask, view.xorBits));
        ASSERT_TRUE(icon);
        ICONINFO original{};
        ASSERT_TRUE(GetIconInfo(expected, &original));
        UniqueBitmap mask(original.hbmMask), colourBits(original.hbmColor);
        BITMAP bm{};
        GetObjectA(mask.get(), sizeof bm, &bm);
        const int height = colourBits ? bm.bmHeight : bm.bmHeight / 2;
        // Unless it had to be scaled, it must draw pixel for pixel the same.
        if (bm.bmWidth == view.record.width && height == view.record.height) {
            EXPECT_EQ(original.xHotspot, view.record.hotSpotX);
            EXPECT_EQ(original.yHotspot, view.record.hotSpotY);
            EXPECT_TRUE(Render(expected, bm.bmWidth, height) ==
                        Render(icon.get(), bm.bmWidth, height));
        }
    }
}

// Every round: calls out of order fail and leave their outputs alone, and the detector thread is
// gone once nothing is registered. The first round ends with registrations still standing.
TEST(PavlexCalls, OutOfOrderCallsFailCleanlyAndCaptureRunsAgainAfterDone) {
    auto* record = reinterpret_cast<BYTE*>(0xdeadbeef);
    auto* update = reinterpret_cast<PavlexScreenUpdate*>(0xdeadbeef);
    auto* event = reinterpret_cast<HANDLE>(0xdeadbeef);
    auto nothingWorks = [&] {
        EXPECT_FALSE(DispGetCursorUpdate(&record) || DispGetScreenUpdate(&update) ||
                     DispRegisterCursorUpdate(&event, kPavlexCursorBufferSize) ||
                     DispRegisterScreenUpdate(&event, kPavlexScreenBufferSize) ||
                     DispUnRegisterScreenUpdate() || DispUnRegisterCursorUpdate() ||
                     DispCheckDisplayHook() || DispDoneCapture());
    };
    for (int round = 0; round < 3; ++round) {
        nothingWorks();
        ASSERT_TRUE(DispInitCapture()) << round;
        // Measured here: gtest starts a thread of its own at the first failure or trace.
        const int threadsBefore = ThreadCount();
        EXPECT_FALSE(DispInitCapture());
        EXPECT_FALSE(DispGetCursorUpdate(&record));
        EXPECT_FALSE(DispRegisterCursorUpdate(nullptr, kPavlexCursorBufferSize));
        EXPECT_FALSE(DispRegisterScreenUpdate(&event, kPavlexScreenBufferSize - 1));
        HANDLE cursorEvent = nullptr, screenEvent = nullptr;
        ASSERT_TRUE(DispRegisterCursorUpdate(&cursorEvent, kPavlexCursorBufferSize));
        ASSERT_TRUE(DispRegisterScreenUpdate(&screenEvent, kPavlexScreenBufferSize));
        EXPECT_FALSE(DispRegisterCursorUpdate(&event, kPavlexCursorBufferSize));
        EXPECT_FALSE(DispRegisterScreenUpdate(&event, kPavlexScreenBufferSize));
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
