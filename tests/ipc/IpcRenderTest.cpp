// DesktopIPCRender through COM: what it answers without a server and as a sink, its session's
// channel objects, the picture it shows from an in-process server (and keeps when the server
// goes), and two viewers of sessions 0 and 7 in their own processes whose windows show the
// server's picture.
#include "IpcTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

constexpr UINT kNotify = WM_APP + 3;

// A window that counts the render notifications by code.
class NotifySink : public NotifyWindow {
  public:
    NotifySink() : NotifyWindow(kNotify) {}
    HWND Get() const { return Handle(); }
    int Count(WPARAM code) const { return NotifyWindow::Count(code, 99); }
};

class IpcRender : public IpcServerTest {
  protected:
    void SetUp() override {
        IpcServerTest::SetUp();
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopIPCRender, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopRender, render_.PutVoid()));
        render_->SetNotifyWindow(notify_.Get(), kNotify, 99);
    }
    void TearDown() override {
        if (render_)
            render_->Stop();
        render_.Reset();
        IpcServerTest::TearDown();
    }
    std::vector<BYTE> Picture() {
        unsigned long size = 0;
        if (render_->GetCurrectImage(&size, nullptr) != S_OK || size < 40)
            return {};
        std::vector<BYTE> image(size);
        if (render_->GetCurrectImage(&size, image.data()) != S_OK)
            return {};
        return std::vector<BYTE>(image.begin() + 40, image.end());  // 16-bit: no colour part
    }
    static bool EventExists(const char* name) { return static_cast<bool>(TryOpenNamedEvent(name)); }

    NotifySink notify_;
    ComPtr<IDesktopRender> render_;
};

TEST_F(IpcRender, WithoutServerAsSinkAndSessionObjects) {
    // No server: the control section does not exist.
    server_.Reset();
    sink_.Reset();
    control_.Close();
    ASSERT_FALSE(TryOpenNamedSection("Global\\ScreenUpdate"));
    EXPECT_EQ(static_cast<HRESULT>(-1), render_->Run());
    EXPECT_EQ(S_OK, render_->Stop());
    EXPECT_EQ(S_OK, render_->Stop());

    ComPtr<IDataTransmitter> transmitter;
    ComPtr<IFrameBuffer> frames;
    ComPtr<IDesktopIPCServer> notServer;
    ASSERT_EQ(S_OK, render_.As(&transmitter));
    ASSERT_EQ(S_OK, render_.As(&frames));
    EXPECT_EQ(E_NOINTERFACE, render_.As(&notServer));
    BYTE junk[64] = {1, 2, 3};
    EXPECT_EQ(S_OK, transmitter->Transfer(junk, sizeof junk, FALSE));
    EXPECT_EQ(S_OK, transmitter->Transfer(nullptr, 0, TRUE));
    EXPECT_EQ(S_OK, transmitter->Flush());
    unsigned long size = 0xdeadbeef;
    void* info = reinterpret_cast<void*>(0xdeadbeef);
    EXPECT_EQ(E_FAIL, frames->GetFullScreenData(junk, &size, TRUE));
    EXPECT_EQ(E_FAIL, frames->GetFullScreenDataUncompressed(junk, &size));
    EXPECT_EQ(E_FAIL, frames->GetBitmapInfo(&info));
    EXPECT_EQ(0xdeadbeefu, size);
    EXPECT_EQ(reinterpret_cast<void*>(0xdeadbeef), info);
    EXPECT_EQ(1, junk[0]);

    // With a server: -1 names session 0; an id set while running waits for the next Run.
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopIPCServer, nullptr, CLSCTX_INPROC_SERVER,
                                     IID_IDataTransmitter, sink_.PutVoid()));
    EXPECT_EQ(S_OK, render_->SetSessionId(-1));
    ASSERT_EQ(S_OK, render_->Run());
    EXPECT_EQ(E_FAIL, render_->Run());
    EXPECT_TRUE(EventExists("Global\\StudentRecveive0"));
    EXPECT_TRUE(EventExists("Global\\StudentComplete0"));
    EXPECT_TRUE(TryOpenNamedMutex("Global\\StudentEventMutex0"));
    EXPECT_EQ(S_OK, render_->SetSessionId(7));
    EXPECT_FALSE(EventExists("Global\\StudentRecveive7"));
    EXPECT_EQ(S_OK, render_->Stop());
    EXPECT_FALSE(EventExists("Global\\StudentRecveive0"));
    ASSERT_EQ(S_OK, render_->Run());
    EXPECT_TRUE(EventExists("Global\\StudentRecveive7"));
    EXPECT_TRUE(EventExists("Global\\StudentComplete7"));
    EXPECT_TRUE(TryOpenNamedMutex("Global\\StudentEventMutex7"));
    EXPECT_FALSE(EventExists("Global\\StudentRecveive0"));

    // Released while running: the thread ends and the session's objects go with the object.
    transmitter.Reset();
    frames.Reset();
    render_.Reset();
    EXPECT_FALSE(EventExists("Global\\StudentRecveive7"));
    EXPECT_FALSE(TryOpenNamedMutex("Global\\StudentEventMutex7"));
}

// The picture from a server in this process; one completion notice; the picture stays when the
// server goes, and a new server reaches the same viewer.
TEST_F(IpcRender, ShowsThePictureKeepsItWhenTheServerGoesAndFollowsANewServer) {
    ASSERT_EQ(S_OK, render_->Run());
    ASSERT_EQ(S_OK, server_->StartIPCServer());
    PacketSource first(codec_.Get(), 320, 240, 41);
    Feed(first.FullScreen());
    EXPECT_TRUE(WaitUntil([&] { return Picture() == first.Rows(); }));
    EXPECT_TRUE(WaitUntil([&] { return notify_.Count(2) == 1; }));
    long width = 0, height = 0, bits = 0;
    EXPECT_EQ(S_OK, render_->GetDesktopInfomation(&width, &height, &bits));
    EXPECT_EQ(320, width);
    EXPECT_EQ(240, height);
    first.Paint(42);
    Feed(first.FullScreen());
    EXPECT_TRUE(WaitUntil([&] { return Picture() == first.Rows(); }));
    PumpFor(200);
    EXPECT_EQ(1, notify_.Count(2)) << "completion is told once per Run";

    server_.Reset();
    sink_.Reset();
    PumpFor(300);
    EXPECT_EQ(first.Rows(), Picture()) << "the last picture stays";

    ComPtr<IDataTransmitter> sink;
    ComPtr<IDesktopIPCServer> server;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopIPCServer, nullptr, CLSCTX_INPROC_SERVER,
                                     IID_IDataTransmitter, sink.PutVoid()));
    ASSERT_EQ(S_OK, sink.As(&server));
    ASSERT_EQ(S_OK, server->StartIPCServer());
    PacketSource second(codec_.Get(), 256, 192, 43);
    for (auto p : second.FullScreen())
        sink->Transfer(p.data(), static_cast<unsigned long>(p.size()), FALSE);
    EXPECT_TRUE(WaitUntil([&] { return Picture() == second.Rows(); }));
    const DWORD start = GetTickCount();
    EXPECT_EQ(S_OK, render_->Stop());
    EXPECT_LT(GetTickCount() - start, 2000u);
    EXPECT_EQ(S_OK, server->StopIPCServer());
}

// Three processes: viewers of sessions 0 and 7 (the server polls 8 ids) show the server's
// picture in their windows on the screen, and reopen on a format change.
TEST_F(IpcRender, ViewersOfTwoSessionsShowThePictureInTheirWindows) {
    render_.Reset();
    ASSERT_EQ(S_OK, server_->SetMaxIPCClients(8));
    const RECT at0{16, 16, 336, 256}, at7{400, 16, 720, 256};
    PeerViewer zero(0, "render", at0), seven(7, "render", at7);
    ASSERT_TRUE(zero.WaitReady());
    ASSERT_TRUE(seven.WaitReady());
    ASSERT_EQ(S_OK, server_->StartIPCServer());
    PacketSource source(codec_.Get(), 320, 240, 51);
    Feed(source.FullScreen());
    const std::vector<BYTE> rows = source.Rows();
    for (auto [peer, at] : {std::pair<PeerViewer*, RECT>{&zero, at0}, {&seven, at7}}) {
        EXPECT_TRUE(WaitUntil([&] { return peer->Picture() == rows; }));
        long wrong = -1;
        EXPECT_TRUE(WaitUntil([&] {
            const std::vector<uint32_t> screen = GrabScreen32(at);
            wrong = 0;
            for (size_t i = 0; i < screen.size(); ++i)
                wrong += To555(screen[i]) != packet::LoadU16(&rows[2 * i]);
            return wrong == 0;
        })) << wrong
            << " pixels of the window differ from the server's picture";
        EXPECT_TRUE(WaitUntil([&] { return peer->Status().passes == 1; }))
            << peer->Status().passes << " completion notices";
    }

    PacketSource other(codec_.Get(), 256, 192, 52);
    Feed(other.FullScreen());
    for (PeerViewer* peer : {&zero, &seven})
        EXPECT_TRUE(WaitUntil([&] { return peer->Picture() == other.Rows(); }));
    EXPECT_EQ(0u, zero.Quit());
    EXPECT_EQ(0u, seven.Quit());
}

}  // namespace
