#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "posix/loopback_server.h"
#include "support/log_capture.h"

namespace {

using KelmoraID::testing::deadPort;
using KelmoraID::testing::LoopbackServer;
using Peer = LoopbackServer::Peer;

constexpr DWORD timedOut = 12002;

// A session, a connection and a request of one test, with the agent and the accept list that it
// wants.
class Client {
public:
    struct Options {
        LPCWSTR agent = u"agent";
        LPCWSTR host = u"127.0.0.1";
        LPCWSTR verb = u"POST";
        LPCWSTR object = u"/registercard";
        LPCWSTR accept = nullptr;
        DWORD flags = 0;
    };
    explicit Client(INTERNET_PORT port) : Client(port, Options()) {}
    Client(INTERNET_PORT port, const Options& options) {
        session =
            WinHttpOpen(options.agent, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, nullptr, nullptr, 0);
        connection = WinHttpConnect(session, options.host, port, 0);
        LPCWSTR accept[] = {options.accept, nullptr};
        request = WinHttpOpenRequest(connection, options.verb, options.object, nullptr, nullptr,
                                     options.accept == nullptr ? nullptr : accept, options.flags);
    }
    ~Client() {
        EXPECT_EQ(WinHttpCloseHandle(request), TRUE);
        EXPECT_EQ(WinHttpCloseHandle(connection), TRUE);
        EXPECT_EQ(WinHttpCloseHandle(session), TRUE);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// 0 or the last error, of each call.
    DWORD send(const std::string& body = "{}", LPCWSTR headers = nullptr) {
        std::string bytes = body;
        const auto length = static_cast<DWORD>(bytes.size());
        return codeOf(
            WinHttpSendRequest(request, headers, 0xFFFFFFFF, bytes.data(), length, length, 0));
    }
    DWORD receive() { return codeOf(WinHttpReceiveResponse(request, nullptr)); }
    DWORD query(DWORD& count) { return codeOf(WinHttpQueryDataAvailable(request, &count)); }
    DWORD read(DWORD count, std::string& text) {
        text.assign(count + 1, '#');
        DWORD got = 0;
        const DWORD code = codeOf(WinHttpReadData(request, text.data(), count, &got));
        text.resize(got);
        return code;
    }
    /// The rest of the body, and the largest count that was told.
    DWORD readAll(std::string& body, DWORD* largest = nullptr) {
        for (;;) {
            DWORD count = 0;
            DWORD code = query(count);
            if (code != 0 || count == 0) return code;
            if (largest != nullptr) *largest = std::max(*largest, count);
            std::string piece;
            code = read(count, piece);
            if (code != 0) return code;
            EXPECT_EQ(piece.size(), count);
            body += piece;
        }
    }

    HINTERNET session;
    HINTERNET connection;
    HINTERNET request;

private:
    static DWORD codeOf(BOOL result) { return result == TRUE ? 0 : GetLastError(); }
};

// Reads a request to the end of its header and that much of a body, then sends the reply.
auto answer(const std::string& reply, std::string* request = nullptr, std::size_t body = 2) {
    return [=](Peer& peer) {
        const std::string header = peer.readUntil("\r\n\r\n");
        const std::string rest = peer.read(body);
        if (request != nullptr) *request = header + rest;
        peer.send(reply);
    };
}

std::string reply(const std::string& body, const std::string& status = "200 OK") {
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

TEST(WinHttp, SendsTheRequestAsGiven) {
    std::string request;
    std::uint16_t port = 0;
    {
        LoopbackServer server(answer(reply(""), &request, 8));
        port = server.port();
        Client::Options options;
        options.accept = u"application/json; charset=utf-8";
        Client client(port, options);
        EXPECT_EQ(client.send("{\"a\":1}\n", u"Content-Type: application/json; charset: utf-8\r\n"),
                  0U);
        EXPECT_EQ(client.receive(), 0U);
    }
    EXPECT_EQ(request, "POST /registercard HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                           "\r\nUser-Agent: agent\r\nAccept: application/json; charset=utf-8\r\n"
                           "Content-Type: application/json; charset: utf-8\r\n"
                           "Content-Length: 8\r\n\r\n{\"a\":1}\n");
}

TEST(WinHttp, PutsAHeaderOfTheSendingCallInThePlaceOfOneBefore) {
    std::string request;
    {
        LoopbackServer server(answer(reply(""), &request));
        Client::Options options;
        options.accept = u"application/json; charset=utf-8";
        Client client(server.port(), options);
        EXPECT_EQ(client.send("{}", u"accept: application/json\r\nX-Empty:\r\n"), 0U);
        EXPECT_EQ(client.receive(), 0U);
    }
    EXPECT_NE(request.find("\r\naccept: application/json\r\nX-Empty:\r\n"), std::string::npos);
    EXPECT_EQ(request.find("Accept:"), std::string::npos);
}

TEST(WinHttp, AddsNoHeadersOfItsOwn) {
    std::string request;
    std::uint16_t port = 0;
    {
        LoopbackServer server(answer(reply(""), &request, 0));
        port = server.port();
        Client::Options options;
        options.agent = nullptr;
        options.verb = nullptr;
        options.object = u"x?y=z";
        Client client(port, options);
        EXPECT_EQ(client.send(""), 0U);
        EXPECT_EQ(client.receive(), 0U);
    }
    EXPECT_EQ(request,
              "GET /x?y=z HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n\r\n");
}

TEST(WinHttp, NarrowsAnAgentTextThatIsNoText) {
    std::string request;
    {
        LoopbackServer server(answer(reply(""), &request));
        const WCHAR agent[] = {0x7375, 0x7265, u'e', 0x00E4, u'\r', u'\n', u'b', 0};
        Client::Options options;
        options.agent = agent;
        Client client(server.port(), options);
        EXPECT_EQ(client.send(), 0U);
        EXPECT_EQ(client.receive(), 0U);
    }
    EXPECT_NE(request.find("\r\nUser-Agent: ??e\xE4??b\r\n"), std::string::npos) << request;
}

TEST(WinHttp, ReadsASmallBodyInOnePiece) {
    LoopbackServer server(answer(reply("hello")));
    Client client(server.port());
    ASSERT_EQ(client.send(), 0U);
    ASSERT_EQ(client.receive(), 0U);
    DWORD count = 0;
    EXPECT_EQ(client.query(count), 0U);
    EXPECT_EQ(count, 5U);
    EXPECT_EQ(client.query(count), 0U);  // asking takes nothing
    EXPECT_EQ(count, 5U);
    std::string text;
    EXPECT_EQ(client.read(3, text), 0U);
    EXPECT_EQ(text, "hel");
    EXPECT_EQ(client.query(count), 0U);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(client.read(100, text), 0U);
    EXPECT_EQ(text, "lo");
    EXPECT_EQ(client.query(count), 0U);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(client.read(1, text), 0U);
    EXPECT_EQ(text, "");
}

TEST(WinHttp, TellsTheEndOfAnEmptyBodyAtOnce) {
    for (const std::string& text : {reply(""), std::string("HTTP/1.1 204 No Content\r\n\r\n"),
                                    std::string("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n")}) {
        LoopbackServer server(answer(text));
        Client client(server.port());
        ASSERT_EQ(client.send(), 0U);
        ASSERT_EQ(client.receive(), 0U);
        DWORD count = 1;
        EXPECT_EQ(client.query(count), 0U);
        EXPECT_EQ(count, 0U);
    }
}

TEST(WinHttp, TellsABodyOf4001BytesAsOnePiece) {
    for (const std::size_t size : {4000U, 4001U}) {
        LoopbackServer server(answer(reply(std::string(size, 'x'))));
        Client client(server.port());
        ASSERT_EQ(client.send(), 0U);
        ASSERT_EQ(client.receive(), 0U);
        DWORD count = 0;
        EXPECT_EQ(client.query(count), 0U);
        EXPECT_EQ(count, size);
    }
}

TEST(WinHttp, ReadsALargeBodyWholeInPiecesOf8KilobytesAtMost) {
    std::string body;
    for (int i = 0; i < 300000; ++i) body += static_cast<char>(i * 31 + i / 256);
    LoopbackServer server(answer(reply(body)));
    Client client(server.port());
    ASSERT_EQ(client.send(), 0U);
    ASSERT_EQ(client.receive(), 0U);
    std::string got;
    DWORD largest = 0;
    EXPECT_EQ(client.readAll(got, &largest), 0U);
    EXPECT_TRUE(got == body);
    EXPECT_LE(largest, 8192U);
}

TEST(WinHttp, ReadsAChunkedBody) {
    std::string chunks = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    std::string body;
    for (int i = 0; i < 3000; ++i) {
        chunks += "a\r\n0123456789\r\n";
        body += "0123456789";
    }
    LoopbackServer server(answer(chunks + "0\r\n\r\n"));
    Client client(server.port());
    ASSERT_EQ(client.send(), 0U);
    ASSERT_EQ(client.receive(), 0U);
    std::string got;
    DWORD largest = 0;
    EXPECT_EQ(client.readAll(got, &largest), 0U);
    EXPECT_TRUE(got == body);
    EXPECT_LE(largest, 8192U);
}

TEST(WinHttp, GivesTheBodyOfAnErrorAndOfARedirectAsItIs) {
    for (const std::string& status :
         {std::string("500 Oops"), std::string("302 Found\r\nLocation: http://127.0.0.1:1/")}) {
        LoopbackServer server(answer(reply("no", status)));
        Client client(server.port());
        ASSERT_EQ(client.send(), 0U);
        ASSERT_EQ(client.receive(), 0U);
        std::string got;
        EXPECT_EQ(client.readAll(got), 0U);
        EXPECT_EQ(got, "no");
    }
}

TEST(WinHttp, PassesOverAProvisionalReply) {
    LoopbackServer server(answer("HTTP/1.1 100 Continue\r\n\r\n" + reply("yes")));
    Client client(server.port());
    ASSERT_EQ(client.send(), 0U);
    ASSERT_EQ(client.receive(), 0U);
    std::string got;
    EXPECT_EQ(client.readAll(got), 0U);
    EXPECT_EQ(got, "yes");
}

TEST(WinHttp, HoldsNoMoreThanAPieceOfAnEndlessBody) {
    std::atomic<std::size_t> sent = 0;
    std::atomic<bool> gone = false;
    {
        LoopbackServer server([&](Peer& peer) {
            peer.readUntil("\r\n\r\n");
            peer.read(2);
            peer.send("HTTP/1.1 200 OK\r\n\r\n");
            const std::string piece(65536, 'x');
            while (peer.send(piece)) sent += piece.size();
            gone = true;
        });
        Client client(server.port());
        ASSERT_EQ(client.send(), 0U);
        ASSERT_EQ(client.receive(), 0U);
        std::vector<BYTE> buffer(8192);
        std::size_t read = 0;
        while (read < 64 * 1024 * 1024) {
            DWORD count = 0;
            ASSERT_EQ(client.query(count), 0U);
            ASSERT_GT(count, 0U);
            ASSERT_LE(count, 8192U);
            DWORD got = 0;
            ASSERT_EQ(WinHttpReadData(client.request, buffer.data(), count, &got), TRUE);
            ASSERT_EQ(got, count);
            read += got;
            // What lies between is in the machine's own buffers.
            ASSERT_LT(sent, read + 32 * 1024 * 1024);
        }
    }
    EXPECT_TRUE(gone);  // closing the handle ends it
    EXPECT_GE(sent, 64U * 1024 * 1024 - 65536);
}

TEST(WinHttp, ReadsNoFurtherThanItIsAsked) {
    std::atomic<std::size_t> sent = 0;
    {
        LoopbackServer server([&](Peer& peer) {
            peer.readUntil("\r\n\r\n");
            peer.read(2);
            peer.send("HTTP/1.1 200 OK\r\n\r\n");
            const std::string piece(65536, 'x');
            while (peer.send(piece)) sent += piece.size();
        });
        Client client(server.port());
        ASSERT_EQ(client.send(), 0U);
        ASSERT_EQ(client.receive(), 0U);
        DWORD count = 0;
        for (int i = 0; i < 1000; ++i) ASSERT_EQ(client.query(count), 0U);
    }
    EXPECT_LT(sent, 32U * 1024 * 1024);  // the machine's own buffers alone
}

TEST(WinHttp, EndsTheWaitForASilentServerWithItsTimeOut) {
    LoopbackServer server([](Peer& peer) { peer.waitForEnd(); });
    Client client(server.port());
    EXPECT_EQ(WinHttpSetTimeouts(client.request, 3000, 3000, 4000, 100), TRUE);
    ASSERT_EQ(client.send(), 0U);
    EXPECT_EQ(client.receive(), timedOut);
}

TEST(WinHttp, EndsTheWaitForAServerThatFallsSilentInTheBody) {
    LoopbackServer server([](Peer& peer) {
        peer.readUntil("\r\n\r\n");
        peer.read(2);
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nab");
        peer.waitForEnd();
    });
    Client client(server.port());
    EXPECT_EQ(WinHttpSetTimeouts(client.request, 3000, 3000, 4000, 1000), TRUE);
    ASSERT_EQ(client.send(), 0U);
    ASSERT_EQ(client.receive(), 0U);
    std::string got;
    EXPECT_EQ(client.readAll(got), timedOut);
    EXPECT_EQ(got, "ab");
}

TEST(WinHttp, EndsTheWaitForAServerThatTakesNoMoreOfTheBody) {
    std::atomic<bool> stop = false;
    LoopbackServer server([&stop](Peer&) {
        while (!stop) usleep(1000);
    });
    {
        Client client(server.port());
        EXPECT_EQ(WinHttpSetTimeouts(client.request, 3000, 3000, 100, 6000), TRUE);
        EXPECT_EQ(client.send(std::string(32 * 1024 * 1024, 'x')), timedOut);
    }
    stop = true;
}

TEST(WinHttp, TakesTheTimeOutsOfTheSession) {
    LoopbackServer server([](Peer& peer) { peer.waitForEnd(); });
    const HINTERNET session = WinHttpOpen(u"a", 0, nullptr, nullptr, 0);
    EXPECT_EQ(WinHttpSetTimeouts(session, 3000, 3000, 4000, 100), TRUE);
    const HINTERNET connection = WinHttpConnect(session, u"127.0.0.1", server.port(), 0);
    const HINTERNET request =
        WinHttpOpenRequest(connection, u"GET", nullptr, nullptr, nullptr, nullptr, 0);
    // The handles above can go first.
    EXPECT_EQ(WinHttpCloseHandle(session), TRUE);
    EXPECT_EQ(WinHttpCloseHandle(connection), TRUE);
    EXPECT_EQ(WinHttpSendRequest(request, nullptr, 0, nullptr, 0, 0, 0), TRUE);
    EXPECT_EQ(WinHttpReceiveResponse(request, nullptr), FALSE);
    EXPECT_EQ(GetLastError(), timedOut);
    EXPECT_EQ(WinHttpCloseHandle(request), TRUE);
}

TEST(WinHttp, TellsThatNobodyListens) {
    Client client(deadPort());
    EXPECT_EQ(client.send(), 12029U);
}

TEST(WinHttp, TellsThatAHostHasNoAddress) {
    Client::Options options;
    options.host = u"no-such-host.invalid";
    Client client(80, options);
    EXPECT_EQ(WinHttpSetTimeouts(client.request, 3000, 3000, 4000, 6000), TRUE);
    const DWORD code = client.send();
    EXPECT_TRUE(code == 12007U || code == timedOut) << code;
}

TEST(WinHttp, RefusesAHostThatIsNone) {
    for (const LPCWSTR host : {u"user@127.0.0.1", u"127.0.0.1/x", u"a b", u"127.0.0.1#"}) {
        Client::Options options;
        options.host = host;
        Client client(deadPort(), options);
        EXPECT_EQ(client.send(), 12005U);
    }
}

TEST(WinHttp, TellsThatTheServerWentBeforeItsReply) {
    LoopbackServer server([](Peer& peer) {
        peer.readUntil("\r\n\r\n");
        peer.read(2);
    });
    Client client(server.port());
    ASSERT_EQ(client.send(), 0U);
    EXPECT_EQ(client.receive(), 12030U);
}

TEST(WinHttp, TellsThatTheServerWentWithinTheBody) {
    LoopbackServer server(answer("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc"));
    Client client(server.port());
    ASSERT_EQ(client.send(), 0U);
    ASSERT_EQ(client.receive(), 0U);
    std::string got;
    EXPECT_EQ(client.readAll(got), 12030U);
    EXPECT_EQ(got, "abc");
}

TEST(WinHttp, RefusesAReplyThatIsNoHttp) {
    LoopbackServer server(answer("SSH-2.0-server\r\n"));
    Client client(server.port());
    ASSERT_EQ(client.send(), 0U);
    EXPECT_EQ(client.receive(), 12152U);
}

TEST(WinHttp, RefusesAnEndlessHeader) {
    LoopbackServer server([](Peer& peer) {
        peer.readUntil("\r\n\r\n");
        peer.read(2);
        peer.send("HTTP/1.1 200 OK\r\n");
        const std::string line = "X-Line: " + std::string(1000, 'x') + "\r\n";
        while (peer.send(line)) {
        }
    });
    Client client(server.port());
    ASSERT_EQ(client.send(), 0U);
    EXPECT_EQ(client.receive(), 12180U);
}

TEST(WinHttp, GoesPastAProxyOfTheEnvironment) {
    const std::string dead = "http://127.0.0.1:" + std::to_string(deadPort());
    setenv("http_proxy", dead.c_str(), 1);
    setenv("all_proxy", dead.c_str(), 1);
    {
        LoopbackServer server(answer(reply("direct")));
        Client client(server.port());
        EXPECT_EQ(client.send(), 0U);
        EXPECT_EQ(client.receive(), 0U);
        std::string got;
        EXPECT_EQ(client.readAll(got), 0U);
        EXPECT_EQ(got, "direct");
    }
    unsetenv("http_proxy");
    unsetenv("all_proxy");
}

TEST(WinHttp, RefusesASecureServerWhoseCertificateNobodyVouchesFor) {
    const std::string folder = KelmoraID::testing::testFolder();
    const std::string make =
        "openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=localhost -days 2 "
        "-addext subjectAltName=IP:127.0.0.1 -keyout " +
        folder + "/key.pem -out " + folder + "/cert.pem 2>/dev/null";
    ASSERT_EQ(std::system(make.c_str()), 0);
    const std::uint16_t port = deadPort();
    const pid_t server = fork();
    if (server == 0) {
        const std::string accept = std::to_string(port);
        execlp("openssl", "openssl", "s_server", "-quiet", "-www", "-accept", accept.c_str(),
               "-cert", (folder + "/cert.pem").c_str(), "-key", (folder + "/key.pem").c_str(),
               static_cast<char*>(nullptr));
        _exit(127);
    }
    DWORD code = 12029;
    for (int tries = 0; code == 12029 && tries < 500; ++tries) {
        Client::Options options;
        options.flags = WINHTTP_FLAG_SECURE;
        Client client(port, options);
        code = client.send();
        if (code == 12029) usleep(10000);  // not up yet
    }
    EXPECT_EQ(code, 12175U);
    kill(server, SIGTERM);
    waitpid(server, nullptr, 0);
}

TEST(WinHttp, RefusesCallsOutOfTurn) {
    LoopbackServer server(answer(reply("x")));
    Client client(server.port());
    DWORD count = 0;
    std::string text;
    EXPECT_EQ(client.receive(), 12019U);
    EXPECT_EQ(client.query(count), 12019U);
    EXPECT_EQ(client.read(1, text), 12019U);
    ASSERT_EQ(client.send(), 0U);
    EXPECT_EQ(client.send(), 12019U);
    EXPECT_EQ(client.query(count), 12019U);
    EXPECT_EQ(client.receive(), 0U);
}

TEST(WinHttp, RefusesHandlesOfAnotherKindAndClosedOnes) {
    const HINTERNET session = WinHttpOpen(u"a", 0, nullptr, nullptr, 0);
    SetLastError(0);
    EXPECT_EQ(WinHttpOpenRequest(session, u"GET", nullptr, nullptr, nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(GetLastError(), 12018U);
    EXPECT_EQ(WinHttpReceiveResponse(session, nullptr), FALSE);
    EXPECT_EQ(GetLastError(), 12018U);
    EXPECT_EQ(WinHttpCloseHandle(session), TRUE);
    EXPECT_EQ(WinHttpCloseHandle(session), FALSE);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    SetLastError(0);
    EXPECT_EQ(WinHttpConnect(session, u"host", 1, 0), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(WinHttpSetTimeouts(session, 1, 1, 1, 1), FALSE);
    EXPECT_EQ(WinHttpCloseHandle(nullptr), FALSE);
}

TEST(WinHttp, RefusesWrongArguments) {
    EXPECT_EQ(WinHttpOpen(u"a", 3, u"proxy", nullptr, 0), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    Client client(1);
    EXPECT_EQ(WinHttpConnect(client.session, nullptr, 1, 0), nullptr);
    EXPECT_EQ(
        WinHttpOpenRequest(client.connection, u"PO ST", nullptr, nullptr, nullptr, nullptr, 0),
        nullptr);
    EXPECT_EQ(WinHttpSetTimeouts(client.request, -2, 0, 0, 0), FALSE);
    EXPECT_EQ(client.send("{}", u"no header\r\n"), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(WinHttpSendRequest(client.request, nullptr, 0, nullptr, 0, 5, 0), FALSE);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
