// WinSCard over PC/SC lite: the same calls with 16-bit text and 32-bit numbers. PC/SC lite has most
// of them under the same names, so its library is loaded and its calls are reached by pointers; its
// names must not become ours, nor ours its.
#include <dlfcn.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

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
#undef SCARD_E_INVALID_PARAMETER
#undef SCARD_E_NO_MEMORY
#undef SCARD_E_INSUFFICIENT_BUFFER
#undef SCARD_E_NO_SERVICE
#undef SCARD_E_UNSUPPORTED_FEATURE
#undef SCARD_AUTOALLOCATE
#undef SCARD_PROTOCOL_RAW

static_assert(sizeof(SCARD_IO_REQUEST) == 8 && sizeof(LONG) == 4 && sizeof(DWORD) == 4);
static_assert(sizeof(SCARDCONTEXT) >= sizeof(lite::SCARDCONTEXT) &&
              sizeof(SCARDHANDLE) >= sizeof(lite::SCARDHANDLE));

namespace KelmoraID::platform {
namespace {

constexpr LONG success = 0;
constexpr LONG invalidParameter = static_cast<LONG>(0x80100004);
constexpr LONG noMemory = static_cast<LONG>(0x80100006);
constexpr LONG insufficientBuffer = static_cast<LONG>(0x80100008);
constexpr LONG noService = static_cast<LONG>(0x8010001D);
constexpr LONG unsupportedFeature = static_cast<LONG>(0x80100022);

// A length that asks the platform for memory of its own: it would have to be freed by a call that
// nobody here makes.
constexpr DWORD autoAllocate = 0xFFFFFFFF;

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
        return calls.complete ? work(calls) : noService;
    } catch (const std::exception&) {
        return noMemory;
    }
}

LONG codeOf(lite::LONG code) {
    return static_cast<LONG>(code);
}

// The raw protocol has another number on either side; T=0 and T=1 have not.
constexpr DWORD ourRaw = 0x00010000;
constexpr lite::DWORD liteRaw = 0x0004;

lite::DWORD toLiteProtocols(DWORD protocols) {
    return (protocols & ~ourRaw) | ((protocols & ourRaw) != 0 ? liteRaw : 0);
}

DWORD fromLiteProtocol(lite::DWORD protocol) {
    return protocol == liteRaw ? ourRaw : static_cast<DWORD>(protocol);
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

// Hands a multi-string out by the two-call protocol; lengths count 16-bit units.
LONG deliver(std::u16string_view text, LPWSTR buffer, DWORD* length) {
    const DWORD room = *length;
    *length = static_cast<DWORD>(text.size());
    if (buffer == nullptr) return success;
    if (room < text.size()) return insufficientBuffer;
    std::copy(text.begin(), text.end(), buffer);
    return success;
}

}  // namespace
}  // namespace KelmoraID::platform

using namespace KelmoraID::platform;

const SCARD_IO_REQUEST g_rgSCardT0Pci = {1, sizeof(SCARD_IO_REQUEST)};
const SCARD_IO_REQUEST g_rgSCardT1Pci = {2, sizeof(SCARD_IO_REQUEST)};

LONG WINAPI SCardEstablishContext(DWORD dwScope, LPCVOID pvReserved1, LPCVOID pvReserved2,
                                  LPSCARDCONTEXT phContext) {
    return with([&](const Calls& calls) {
        if (phContext == nullptr) return invalidParameter;
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
        if (pcchReaders == nullptr) return invalidParameter;
        if (*pcchReaders == autoAllocate && mszReaders != nullptr) return unsupportedFeature;
        const auto context = static_cast<lite::SCARDCONTEXT>(hContext);
        std::string names;
        LONG code = insufficientBuffer;
        // A reader may come between the two calls.
        for (int tries = 0; code == insufficientBuffer && tries < 3; ++tries) {
            lite::DWORD length = 0;
            code = codeOf(calls.listReaders(context, nullptr, nullptr, &length));
            if (code != success) return code;
            names.resize(length);
            code = codeOf(calls.listReaders(context, nullptr, names.data(), &length));
            names.resize(std::min<std::size_t>(names.size(), length));
        }
        if (code != success) return code;
        return deliver(utf16Of(names), mszReaders, pcchReaders);
    });
}

LONG WINAPI SCardConnectW(SCARDCONTEXT hContext, LPCWSTR szReader, DWORD dwShareMode,
                          DWORD dwPreferredProtocols, LPSCARDHANDLE phCard,
                          LPDWORD pdwActiveProtocol) {
    return with([&](const Calls& calls) {
        if (szReader == nullptr || phCard == nullptr || pdwActiveProtocol == nullptr) {
            return invalidParameter;
        }
        lite::SCARDHANDLE card = 0;
        lite::DWORD protocol = 0;
        const lite::LONG code =
            calls.connect(static_cast<lite::SCARDCONTEXT>(hContext), utf8Of(szReader).c_str(),
                          dwShareMode, toLiteProtocols(dwPreferredProtocols), &card, &protocol);
        *phCard = static_cast<SCARDHANDLE>(card);
        *pdwActiveProtocol = fromLiteProtocol(protocol);
        return codeOf(code);
    });
}

LONG WINAPI SCardReconnect(SCARDHANDLE hCard, DWORD dwShareMode, DWORD dwPreferredProtocols,
                           DWORD dwInitialization, LPDWORD pdwActiveProtocol) {
    return with([&](const Calls& calls) {
        lite::DWORD protocol = 0;
        const lite::LONG code =
            calls.reconnect(static_cast<lite::SCARDHANDLE>(hCard), dwShareMode,
                            toLiteProtocols(dwPreferredProtocols), dwInitialization, &protocol);
        if (pdwActiveProtocol != nullptr) *pdwActiveProtocol = fromLiteProtocol(protocol);
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

LONG WINAPI SCardStatusW(SCARDHANDLE hCard, LPWSTR mszReaderNames, LPDWORD pcchReaderLen,
                         LPDWORD pdwState, LPDWORD pdwProtocol, LPBYTE pbAtr, LPDWORD pcbAtrLen) {
    return with([&](const Calls& calls) {
        if ((pcchReaderLen != nullptr && *pcchReaderLen == autoAllocate &&
             mszReaderNames != nullptr) ||
            (pcbAtrLen != nullptr && *pcbAtrLen == autoAllocate && pbAtr != nullptr)) {
            return unsupportedFeature;
        }
        std::vector<char> name(MAX_READERNAME + 1);
        lite::BYTE atr[MAX_ATR_SIZE] = {};
        lite::DWORD nameLength = MAX_READERNAME;
        lite::DWORD atrLength = sizeof(atr);
        lite::DWORD state = 0;
        lite::DWORD protocol = 0;
        LONG code = codeOf(calls.status(static_cast<lite::SCARDHANDLE>(hCard), name.data(),
                                        &nameLength, &state, &protocol, atr, &atrLength));
        if (code != success) return code;
        if (pdwState != nullptr) *pdwState = fromLiteState(state);
        if (pdwProtocol != nullptr) *pdwProtocol = fromLiteProtocol(protocol);
        if (pcchReaderLen != nullptr) {
            std::u16string names = utf16Of(name.data());
            names.append(2, u'\0');
            code = deliver(names, mszReaderNames, pcchReaderLen);
        }
        if (pcbAtrLen != nullptr) {
            const DWORD room = *pcbAtrLen;
            *pcbAtrLen = static_cast<DWORD>(std::min<lite::DWORD>(atrLength, sizeof(atr)));
            if (pbAtr != nullptr && room < *pcbAtrLen) return insufficientBuffer;
            if (pbAtr != nullptr) std::copy_n(atr, *pcbAtrLen, pbAtr);
        }
        return code;
    });
}

LONG WINAPI SCardTransmit(SCARDHANDLE hCard, LPCSCARD_IO_REQUEST pioSendPci, LPCBYTE pbSendBuffer,
                          DWORD cbSendLength, LPSCARD_IO_REQUEST pioRecvPci, LPBYTE pbRecvBuffer,
                          LPDWORD pcbRecvLength) {
    return with([&](const Calls& calls) {
        if (pioSendPci == nullptr || pbSendBuffer == nullptr || pbRecvBuffer == nullptr ||
            pcbRecvLength == nullptr) {
            return invalidParameter;
        }
        if (*pcbRecvLength == autoAllocate) return unsupportedFeature;
        const lite::SCARD_IO_REQUEST send{toLiteProtocols(pioSendPci->dwProtocol),
                                          sizeof(lite::SCARD_IO_REQUEST)};
        lite::SCARD_IO_REQUEST receive{send.dwProtocol, sizeof(lite::SCARD_IO_REQUEST)};
        // The service hangs up on a caller that names more room than the longest reply needs.
        lite::DWORD length = std::min<lite::DWORD>(*pcbRecvLength, MAX_BUFFER_SIZE_EXTENDED);
        const lite::LONG code =
            calls.transmit(static_cast<lite::SCARDHANDLE>(hCard), &send, pbSendBuffer, cbSendLength,
                           &receive, pbRecvBuffer, &length);
        *pcbRecvLength = static_cast<DWORD>(length);
        if (pioRecvPci != nullptr) {
            *pioRecvPci = {fromLiteProtocol(receive.dwProtocol), sizeof(SCARD_IO_REQUEST)};
        }
        return codeOf(code);
    });
}
