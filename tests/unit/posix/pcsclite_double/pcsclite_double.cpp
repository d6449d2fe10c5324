// A double of PC/SC lite's library: the calls with its own types, under its own name.
#include "pcsclite_double.h"

#include <winscard.h>

#include <algorithm>
#include <cstring>

namespace {

PcscliteDouble& state() {
    static PcscliteDouble state;
    return state;
}

constexpr SCARDCONTEXT theContext = 0x7FEDCBA9;
constexpr SCARDHANDLE theCard = 0x6ABCDEF0;
constexpr BYTE theAtr[] = {0x3B, 0x7F, 0x96};

}  // namespace

extern "C" {

PcscliteDouble* pcscliteDouble();
PcscliteDouble* pcscliteDouble() {
    return &state();
}

LONG SCardEstablishContext(DWORD dwScope, LPCVOID, LPCVOID, LPSCARDCONTEXT phContext) {
    if (dwScope != SCARD_SCOPE_USER) return SCARD_E_INVALID_VALUE;
    *phContext = theContext;
    return state().code;
}

LONG SCardReleaseContext(SCARDCONTEXT hContext) {
    state().context = static_cast<unsigned long>(hContext);
    return state().code;
}

LONG SCardListReaders(SCARDCONTEXT hContext, LPCSTR, LPSTR mszReaders, LPDWORD pcchReaders) {
    PcscliteDouble& now = state();
    now.context = static_cast<unsigned long>(hContext);
    if (now.code != 0) return now.code;
    const DWORD room = *pcchReaders;
    *pcchReaders = now.readersSize;
    if (mszReaders == nullptr) return SCARD_S_SUCCESS;
    if (room < now.readersSize) return SCARD_E_INSUFFICIENT_BUFFER;
    std::memcpy(mszReaders, now.readers, now.readersSize);
    return SCARD_S_SUCCESS;
}

LONG SCardConnect(SCARDCONTEXT hContext, LPCSTR szReader, DWORD dwShareMode,
                  DWORD dwPreferredProtocols, LPSCARDHANDLE phCard, LPDWORD pdwActiveProtocol) {
    PcscliteDouble& now = state();
    now.context = static_cast<unsigned long>(hContext);
    std::strncpy(now.reader, szReader, sizeof(now.reader) - 1);
    now.share = dwShareMode;
    now.protocols = dwPreferredProtocols;
    *phCard = theCard;
    *pdwActiveProtocol = now.protocol;
    return now.code;
}

LONG SCardReconnect(SCARDHANDLE hCard, DWORD dwShareMode, DWORD dwPreferredProtocols,
                    DWORD dwInitialization, LPDWORD pdwActiveProtocol) {
    PcscliteDouble& now = state();
    now.card = static_cast<unsigned long>(hCard);
    now.share = dwShareMode;
    now.protocols = dwPreferredProtocols;
    now.disposition = dwInitialization;
    *pdwActiveProtocol = now.protocol;
    return now.code;
}

LONG SCardDisconnect(SCARDHANDLE hCard, DWORD dwDisposition) {
    state().card = static_cast<unsigned long>(hCard);
    state().disposition = dwDisposition;
    return state().code;
}

LONG SCardBeginTransaction(SCARDHANDLE hCard) {
    state().card = static_cast<unsigned long>(hCard);
    return state().code;
}

LONG SCardEndTransaction(SCARDHANDLE hCard, DWORD dwDisposition) {
    state().card = static_cast<unsigned long>(hCard);
    state().disposition = dwDisposition;
    return state().code;
}

LONG SCardStatus(SCARDHANDLE hCard, LPSTR, LPDWORD, LPDWORD pdwState, LPDWORD pdwProtocol,
                 LPBYTE pbAtr, LPDWORD pcbAtrLen) {
    PcscliteDouble& now = state();
    now.card = static_cast<unsigned long>(hCard);
    if (now.code != 0) return now.code;
    if (*pcbAtrLen < sizeof(theAtr)) return SCARD_E_INSUFFICIENT_BUFFER;
    *pdwState = now.state;
    *pdwProtocol = now.protocol;
    std::memcpy(pbAtr, theAtr, sizeof(theAtr));
    *pcbAtrLen = sizeof(theAtr);
    return SCARD_S_SUCCESS;
}

LONG SCardTransmit(SCARDHANDLE hCard, const SCARD_IO_REQUEST* pioSendPci, LPCBYTE pbSendBuffer,
                   DWORD cbSendLength, SCARD_IO_REQUEST* pioRecvPci, LPBYTE pbRecvBuffer,
                   LPDWORD pcbRecvLength) {
    PcscliteDouble& now = state();
    now.card = static_cast<unsigned long>(hCard);
    now.pciProtocol = pioSendPci->dwProtocol;
    now.pciLength = pioSendPci->cbPciLength;
    now.sentLength = cbSendLength;
    std::memcpy(now.sent, pbSendBuffer, std::min<DWORD>(cbSendLength, sizeof(now.sent)));
    now.room = *pcbRecvLength;
    *pcbRecvLength = now.replyLength;
    if (now.code != 0) return now.code;
    if (now.room < now.replyLength) return SCARD_E_INSUFFICIENT_BUFFER;
    std::memcpy(pbRecvBuffer, now.reply, now.replyLength);
    pioRecvPci->dwProtocol = now.protocol;
    return SCARD_S_SUCCESS;
}
}
