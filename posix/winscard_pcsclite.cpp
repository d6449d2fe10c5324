// WinSCard over PC/SC lite: the same calls with 16-bit text and 32-bit numbers. PC/SC lite has most
// of them under the same names, so its library is loaded and its calls are reached by pointers; its
// names must not become ours, nor ours its.
#include <dlfcn.h>

#include <algorithm>
#include <exception>
#include <string>

#include "platform/win32.h"
#include "posix/utf_text.h"

// PC/SC lite's own declarations, in a namespace of their own: its DWORD has 8 bytes. A function
// with C linkage is the same one in every namespace, hence the other names.
#define SCardEstablishContext LiteEstablishContext
#define SCardReleaseContext LiteReleaseContext
#define SCardListReaders LiteListReaders
#define SCardConnect LiteConnect
#define SCardReconnect LiteReconnect
#define SCardDisconnect LiteDisconnect
#define SCardBeginTransaction LiteBeginTransaction
#define SCardEndTransaction LiteEndTransaction
#define SCardStatus LiteStatus
#define SCardTransmit LiteTransmit
#define g_rgSCardT0Pci LiteT0Pci
#define g_rgSCardT1Pci LiteT1Pci
namespace lite {
#include <winscard.h>
}
#undef SCardEstablishContext
#undef SCardReleaseContext
#undef SCardListReaders
#undef SCardConnect
#undef SCardReconnect
#undef SCardDisconnect
#undef SCardBeginTransaction
#undef SCardEndTransaction
#undef SCardStatus
#undef SCardTransmit
#undef g_rgSCardT0Pci
#undef g_rgSCardT1Pci
// The macros of that header name its types without their namespace.
#undef SCARD_S_SUCCESS
#undef SCARD_E_NO_MEMORY
#undef SCARD_E_INSUFFICIENT_BUFFER
#undef SCARD_E_NO_SERVICE

static_assert(sizeof(SCARD_IO_REQUEST) == 8 && sizeof(LONG) == 4 && sizeof(DWORD) == 4);
static_assert(sizeof(SCARDCONTEXT) >= sizeof(lite::SCARDCONTEXT) &&
              sizeof(SCARDHANDLE) >= sizeof(lite::SCARDHANDLE));

namespace KelmoraID::platform {
namespace {

struct Calls {
    decltype(&lite::LiteEstablishContext) establishContext = nullptr;
    decltype(&lite::LiteReleaseContext) releaseContext = nullptr;
    decltype(&lite::LiteListReaders) listReaders = nullptr;
    decltype(&lite::LiteConnect) connect = nullptr;
    decltype(&lite::LiteReconnect) reconnect = nullptr;
    decltype(&lite::LiteDisconnect) disconnect = nullptr;
    decltype(&lite::LiteBeginTransaction) beginTransaction = nullptr;
    decltype(&lite::LiteEndTransaction) endTransaction = nullptr;
    decltype(&lite::LiteStatus) status = nullptr;
    decltype(&lite::LiteTransmit) transmit = nullptr;
    bool complete = true;

    // The library stays loaded: it keeps its connections to the service in itself.
    Calls() {
        void* library = dlopen("libpcsclite.so.1", RTLD_NOW | RTLD_LOCAL);
        const auto find = [this, library](auto& call, const char* name) {
            if (library != nullptr) {
                call =
                    reinterpret_cast<std::remove_reference_t<decltype(call)>>(dlsym(library, name));
            }
            complete = complete && call != nullptr;
        };
        find(establishContext, "SCardEstablishContext");
        find(releaseContext, "SCardReleaseContext");
        find(listReaders, "SCardListReaders");
        find(connect, "SCardConnect");
        find(reconnect, "SCardReconnect");
        find(disconnect, "SCardDisconnect");
        find(beginTransaction, "SCardBeginTransaction");
        find(endTransaction, "SCardEndTransaction");
        find(status, "SCardStatus");
        find(transmit, "SCardTransmit");
    }
};

// Runs a call over PC/SC lite. Without its library there is no service.
template <typename Work>
LONG with(Work work) {
    try {
        static const Calls calls;
        return calls.complete ? work(calls) : SCARD_E_NO_SERVICE;
    } catch (const std::exception&) {
        return SCARD_E_NO_MEMORY;
    }
}

LONG codeOf(lite::LONG code) {
    return static_cast<LONG>(code);
}

// PC/SC lite gives a set of flags where WinSCard gives the furthest state alone.
DWORD fromLiteState(lite::DWORD state) {
    struct Row {
        lite::DWORD flag;
        DWORD state;
    };
    constexpr Row rows[] = {{0x40, 6}, {0x20, 5}, {0x10, 4}, {0x08, 3}, {0x04, 2}, {0x02, 1}};
    for (const Row& row : rows) {
        if ((state & row.flag) != 0) return row.state;
    }
    return 0;
}

}  // namespace
}  // namespace KelmoraID::platform

using namespace KelmoraID::platform;

const SCARD_IO_REQUEST g_rgSCardT0Pci = {1, sizeof(SCARD_IO_REQUEST)};
const SCARD_IO_REQUEST g_rgSCardT1Pci = {2, sizeof(SCARD_IO_REQUEST)};

LONG WINAPI SCardEstablishContext(DWORD dwScope, LPCVOID pvReserved1, LPCVOID pvReserved2,
                                  LPSCARDCONTEXT phContext) {
    return with([&](const Calls& calls) {
        lite::SCARDCONTEXT context = 0;
        const lite::LONG code = calls.establishContext(dwScope, pvReserved1, pvReserved2, &context);
        *phContext = static_cast<SCARDCONTEXT>(context);
        return codeOf(code);
    });
}

LONG WINAPI SCardReleaseContext(SCARDCONTEXT hContext) {
    return with([&](const Calls& calls) {
        return codeOf(calls.releaseContext(static_cast<lite::SCARDCONTEXT>(hContext)));
    });
}

// PC/SC lite knows no groups of readers: a filter is passed over by it, and so here.
LONG WINAPI SCardListReadersW(SCARDCONTEXT hContext, LPCWSTR, LPWSTR mszReaders,
                              LPDWORD pcchReaders) {
    return with([&](const Calls& calls) {
        const auto context = static_cast<lite::SCARDCONTEXT>(hContext);
        lite::DWORD length = 0;
        LONG code = codeOf(calls.listReaders(context, nullptr, nullptr, &length));
        if (code != SCARD_S_SUCCESS) return code;
        std::string names(length, '\0');
        code = codeOf(calls.listReaders(context, nullptr, names.data(), &length));
        if (code != SCARD_S_SUCCESS) return code;
        names.resize(std::min<std::size_t>(names.size(), length));
        const std::u16string text = utf16Of(names);
        const DWORD room = *pcchReaders;
        *pcchReaders = static_cast<DWORD>(text.size());
        if (mszReaders == nullptr) return SCARD_S_SUCCESS;
        if (room < text.size()) return SCARD_E_INSUFFICIENT_BUFFER;
        std::copy(text.begin(), text.end(), mszReaders);
        return SCARD_S_SUCCESS;
    });
}

LONG WINAPI SCardConnectW(SCARDCONTEXT hContext, LPCWSTR szReader, DWORD dwShareMode,
                          DWORD dwPreferredProtocols, LPSCARDHANDLE phCard,
                          LPDWORD pdwActiveProtocol) {
    return with([&](const Calls& calls) {
        lite::SCARDHANDLE card = 0;
        lite::DWORD protocol = 0;
        const lite::LONG code =
            calls.connect(static_cast<lite::SCARDCONTEXT>(hContext), utf8Of(szReader).c_str(),
                          dwShareMode, dwPreferredProtocols, &card, &protocol);
        *phCard = static_cast<SCARDHANDLE>(card);
        *pdwActiveProtocol = static_cast<DWORD>(protocol);
        return codeOf(code);
    });
}

LONG WINAPI SCardReconnect(SCARDHANDLE hCard, DWORD dwShareMode, DWORD dwPreferredProtocols,
                           DWORD dwInitialization, LPDWORD pdwActiveProtocol) {
    return with([&](const Calls& calls) {
        lite::DWORD protocol = 0;
        const lite::LONG code = calls.reconnect(static_cast<lite::SCARDHANDLE>(hCard), dwShareMode,
                                                dwPreferredProtocols, dwInitialization, &protocol);
        if (pdwActiveProtocol != nullptr) *pdwActiveProtocol = static_cast<DWORD>(protocol);
        return codeOf(code);
    });
}

LONG WINAPI SCardDisconnect(SCARDHANDLE hCard, DWORD dwDisposition) {
    return with([&](const Calls& calls) {
        return codeOf(calls.disconnect(static_cast<lite::SCARDHANDLE>(hCard), dwDisposition));
    });
}

LONG WINAPI SCardBeginTransaction(SCARDHANDLE hCard) {
    return with([&](const Calls& calls) {
        return codeOf(calls.beginTransaction(static_cast<lite::SCARDHANDLE>(hCard)));
    });
}

LONG WINAPI SCardEndTransaction(SCARDHANDLE hCard, DWORD dwDisposition) {
    return with([&](const Calls& calls) {
        return codeOf(calls.endTransaction(static_cast<lite::SCARDHANDLE>(hCard), dwDisposition));
    });
}

// The reader's name is not in use.
LONG WINAPI SCardStatusW(SCARDHANDLE hCard, LPWSTR, LPDWORD, LPDWORD pdwState, LPDWORD pdwProtocol,
                         LPBYTE pbAtr, LPDWORD pcbAtrLen) {
    return with([&](const Calls& calls) {
        lite::BYTE atr[MAX_ATR_SIZE] = {};
        lite::DWORD atrLength = sizeof(atr);
        lite::DWORD state = 0;
        lite::DWORD protocol = 0;
        const LONG code = codeOf(calls.status(static_cast<lite::SCARDHANDLE>(hCard), nullptr,
                                              nullptr, &state, &protocol, atr, &atrLength));
        if (code != SCARD_S_SUCCESS) return code;
        if (pdwState != nullptr) *pdwState = fromLiteState(state);
        if (pdwProtocol != nullptr) *pdwProtocol = static_cast<DWORD>(protocol);
        if (pbAtr == nullptr) return code;
        const DWORD room = *pcbAtrLen;
        *pcbAtrLen = static_cast<DWORD>(std::min<lite::DWORD>(atrLength, sizeof(atr)));
        if (room < *pcbAtrLen) return SCARD_E_INSUFFICIENT_BUFFER;
        std::copy_n(atr, *pcbAtrLen, pbAtr);
        return code;
    });
}

LONG WINAPI SCardTransmit(SCARDHANDLE hCard, LPCSCARD_IO_REQUEST pioSendPci, LPCBYTE pbSendBuffer,
                          DWORD cbSendLength, LPSCARD_IO_REQUEST pioRecvPci, LPBYTE pbRecvBuffer,
                          LPDWORD pcbRecvLength) {
    return with([&](const Calls& calls) {
        const lite::SCARD_IO_REQUEST send{pioSendPci->dwProtocol, sizeof(send)};
        lite::SCARD_IO_REQUEST receive = send;
        // The service hangs up on a caller that names more room than the longest reply needs.
        lite::DWORD length = std::min<lite::DWORD>(*pcbRecvLength, MAX_BUFFER_SIZE_EXTENDED);
        const lite::LONG code =
            calls.transmit(static_cast<lite::SCARDHANDLE>(hCard), &send, pbSendBuffer, cbSendLength,
                           &receive, pbRecvBuffer, &length);
        *pcbRecvLength = static_cast<DWORD>(length);
        if (pioRecvPci != nullptr) {
            *pioRecvPci = {static_cast<DWORD>(receive.dwProtocol), sizeof(SCARD_IO_REQUEST)};
        }
        return codeOf(code);
    });
}
