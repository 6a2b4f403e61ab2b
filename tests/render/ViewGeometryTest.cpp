// The view geometry without a window: the layouts of the follow and scroll modes, the mappings
// between client and picture, the drag, the local mouse, the cursor move modes and the scroll
// bar requests, each as a table of worked cases.
#include <string>

#include "common/ScreenTestSupport.h"
#include "render/ViewGeometry.h"

namespace vantrel::view {
namespace {

TEST(ViewGeometry, FollowAndScrollLayouts) {
    const struct {
        SIZE client, image;
        POINT at;  // the current source's position; it has the client's size
        POINT cursor;
        RECT wantSource, wantDestination;
    } follow[] = {
        // A pointer past the right edge pulls the view along: 732 - 640 = 92.
        {{640, 480}, {1024, 768}, {0, 0}, {700, 100}, {92, 0, 732, 480}, {0, 0, 640, 480}},
        // Inside the margin the view stays where it is.
        {{640, 480}, {1024, 768}, {92, 100}, {400, 300}, {92, 100, 732, 580}, {0, 0, 640, 480}},
        // The far edge is a stop.
        {{640, 480}, {1024, 768}, {0, 0}, {1023, 767}, {384, 288, 1024, 768}, {0, 0, 640, 480}},
        // A desktop narrower than the client is centred: 800 in 1000 gives 100..900.
        {{1000, 480}, {800, 768}, {0, 0}, {700, 700}, {0, 252, 800, 732}, {100, 0, 900, 480}},
    };
    for (const auto& c : follow) {
        const RECT source{c.at.x, c.at.y, c.at.x + c.client.cx, c.at.y + c.client.cy};
        const Placement p = FollowLayout(c.client, c.image, source, c.cursor);
        EXPECT_EQ((std::pair{c.wantSource, c.wantDestination}),
                  (std::pair{p.source, p.destination}))
            << "cursor " << c.cursor.x << "," << c.cursor.y;
    }

    // Bars 17 pixels thick; "H", "V": the bars the window has, and the bars wanted.
    const struct {
        SIZE client, image;
        POINT at;  // the source's position
        const char* has;
        RECT wantSource, wantDestination;
        const char* need;
    } scroll[] = {
        // Smaller client: a 1:1 view at the source's corner.
        {{400, 300}, {1024, 768}, {100, 50}, "", {100, 50, 500, 350}, {0, 0, 400, 300}, "HV"},
        // A position past the end is pulled back so that the view stays whole.
        {{400, 300}, {1024, 768}, {900, 700}, "HV", {624, 468, 1024, 768}, {0, 0, 400, 300}, "HV"},
        // Both bars shown, but without them the picture fits: none is needed any more.
        {{1007, 751}, {1024, 768}, {0, 0}, "HV", {0, 0, 1024, 768}, {0, 0, 1024, 768}, ""},
        // Height short: the vertical bar keeps its room, which makes the width short too.
        {{1013, 760}, {1024, 768}, {0, 0}, "V", {0, 0, 1013, 760}, {0, 0, 1013, 760}, "HV"},
    };
    for (const auto& c : scroll) {
        const std::string has = c.has;
        const RECT client{0, 0, c.client.cx, c.client.cy};
        const RECT source{c.at.x, c.at.y, c.at.x + c.client.cx, c.at.y + c.client.cy};
        const ScrollPlacement p = ScrollLayout(client, c.image, source, has.find('H') != has.npos,
                                               has.find('V') != has.npos, {17, 17});
        SCOPED_TRACE(testing::Message() << "client " << client << " source " << source);
        EXPECT_EQ(c.need, std::string(p.needH ? "H" : "") + (p.needV ? "V" : ""));
        EXPECT_EQ(c.wantSource, p.source);
        EXPECT_EQ(c.wantDestination, p.destination);
    }
}

TEST(ViewGeometry, MappingsDragAndTheLocalMouse) {
    const struct {
        RECT in, S, D, toSource, toClient;
    } maps[] = {
        // 1:1 with offsets; the client rectangle lies outside the source when mapped back.
        {{10, 10, 50, 30}, {100, 200, 500, 500}, {0, 0, 400, 300}, {110, 210, 150, 230}, {}},
        // Halved: client 0..201 is picture 0..402, clipped to the 400-wide source.
        {{0, 0, 201, 101}, {0, 0, 400, 300}, {0, 0, 200, 150}, {0, 0, 400, 202}, {0, 0, 100, 50}},
        // A third, truncated toward zero: 10 / 3 = 3.33 gives 3.
        {{10, 10, 20, 20}, {0, 0, 100, 100}, {0, 0, 300, 300}, {3, 3, 6, 6}, {30, 30, 60, 60}},
    };
    for (const auto& c : maps) {
        EXPECT_EQ(c.toSource, ClientToSource(c.in, c.S, c.D)) << c.in;
        const RECT back = SourceToClient(c.in, c.S, c.D);
        EXPECT_TRUE(IsRectEmpty(&c.toClient) ? IsRectEmpty(&back) : c.toClient == back) << c.in;
    }

    // A drag moves the source against the mouse (its stop at the edges: the render tests).
    const RECT image{0, 0, 1024, 768};
    EXPECT_EQ(RECT({90, 80, 490, 380}), SpanSource({100, 100, 500, 400}, image, 10, 20));
    // The whole client area maps onto the view, whatever the destination, truncated; halving
    // with the default source: the render tests.
    POINT p{-1, -1};
    ASSERT_TRUE(LocalToDesktop({100, 50, 500, 350}, image, {0, 0, 800, 600}, 11, 11, &p));
    EXPECT_EQ(RECT({105, 55, 0, 0}), RECT({p.x, p.y, 0, 0}));
    EXPECT_FALSE(LocalToDesktop({}, image, {0, 0, 0, 0}, 5, 5, &p));  // no client area
}

TEST(ViewGeometry, CursorMoveModesAndScrollBarRequests) {
    const DWORD last = 0xFFFFF000;  // the switch time-out is counted across the tick wrap
    const struct {
        int mode;
        DWORD sinceLocal;
        bool local, stream;
    } modes[] = {
        {CMM_LOCAL, 5000, true, false},
        {CMM_REMOTE, 0, false, true},
        {CMM_SWITCH, 2000, true, false},  // the time-out itself still holds
        {CMM_SWITCH, 2500, true, true},   // 2500 ms after: drawn
        {7, 0, true, true},               // any other mode: both, no time-out
    };
    for (const auto& c : modes) {
        EXPECT_EQ(c.local, LocalMovesPointer(c.mode)) << c.mode;
        EXPECT_EQ(c.stream, StreamMovesPointer(c.mode, last + c.sinceLocal, last, 2000))
            << c.mode << " after " << c.sinceLocal;
    }

    const int min = 0, limit = 624, page = 400;
    const struct {
        int code, pos, thumb, want;
    } requests[] = {
        {SB_LINERIGHT, min, 0, 1},        // at the minimum a line right moves one step
        {SB_LINERIGHT, limit, 0, limit},  // at the limit nothing
        {SB_PAGERIGHT, 300, 0, limit},    // 700 clamped
        {SB_PAGELEFT, 300, 0, min},      {SB_THUMBPOSITION, 5, 322, 322},
        {SB_LEFT, 300, 0, min},          {SB_ENDSCROLL, 300, 0, 300},
    };
    for (const auto& c : requests)
        EXPECT_EQ(c.want, ScrollRequest(c.code, c.pos, min, limit, page, c.thumb))
            << "code " << c.code << " at " << c.pos;
}

}  // namespace
}  // namespace vantrel::view
