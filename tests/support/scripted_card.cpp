#include "support/scripted_card.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace KelmoraID::testing {
namespace {

ScriptedCard* behindTheSeam = nullptr;

int digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    throw std::invalid_argument("not a hexadecimal digit");
}

std::string text(const ByteVector& value) {
    static const char digits[] = "0123456789ABCDEF";
    std::string result;
    for (const BYTE byte : value) {
        if (!result.empty()) result += ' ';
        result += digits[byte >> 4];
        result += digits[byte & 15];
    }
    return result;
}

}  // namespace

ByteVector bytes(std::string_view hex) {
    ByteVector result;
    int high = -1;
    for (const char c : hex) {
        if (c == ' ' || c == '\n') continue;
        if (high < 0) {
            high = digit(c);
        } else {
            result.push_back(static_cast<BYTE>(high << 4 | digit(c)));
            high = -1;
        }
    }
    if (high >= 0) throw std::invalid_argument("half a byte");
    return result;
}

ScriptedCard::ScriptedCard() {
    if (behindTheSeam != nullptr) throw std::logic_error("a card stands behind the seam already");
    behindTheSeam = this;
}

ScriptedCard::~ScriptedCard() {
    behindTheSeam = nullptr;
    if (!steps_.empty() && !reported_) {
        ADD_FAILURE() << steps_.size() << " steps were not taken; the next: "
                      << (steps_.front().kind == Kind::transmit ? text(steps_.front().command)
                                                                : "no command");
    }
}

ScriptedCard& ScriptedCard::expect(std::string_view command, std::string_view reply) {
    steps_.push_back({Kind::transmit, bytes(command), bytes(reply), 0, std::nullopt});
    return *this;
}

ScriptedCard& ScriptedCard::expectFailure(std::string_view command, LONG code,
                                          std::string_view left,
                                          std::optional<DWORD> reportedLength) {
    steps_.push_back({Kind::transmit, bytes(command), bytes(left), code, reportedLength});
    return *this;
}

ScriptedCard& ScriptedCard::expectReconnect(LONG code) {
    steps_.push_back({Kind::reconnect, {}, {}, code, std::nullopt});
    return *this;
}

ScriptedCard& ScriptedCard::expectBeginTransaction(LONG code) {
    steps_.push_back({Kind::begin, {}, {}, code, std::nullopt});
    return *this;
}

ScriptedCard& ScriptedCard::expectEndTransaction(LONG code) {
    steps_.push_back({Kind::end, {}, {}, code, std::nullopt});
    return *this;
}

std::optional<ScriptedCard::Step> ScriptedCard::take(Kind kind, const std::string& what) {
    if (steps_.empty()) {
        ADD_FAILURE() << "one step too many: " << what;
        reported_ = true;
        return std::nullopt;
    }
    if (steps_.front().kind != kind) {
        ADD_FAILURE() << "a step of another kind was expected than: " << what;
        reported_ = true;
        return std::nullopt;
    }
    Step step = steps_.front();
    steps_.pop_front();
    return step;
}

LONG ScriptedCard::transmit(DWORD protocol, const BYTE* command, DWORD length, BYTE* reply,
                            DWORD* received) {
    const ByteVector sent(command, command + length);
    exchanges_.push_back({sent, protocol, *received});
    const auto step = take(Kind::transmit, text(sent));
    if (!step) return SCARD_E_UNEXPECTED;
    if (step->command != sent) {
        ADD_FAILURE() << "the command differs\n  expected: " << text(step->command)
                      << "\n  sent:     " << text(sent);
        reported_ = true;
        return SCARD_E_UNEXPECTED;
    }
    if (step->code == 0 && step->reply.size() > *received) {
        ADD_FAILURE() << "the announced buffer of " << *received << " bytes is too small for "
                      << text(step->reply);
        reported_ = true;
        return SCARD_E_INSUFFICIENT_BUFFER;
    }
    std::copy_n(step->reply.begin(), std::min<std::size_t>(step->reply.size(), *received), reply);
    *received = step->reportedLength.value_or(static_cast<DWORD>(step->reply.size()));
    return step->code;
}

LONG ScriptedCard::reconnect(const ReconnectArguments& arguments) {
    reconnects_.push_back(arguments);
    const auto step = take(Kind::reconnect, "SCardReconnect");
    return step ? step->code : SCARD_E_UNEXPECTED;
}

LONG ScriptedCard::begin() {
    const auto step = take(Kind::begin, "SCardBeginTransaction");
    return step ? step->code : SCARD_E_UNEXPECTED;
}

LONG ScriptedCard::end(DWORD disposition) {
    endDispositions_.push_back(disposition);
    const auto step = take(Kind::end, "SCardEndTransaction");
    return step ? step->code : SCARD_E_UNEXPECTED;
}

LONG ScriptedCard::status(DWORD* protocol) {
    ++statusCalls_;
    if (statusCode_ == 0 && protocol != nullptr) *protocol = protocol_;
    return statusCode_;
}

ScriptedCard* ScriptedCard::current() {
    return behindTheSeam;
}

}  // namespace KelmoraID::testing

using KelmoraID::testing::ScriptedCard;

namespace {

// The card that a handle reaches, or none, with a failure unless the handle is 0.
ScriptedCard* reached(SCARDHANDLE hCard, const char* call) {
    ScriptedCard* card = ScriptedCard::current();
    if (hCard == 0) return nullptr;
    if (card == nullptr || hCard != ScriptedCard::handle) {
        ADD_FAILURE() << call << " on a handle that no card answers on: " << hCard;
        return nullptr;
    }
    return card;
}

}  // namespace

extern "C" {

const SCARD_IO_REQUEST g_rgSCardT0Pci = {SCARD_PROTOCOL_T0, sizeof(SCARD_IO_REQUEST)};
const SCARD_IO_REQUEST g_rgSCardT1Pci = {SCARD_PROTOCOL_T1, sizeof(SCARD_IO_REQUEST)};

LONG WINAPI SCardTransmit(SCARDHANDLE hCard, LPCSCARD_IO_REQUEST pioSendPci, LPCBYTE pbSendBuffer,
                          DWORD cbSendLength, LPSCARD_IO_REQUEST pioRecvPci, LPBYTE pbRecvBuffer,
                          LPDWORD pcbRecvLength) {
    EXPECT_EQ(pioRecvPci, nullptr) << "no receive record is passed";
    ScriptedCard* card = reached(hCard, "SCardTransmit");
    if (card == nullptr) return SCARD_E_INVALID_HANDLE;
    return card->transmit(pioSendPci->dwProtocol, pbSendBuffer, cbSendLength, pbRecvBuffer,
                          pcbRecvLength);
}

LONG WINAPI SCardReconnect(SCARDHANDLE hCard, DWORD dwShareMode, DWORD dwPreferredProtocols,
                           DWORD dwInitialization, LPDWORD pdwActiveProtocol) {
    ScriptedCard* card = reached(hCard, "SCardReconnect");
    if (card == nullptr) return SCARD_E_INVALID_HANDLE;
    return card->reconnect(
        {dwShareMode, dwPreferredProtocols, dwInitialization, pdwActiveProtocol != nullptr});
}

LONG WINAPI SCardStatusW(SCARDHANDLE hCard, LPWSTR mszReaderNames, LPDWORD pcchReaderLen,
                         LPDWORD pdwState, LPDWORD pdwProtocol, LPBYTE pbAtr, LPDWORD pcbAtrLen) {
    EXPECT_TRUE(mszReaderNames == nullptr && pcchReaderLen == nullptr && pdwState == nullptr &&
                pbAtr == nullptr && pcbAtrLen == nullptr)
        << "the protocol alone is asked for";
    ScriptedCard* card = reached(hCard, "SCardStatusW");
    if (card == nullptr) return SCARD_E_INVALID_HANDLE;
    return card->status(pdwProtocol);
}

LONG WINAPI SCardBeginTransaction(SCARDHANDLE hCard) {
    ScriptedCard* card = reached(hCard, "SCardBeginTransaction");
    return card == nullptr ? SCARD_E_INVALID_HANDLE : card->begin();
}

LONG WINAPI SCardEndTransaction(SCARDHANDLE hCard, DWORD dwDisposition) {
    ScriptedCard* card = reached(hCard, "SCardEndTransaction");
    return card == nullptr ? SCARD_E_INVALID_HANDLE : card->end(dwDisposition);
}

// The reader calls have no card behind them here: a test that needs them hooks them.
LONG WINAPI SCardEstablishContext(DWORD, LPCVOID, LPCVOID, LPSCARDCONTEXT) {
    ADD_FAILURE() << "SCardEstablishContext was not expected";
    return SCARD_E_NO_SERVICE;
}
LONG WINAPI SCardReleaseContext(SCARDCONTEXT) {
    ADD_FAILURE() << "SCardReleaseContext was not expected";
    return SCARD_E_INVALID_HANDLE;
}
LONG WINAPI SCardListReadersW(SCARDCONTEXT, LPCWSTR, LPWSTR, LPDWORD) {
    ADD_FAILURE() << "SCardListReadersW was not expected";
    return SCARD_E_NO_READERS_AVAILABLE;
}
LONG WINAPI SCardConnectW(SCARDCONTEXT, LPCWSTR, DWORD, DWORD, LPSCARDHANDLE, LPDWORD) {
    ADD_FAILURE() << "SCardConnectW was not expected";
    return SCARD_E_UNKNOWN_READER;
}
LONG WINAPI SCardDisconnect(SCARDHANDLE, DWORD) {
    ADD_FAILURE() << "SCardDisconnect was not expected";
    return SCARD_E_INVALID_HANDLE;
}
}
