// Entry points of ScreenCodec.dll: its one class.
#include "ScreenCodec.h"
#include "wincom/ComServer.h"

namespace {

const vantrel::ComClass kClasses[] = {
    VANTREL_COM_CLASS(ScreenCodec, screencodec::ScreenCodec, "both"),
};

}  // namespace

VANTREL_COM_SERVER(kClasses, vantrel::TypeLib::None)
