// DesktopIPCRender through COM: what it answers without a server and as a sink, its session's
// channel objects, the picture it shows from an in-process server (and keeps when the server
// goes), and the viewer's side of the channel against a control section written by hand.
#include <thread>

#include "IpcTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

constexpr UINT kNotify = WM_APP + 3;

class IpcRender : public IpcServerTest {
  protected:
    void SetUp() override {
        IpcServerTest::SetUp();
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_DesktopIPCRender, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IDesktopRender, render_.PutVoid()));
        render_->SetNotifyWindow(notify_.Handle(), kNotify, 99);
    }
    void TearDown() override {
        if (render_)
            render_->Stop();
        render_.Reset();
        IpcServerTest::TearDown();
    }
    // The rows behind the BITMAPINFOHEADER (16-bit: no colour part).
    std::vector<BYTE> Picture() {
        const std::vector<BYTE> image = CurrentImage(render_.Get());
        return image.size() < 40 ? std::vector<BYTE>()
                                 : std::vector<BYTE>(image.begin() + 40, image.end());
    }
    static bool EventExists(const char* name) { return static_cast<bool>(TryOpenNamedEvent(name)); }

    NotifyWindow notify_{kNotify};
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
    ASSERT_EQ(S_OK, render_.As(&transmitter));
    ASSERT_EQ(S_OK, render_.As(&frames));
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
    sink_ = Create<IDataTransmitter>(CLSID_DesktopIPCServer);
    ASSERT_TRUE(sink_);
    EXPECT_EQ(S_OK, render_->SetSessionId(-1));
    ASSERT_EQ(S_OK, render_->Run());
    EXPECT_EQ(E_FAIL, render_->Run());
    // Manual-reset events, cleared at creation (the viewer waits for no pass yet: the server
    // has published no BITMAPINFO), and a mutex nobody owns.
    for (const char* name : {"Global\\StudentRecveive0", "Global\\StudentComplete0"}) {
        UniqueEvent e = TryOpenNamedEvent(name);
        ASSERT_TRUE(e) << name;
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(e.get(), 0)) << name;
        SetEvent(e.get());
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(e.get(), 0)) << name;
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(e.get(), 0)) << name;
        ResetEvent(e.get());
    }
    UniqueHandle mutex = TryOpenNamedMutex("Global\\StudentEventMutex0");
    ASSERT_TRUE(mutex);
    std::thread([&] {
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), 0)) << "owned";
        ReleaseMutex(mutex.get());
    }).join();
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

// The picture from a server in this process; the picture stays when the server goes, and a new
// server reaches the same viewer.
TEST_F(IpcRender, ShowsThePictureKeepsItWhenTheServerGoesAndFollowsANewServer) {
    ASSERT_EQ(S_OK, render_->Run());
    ASSERT_EQ(S_OK, server_->StartIPCServer());
    PacketSource first(codec_.Get(), 320, 240, 41);
    Feed(first.FullScreen());
    EXPECT_TRUE(WaitUntil([&] { return Picture() == first.Rows(); }));
    EXPECT_TRUE(WaitUntil([&] { return notify_.Count(2, 99) == 1; }));

    server_.Reset();
    sink_.Reset();
    PumpFor(300);
    EXPECT_EQ(first.Rows(), Picture()) << "the last picture stays";

    ComPtr<IDataTransmitter> sink = Create<IDataTransmitter>(CLSID_DesktopIPCServer);
    ComPtr<IDesktopIPCServer> server;
    ASSERT_TRUE(sink && SUCCEEDED(sink.As(&server)));
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

// The viewer's side of the channel against a control section written here by hand (no
// server object): it retries the open with its debugger text until a BITMAPINFO is published,
// reads the pass's fields at their offsets, answers before it repaints, repaints the whole
// image for an empty rectangle, copies at most 4096 rectangles, and on flag bit 1 reopens the
// section now named, retrying without answering while that fails. ResetContent paints the
// shared pixels over with the background colour.
TEST_F(IpcRender, ViewerFollowsAControlSectionWrittenByHand) {
    server_.Reset();
    sink_.Reset();
    control_.Close();
    UniqueMapping controlSection = CreateNamedSection("Global\\ScreenUpdate", 66876);
    UniqueViewOfFile controlView = MapWholeSection(controlSection.get());
    ASSERT_TRUE(controlView);
    BYTE* c = static_cast<BYTE*>(controlView.get());
    // A 16-bit section of w x h pixels named name, filled with a pattern, published at 0x000 and
    // its BITMAPINFO at 0x110.
    auto publish = [&](const char* name, int w, int h, std::vector<BYTE>* rows) {
        UniqueMapping section = CreateNamedSection(name, static_cast<DWORD>(w * h * 2));
        UniqueViewOfFile view = MapWholeSection(section.get());
        for (int i = 0; i < w * h; ++i)
            packet::StoreU16(static_cast<BYTE*>(view.get()) + 2 * i, static_cast<uint16_t>(i * 37));
        rows->assign(static_cast<BYTE*>(view.get()), static_cast<BYTE*>(view.get()) + w * h * 2);
        std::memset(c, 0, 260);
        std::strcpy(reinterpret_cast<char*>(c), name);
        const std::vector<BYTE> bmi = Bmi(w, h, 16);
        std::memcpy(c + 0x110, bmi.data(), 40);
        return std::make_pair(std::move(section), std::move(view));
    };
    // One pass: the fields, then the viewer's receive event; whether it answered within ms.
    UniqueEvent receive, complete;
    auto pass = [&](DWORD flags, std::vector<RECT> rects, POINT cursor, DWORD ms) {
        packet::StoreU32(c + 0x104, flags);
        packet::StoreI32(c + 0x108, cursor.x);
        packet::StoreI32(c + 0x10C, cursor.y);
        packet::StoreU32(c + 0x538, static_cast<uint32_t>(rects.size()));
        std::memcpy(c + 0x53C, rects.data(), std::min<size_t>(rects.size(), 4096) * sizeof(RECT));
        ResetEvent(complete.get());
        SetEvent(receive.get());
        return WaitForSingleObject(complete.get(), ms) == WAIT_OBJECT_0;
    };

    DebugOutput debug;
    ASSERT_EQ(S_OK, render_->SetSessionId(3));
    ASSERT_EQ(S_OK, render_->Run());
    receive = TryOpenNamedEvent("Global\\StudentRecveive3");
    complete = TryOpenNamedEvent("Global\\StudentComplete3");
    ASSERT_TRUE(receive && complete);
    EXPECT_TRUE(WaitUntil([&] { return debug.Count("OpenFromBitmapInfo Failed 1\n") >= 3; }));
    std::vector<BYTE> rows;
    auto first = publish("Global\\VantrelIpcTestA", 64, 32, &rows);
    long width = 0, height = 0, bits = -1;
    EXPECT_TRUE(WaitUntil([&] {
        return render_->GetDesktopInfomation(&width, &height, &bits) == S_OK && width == 64;
    }));
    EXPECT_EQ(32, height);
    EXPECT_EQ(0, bits);
    const size_t failures = debug.Count("OpenFromBitmapInfo Failed 1\n");

    ASSERT_TRUE(pass(1, {RECT{}}, POINT{10, 12}, 5000));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(receive.get(), 0)) << "the viewer resets it";
    EXPECT_TRUE(WaitUntil([&] { return Picture() == rows && notify_.Count(2, 99) == 1; }));
    ASSERT_TRUE(pass(1, std::vector<RECT>(5000, RECT{0, 0, 8, 8}), POINT{}, 5000));
    ASSERT_TRUE(pass(0, {}, POINT{}, 5000));
    PumpFor(100);
    EXPECT_EQ(1, notify_.Count(2, 99)) << "the picture is complete once per Run";
    EXPECT_EQ(failures, debug.Count("OpenFromBitmapInfo Failed 1\n"));

    // A re-created section that cannot be opened yet holds the answer back.
    std::strcpy(reinterpret_cast<char*>(c), "Global\\VantrelIpcTestMissing");
    EXPECT_FALSE(pass(2, {}, POINT{}, 300));
    EXPECT_GE(debug.Count("OpenFromBitmapInfo Failed 2\n"), 2u);
    auto second = publish("Global\\VantrelIpcTestB", 32, 16, &rows);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(complete.get(), 5000));
    ASSERT_TRUE(pass(1, {RECT{0, 0, 32, 16}}, POINT{}, 5000));
    EXPECT_TRUE(WaitUntil([&] { return Picture() == rows; }));
    PumpFor(100);
    EXPECT_EQ(1, notify_.Count(2, 99)) << "once per Run, also across a new section";
    EXPECT_EQ(S_OK, render_->GetDesktopInfomation(&width, &height, &bits));
    EXPECT_EQ(32, width);

    // The viewer's image is the shared section itself.
    EXPECT_EQ(S_OK, render_->ResetContent());
    const BYTE* pixels = static_cast<const BYTE*>(second.second.get());
    for (int i = 0; i < 32 * 16; ++i)
        ASSERT_EQ(0x0210, packet::LoadU16(pixels + 2 * i)) << i;  // 0x808000 at 5-5-5
    EXPECT_EQ(S_OK, render_->Stop());
}

}  // namespace
