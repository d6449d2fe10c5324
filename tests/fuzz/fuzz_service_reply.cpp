// An exchange with a directory service that lies: any call can fail, any length be told. This
// program's WinHttp calls stand in the place of the stand-in platform's.
#include "fuzz_input.h"
#include "fuzz_target.h"
#include "pairing/service_exchange.h"

namespace {

using KelmoraID::ServiceScheme;

struct Service {
    fuzz::FuzzInput* input = nullptr;
    int failing = 0;  // the call from the first that fails, or 0
    std::size_t firstAnswer = 0;
    int openHandles = 0;
    DWORD available = 0;
    int reads = 0;

    bool fails() { return failing != 0 && --failing == 0; }
    HINTERNET open() {
        if (fails()) return nullptr;
        ++openHandles;
        return this;
    }
};
Service service;

}  // namespace

extern "C" {

HINTERNET WINAPI WinHttpOpen(LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD) {
    return service.open();
}

HINTERNET WINAPI WinHttpConnect(HINTERNET hSession, LPCWSTR pswzServerName, INTERNET_PORT, DWORD) {
    fuzz::require(hSession != nullptr && pswzServerName != nullptr, "a session connects to a name");
    return service.open();
}

HINTERNET WINAPI WinHttpOpenRequest(HINTERNET hConnect, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR,
                                    LPCWSTR*, DWORD) {
    fuzz::require(hConnect != nullptr, "a request is made over a connection");
    return service.open();
}

BOOL WINAPI WinHttpSetTimeouts(HINTERNET, int, int, int, int) {
    return service.fails() ? FALSE : TRUE;
}

BOOL WINAPI WinHttpSendRequest(HINTERNET, LPCWSTR pwszHeaders, DWORD, LPVOID lpOptional,
                               DWORD dwOptionalLength, DWORD dwTotalLength, DWORD_PTR) {
    fuzz::require(pwszHeaders != nullptr && dwOptionalLength == dwTotalLength,
                  "a request goes out whole");
    fuzz::readAll(lpOptional, dwOptionalLength);
    return service.fails() ? FALSE : TRUE;
}

BOOL WINAPI WinHttpReceiveResponse(HINTERNET, LPVOID) {
    return service.fails() ? FALSE : TRUE;
}

BOOL WINAPI WinHttpQueryDataAvailable(HINTERNET, LPDWORD lpdwNumberOfBytesAvailable) {
    if (service.fails()) return FALSE;
    fuzz::FuzzInput& input = *service.input;
    if (input.atEnd()) input.rewindTo(service.firstAnswer);  // A service that never ends.
    service.available = input.flag() ? input.number() : input.word();
    *lpdwNumberOfBytesAvailable = service.available;
    return TRUE;
}

BOOL WINAPI WinHttpReadData(HINTERNET, LPVOID lpBuffer, DWORD dwNumberOfBytesToRead,
                            LPDWORD lpdwNumberOfBytesRead) {
    if (service.fails()) return FALSE;
    fuzz::require(++service.reads < 10'000, "a reply comes to an end");
    fuzz::require(dwNumberOfBytesToRead <= service.available && dwNumberOfBytesToRead <= 4'000,
                  "no more is read than there is, or than is allowed");
    fuzz::FuzzInput& input = *service.input;
    const bool lies = input.flag();
    const DWORD claimed = lies ? input.number() : 0;
    const fuzz::Bytes bytes = input.block();
    std::fill_n(static_cast<char*>(lpBuffer), dwNumberOfBytesToRead, 'A');  // All of the room.
    const std::size_t fitting = std::min<std::size_t>(bytes.size(), dwNumberOfBytesToRead);
    std::copy_n(bytes.begin(), fitting, static_cast<std::uint8_t*>(lpBuffer));
    *lpdwNumberOfBytesRead = lies ? claimed : static_cast<DWORD>(fitting);
    return TRUE;
}

BOOL WINAPI WinHttpCloseHandle(HINTERNET) {
    --service.openHandles;
    return TRUE;
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    service = Service{};
    service.input = &input;
    service.failing = input.byte();
    const auto scheme = input.flag() ? ServiceScheme::https : ServiceScheme::http;
    const std::uint16_t port = input.word();
    const auto step = std::chrono::milliseconds(input.byte());
    const WideString host = WIDE_TEXT("host");
    const std::string body = input.text();
    const bool debug = input.flag();
    service.firstAnswer = input.place();
    std::chrono::steady_clock::time_point time{};
    KelmoraID::postToService(scheme, host, port, body, debug, [&] { return time += step; });
    fuzz::require(service.openHandles == 0, "all handles are closed");
    return 0;
}
