#include "winscard_calls.h"

namespace cardhost {

WinscardCalls::WinscardCalls(const os::Library& winscard)
    : establishContext(winscard.get<decltype(establishContext)>("SCardEstablishContext")),
      releaseContext(winscard.get<decltype(releaseContext)>("SCardReleaseContext")),
      listReaders(winscard.get<decltype(listReaders)>("SCardListReadersW")),
      connect(winscard.get<decltype(connect)>("SCardConnectW")),
      reconnect(winscard.get<decltype(reconnect)>("SCardReconnect")),
      disconnect(winscard.get<decltype(disconnect)>("SCardDisconnect")),
      beginTransaction(winscard.get<decltype(beginTransaction)>("SCardBeginTransaction")),
      endTransaction(winscard.get<decltype(endTransaction)>("SCardEndTransaction")),
      status(winscard.get<decltype(status)>("SCardStatusW")),
      transmit(winscard.get<decltype(transmit)>("SCardTransmit")) {}

}  // namespace cardhost
