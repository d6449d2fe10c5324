// The SCard calls of a winscard library that was loaded by name. The program itself imports none:
// which library answers is decided at run time, before the driver is loaded.
#pragma once

#include "os.h"
#include "platform/minidriver.h"

namespace cardhost {

struct WinscardCalls {
    decltype(&SCardEstablishContext) establishContext;
    decltype(&SCardReleaseContext) releaseContext;
    decltype(&SCardListReadersW) listReaders;
    decltype(&SCardConnectW) connect;
    decltype(&SCardReconnect) reconnect;
    decltype(&SCardDisconnect) disconnect;
    decltype(&SCardBeginTransaction) beginTransaction;
    decltype(&SCardEndTransaction) endTransaction;
    decltype(&SCardStatusW) status;
    decltype(&SCardTransmit) transmit;

    /// Throws a Failure (notFound) where the library lacks one of them.
    explicit WinscardCalls(const os::Library& winscard);
};

}  // namespace cardhost
