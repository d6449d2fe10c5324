#include "awaited_service.h"

#include <atomic>
#include <cstring>

#include "native_platform.h"
#include "support/platform_calls.h"

namespace boundary {
namespace {

std::atomic<int> repliesRead = 0;
thread_local int partsLeft = 0;  // of the reply that this thread reads

HINTERNET handle() {
    static int object = 0;
    return reinterpret_cast<HINTERNET>(&object);
}

}  // namespace

AwaitedService::AwaitedService(const std::function<void()>& wait) {
    repliesRead = 0;
    auto& calls = KelmoraID::testing::platformCalls();
    calls.WinHttpOpen = [](LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD) { return handle(); };
    calls.WinHttpConnect = [](HINTERNET, LPCWSTR, INTERNET_PORT, DWORD) { return handle(); };
    calls.WinHttpOpenRequest = [](HINTERNET, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR*, DWORD) {
        return handle();
    };
    calls.WinHttpSetTimeouts = [](HINTERNET, int, int, int, int) { return TRUE; };
    calls.WinHttpSendRequest = [](HINTERNET, LPCWSTR, DWORD, LPVOID, DWORD, DWORD, DWORD_PTR) {
        return TRUE;
    };
    calls.WinHttpReceiveResponse = [wait](HINTERNET, LPVOID) {
        wait();
        partsLeft = 2;
        return TRUE;
    };
    calls.WinHttpQueryDataAvailable = [](HINTERNET, LPDWORD count) {
        *count = partsLeft > 0 ? 600 : 0;
        if (partsLeft == 0) ++repliesRead;
        --partsLeft;
        return TRUE;
    };
    calls.WinHttpReadData = [](HINTERNET, LPVOID buffer, DWORD room, LPDWORD read) {
        std::memset(buffer, 'x', room);
        *read = room;
        return TRUE;
    };
    calls.WinHttpCloseHandle = [](HINTERNET) { return TRUE; };
}

AwaitedService::~AwaitedService() {
    resetPlatform();
}

std::string AwaitedService::address() const {
    return "http://127.0.0.1:1";
}

bool AwaitedService::hasReplied() const {
    return repliesRead > 0;
}

}  // namespace boundary
