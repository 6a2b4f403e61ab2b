// Pavlex.dll through its exports, the way the capture thread uses it, on the virtual display:
// the pointer comes back as cursor records, and calls out of order fail without harm. That the
// screen lists cover every change, the capture tests show by decoding the stream.
#include <windows.h>
#include <tlhelp32.h>

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
        SetCursorPos(1000, 740);
        ASSERT_TRUE(DispInitCapture());
        ASSERT_TRUE(DispRegisterCursorUpdate(&cursorEvent_, kPavlexCursorBufferSize));
        ASSERT_TRUE(DispRegisterScreenUpdate(&screenEvent_, kPavlexScreenBufferSize));
    }
    void TearDown() override {
        EXPECT_TRUE(DispUnRegisterScreenUpdate());
        EXPECT_TRUE(DispUnRegisterCursorUpdate());
        EXPECT_TRUE(DispDoneCapture());
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
    std::vector<BYTE> record_;
};

}  // namespace

// The first record after registration carries the current shape and position; a move, the
// position alone. Over a window that shows the cross, the record that reports a move carries the
// cross, which draws as the pointer does (that shapes reach the stream, the capture tests show).
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

    // The platform reports the pointer of the foreground window's thread: the window is activated.
    PaintedWindow window(
        RECT{100, 100, 500, 300}, [](HDC, const RECT&) {}, true);
    window.SplitPointer();
    PumpMessages();
    const HCURSOR cross = LoadCursorA(nullptr, IDC_CROSS);
    SetCursorPos(150, 200);
    CURSORINFO info{};
    info.cbSize = sizeof info;
    ASSERT_TRUE(WaitUntil([&] {
        WaitAndReset(cursorEvent_, 0);
        return GetCursorInfo(&info) && info.hCursor == cross;
    })) << "the platform never showed the shape";
    // The poll that reports this move sees the shape too: the last shape up to it is the one.
    SetCursorPos(151, 200);
    std::vector<BYTE> shaped;
    ASSERT_TRUE(WaitUntil([&] {
        if (!WaitAndReset(cursorEvent_, 0))
            return false;
        const packet::CursorRecordView view = TakeRecord();
        if (view.newShape)
            shaped = record_;
        return view.record.x == 151;
    }));
    ASSERT_FALSE(shaped.empty());
    const packet::CursorRecordView view = ViewOf(shaped);
    // The receiver's way: CreateIcon from the record, XOR bits right after the mask.
    UniqueIcon icon(CreateIcon(nullptr, view.record.width, view.record.height, 1,
                               view.record.bitsPerPixel, view.andMask, view.xorBits));
    ASSERT_TRUE(icon);
    ICONINFO original{};
    ASSERT_TRUE(GetIconInfo(cross, &original));
    UniqueBitmap mask(original.hbmMask), colourBits(original.hbmColor);
    BITMAP bm{};
    GetObjectA(mask.get(), sizeof bm, &bm);
    const int height = colourBits ? bm.bmHeight : bm.bmHeight / 2;
    // Unless it had to be scaled, it must draw pixel for pixel the same.
    if (bm.bmWidth == view.record.width && height == view.record.height) {
        EXPECT_EQ(original.xHotspot, view.record.hotSpotX);
        EXPECT_EQ(original.yHotspot, view.record.hotSpotY);
        EXPECT_TRUE(Render(cross, bm.bmWidth, height) == Render(icon.get(), bm.bmWidth, height));
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
