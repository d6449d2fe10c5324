// One HTTP request and its reply over libcurl, driven step by step: each step waits no longer than
// its time-out, and of a reply's body no more is held than one piece.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/win32.h"

namespace KelmoraID::platform {

/// In milliseconds; 0 and below wait without end.
struct HttpTimeouts {
    int resolve;
    int connect;
    int send;
    int receive;
};

struct HttpRequest {
    bool secure;
    std::string host;
    std::uint16_t port;
    std::string path;  ///< with the query, if there is one
    std::string verb;
    std::vector<std::string> headers;  ///< whole lines without their ends; no others are added but
                                       ///< those that the transfer itself needs
    std::string body;
};

/// The steps come in the order of the functions. Each gives 0 or an ERROR_WINHTTP code.
///
/// Proxies are never used, redirects never followed, and no file or variable of the user's is read.
/// A server's certificate is always checked against the machine's store.
class HttpExchange {
public:
    HttpExchange(HttpRequest request, const HttpTimeouts& timeouts);
    ~HttpExchange();
    HttpExchange(const HttpExchange&) = delete;
    HttpExchange& operator=(const HttpExchange&) = delete;

    /// Resolves, connects and sends, each within its own time-out.
    DWORD send();
    /// Waits for the end of the reply's header within the receive time-out.
    DWORD receiveHeader();
    /// Waits within the receive time-out until a part of the body is there, or its end.
    /// available is the length of that part, at most pieceLimit, or 0 at the end.
    DWORD waitForData(std::size_t& available);
    /// Takes bytes of the part that is there; gives their number.
    std::size_t take(std::span<BYTE> to);

    static constexpr std::size_t pieceLimit = 8192;

private:
    struct Transfer;
    std::unique_ptr<Transfer> transfer_;
};

}  // namespace KelmoraID::platform
