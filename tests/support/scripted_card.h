// A strict card behind the card seam of the unit tests: exact commands in, chosen replies out, in
// order. One command too many, too few or different fails the test.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bytes/byte_vector.h"
#include "platform/win32.h"

namespace KelmoraID::testing {

/// Bytes from hexadecimal text; blanks are passed over.
ByteVector bytes(std::string_view hex);

/// Stands behind the SCard calls from construction to destruction; one at a time.
class ScriptedCard {
public:
    ScriptedCard();
    /// Fails the test if steps are left.
    ~ScriptedCard();
    ScriptedCard(const ScriptedCard&) = delete;
    ScriptedCard& operator=(const ScriptedCard&) = delete;

    /// The handle that the card answers on. A call on any other handle gets SCARD_E_INVALID_HANDLE
    /// and, but for a handle of 0, fails the test.
    static constexpr SCARDHANDLE handle = 0xCA4D;

    /// The next command, whole, and the reply, whole (data and status word), as hexadecimal text.
    ScriptedCard& expect(std::string_view command, std::string_view reply);
    /// The next command, and a PC/SC code instead of an answer. What stands in the caller's buffer
    /// and length afterwards: these bytes, and this length if given (else the bytes' length).
    ScriptedCard& expectFailure(std::string_view command, LONG code, std::string_view left = "",
                                std::optional<DWORD> reportedLength = std::nullopt);
    ScriptedCard& expectReconnect(LONG code = 0);
    ScriptedCard& expectBeginTransaction(LONG code = 0);
    ScriptedCard& expectEndTransaction(LONG code = 0);

    /// What SCardStatusW answers, however often it is asked.
    void setProtocol(DWORD protocol) { protocol_ = protocol; }
    void setStatusCode(LONG code) { statusCode_ = code; }

    /// What the calls brought with them.
    struct Exchange {
        ByteVector command;
        DWORD sendProtocol;
        DWORD announcedReceiveLength;
    };
    const std::vector<Exchange>& exchanges() const { return exchanges_; }
    struct ReconnectArguments {
        DWORD shareMode;
        DWORD preferredProtocols;
        DWORD initialization;
        bool wantsActiveProtocol;
    };
    const std::vector<ReconnectArguments>& reconnects() const { return reconnects_; }
    const std::vector<DWORD>& endDispositions() const { return endDispositions_; }
    int statusCalls() const { return statusCalls_; }
    /// Whether all steps have been taken.
    bool done() const { return steps_.empty(); }

    // For the calls behind the seam.
    LONG transmit(DWORD protocol, const BYTE* command, DWORD length, BYTE* reply, DWORD* received);
    LONG reconnect(const ReconnectArguments& arguments);
    LONG begin();
    LONG end(DWORD disposition);
    LONG status(DWORD* protocol);
    static ScriptedCard* current();

private:
    enum class Kind { transmit, reconnect, begin, end };
    struct Step {
        Kind kind;
        ByteVector command;
        ByteVector reply;
        LONG code;
        std::optional<DWORD> reportedLength;
    };
    std::optional<Step> take(Kind kind, const std::string& what);

    std::deque<Step> steps_;
    std::vector<Exchange> exchanges_;
    std::vector<ReconnectArguments> reconnects_;
    std::vector<DWORD> endDispositions_;
    DWORD protocol_ = SCARD_PROTOCOL_T1;
    LONG statusCode_ = 0;
    int statusCalls_ = 0;
    bool reported_ = false;
};

}  // namespace KelmoraID::testing
