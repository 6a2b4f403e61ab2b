// Entry points of Transport.dll: MulticastSender, MulticastReceiver and FecCoder.
#include <Transport.h>

#include "FecCoder.h"
#include "MulticastReceiver.h"
#include "MulticastSender.h"
#include "wincom/ComServer.h"

namespace {

const vantrel::ComClass kClasses[] = {
    VANTREL_COM_CLASS(MulticastSender, transport::MulticastSender, "both"),
    VANTREL_COM_CLASS(MulticastReceiver, transport::MulticastReceiver, "both"),
    VANTREL_COM_CLASS(FecCoder, transport::FecCoder, "both"),
};

}  // namespace

VANTREL_COM_SERVER(kClasses, vantrel::TypeLib::None)
