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
#include "wincom/Socket.h"

using namespace vantrel;

TEST(Display, PaintedWindowIsSeenByScreenGrab) {
    test::PaintedWindow window(RECT{120, 90, 320, 240}, [](HDC dc, const RECT& client) {
        UniqueBrush brush(CreateSolidBrush(RGB(200, 40, 120)));
        FillRect(dc, &client, brush.get());
    });
    ASSERT_TRUE(window.IsOpen());
    std::vector<uint32_t> seen;
    EXPECT_TRUE(test::WaitUntil([&] {
        seen = GrabScreen32(RECT{220, 165, 221, 166});
        return seen.size() == 1 && seen[0] == 0xC82878u;
    })) << std::hex
        << (seen.empty() ? 0u : seen[0]);
    WindowDc screen(nullptr);
    EXPECT_GE(GetDeviceCaps(screen.get(), HORZRES), 640);
}

TEST(Network, MulticastDatagramCrossesProcesses) {
    WinsockSession wsa;
    ASSERT_TRUE(wsa.ok());
    UniqueSocket s(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
    ASSERT_TRUE(s);
    const u_short port = static_cast<u_short>(40000 + GetCurrentProcessId() % 20000);
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = htons(port);
    ASSERT_EQ(0, bind(s.get(), reinterpret_cast<sockaddr*>(&any), sizeof any));
    ip_mreq join{};
    join.imr_multiaddr.s_addr = inet_addr("239.255.42.7");
    join.imr_interface.s_addr = inet_addr("127.0.0.1");
    ASSERT_EQ(0, setsockopt(s.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP,
                            reinterpret_cast<const char*>(&join), sizeof join));
    DWORD timeout = 5000;
    setsockopt(s.get(), SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&timeout),
               sizeof timeout);

    ChildProcess peer;
    ASSERT_TRUE(peer.Start("harness_peer.exe",
                           "mcast-send 239.255.42.7 " + std::to_string(port) + " hello-class"));
    char buf[64] = {};
    sockaddr_in from{};
    int fromLen = sizeof from;
    ASSERT_GT(
        recvfrom(s.get(), buf, sizeof buf - 1, 0, reinterpret_cast<sockaddr*>(&from), &fromLen), 0)
        << "WSA error " << WSAGetLastError();
    EXPECT_STREQ("hello-class", buf);
    EXPECT_EQ(inet_addr("127.0.0.1"), from.sin_addr.s_addr);
    EXPECT_EQ(0u, peer.Wait(20000));
}

TEST(NamedObjects, GlobalSectionAndEventReachSecondProcess) {
    EXPECT_FALSE(TryOpenNamedSection("Global\\VantrelNoSuchSection"));
    EXPECT_FALSE(TryOpenNamedEvent("Global\\VantrelNoSuchEvent"));
    const std::string name = "Global\\VantrelHarness" + std::to_string(GetCurrentProcessId());
    bool existed = true;
    UniqueMapping section = CreateNamedSection(name.c_str(), 4096, &existed);
    UniqueViewOfFile view = section ? MapWholeSection(section.get()) : UniqueViewOfFile();
    ASSERT_TRUE(view);
    EXPECT_FALSE(existed);
    EXPECT_TRUE(CreateNamedSection(name.c_str(), 4096, &existed));
    EXPECT_TRUE(existed) << "a second create opens the same object and says so";
    strcpy(static_cast<char*>(view.get()), "teacher");
    UniqueEvent done = CreateNamedEvent((name + ".Done").c_str(), true, false);
    ChildProcess peer;
    ASSERT_TRUE(peer.Start("harness_peer.exe", "ipc-reply " + name));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(done.get(), 20000));
    EXPECT_STREQ("teacher seen", static_cast<const char*>(view.get()));
    EXPECT_EQ(0u, peer.Wait(20000));
}
