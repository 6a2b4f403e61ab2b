// The view geometry without a window: the layouts of the three scroll modes, the mappings
// between client and picture, the drag, the local mouse, the cursor move modes and the scroll
// bar requests, each as a table of worked cases.
#include <windows.h>

#include <ostream>

#include <gtest/gtest.h>

#include "render/ViewGeometry.h"

inline bool operator==(const RECT& a, const RECT& b) {
    return EqualRect(&a, &b) != FALSE;
}
inline std::ostream& operator<<(std::ostream& os, const RECT& r) {
    return os << "{" << r.left << "," << r.top << "," << r.right << "," << r.bottom << "}";
}

namespace vantrel::view {
namespace {

TEST(ViewGeometry, FollowPansToKeepThePointerInsideAndCentresSmallAxes) {
    const struct {
        SIZE client, image;
        RECT source, destination;
        POINT cursor;
        RECT wantSource, wantDestination;
    } cases[] = {
        // A pointer past the right edge pulls the view along: 732 - 640 = 92.
        {{640, 480},
         {1024, 768},
         {0, 0, 640, 480},
         {},
         {700, 100},
         {92, 0, 732, 480},
         {0, 0, 640, 480}},
        // Back to the left: L = 20 - 32 = -12, clamped to 0.
        {{640, 480},
         {1024, 768},
         {92, 0, 732, 480},
         {},
         {20, 100},
         {0, 0, 640, 480},
         {0, 0, 640, 480}},
        // Inside the margin the view stays where it is.
        {{640, 480},
         {1024, 768},
         {92, 100, 732, 580},
         {},
         {400, 300},
         {92, 100, 732, 580},
         {0, 0, 640, 480}},
        // The far edge is a stop: a pointer at the bottom-right corner shows the last pixels.
        {{640, 480},
         {1024, 768},
         {0, 0, 640, 480},
         {},
         {1023, 767},
         {384, 288, 1024, 768},
         {0, 0, 640, 480}},
        // A desktop narrower than the client is centred: 800 in 1000 gives 100..900.
        {{1000, 480}, {800, 768}, {}, {}, {700, 700}, {0, 252, 800, 732}, {100, 0, 900, 480}},
        // Both axes smaller: whole and centred, odd margins rounded down.
        {{1001, 801}, {800, 600}, {}, {}, {0, 0}, {0, 0, 800, 600}, {100, 100, 900, 700}},
    };
    for (const auto& c : cases) {
        const Placement p = FollowLayout(c.client, c.image, c.source, c.destination, c.cursor);
        EXPECT_EQ(c.wantSource, p.source) << "cursor " << c.cursor.x << "," << c.cursor.y;
        EXPECT_EQ(c.wantDestination, p.destination) << "cursor " << c.cursor.x << "," << c.cursor.y;
    }
}

TEST(ViewGeometry, ScrollKeepsItsPositionInsideThePictureAndJudgesBarsWithoutThem) {
    const SIZE bars{17, 17};
    const struct {
        RECT client;
        SIZE image;
        RECT source;
        bool hasH, hasV;
        RECT wantSource, wantDestination;
        bool needH, needV;
    } cases[] = {
        // Smaller client: a 1:1 view at the source's corner.
        {{0, 0, 400, 300},
         {1024, 768},
         {100, 50, 500, 350},
         false,
         false,
         {100, 50, 500, 350},
         {0, 0, 400, 300},
         true,
         true},
        // A position past the end is pulled back so that the view stays whole.
        {{0, 0, 400, 300},
         {1024, 768},
         {900, 700, 1300, 1000},
         true,
         true,
         {624, 468, 1024, 768},
         {0, 0, 400, 300},
         true,
         true},
        // Both bars shown, but without them the client would hold the whole picture: none is
        // needed any more.
        {{0, 0, 1007, 751},
         {1024, 768},
         {},
         true,
         true,
         {0, 0, 1024, 768},
         {0, 0, 1024, 768},
         false,
         false},
        // Height short: the vertical bar keeps its room, which makes the width short too.
        {{0, 0, 1013, 760},
         {1024, 768},
         {},
         false,
         true,
         {0, 0, 1013, 760},
         {0, 0, 1013, 760},
         true,
         true},
        // Everything fits: centred on both axes (800 in 1000 gives 100..900).
        {{0, 0, 1000, 700},
         {800, 600},
         {},
         false,
         false,
         {0, 0, 800, 600},
         {100, 50, 900, 650},
         false,
         false},
    };
    for (const auto& c : cases) {
        const ScrollPlacement p =
            ScrollLayout(c.client, c.image, c.source, {}, c.hasH, c.hasV, bars);
        SCOPED_TRACE(testing::Message() << "client " << c.client << " source " << c.source);
        EXPECT_EQ(c.needH, p.needH);
        EXPECT_EQ(c.needV, p.needV);
        EXPECT_EQ(c.wantSource, p.source);
        EXPECT_EQ(c.wantDestination, p.destination);
    }
}

TEST(ViewGeometry, DragStopsAtTheEdgesKeepingTheSourceSize) {
    const RECT image{0, 0, 1024, 768};
    const struct {
        RECT source;
        int dx, dy;
        RECT want;
    } cases[] = {
        {{100, 100, 500, 400}, 10, 20, {90, 80, 490, 380}},  // the picture follows the mouse
        {{100, 100, 500, 400}, 300, 300, {0, 0, 400, 300}},  // past the top-left edge
        {{100, 100, 500, 400}, -2000, -2000, {624, 468, 1024, 768}},  // past the bottom-right
        {{0, 0, 400, 300}, 0, 0, {0, 0, 400, 300}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.want, SpanSource(c.source, image, c.dx, c.dy)) << c.dx << "," << c.dy;
}

TEST(ViewGeometry, ClientAndPictureMapBothWaysTruncatingAndClipping) {
    const struct {
        RECT in, S, D, toSource, toClient;
    } cases[] = {
        // 1:1 with offsets.
        {{10, 10, 50, 30},
         {100, 200, 500, 500},
         {0, 0, 400, 300},
         {110, 210, 150, 230},
         {0, 0, 0, 0}},
        // Halved: client 0..201 is picture 0..402, clipped to the 400-wide source.
        {{0, 0, 201, 101}, {0, 0, 400, 300}, {0, 0, 200, 150}, {0, 0, 400, 202}, {0, 0, 100, 50}},
        // A third, truncated toward zero: 10 / 3 = 3.33 gives 3.
        {{10, 10, 20, 20}, {0, 0, 100, 100}, {0, 0, 300, 300}, {3, 3, 6, 6}, {30, 30, 60, 60}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.toSource, ClientToSource(c.in, c.S, c.D)) << c.in;
        if (!IsRectEmpty(&c.toClient)) {
            EXPECT_EQ(c.toClient, SourceToClient(c.in, c.S, c.D)) << c.in;
        }
    }
    // Out of the source nothing maps.
    const RECT outside = SourceToClient({0, 0, 50, 50}, {100, 100, 200, 200}, {0, 0, 100, 100});
    EXPECT_TRUE(IsRectEmpty(&outside));
}

TEST(ViewGeometry, TheLocalMouseMapsTheWholeClientOntoTheView) {
    const RECT image{0, 0, 1024, 768};
    const struct {
        RECT source, client;
        int x, y;
        POINT want;
    } cases[] = {
        {{}, {0, 0, 512, 384}, 100, 100, {200, 200}},                // default source, halved
        {{100, 50, 500, 350}, {0, 0, 400, 300}, 10, 20, {110, 70}},  // 1:1 scrolled
        {{100, 50, 500, 350}, {0, 0, 800, 600}, 11, 11, {105, 55}},  // truncated
    };
    for (const auto& c : cases) {
        POINT p{};
        ASSERT_TRUE(LocalToDesktop(c.source, image, c.client, c.x, c.y, &p));
        EXPECT_EQ(c.want.x, p.x);
        EXPECT_EQ(c.want.y, p.y);
    }
    POINT p{-1, -1};
    EXPECT_FALSE(LocalToDesktop({}, image, {0, 0, 0, 0}, 5, 5, &p));  // no client area
}

TEST(ViewGeometry, CursorMoveModesDecideWhoMovesThePointer) {
    const DWORD last = 0xFFFFF000;  // the switch time-out is counted across the tick wrap
    const struct {
        int mode;
        DWORD sinceLocal;
        bool local, stream;
    } cases[] = {
        {CMM_LOCAL, 5000, true, false},
        {CMM_REMOTE, 0, false, true},
        {CMM_SWITCH, 1500, true, false},  // 1500 ms after a local move: ignored
        {CMM_SWITCH, 2000, true, false},  // the time-out itself still holds
        {CMM_SWITCH, 2500, true, true},   // 2500 ms after: drawn
        {7, 0, true, true},               // any other mode: both, no time-out
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.local, LocalMovesPointer(c.mode)) << c.mode;
        EXPECT_EQ(c.stream, StreamMovesPointer(c.mode, last + c.sinceLocal, last, 2000))
            << c.mode << " after " << c.sinceLocal;
    }
}

TEST(ViewGeometry, ScrollBarRequestsStayBetweenMinimumAndLimit) {
    const int min = 0, limit = 624, page = 400;
    const struct {
        int code, pos, thumb, want;
    } cases[] = {
        {SB_LINERIGHT, min, 0, 1},        // at the minimum a line right moves one step
        {SB_LINERIGHT, limit, 0, limit},  // at the limit nothing
        {SB_LINELEFT, min, 0, min},      {SB_LINELEFT, 10, 0, 9},
        {SB_PAGERIGHT, 300, 0, limit},  // 700 clamped
        {SB_PAGERIGHT, 100, 0, 500},     {SB_PAGELEFT, 300, 0, min},
        {SB_THUMBTRACK, 5, 321, 321},    {SB_THUMBPOSITION, 5, 322, 322},
        {SB_LEFT, 300, 0, min},          {SB_RIGHT, 300, 0, limit},
        {SB_ENDSCROLL, 300, 0, 300},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.want, ScrollRequest(c.code, c.pos, min, limit, page, c.thumb))
            << "code " << c.code << " at " << c.pos;
}

}  // namespace
}  // namespace vantrel::view
