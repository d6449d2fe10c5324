#include "pairing/service_exchange.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "pairing/service_log.h"

namespace KelmoraID {
namespace {

constexpr DWORD largestChunk = 4000;
constexpr std::uint64_t refusedTotal = 4001;

// quirk: narrow-agent. 8-bit text where the platform expects wide text: servers know the client by
// what comes of it. The zero bytes behind it end it for a reader of wide text inside the array.
alignas(WCHAR) constexpr char agentText[32] = "user agent AdAttributeService";
static_assert(sizeof(agentText) % sizeof(WCHAR) == 0);
static_assert(agentText[sizeof(agentText) - 2] == 0 && agentText[sizeof(agentText) - 1] == 0);

// quirk: charset-colon. "charset:" and not "charset=" (RFC 9110): a service may compare it.
constexpr const WCHAR* headerText =
    WIDE_TEXT("Content-Type: application/json; charset: utf-8\r\nAccept: application/json\r\n");
constexpr DWORD headerIsTerminated = static_cast<DWORD>(-1);

class InternetHandle {
public:
    explicit InternetHandle(HINTERNET handle) : handle_(handle) {}
    ~InternetHandle() {
        if (handle_ != nullptr) WinHttpCloseHandle(handle_);
    }
    InternetHandle(const InternetHandle&) = delete;
    InternetHandle& operator=(const InternetHandle&) = delete;

    HINTERNET get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }

private:
    HINTERNET handle_;
};

// The gated line about a call that has just failed, with the last error.
void logFailure(bool debug, const char* format) {
    const DWORD error = GetLastError();
    logDebugIf(debug, fmt::format(fmt::runtime(format), error));
}

bool refuseReply() {
    static constexpr const char* text = "Receiving anomalous data. Abort.";
    logToFile(serviceLogScope, text);
    logError(text);
    return false;
}

// Reads the reply to its end, chunk by chunk, and forgets it.
bool readReply(HINTERNET request, bool debug, const ExchangeClock& now,
               std::chrono::steady_clock::time_point deadline) {
    std::uint64_t total = 0;
    for (;;) {
        DWORD count = 0;
        if (!WinHttpQueryDataAvailable(request, &count)) {
            logFailure(debug, "AdAttributeService: WinHttpQueryDataAvailable error: '{}'. Abort.");
            return false;
        }
        if (count == 0) return true;
        if (count > largestChunk || total >= refusedTotal || now() >= deadline) {
            return refuseReply();
        }
        std::vector<char> buffer(count + std::size_t{1});
        DWORD bytesRead = 0;
        if (!WinHttpReadData(request, buffer.data(), count, &bytesRead)) {
            const DWORD error = GetLastError();
            logToFile(serviceLogScope, "Could not read data from the server's response. Abort.");
            logDebugIf(debug, fmt::format("AdAttributeService: WinHttpReadData error: '{}'. Abort.",
                                          error));
            return false;
        }
        if (bytesRead == 0) {
            const DWORD error = GetLastError();
            logToFile(serviceLogScope, "Unexpected error. No data was read? Abort.");
            logDebugIf(debug,
                       fmt::format("Unexpected error ('{}'). No data was read? Abort.", error));
            return false;
        }
        total += bytesRead;
        logDebugIf(debug, fmt::format("AdAttributeService: Dada size: '{}'; total: '{}'.",
                                      bytesRead, total));
        buffer.back() = '\0';
        logDebugIf(debug, fmt::format("AdAttributeService: Dada: '{}'", buffer.data()));
    }
}

}  // namespace

bool postToService(ServiceScheme scheme, const WideString& host, std::uint16_t port,
                   const std::string& body, bool debug, const ExchangeClock& now) {
    // The handles close in the opposite order: request, connection, session.
    const InternetHandle session(WinHttpOpen(reinterpret_cast<LPCWSTR>(agentText),
                                             WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, nullptr, nullptr,
                                             0));
    if (!session) {
        logFailure(debug, "AdAttributeService: WinHttpOpen error: '{}'.");
        return false;
    }
    const InternetHandle connection(WinHttpConnect(session.get(), host.c_str(), port, 0));
    if (!connection) {
        logFailure(debug, "AdAttributeService: WinHttpConnect error: '{}'.");
        return false;
    }
    LPCWSTR acceptedTypes[] = {WIDE_TEXT("application/json; charset=utf-8"), nullptr};
    const InternetHandle request(WinHttpOpenRequest(
        connection.get(), WIDE_TEXT("POST"), WIDE_TEXT("/registercard"), nullptr, nullptr,
        acceptedTypes, scheme == ServiceScheme::https ? WINHTTP_FLAG_SECURE : 0));
    if (!request) {
        logFailure(debug, "AdAttributeService: WinHttpOpenRequest error: '{}'.");
        return false;
    }
    WinHttpSetTimeouts(request.get(), 3000, 3000, 4000, 6000);

    const auto deadline = now() + exchangeBudget;
    std::string sent = body.c_str();  // Up to the first NUL.
    const DWORD length = static_cast<DWORD>(sent.size());
    if (!WinHttpSendRequest(request.get(), headerText, headerIsTerminated, sent.data(), length,
                            length, 0)) {
        logFailure(debug, "AdAttributeService: WinHttpSendRequest error: '{}'.");
        return false;
    }
    if (!WinHttpReceiveResponse(request.get(), nullptr)) {
        logFailure(debug, "AdAttributeService: WinHttpReceiveResponse error: '{}'.");
        return false;
    }
    return readReply(request.get(), debug, now, deadline);
}

}  // namespace KelmoraID
