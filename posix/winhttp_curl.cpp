// WinHTTP, in its synchronous form, over libcurl (http_exchange.h).
//
// Unlike Windows, where the machine's WinHTTP settings may name one, the default proxy is no proxy;
// a redirect is a reply like any other; and a request handle serves one request.
#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/win32.h"
#include "posix/handle_table.h"
#include "posix/http_exchange.h"
#include "posix/utf_text.h"
#include "posix/winhttp_errors.h"

namespace KelmoraID::platform {
namespace {

struct Handle {
    virtual ~Handle() = default;
};

struct Session : Handle {
    std::string agent;
    HttpTimeouts timeouts{0, 60000, 30000, 30000};  // the published defaults
};

struct Connection : Handle {
    std::shared_ptr<Session> session;
    std::string host;
    INTERNET_PORT port = 0;
};

struct HeaderLine {
    std::string name;
    std::string value;
};

struct Request : Handle {
    std::shared_ptr<Connection> connection;
    std::string verb;
    std::string path;
    bool secure = false;
    std::vector<HeaderLine> headers;
    HttpTimeouts timeouts{};
    std::unique_ptr<HttpExchange> exchange;
    bool sent = false;
    bool received = false;
};

HandleTable<Handle>& handles() {
    static HandleTable<Handle> table;
    return table;
}

BOOL fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

// The object of that kind behind a handle, or null with the last error set.
template <typename Kind>
std::shared_ptr<Kind> objectOf(HINTERNET handle) {
    const std::shared_ptr<Handle> any = handles().find(handle);
    std::shared_ptr<Kind> object = std::dynamic_pointer_cast<Kind>(any);
    if (any == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
    } else if (object == nullptr) {
        SetLastError(ERROR_WINHTTP_INCORRECT_HANDLE_TYPE);
    }
    return object;
}

template <typename Kind>
HINTERNET handleOf(std::shared_ptr<Kind> object) {
    return reinterpret_cast<HINTERNET>(handles().add(std::move(object)));
}

// Text for a header: a unit of Latin-1 becomes its byte, any other and all controls a '?'. So no
// text can end a line, and an agent text that is no readable 16-bit text still gives a header.
std::string headerText(std::u16string_view text) {
    std::string result;
    for (const char16_t unit : text) {
        const bool printable = (unit >= 0x20 && unit < 0x7F) || (unit >= 0xA0 && unit < 0x100);
        result += printable || unit == u'\t' ? static_cast<char>(unit) : '?';
    }
    return result;
}

bool sameName(std::string_view left, std::string_view right) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [lower](char a, char b) { return lower(a) == lower(b); });
}

// A token of RFC 9110, section 5.6.2.
bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
    });
}

// "Name: value" lines, each ended by CR LF but perhaps the last.
std::optional<std::vector<HeaderLine>> headersOf(std::u16string_view text) {
    std::vector<HeaderLine> lines;
    while (!text.empty()) {
        const std::size_t end = text.find(u"\r\n");
        const std::string line = headerText(text.substr(0, end));
        text = end == std::u16string_view::npos ? std::u16string_view() : text.substr(end + 2);
        if (line.empty()) continue;
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos || !isToken(line.substr(0, colon))) return std::nullopt;
        const std::size_t value = line.find_first_not_of(" \t", colon + 1);
        lines.push_back({line.substr(0, colon),
                         value == std::string::npos ? std::string() : line.substr(value)});
    }
    return lines;
}

// A later line of a name takes the earlier one's place.
void setHeader(std::vector<HeaderLine>& headers, HeaderLine line) {
    const auto found = std::find_if(headers.begin(), headers.end(), [&](const HeaderLine& other) {
        return sameName(other.name, line.name);
    });
    if (found == headers.end()) {
        headers.push_back(std::move(line));
    } else {
        *found = std::move(line);
    }
}

// Lines in the form of libcurl, where those that it would add of its own accord are struck out.
std::vector<std::string> linesOf(const std::vector<HeaderLine>& headers) {
    std::vector<std::string> lines;
    const auto named = [&headers](std::string_view name) {
        return std::any_of(headers.begin(), headers.end(),
                           [&](const HeaderLine& line) { return sameName(line.name, name); });
    };
    for (const HeaderLine& line : headers) {
        lines.push_back(line.value.empty() ? line.name + ';' : line.name + ": " + line.value);
    }
    for (const char* name : {"Accept", "Content-Type", "Expect"}) {
        if (!named(name)) lines.push_back(std::string(name) + ':');
    }
    return lines;
}

}  // namespace
}  // namespace KelmoraID::platform

using namespace KelmoraID::platform;

HINTERNET WINAPI WinHttpOpen(LPCWSTR pszAgentW, DWORD dwAccessType, LPCWSTR pszProxyW,
                             LPCWSTR pszProxyBypassW, DWORD dwFlags) try {
    if (dwAccessType != WINHTTP_ACCESS_TYPE_DEFAULT_PROXY || pszProxyW != nullptr ||
        pszProxyBypassW != nullptr || dwFlags != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto session = std::make_shared<Session>();
    if (pszAgentW != nullptr) session->agent = headerText(pszAgentW);
    return handleOf(std::move(session));
} catch (const std::exception&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

HINTERNET WINAPI WinHttpConnect(HINTERNET hSession, LPCWSTR pswzServerName,
                                INTERNET_PORT nServerPort, DWORD dwReserved) try {
    const auto session = objectOf<Session>(hSession);
    if (session == nullptr) return nullptr;
    if (pswzServerName == nullptr || *pswzServerName == 0 || dwReserved != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto connection = std::make_shared<Connection>();
    connection->session = session;
    connection->host = utf8Of(pswzServerName);
    connection->port = nServerPort;
    return handleOf(std::move(connection));
} catch (const std::exception&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

HINTERNET WINAPI WinHttpOpenRequest(HINTERNET hConnect, LPCWSTR pwszVerb, LPCWSTR pwszObjectName,
                                    LPCWSTR pwszVersion, LPCWSTR pwszReferrer,
                                    LPCWSTR* ppwszAcceptTypes, DWORD dwFlags) try {
    const auto connection = objectOf<Connection>(hConnect);
    if (connection == nullptr) return nullptr;
    auto request = std::make_shared<Request>();
    request->verb = pwszVerb == nullptr ? "GET" : headerText(pwszVerb);
    if (!isToken(request->verb) || pwszVersion != nullptr ||
        (dwFlags & ~WINHTTP_FLAG_SECURE) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    request->connection = connection;
    if (pwszObjectName != nullptr) request->path = utf8Of(pwszObjectName);
    if (!request->path.starts_with('/')) request->path.insert(0, 1, '/');
    request->secure = (dwFlags & WINHTTP_FLAG_SECURE) != 0;
    request->timeouts = connection->session->timeouts;
    if (!connection->session->agent.empty()) {
        setHeader(request->headers, {"User-Agent", connection->session->agent});
    }
    if (pwszReferrer != nullptr) {
        setHeader(request->headers, {"Referer", headerText(pwszReferrer)});
    }
    std::string accepted;
    for (; ppwszAcceptTypes != nullptr && *ppwszAcceptTypes != nullptr; ++ppwszAcceptTypes) {
        accepted += (accepted.empty() ? "" : ", ") + headerText(*ppwszAcceptTypes);
    }
    if (!accepted.empty()) setHeader(request->headers, {"Accept", accepted});
    return handleOf(std::move(request));
} catch (const std::exception&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

// On a session for the requests to be opened of it, or on a request.
BOOL WINAPI WinHttpSetTimeouts(HINTERNET hInternet, int nResolveTimeout, int nConnectTimeout,
                               int nSendTimeout, int nReceiveTimeout) {
    if (std::min({nResolveTimeout, nConnectTimeout, nSendTimeout, nReceiveTimeout}) < -1) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    const HttpTimeouts timeouts{nResolveTimeout, nConnectTimeout, nSendTimeout, nReceiveTimeout};
    const std::shared_ptr<Handle> any = handles().find(hInternet);
    if (const auto session = std::dynamic_pointer_cast<Session>(any)) {
        session->timeouts = timeouts;
    } else if (const auto request = std::dynamic_pointer_cast<Request>(any)) {
        request->timeouts = timeouts;
    } else {
        return fail(any == nullptr ? ERROR_INVALID_HANDLE : ERROR_WINHTTP_INCORRECT_HANDLE_TYPE);
    }
    return TRUE;
}

// The whole body comes with the call: there is no call that would send the rest of it.
BOOL WINAPI WinHttpSendRequest(HINTERNET hRequest, LPCWSTR pwszHeaders, DWORD dwHeadersLength,
                               LPVOID lpOptional, DWORD dwOptionalLength, DWORD dwTotalLength,
                               DWORD_PTR) try {
    const auto request = objectOf<Request>(hRequest);
    if (request == nullptr) return FALSE;
    if ((lpOptional == nullptr && dwOptionalLength != 0) || dwTotalLength != dwOptionalLength) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    if (request->exchange != nullptr) return fail(ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
    std::u16string_view text;
    if (pwszHeaders != nullptr) {
        text = dwHeadersLength == 0xFFFFFFFF ? std::u16string_view(pwszHeaders)
                                             : std::u16string_view(pwszHeaders, dwHeadersLength);
    }
    auto further = headersOf(text);
    if (!further) return fail(ERROR_INVALID_PARAMETER);
    std::vector<HeaderLine> headers = request->headers;
    for (HeaderLine& line : *further) setHeader(headers, std::move(line));
    std::string body;
    if (dwOptionalLength != 0) body.assign(static_cast<const char*>(lpOptional), dwOptionalLength);
    request->exchange = std::make_unique<HttpExchange>(
        HttpRequest{request->secure, request->connection->host, request->connection->port,
                    request->path, request->verb, linesOf(headers), std::move(body)},
        request->timeouts);
    const DWORD failed = request->exchange->send();
    if (failed != 0) return fail(failed);
    request->sent = true;
    return TRUE;
} catch (const std::exception&) {
    return fail(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL WINAPI WinHttpReceiveResponse(HINTERNET hRequest, LPVOID lpReserved) try {
    const auto request = objectOf<Request>(hRequest);
    if (request == nullptr) return FALSE;
    if (lpReserved != nullptr) return fail(ERROR_INVALID_PARAMETER);
    if (!request->sent) return fail(ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
    const DWORD failed = request->exchange->receiveHeader();
    if (failed != 0) return fail(failed);
    request->received = true;
    return TRUE;
} catch (const std::exception&) {
    return fail(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL WINAPI WinHttpQueryDataAvailable(HINTERNET hRequest, LPDWORD lpdwNumberOfBytesAvailable) try {
    const auto request = objectOf<Request>(hRequest);
    if (request == nullptr) return FALSE;
    if (!request->received) return fail(ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
    std::size_t available = 0;
    const DWORD failed = request->exchange->waitForData(available);
    if (failed != 0) return fail(failed);
    if (lpdwNumberOfBytesAvailable != nullptr) {
        *lpdwNumberOfBytesAvailable = static_cast<DWORD>(available);
    }
    return TRUE;
} catch (const std::exception&) {
    return fail(ERROR_NOT_ENOUGH_MEMORY);
}

// Gives what is there, up to the count; waits only where nothing is there. 0 bytes are the end.
BOOL WINAPI WinHttpReadData(HINTERNET hRequest, LPVOID lpBuffer, DWORD dwNumberOfBytesToRead,
                            LPDWORD lpdwNumberOfBytesRead) try {
    const auto request = objectOf<Request>(hRequest);
    if (request == nullptr) return FALSE;
    if (lpBuffer == nullptr || lpdwNumberOfBytesRead == nullptr) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    *lpdwNumberOfBytesRead = 0;
    if (!request->received) return fail(ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
    std::size_t available = 0;
    const DWORD failed = request->exchange->waitForData(available);
    if (failed != 0) return fail(failed);
    *lpdwNumberOfBytesRead = static_cast<DWORD>(
        request->exchange->take({static_cast<BYTE*>(lpBuffer), dwNumberOfBytesToRead}));
    return TRUE;
} catch (const std::exception&) {
    return fail(ERROR_NOT_ENOUGH_MEMORY);
}

// What was opened of a handle keeps working until it is closed itself.
BOOL WINAPI WinHttpCloseHandle(HINTERNET hInternet) {
    return handles().remove(hInternet) == nullptr ? fail(ERROR_INVALID_HANDLE) : TRUE;
}
