#include "posix/http_exchange.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "posix/winhttp_errors.h"

namespace KelmoraID::platform {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// libcurl is never unloaded: a look-up of a name that was given up goes on in a thread of its own.
struct CurlLibrary {
    CurlLibrary() {
        Dl_info place;
        if (dladdr(reinterpret_cast<void*>(&curl_global_init), &place) != 0) {
            dlopen(place.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
        }
        if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) throw std::bad_alloc();
    }
};

// Keeps this thread from the signal of a write to a peer that has gone, without touching what the
// process has set for it.
class SignalGuard {
public:
    SignalGuard() {
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    ~SignalGuard() {
        const timespec now{};
        if (!wasPending_) {
            while (sigtimedwait(&pipe_, nullptr, &now) > 0) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

private:
    sigset_t pipe_;
    sigset_t before_;
    bool wasPending_ = false;
};

DWORD errorOf(CURLcode code) {
    switch (code) {
        case CURLE_OK:
            return 0;
        case CURLE_URL_MALFORMAT:
            return ERROR_WINHTTP_INVALID_URL;
        case CURLE_COULDNT_RESOLVE_HOST:
            return ERROR_WINHTTP_NAME_NOT_RESOLVED;
        case CURLE_COULDNT_CONNECT:
            return ERROR_WINHTTP_CANNOT_CONNECT;
        case CURLE_OPERATION_TIMEDOUT:
            return ERROR_WINHTTP_TIMEOUT;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_INVALIDCERTSTATUS:
            return ERROR_WINHTTP_SECURE_FAILURE;
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_HTTP2:
            return ERROR_WINHTTP_INVALID_SERVER_RESPONSE;
        case CURLE_OUT_OF_MEMORY:
            return ERROR_NOT_ENOUGH_MEMORY;
        default:
            return ERROR_WINHTTP_CONNECTION_ERROR;
    }
}

struct MultiFree {
    void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
};
struct EasyFree {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct UrlFree {
    void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
struct ListFree {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

// As much header as WinHTTP takes.
constexpr std::size_t headerLimit = 64 * 1024;

}  // namespace

struct HttpExchange::Transfer {
    HttpRequest request;
    HttpTimeouts timeouts;
    std::unique_ptr<CURLU, UrlFree> url{curl_url()};
    std::unique_ptr<curl_slist, ListFree> headers;
    std::unique_ptr<CURL, EasyFree> easy{curl_easy_init()};
    std::unique_ptr<CURLM, MultiFree> multi{curl_multi_init()};
    bool started = false;
    bool headerComplete = false;
    bool paused = false;
    bool finished = false;
    CURLcode result = CURLE_OK;
    std::size_t headerSize = 0;
    std::vector<BYTE> piece;  // what is there of the body, and how much of it has been taken
    std::size_t taken = 0;

    Transfer(HttpRequest what, const HttpTimeouts& limits)
        : request(std::move(what)), timeouts(limits) {
        if (!url || !easy || !multi) throw std::bad_alloc();
        piece.reserve(pieceLimit);
    }
    ~Transfer() {
        const SignalGuard guard;
        if (started) curl_multi_remove_handle(multi.get(), easy.get());
        easy.reset();
        multi.reset();
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    static std::size_t onHeader(const char* data, std::size_t, std::size_t size, void* self);
    static std::size_t onBody(const char* data, std::size_t, std::size_t size, void* self);

    DWORD setUp();
    template <typename Until, typename Remaining>
    DWORD drive(Until until, Remaining remaining);
    bool isSent();
    curl_off_t measure(CURLINFO what);
    DWORD failure() const;
};

std::size_t HttpExchange::Transfer::onHeader(const char* data, std::size_t, std::size_t size,
                                             void* self) {
    auto& transfer = *static_cast<Transfer*>(self);
    transfer.headerSize += size;
    if (transfer.headerSize > headerLimit) return 0;
    long status = 0;
    curl_easy_getinfo(transfer.easy.get(), CURLINFO_RESPONSE_CODE, &status);
    // The empty line ends a header; those of provisional replies (1xx) are followed by another.
    const bool empty = size == 0 || data[0] == '\r' || data[0] == '\n';
    if (empty && status >= 200) transfer.headerComplete = true;
    return size;
}

std::size_t HttpExchange::Transfer::onBody(const char* data, std::size_t, std::size_t size,
                                           void* self) {
    auto& transfer = *static_cast<Transfer*>(self);
    // What does not fit beside the rest of the last piece has to wait; libcurl stops reading then.
    if (!transfer.piece.empty() && transfer.piece.size() + size > pieceLimit) {
        transfer.paused = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    try {
        transfer.piece.insert(transfer.piece.end(), data, data + size);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return size;
}

DWORD HttpExchange::Transfer::setUp() {
    const std::size_t query = request.path.find('?');
    const auto part = [this](CURLUPart which, const std::string& text) {
        return curl_url_set(url.get(), which, text.c_str(), 0) == CURLUE_OK;
    };
    // The host is checked as a host: nothing in it can become another part of the address.
    if (!part(CURLUPART_SCHEME, request.secure ? "https" : "http") ||
        !part(CURLUPART_HOST, request.host) ||
        !part(CURLUPART_PORT, std::to_string(request.port)) ||
        !part(CURLUPART_PATH, request.path.substr(0, query)) ||
        (query != std::string::npos && !part(CURLUPART_QUERY, request.path.substr(query + 1)))) {
        return ERROR_WINHTTP_INVALID_URL;
    }
    for (const std::string& line : request.headers) {
        curl_slist* longer = curl_slist_append(headers.get(), line.c_str());
        if (longer == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
        static_cast<void>(headers.release());
        headers.reset(longer);
    }
    bool right = true;
    const auto set = [&](CURLoption option, auto value) {
        right = right && curl_easy_setopt(easy.get(), option, value) == CURLE_OK;
    };
    set(CURLOPT_CURLU, url.get());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    set(CURLOPT_PROXY, "");  // Not even one that the environment names.
    set(CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_NOPROGRESS, 1L);
    set(CURLOPT_BUFFERSIZE, static_cast<long>(pieceLimit));
    set(CURLOPT_HTTPHEADER, headers.get());
    set(CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
    set(CURLOPT_HEADERDATA, static_cast<void*>(this));
    set(CURLOPT_WRITEFUNCTION, &Transfer::onBody);
    set(CURLOPT_WRITEDATA, static_cast<void*>(this));
    if (request.verb == "HEAD") {
        set(CURLOPT_NOBODY, 1L);
    } else if (request.verb == "POST" || !request.body.empty()) {
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        set(CURLOPT_POSTFIELDS, request.body.c_str());
    }
    set(CURLOPT_CUSTOMREQUEST, request.verb.c_str());
    if (!right || curl_multi_add_handle(multi.get(), easy.get()) != CURLM_OK) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    started = true;
    return 0;
}

// Lets the transfer work until that is so, it has ended, or the time that remains is used up.
template <typename Until, typename Remaining>
DWORD HttpExchange::Transfer::drive(Until until, Remaining remaining) {
    const SignalGuard guard;
    for (;;) {
        int running = 0;
        if (curl_multi_perform(multi.get(), &running) != CURLM_OK) {
            return ERROR_WINHTTP_CONNECTION_ERROR;
        }
        int left = 0;
        while (const CURLMsg* message = curl_multi_info_read(multi.get(), &left)) {
            if (message->msg != CURLMSG_DONE) continue;
            finished = true;
            result = message->data.result;
        }
        if (until()) return 0;
        if (finished) return failure();
        const milliseconds time = remaining();
        if (time <= milliseconds::zero()) return ERROR_WINHTTP_TIMEOUT;
        curl_multi_poll(multi.get(), nullptr, 0,
                        static_cast<int>(std::min(time, milliseconds(1000)).count()), nullptr);
    }
}

DWORD HttpExchange::Transfer::failure() const {
    return headerSize > headerLimit ? ERROR_WINHTTP_HEADER_SIZE_OVERFLOW : errorOf(result);
}

curl_off_t HttpExchange::Transfer::measure(CURLINFO what) {
    curl_off_t value = 0;
    curl_easy_getinfo(easy.get(), what, &value);
    return value;
}

bool HttpExchange::Transfer::isSent() {
    long headerSent = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_REQUEST_SIZE, &headerSent);
    return headerSent > 0 &&
           measure(CURLINFO_SIZE_UPLOAD_T) >= static_cast<curl_off_t>(request.body.size());
}

namespace {

// The time left of a wait that begins with the object.
class Countdown {
public:
    explicit Countdown(int timeout) : timeout_(timeout), begin_(Clock::now()) {}
    milliseconds operator()() const {
        if (timeout_ <= 0) return milliseconds::max();
        return milliseconds(timeout_) -
               std::chrono::duration_cast<milliseconds>(Clock::now() - begin_);
    }

private:
    int timeout_;
    Clock::time_point begin_;
};

}  // namespace

HttpExchange::HttpExchange(HttpRequest request, const HttpTimeouts& timeouts) {
    static const CurlLibrary library;
    transfer_ = std::make_unique<Transfer>(std::move(request), timeouts);
}

HttpExchange::~HttpExchange() = default;

DWORD HttpExchange::send() {
    Transfer& transfer = *transfer_;
    const DWORD refused = transfer.setUp();
    if (refused != 0) return refused;
    // What the transfer is at shows in what has been measured of it so far; a countdown begins with
    // each phase.
    const int limits[] = {transfer.timeouts.resolve, transfer.timeouts.connect,
                          transfer.timeouts.send};
    std::size_t phase = 0;
    Countdown left(limits[phase]);
    const auto remaining = [&] {
        std::size_t now = 0;
        if (transfer.measure(CURLINFO_NAMELOOKUP_TIME_T) > 0) now = 1;
        if (transfer.measure(CURLINFO_PRETRANSFER_TIME_T) > 0) now = 2;
        if (now != phase) {
            phase = now;
            left = Countdown(limits[phase]);
        }
        return left();
    };
    return transfer.drive([&] { return transfer.isSent() || transfer.headerComplete; }, remaining);
}

DWORD HttpExchange::receiveHeader() {
    Transfer& transfer = *transfer_;
    const DWORD failed = transfer.drive([&] { return transfer.headerComplete; },
                                        Countdown(transfer.timeouts.receive));
    if (failed != 0) return failed;
    return transfer.headerComplete ? 0 : ERROR_WINHTTP_CONNECTION_ERROR;
}

DWORD HttpExchange::waitForData(std::size_t& available) {
    Transfer& transfer = *transfer_;
    const auto there = [&transfer] { return transfer.piece.size() - transfer.taken; };
    if (there() == 0 && transfer.paused) {
        const SignalGuard guard;
        transfer.paused = false;
        curl_easy_pause(transfer.easy.get(), CURLPAUSE_CONT);
    }
    if (there() == 0) {
        const DWORD failed =
            transfer.drive([&] { return there() != 0; }, Countdown(transfer.timeouts.receive));
        if (failed != 0) return failed;
    }
    available = std::min(there(), pieceLimit);
    return 0;
}

std::size_t HttpExchange::take(std::span<BYTE> to) {
    Transfer& transfer = *transfer_;
    const std::size_t count = std::min(to.size(), transfer.piece.size() - transfer.taken);
    const auto from = transfer.piece.begin() + static_cast<std::ptrdiff_t>(transfer.taken);
    std::copy_n(from, count, to.begin());
    transfer.taken += count;
    if (transfer.taken == transfer.piece.size()) {
        transfer.piece.clear();
        transfer.taken = 0;
    }
    return count;
}

}  // namespace KelmoraID::platform
