// Vantrel.dll's entry points: the eight classes it serves, registered under HKEY_CLASSES_ROOT
// with the type library held as resource TYPELIB 1. DesktopIPCServer2 is in the type library
// only and is never served.
#include <windows.h>

#include "Vantrel.h"
#include "capture/DesktopCapture.h"
#include "cast/DesktopCaster.h"
#include "cast/DesktopReceiver.h"
#include "ipc/DesktopIPCRender.h"
#include "ipc/DesktopIPCServer.h"
#include "record/DesktopReader.h"
#include "record/DesktopRecorder.h"
#include "render/DesktopRender.h"
#include "wincom/ComServer.h"

namespace {

const vantrel::ComClass kClasses[] = {
    VANTREL_COM_CLASS(DesktopCapture, vantrel::DesktopCapture, "both"),
    VANTREL_COM_CLASS(DesktopRecorder, vantrel::DesktopRecorder, "both"),
    VANTREL_COM_CLASS(DesktopCaster, vantrel::DesktopCaster, "both"),
    VANTREL_COM_CLASS(DesktopReceiver, vantrel::DesktopReceiver, "both"),
    VANTREL_COM_CLASS(DesktopRender, vantrel::DesktopRender, "Apartment"),
    VANTREL_COM_CLASS(DesktopReader, vantrel::DesktopReader, "both"),
    VANTREL_COM_CLASS(DesktopIPCServer, vantrel::DesktopIPCServer, "both"),
    VANTREL_COM_CLASS(DesktopIPCRender, vantrel::DesktopIPCRender, "both"),
};

}  // namespace

VANTREL_COM_SERVER(kClasses, vantrel::TypeLib::Resource1)
