// A directory service behind the WinHTTP calls of the unit tests: checks what every call is given,
// answers with chosen chunks, and records the order in which the handles close.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/platform_calls.h"

namespace KelmoraID::testing {

class ScriptedService {
public:
    ScriptedService();
    ScriptedService(const ScriptedService&) = delete;
    ScriptedService& operator=(const ScriptedService&) = delete;

    /// One step of a reply: what WinHttpQueryDataAvailable announces and what WinHttpReadData
    /// gives.
    struct Chunk {
        DWORD announced;
        std::string text;
    };
    /// The reply of each exchange; behind the last chunk stands the end. Repeats the last chunk
    /// for ever if endless.
    std::vector<Chunk> reply;
    bool endless = false;

    /// What one exchange brought.
    struct Exchange {
        std::string host;
        INTERNET_PORT port;
        DWORD flags;
        std::string body;
        DWORD bodyLength;
        DWORD totalLength;
    };
    std::vector<Exchange> exchanges;
    /// The handles in the order of their closing, by kind: "request", "connection", "session".
    std::vector<std::string> closed;
    /// The call that fails in an exchange with a host, and the last error that it leaves.
    struct Failure {
        const char* call;
        DWORD error;
    };
    static constexpr Failure unreachable{"WinHttpSendRequest", 12029};
    std::map<std::string, Failure> failing;

private:
    bool fails(const std::string& call) const;

    std::size_t next_ = 0;
};

}  // namespace KelmoraID::testing
