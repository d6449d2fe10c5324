#include "channel/protocol_control.h"

namespace KelmoraID {

SCARD_IO_REQUEST protocolControlOf(SCARDHANDLE hCard) {
    DWORD protocol = 0;
    // The code is not looked at: a failed call leaves protocol 0, and that means T=1.
    SCardStatusW(hCard, nullptr, nullptr, nullptr, &protocol, nullptr, nullptr);
    return protocol == SCARD_PROTOCOL_T0 ? g_rgSCardT0Pci : g_rgSCardT1Pci;
}

}  // namespace KelmoraID
