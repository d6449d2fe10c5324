// The published SCard calls, each handed to the seam. It stands where winscard.dll (or, natively,
// the library over PC/SC lite) would stand, under the same name.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "virtual_card/winscard/card_seam.h"
#include "winscard_types.h"

namespace {

const CardSeam* seam = nullptr;

constexpr DWORD longestAtr = 36;

std::string_view readerName() {
    return seam->readerName == nullptr ? "Virtual Reader" : seam->readerName;
}

/// Writes the reader's name and `terminators` zeros, or only the length that they need.
LONG writeReaderName(LPWSTR text, LPDWORD length, DWORD terminators) {
    if (length == nullptr) return text == nullptr ? SCARD_S_SUCCESS : SCARD_E_INVALID_PARAMETER;
    std::string_view name = readerName();
    const DWORD room = *length;
    const DWORD needed = static_cast<DWORD>(name.size()) + terminators;
    *length = needed;
    if (text == nullptr) return SCARD_S_SUCCESS;
    if (room < needed) return SCARD_E_INSUFFICIENT_BUFFER;
    std::transform(name.begin(), name.end(), text,
                   [](char character) { return static_cast<WCHAR>(character); });
    std::fill_n(text + name.size(), terminators, WCHAR{0});
    return SCARD_S_SUCCESS;
}

bool isReaderName(LPCWSTR text) {
    std::string_view name = readerName();
    for (std::size_t position = 0; position < name.size(); ++position) {
        if (text[position] != static_cast<WCHAR>(name[position])) return false;
    }
    return text[name.size()] == 0;
}

void assign(LPDWORD where, std::uint32_t value) {
    if (where != nullptr) *where = value;
}

}  // namespace

extern "C" {

const SCARD_IO_REQUEST g_rgSCardT0Pci = {SCARD_PROTOCOL_T0, sizeof(SCARD_IO_REQUEST)};
const SCARD_IO_REQUEST g_rgSCardT1Pci = {SCARD_PROTOCOL_T1, sizeof(SCARD_IO_REQUEST)};

void SetCardSeam(const CardSeam* table) {
    seam = table;
}

LONG WINAPI SCardEstablishContext(DWORD, LPCVOID, LPCVOID, LPSCARDCONTEXT phContext) {
    if (seam == nullptr) return SCARD_E_NO_SERVICE;
    if (phContext == nullptr) return SCARD_E_INVALID_PARAMETER;
    uintptr_t context = 1;
    LONG code = seam->establishContext ? seam->establishContext(seam->self, &context) : 0;
    *phContext = context;
    return code;
}

LONG WINAPI SCardReleaseContext(SCARDCONTEXT hContext) {
    if (seam == nullptr) return SCARD_E_NO_SERVICE;
    return seam->releaseContext ? seam->releaseContext(seam->self, hContext) : 0;
}

LONG WINAPI SCardListReadersW(SCARDCONTEXT hContext, LPCWSTR, LPWSTR mszReaders,
                              LPDWORD pcchReaders) {
    if (seam == nullptr) return SCARD_E_NO_SERVICE;
    if (pcchReaders == nullptr) return SCARD_E_INVALID_PARAMETER;
    LONG code = seam->listReaders ? seam->listReaders(seam->self, hContext) : 0;
    return code != SCARD_S_SUCCESS ? code : writeReaderName(mszReaders, pcchReaders, 2);
}

LONG WINAPI SCardConnectW(SCARDCONTEXT hContext, LPCWSTR szReader, DWORD dwShareMode,
                          DWORD dwPreferredProtocols, LPSCARDHANDLE phCard,
                          LPDWORD pdwActiveProtocol) {
    if (seam == nullptr) return SCARD_E_NO_SERVICE;
    if (szReader == nullptr || phCard == nullptr) return SCARD_E_INVALID_PARAMETER;
    if (!isReaderName(szReader)) return SCARD_E_UNKNOWN_READER;
    uintptr_t card = 1;
    std::uint32_t protocol = SCARD_PROTOCOL_T1;
    LONG code = seam->connect ? seam->connect(seam->self, hContext, dwShareMode,
                                              dwPreferredProtocols, &card, &protocol)
                              : 0;
    *phCard = code == SCARD_S_SUCCESS ? card : 0;
    assign(pdwActiveProtocol, protocol);
    return code;
}

LONG WINAPI SCardReconnect(SCARDHANDLE hCard, DWORD dwShareMode, DWORD dwPreferredProtocols,
                           DWORD dwInitialization, LPDWORD pdwActiveProtocol) {
    if (seam == nullptr) return SCARD_E_NO_SERVICE;
    std::uint32_t protocol = SCARD_PROTOCOL_T1;
    LONG code = seam->reconnect ? seam->reconnect(seam->self, hCard, dwShareMode,
                                                  dwPreferredProtocols, dwInitialization, &protocol)
                                : 0;
    assign(pdwActiveProtocol, protocol);
    return code;
}

LONG WINAPI SCardDisconnect(SCARDHANDLE hCard, DWORD dwDisposition) {
    if (seam == nullptr) return SCARD_E_NO_SERVICE;
    return seam->disconnect ? seam->disconnect(seam->self, hCard, dwDisposition) : 0;
}

LONG WINAPI SCardBeginTransaction(SCARDHANDLE hCard) {
    if (seam == nullptr) return SCARD_E_NO_SERVICE;
    return seam->beginTransaction ? seam->beginTransaction(seam->self, hCard) : 0;
}

LONG WINAPI SCardEndTransaction(SCARDHANDLE hCard, DWORD dwDisposition) {
    if (seam == nullptr) return SCARD_E_NO_SERVICE;
    return seam->endTransaction ? seam->endTransaction(seam->self, hCard, dwDisposition) : 0;
}

LONG WINAPI SCardStatusW(SCARDHANDLE hCard, LPWSTR mszReaderNames, LPDWORD pcchReaderLen,
                         LPDWORD pdwState, LPDWORD pdwProtocol, LPBYTE pbAtr, LPDWORD pcbAtrLen) {
    if (seam == nullptr) return SCARD_E_NO_SERVICE;
    std::uint32_t state = 0;
    std::uint32_t protocol = SCARD_PROTOCOL_T1;
    std::uint8_t atr[longestAtr] = {};
    std::uint32_t atrLength = longestAtr;
    if (seam->status) {
        LONG code = seam->status(seam->self, hCard, &state, &protocol, atr, &atrLength);
        if (code != SCARD_S_SUCCESS) return code;
    } else {
        atrLength = 0;
    }
    assign(pdwState, state);
    assign(pdwProtocol, protocol);
    if (pcbAtrLen != nullptr) {
        const DWORD room = *pcbAtrLen;
        *pcbAtrLen = atrLength;
        if (pbAtr != nullptr) {
            if (room < atrLength) return SCARD_E_INSUFFICIENT_BUFFER;
            std::memcpy(pbAtr, atr, atrLength);
        }
    }
    return writeReaderName(mszReaderNames, pcchReaderLen, 2);
}

LONG WINAPI SCardTransmit(SCARDHANDLE hCard, LPCSCARD_IO_REQUEST pioSendPci,
                          const BYTE* pbSendBuffer, DWORD cbSendLength, LPSCARD_IO_REQUEST,
                          LPBYTE pbRecvBuffer, LPDWORD pcbRecvLength) {
    if (seam == nullptr || seam->transmit == nullptr) return SCARD_E_NO_SERVICE;
    if (pbSendBuffer == nullptr || pbRecvBuffer == nullptr || pcbRecvLength == nullptr) {
        return SCARD_E_INVALID_PARAMETER;
    }
    std::uint32_t length = *pcbRecvLength;
    LONG code =
        seam->transmit(seam->self, hCard, pioSendPci == nullptr ? 0 : pioSendPci->dwProtocol,
                       pbSendBuffer, cbSendLength, pbRecvBuffer, &length);
    *pcbRecvLength = length;
    return code;
}

}  // extern "C"
