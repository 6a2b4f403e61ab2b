// The other processes of the shared-memory tests:
//   ipc_peer render <id> <status>
// a DesktopIPCRender of session <id> made through COM, its window shown at the place the status
// section <status> (IpcPeerStatus.h) asks for; it reports its picture (GetCurrectImage) and its
// RN_PICTURECOMPLETE notices there until the event "<status>.Quit" is set. Exit code 0 on
// success.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

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

// The test's status section and quit event.
struct Report {
    UniqueMapping section;
    UniqueViewOfFile view;
    UniqueEvent quit;
    explicit Report(const std::string& name)
        : section(TryOpenNamedSection(name.c_str())),
          view(section ? MapWholeSection(section.get()) : UniqueViewOfFile()),
          quit(TryOpenNamedEvent((name + ".Quit").c_str())) {}
    PeerStatus* Status() const {
        return view && quit ? static_cast<PeerStatus*>(view.get()) : nullptr;
    }
};

constexpr UINT kNotifyMessage = WM_APP + 7;

int Render(int id, const std::string& statusName) {
    Report report(statusName);
    PeerStatus* status = report.Status();
    if (!status)
        return 50;
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
            const HANDLE quitEvent = report.quit.get();
            if (MsgWaitForMultipleObjects(1, &quitEvent, FALSE, 50, QS_ALLINPUT) == WAIT_OBJECT_0)
                break;
            test::PumpMessages();
            status->notices = notify.Count(2, 42);
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
    if (argc == 4 && !std::strcmp(argv[1], "render"))
        return Render(std::atoi(argv[2]), argv[3]);
    std::fprintf(stderr, "usage: ipc_peer render <id> <status>\n");
    return 2;
}
