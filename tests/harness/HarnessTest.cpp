// The assumptions every other test makes about the harness: a window drawn on the virtual
// display is seen by a GDI grab of the screen; two processes exchange multicast datagrams on
// loopback inside the private network; a Global\ section and event reach a second process.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <string>

#include <gtest/gtest.h>

#include "common/Screen.h"
#include "wincom/ChildProcess.h"
#include "wincom/KernelObjects.h"
#include "wincom/UniqueHandle.h"

using namespace vantrel;

namespace {

// Starts the peer with args.
ChildProcess StartPeer(const std::string& args) {
    ChildProcess peer;
    peer.Start("harness_peer.exe", args);
    return peer;
}

COLORREF ScreenPixel(int x, int y) {
    WindowDc screen(nullptr);
    UniqueHdc mem(CreateCompatibleDC(screen.get()));
    UniqueBitmap bmp(CreateCompatibleBitmap(screen.get(), 1, 1));
    SelectObjectGuard select(mem.get(), bmp.get());
    BitBlt(mem.get(), 0, 0, 1, 1, screen.get(), x, y, SRCCOPY);
    return GetPixel(mem.get(), 0, 0);
}

const COLORREF kPaint = RGB(200, 40, 120);

}  // namespace

TEST(Display, PaintedWindowIsSeenByScreenGrab) {
    test::PaintedWindow window(RECT{120, 90, 320, 240}, [](HDC dc, const RECT& client) {
        UniqueBrush brush(CreateSolidBrush(kPaint));
        FillRect(dc, &client, brush.get());
    });
    ASSERT_TRUE(window.IsOpen());

    COLORREF seen = 0;
    for (int i = 0; i < 100 && seen != kPaint; ++i) {
        test::PumpFor(20);
        seen = ScreenPixel(220, 165);
    }
    EXPECT_EQ(kPaint, seen);

    WindowDc screen(nullptr);
    EXPECT_GE(GetDeviceCaps(screen.get(), HORZRES), 640);
    EXPECT_TRUE(GetDeviceCaps(screen.get(), RASTERCAPS) & RC_BITBLT);
}

TEST(Network, MulticastDatagramCrossesProcesses) {
    WSADATA wsa;
    ASSERT_EQ(0, WSAStartup(MAKEWORD(2, 2), &wsa));
    SOCKET s = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    ASSERT_NE(INVALID_SOCKET, s);
    BOOL reuse = TRUE;
    setsockopt(s, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&reuse), sizeof reuse);
    const u_short port = static_cast<u_short>(40000 + GetCurrentProcessId() % 20000);
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = htons(port);
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    ASSERT_EQ(0, bind(s, reinterpret_cast<sockaddr*>(&any), sizeof any));
    ip_mreq join{};
    join.imr_multiaddr.s_addr = inet_addr("239.255.42.7");
    join.imr_interface.s_addr = inet_addr("127.0.0.1");
    ASSERT_EQ(0, setsockopt(s, IPPROTO_IP, IP_ADD_MEMBERSHIP, reinterpret_cast<const char*>(&join),
                            sizeof join));
    DWORD timeout = 5000;
    setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&timeout), sizeof timeout);

    ChildProcess peer =
        StartPeer("mcast-send 239.255.42.7 " + std::to_string(port) + " hello-class");
    ASSERT_TRUE(peer.Started());
    char buf[64] = {};
    sockaddr_in from{};
    int fromLen = sizeof from;
    const int n = recvfrom(s, buf, sizeof buf - 1, 0, reinterpret_cast<sockaddr*>(&from), &fromLen);
    ASSERT_GT(n, 0) << "WSA error " << WSAGetLastError();
    EXPECT_STREQ("hello-class", buf);
    EXPECT_EQ(inet_addr("127.0.0.1"), from.sin_addr.s_addr);
    EXPECT_EQ(0u, peer.Wait(20000));
    closesocket(s);
    WSACleanup();
}

TEST(NamedObjects, GlobalSectionAndEventReachSecondProcess) {
    const std::string name = "Global\\VantrelHarness" + std::to_string(GetCurrentProcessId());
    bool existed = true;
    UniqueMapping section = CreateNamedSection(name.c_str(), 4096, &existed);
    ASSERT_TRUE(section);
    EXPECT_FALSE(existed);
    UniqueViewOfFile view = MapWholeSection(section.get());
    ASSERT_TRUE(view);
    strcpy(static_cast<char*>(view.get()), "teacher");
    UniqueEvent done = CreateNamedEvent((name + ".Done").c_str(), true, false);
    ASSERT_TRUE(done);

    // A second create of the same name opens the existing object and says so.
    UniqueMapping again = CreateNamedSection(name.c_str(), 4096, &existed);
    EXPECT_TRUE(again);
    EXPECT_TRUE(existed);

    ChildProcess peer = StartPeer("ipc-reply " + name);
    ASSERT_TRUE(peer.Started());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(done.get(), 20000));
    EXPECT_STREQ("teacher seen", static_cast<const char*>(view.get()));
    EXPECT_EQ(0u, peer.Wait(20000));
}

TEST(NamedObjects, OpeningMissingObjectsFails) {
    EXPECT_FALSE(TryOpenNamedSection("Global\\VantrelNoSuchSection"));
    EXPECT_FALSE(TryOpenNamedEvent("Global\\VantrelNoSuchEvent"));
}
