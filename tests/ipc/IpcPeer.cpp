// Second (and third) process of the shared-memory tests. Commands:
//   viewer <id> <status>   a viewer of session <id> that speaks the channel by its literal names
//                          and offsets, reporting to the status section <status> (IpcPeerStatus.h)
//                          until the event "<status>.Quit" is set
//   render <id> <status>   a DesktopIPCRender of session <id> made through COM, its window shown
//                          at the place the status section asks for; reports its picture
//                          (GetCurrectImage) and its RN_PICTURECOMPLETE notices until quit
//   mute <id> <ms>         a viewer of session <id> that never answers, for <ms> milliseconds
// Exit code 0 on success.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <vector>
#include <string>

#include "IpcPeerStatus.h"
#include "Vantrel.h"
#include "common/Screen.h"
#include "wincom/ComPtr.h"
#include "wincom/KernelObjects.h"

using namespace vantrel;
using vantrel::test::kPeerPictureOffset;
using vantrel::test::kPeerStatusSize;
using vantrel::test::PeerStatus;

namespace {

constexpr DWORD kControlSize = 66876;

struct Session {
    UniqueEvent receive, complete;
    UniqueHandle mutex;
    bool Create(int id) {
        const std::string n = std::to_string(id);
        receive = CreateNamedEvent(("Global\\StudentRecveive" + n).c_str(), true, false);
        complete = CreateNamedEvent(("Global\\StudentComplete" + n).c_str(), true, false);
        mutex = CreateNamedMutex(("Global\\StudentEventMutex" + n).c_str());
        return receive && complete && mutex;
    }
};

int Mute(int id, DWORD ms) {
    Session session;
    if (!session.Create(id))
        return 30;
    Sleep(ms);
    return 0;
}

// The mapped pixel section of the current picture.
struct Picture {
    UniqueMapping section;
    UniqueViewOfFile view;
    BITMAPINFOHEADER header{};
    bool Open(const BYTE* control, PeerStatus* status) {
        view.reset();
        section.reset();
        char name[260];
        std::memcpy(name, control, 260);
        name[259] = 0;
        std::memcpy(&header, control + 0x110, sizeof header);
        section = TryOpenNamedSection(name);
        if (!section || header.biSize != 40 || header.biWidth <= 0 || header.biHeight >= 0)
            return false;
        view = MapWholeSection(section.get());
        if (!view)
            return false;
        std::memcpy(status->name, name, sizeof name);
        std::memcpy(status->bitmapInfo, control + 0x110, sizeof status->bitmapInfo);
        return true;
    }
    void CopyTo(BYTE* out, volatile LONG* bytes) const {
        const LONG rowBytes = header.biBitCount * header.biWidth / 8;
        const LONG stride = ((header.biBitCount * header.biWidth + 31) >> 3) & ~3;
        const LONG height = -header.biHeight;
        if (!view || rowBytes * height > static_cast<LONG>(vantrel::test::kPeerStatusSize -
                                                           vantrel::test::kPeerPictureOffset))
            return;
        for (LONG y = 0; y < height; ++y)
            std::memcpy(out + y * rowBytes, static_cast<const BYTE*>(view.get()) + y * stride,
                        rowBytes);
        *bytes = rowBytes * height;
    }
};

int Viewer(int id, const std::string& statusName) {
    UniqueMapping statusSection = TryOpenNamedSection(statusName.c_str());
    UniqueViewOfFile statusView =
        statusSection ? MapWholeSection(statusSection.get()) : UniqueViewOfFile();
    UniqueEvent quit = TryOpenNamedEvent((statusName + ".Quit").c_str());
    if (!statusView || !quit)
        return 40;
    auto* status = static_cast<PeerStatus*>(statusView.get());
    UniqueMapping controlSection = TryOpenNamedSection("Global\\ScreenUpdate");
    if (!controlSection)
        return 41;
    UniqueViewOfFile controlView(
        MapViewOfFile(controlSection.get(), FILE_MAP_READ, 0, 0, kControlSize));
    if (!controlView)
        return 42;
    const BYTE* control = static_cast<const BYTE*>(controlView.get());
    Session session;
    if (!session.Create(id))
        return 43;
    status->ready = 1;

    Picture picture;
    bool open = false;
    const HANDLE waits[2] = {quit.get(), session.receive.get()};
    for (;;) {
        const DWORD w = WaitForMultipleObjects(2, waits, FALSE, 60000);
        if (w != WAIT_OBJECT_0 + 1)
            break;
        ResetEvent(session.receive.get());
        DWORD flags;
        std::memcpy(&flags, control + 0x104, 4);
        // A viewer that started after the last re-creation opens what the section names now.
        if ((flags & 2) || !open) {
            open = picture.Open(control, status);
            if (!open)
                ++status->openFailures;
            if (flags & 2)
                ++status->reopens;
        }
        if (flags & 1) {
            if (!open)
                ++status->rectsBeforeOpen;
            ++status->rectPasses;
        }
        SetEvent(session.complete.get());
        if (open)
            picture.CopyTo(reinterpret_cast<BYTE*>(status) + vantrel::test::kPeerPictureOffset,
                           &status->pictureBytes);
        InterlockedIncrement(&status->passes);
    }
    return 0;
}

constexpr UINT kNotifyMessage = WM_APP + 7;
int Render(int id, const std::string& statusName) {
    UniqueMapping statusSection = TryOpenNamedSection(statusName.c_str());
    UniqueViewOfFile statusView =
        statusSection ? MapWholeSection(statusSection.get()) : UniqueViewOfFile();
    UniqueEvent quit = TryOpenNamedEvent((statusName + ".Quit").c_str());
    if (!statusView || !quit)
        return 50;
    auto* status = static_cast<PeerStatus*>(statusView.get());
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)))
        return 51;
    int rc = 0;
    {
        test::NotifyWindow notify(kNotifyMessage);
        ComPtr<IDesktopRender> render;
        if (!notify.Handle() ||
            FAILED(CoCreateInstance(CLSID_DesktopIPCRender, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_IDesktopRender, render.PutVoid())))
            return 52;
        render->SetNotifyWindow(notify.Handle(), kNotifyMessage, 42);
        render->SetSessionId(id);
        // The render window fills a stage that is never activated: an active window takes
        // seconds to go away and holds up the windows of the tests that follow.
        const RECT& at = status->windowRect;
        test::PaintedWindow stage(at, [](HDC, const RECT&) {});
        if (!stage.IsOpen())
            return 55;
        render->SetParentWindow(stage.Handle());
        render->SetWindowPosition(0, 0, at.right - at.left, at.bottom - at.top);
        render->SetVisible(TRUE);
        if (render->Run() != S_OK)
            return 53;
        status->ready = 1;
        std::vector<BYTE> image;
        for (;;) {
            const HANDLE quitEvent = quit.get();
            if (MsgWaitForMultipleObjects(1, &quitEvent, FALSE, 50, QS_ALLINPUT) == WAIT_OBJECT_0)
                break;
            test::PumpMessages();
            status->passes = notify.Count(2, 42);
            unsigned long size = 0;
            if (render->GetCurrectImage(&size, nullptr) != S_OK || size < 40 ||
                size > kPeerStatusSize - kPeerPictureOffset)
                continue;
            image.resize(size);
            if (render->GetCurrectImage(&size, image.data()) != S_OK)
                continue;
            BITMAPINFOHEADER h;
            std::memcpy(&h, image.data(), sizeof h);
            const UINT info = 40 + (h.biCompression == BI_BITFIELDS ? 12u
                                    : h.biBitCount <= 8             ? 4u << h.biBitCount
                                                                    : 0u);
            std::memcpy(status->bitmapInfo, image.data(), std::min<size_t>(info, 1064));
            std::memcpy(reinterpret_cast<BYTE*>(status) + kPeerPictureOffset, image.data() + info,
                        size - info);
            status->pictureBytes = static_cast<LONG>(size - info);
        }
        rc = render->Stop() == S_OK ? 0 : 54;
        render->SetVisible(FALSE);
        render->SetParentWindow(nullptr);  // before the stage takes its children along
    }
    CoUninitialize();
    return rc;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && !std::strcmp(argv[1], "viewer"))
        return Viewer(std::atoi(argv[2]), argv[3]);
    if (argc == 4 && !std::strcmp(argv[1], "render"))
        return Render(std::atoi(argv[2]), argv[3]);
    if (argc == 4 && !std::strcmp(argv[1], "mute"))
        return Mute(std::atoi(argv[2]), static_cast<DWORD>(std::atoi(argv[3])));
    std::fprintf(stderr, "usage: ipc_peer viewer|render <id> <status> | mute <id> <ms>\n");
    return 2;
}
