#include "support/scripted_service.h"

#include <gtest/gtest.h>

#include <cstring>

#include "posix/utf_text.h"

namespace KelmoraID::testing {
namespace {

const HINTERNET session = reinterpret_cast<HINTERNET>(0x51);
const HINTERNET connection = reinterpret_cast<HINTERNET>(0x52);
const HINTERNET request = reinterpret_cast<HINTERNET>(0x53);

// Not by the platform's call, which a test may let fail.
std::string utf8(LPCWSTR text) {
    return platform::utf8Of(text);
}

// The 8-bit text as the platform sees it: pairs of bytes up to one that is zero.
void expectAgentUnwidened(LPCWSTR agent) {
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(agent) % alignof(WCHAR), 0U);
    const std::string expected = "user agent AdAttributeService";
    EXPECT_EQ(std::memcmp(agent, expected.c_str(), expected.size() + 1), 0);
    std::size_t units = 0;
    for (WCHAR unit{};; ++units) {
        std::memcpy(&unit, reinterpret_cast<const char*>(agent) + units * sizeof(unit),
                    sizeof(unit));
        if (unit == 0) break;
    }
    EXPECT_EQ(units, (expected.size() + 1) / 2);
}

}  // namespace

ScriptedService::ScriptedService() {
    PlatformCalls& calls = platformCalls();
    calls.WinHttpOpen = [this](LPCWSTR agent, DWORD access, LPCWSTR proxy, LPCWSTR bypass,
                               DWORD flags) -> HINTERNET {
        expectAgentUnwidened(agent);
        EXPECT_EQ(access, 0U);
        EXPECT_EQ(proxy, nullptr);
        EXPECT_EQ(bypass, nullptr);
        EXPECT_EQ(flags, 0U);
        exchanges.push_back({});
        next_ = 0;
        return session;
    };
    calls.WinHttpConnect = [this](HINTERNET handle, LPCWSTR host, INTERNET_PORT port,
                                  DWORD reserved) -> HINTERNET {
        EXPECT_EQ(handle, session);
        EXPECT_EQ(reserved, 0U);
        exchanges.back().host = utf8(host);
        exchanges.back().port = port;
        return connection;
    };
    calls.WinHttpOpenRequest = [this](HINTERNET handle, LPCWSTR verb, LPCWSTR path, LPCWSTR version,
                                      LPCWSTR referrer, LPCWSTR* accepted,
                                      DWORD flags) -> HINTERNET {
        EXPECT_EQ(handle, connection);
        EXPECT_EQ(utf8(verb), "POST");
        EXPECT_EQ(utf8(path), "/registercard");
        EXPECT_EQ(version, nullptr);
        EXPECT_EQ(referrer, nullptr);
        EXPECT_EQ(utf8(accepted[0]), "application/json; charset=utf-8");
        EXPECT_EQ(accepted[1], nullptr);
        exchanges.back().flags = flags;
        return request;
    };
    calls.WinHttpSetTimeouts = [](HINTERNET handle, int resolve, int connect, int send,
                                  int receive) -> BOOL {
        EXPECT_EQ(handle, request);
        EXPECT_EQ(resolve, 3000);
        EXPECT_EQ(connect, 3000);
        EXPECT_EQ(send, 4000);
        EXPECT_EQ(receive, 6000);
        return TRUE;
    };
    calls.WinHttpSendRequest = [this](HINTERNET handle, LPCWSTR headers, DWORD headersLength,
                                      LPVOID body, DWORD bodyLength, DWORD totalLength,
                                      DWORD_PTR context) -> BOOL {
        EXPECT_EQ(handle, request);
        EXPECT_EQ(utf8(headers),
                  "Content-Type: application/json; charset: utf-8\r\nAccept: application/json\r\n");
        EXPECT_EQ(headersLength, 0xFFFFFFFFU);
        EXPECT_EQ(context, 0U);
        Exchange& exchange = exchanges.back();
        exchange.body.assign(static_cast<const char*>(body), bodyLength);
        exchange.bodyLength = bodyLength;
        exchange.totalLength = totalLength;
        return !fails("WinHttpSendRequest");
    };
    calls.WinHttpReceiveResponse = [this](HINTERNET handle, LPVOID reserved) -> BOOL {
        EXPECT_EQ(handle, request);
        EXPECT_EQ(reserved, nullptr);
        return !fails("WinHttpReceiveResponse");
    };
    calls.WinHttpQueryDataAvailable = [this](HINTERNET handle, LPDWORD count) -> BOOL {
        EXPECT_EQ(handle, request);
        *count = next_ < reply.size() ? reply[next_].announced : 0;
        return !fails("WinHttpQueryDataAvailable");
    };
    calls.WinHttpReadData = [this](HINTERNET handle, LPVOID buffer, DWORD count,
                                   LPDWORD bytesRead) -> BOOL {
        EXPECT_EQ(handle, request);
        const Chunk& chunk = reply.at(next_);
        EXPECT_EQ(count, chunk.announced);
        // One byte more than asked for is there, and all of it is zero.
        for (DWORD i = 0; i <= count; ++i) EXPECT_EQ(static_cast<char*>(buffer)[i], 0);
        EXPECT_LE(chunk.text.size(), count);
        std::memcpy(buffer, chunk.text.data(), chunk.text.size());
        *bytesRead = static_cast<DWORD>(chunk.text.size());
        if (!endless || next_ + 1 < reply.size()) ++next_;
        return TRUE;
    };
    calls.WinHttpCloseHandle = [this](HINTERNET handle) -> BOOL {
        closed.push_back(handle == request      ? "request"
                         : handle == connection ? "connection"
                         : handle == session    ? "session"
                                                : "something else");
        return TRUE;
    };
}

bool ScriptedService::fails(const std::string& call) const {
    const auto failure = failing.find(exchanges.back().host);
    if (failure == failing.end() || failure->second.call != call) return false;
    SetLastError(failure->second.error);
    return true;
}

}  // namespace KelmoraID::testing
