// The platform's own calls behind the doctor's questions. What of these Wine cannot show is told in
// docs/diagnose.md.
#include <algorithm>
#include <cwctype>
#include <memory>

#include <fmt/format.h>

#include "doctor/real_machine.h"
#include "exit_codes.h"
#include "files.h"
#include "os_windows.h"
// These need what windows.h declares.
#include <mscat.h>
#include <softpub.h>
#include <wintrust.h>

namespace cardhost::doctor {

namespace {

constexpr std::size_t largestFile = 64 << 20;
constexpr DWORD mostRegistryBytes = 1 << 20;
constexpr DWORD longestKeyName = 256;

REGSAM flagOf(View view) {
    return view == View::bits64 ? KEY_WOW64_64KEY : KEY_WOW64_32KEY;
}

class Key {
public:
    Key(View view, const std::string& name) {
        const LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, wide(name).c_str(), 0,
                                             KEY_READ | flagOf(view), &key_);
        if (status != ERROR_SUCCESS) key_ = nullptr;
    }
    ~Key() {
        if (key_ != nullptr) RegCloseKey(key_);
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    explicit operator bool() const { return key_ != nullptr; }
    HKEY get() const { return key_; }

private:
    HKEY key_ = nullptr;
};

std::string expanded(const WideText& text) {
    const DWORD length = ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
    WideText result(length, WCHAR{0});
    ExpandEnvironmentStringsW(text.c_str(), result.data(), length);
    return utf8(result);
}

RegistryValue valueOf(DWORD type, const Bytes& bytes) {
    using Kind = RegistryValue::Kind;
    RegistryValue value;
    if (type == REG_SZ || type == REG_EXPAND_SZ) {
        WideText text(bytes.size() / sizeof(WCHAR), WCHAR{0});
        std::copy_n(bytes.begin(), text.size() * sizeof(WCHAR),
                    reinterpret_cast<std::uint8_t*>(text.data()));
        value.kind = Kind::text;
        value.text = type == REG_SZ ? utf8(text) : expanded(text);
    } else if (type == REG_DWORD && bytes.size() == sizeof(DWORD)) {
        value.kind = Kind::number;
        for (std::size_t i = bytes.size(); i > 0; --i) {
            value.number = value.number << 8 | bytes[i - 1];
        }
    } else if (type == REG_BINARY) {
        value.kind = Kind::binary;
        value.binary = bytes;
    }
    return value;
}

std::string versionOf(const WideText& path) {
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
    if (size == 0) return {};
    Bytes block(size);
    VS_FIXEDFILEINFO* info = nullptr;
    UINT length = 0;
    if (!GetFileVersionInfoW(path.c_str(), 0, size, block.data()) ||
        !VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&info), &length) ||
        length < sizeof(*info)) {
        return {};
    }
    return fmt::format("{}.{}.{}.{}", info->dwFileVersionMS >> 16, info->dwFileVersionMS & 0xFFFF,
                       info->dwFileVersionLS >> 16, info->dwFileVersionLS & 0xFFFF);
}

std::string nameAttribute(PCCERT_CONTEXT certificate, const char* attribute) {
    void* argument = const_cast<char*>(attribute);
    WCHAR name[256] = {};
    CertGetNameStringW(certificate, CERT_NAME_ATTR_TYPE, 0, argument, name,
                       static_cast<DWORD>(std::size(name)));
    return utf8(name);
}

Signature::State stateOf(LONG status) {
    switch (static_cast<DWORD>(status)) {
        case 0:
            return Signature::State::trusted;
        case static_cast<DWORD>(TRUST_E_NOSIGNATURE):
            return Signature::State::none;
        case static_cast<DWORD>(CERT_E_UNTRUSTEDROOT):
        case static_cast<DWORD>(CERT_E_CHAINING):
        case static_cast<DWORD>(CERT_E_EXPIRED):
        case static_cast<DWORD>(CERT_E_REVOKED):
        case static_cast<DWORD>(CERT_E_WRONG_USAGE):
        case static_cast<DWORD>(TRUST_E_EXPLICIT_DISTRUST):
        case static_cast<DWORD>(TRUST_E_SUBJECT_NOT_TRUSTED):
            return Signature::State::untrusted;
        default:
            return Signature::State::broken;
    }
}

/// The signature in the file itself; one in a catalog is not looked for.
Signature signatureOf(const WideText& path) {
    WINTRUST_FILE_INFO file{};
    file.cbStruct = sizeof(file);
    file.pcwszFilePath = path.c_str();
    WINTRUST_DATA data{};
    data.cbStruct = sizeof(data);
    data.dwUIChoice = WTD_UI_NONE;
    data.fdwRevocationChecks = WTD_REVOKE_NONE;
    data.dwUnionChoice = WTD_CHOICE_FILE;
    data.pFile = &file;
    data.dwStateAction = WTD_STATEACTION_VERIFY;
    data.dwProvFlags = WTD_CACHE_ONLY_URL_RETRIEVAL;
    GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    const auto noWindow = static_cast<HWND>(INVALID_HANDLE_VALUE);
    const LONG status = WinVerifyTrust(noWindow, &action, &data);
    Signature signature;
    signature.state = stateOf(status);
    if (status != 0) signature.reason = os::reasonOf(static_cast<DWORD>(status));
    CRYPT_PROVIDER_DATA* provider = WTHelperProvDataFromStateData(data.hWVTStateData);
    CRYPT_PROVIDER_SGNR* signer =
        provider == nullptr ? nullptr : WTHelperGetProvSignerFromChain(provider, 0, FALSE, 0);
    CRYPT_PROVIDER_CERT* certificate =
        signer == nullptr ? nullptr : WTHelperGetProvCertFromChain(signer, 0);
    if (certificate != nullptr && certificate->pCert != nullptr) {
        signature.signer = nameAttribute(certificate->pCert, szOID_COMMON_NAME);
        signature.organization = nameAttribute(certificate->pCert, szOID_ORGANIZATION_NAME);
    }
    data.dwStateAction = WTD_STATEACTION_CLOSE;
    WinVerifyTrust(noWindow, &action, &data);
    return signature;
}

template <typename Handle, auto close>
class Owned {
public:
    explicit Owned(Handle handle) : handle_(handle) {}
    ~Owned() {
        if (handle_ != nullptr) close(handle_);
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

    Handle get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }

private:
    Handle handle_;
};

using ServiceHandle = Owned<SC_HANDLE, CloseServiceHandle>;
using InternetHandle = Owned<HINTERNET, WinHttpCloseHandle>;

std::string networkReason(DWORD error) {
    switch (error) {
        case ERROR_WINHTTP_TIMEOUT:
            return "did not answer in time";
        case ERROR_WINHTTP_NAME_NOT_RESOLVED:
            return "has a name that cannot be resolved";
        case ERROR_WINHTTP_CANNOT_CONNECT:
            return "cannot be connected";
        case ERROR_WINHTTP_CONNECTION_ERROR:
            return "broke the connection off";
        case ERROR_WINHTTP_SECURE_FAILURE:
            return "has a certificate that this machine does not trust, or no TLS in common";
        case ERROR_WINHTTP_INVALID_SERVER_RESPONSE:
            return "does not speak HTTP";
        default:
            return fmt::format("failed with WinHTTP error {}", error);
    }
}

/// Asks for the head of the page that the driver posts to: nothing goes out but the question.
AddressAnswer askOverHttp(bool isSecure, const std::string& host, std::uint16_t port) {
    // The driver's own, in milliseconds.
    constexpr int resolve = 3000;
    constexpr int connect = 3000;
    constexpr int send = 4000;
    constexpr int receive = 6000;
    const auto failed = [] { return AddressAnswer{false, networkReason(GetLastError()), {}}; };
    const InternetHandle session(WinHttpOpen(L"cardhost doctor", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY,
                                             WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
    if (!session) return failed();
    const InternetHandle connection(WinHttpConnect(session.get(), wide(host).c_str(), port, 0));
    if (!connection) return failed();
    const InternetHandle request(
        WinHttpOpenRequest(connection.get(), L"HEAD", L"/registercard", nullptr, WINHTTP_NO_REFERER,
                           WINHTTP_DEFAULT_ACCEPT_TYPES, isSecure ? WINHTTP_FLAG_SECURE : 0));
    if (!request) return failed();
    WinHttpSetTimeouts(request.get(), resolve, connect, send, receive);
    if (!WinHttpSendRequest(request.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0,
                            WINHTTP_NO_REQUEST_DATA, 0, 0, 0) ||
        !WinHttpReceiveResponse(request.get(), nullptr)) {
        return failed();
    }
    DWORD status = 0;
    DWORD length = sizeof(status);
    if (!WinHttpQueryHeaders(request.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                             WINHTTP_HEADER_NAME_BY_INDEX, &status, &length,
                             WINHTTP_NO_HEADER_INDEX)) {
        return failed();
    }
    return {true, fmt::format("answers (HTTP status {})", status), {}};
}

WideText folderBy(UINT(WINAPI* get)(LPWSTR, UINT)) {
    WCHAR folder[MAX_PATH] = {};
    const UINT length = get(folder, MAX_PATH);
    return WideText(folder, length < MAX_PATH ? length : 0);
}

bool isThere(const WideText& path, bool asFolder) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES &&
           ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) == asFolder;
}

class WindowsMachine : public RealMachine {
public:
    using RealMachine::RealMachine;

    bool isWindows() const override { return true; }

    Architecture architecture() const override {
        using IsWow64Process2Function = BOOL(WINAPI*)(HANDLE, USHORT*, USHORT*);
        USHORT process = 0;
        USHORT native = 0;
        // Windows 10 has it; the older call does not tell an ARM64 machine from another.
        const auto ask = reinterpret_cast<IsWow64Process2Function>(reinterpret_cast<void*>(
            GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "IsWow64Process2")));
        if (ask == nullptr || !ask(GetCurrentProcess(), &process, &native)) {
            SYSTEM_INFO info{};
            GetNativeSystemInfo(&info);
            return info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64 ? Architecture::x64
                                                                               : Architecture::x86;
        }
        switch (native) {
            case IMAGE_FILE_MACHINE_AMD64:
                return Architecture::x64;
            case 0xAA64:
                return Architecture::arm64;
            default:
                return Architecture::x86;
        }
    }

    std::optional<std::vector<std::string>> subkeys(View view, const std::string& name) override {
        const Key key(view, name);
        if (!key) return std::nullopt;
        std::vector<std::string> names;
        for (DWORD i = 0;; ++i) {
            WCHAR child[longestKeyName] = {};
            DWORD length = longestKeyName;
            if (RegEnumKeyExW(key.get(), i, child, &length, nullptr, nullptr, nullptr, nullptr) !=
                ERROR_SUCCESS) {
                return names;
            }
            names.push_back(utf8(std::basic_string_view<WCHAR>(child, length)));
        }
    }

    std::optional<RegistryValue> value(View view, const std::string& keyName,
                                       const std::string& name) override {
        const Key key(view, keyName);
        if (!key) return std::nullopt;
        DWORD type = 0;
        DWORD length = 0;
        const WideText wideName = wide(name);
        if (RegQueryValueExW(key.get(), wideName.c_str(), nullptr, &type, nullptr, &length) !=
            ERROR_SUCCESS) {
            return std::nullopt;
        }
        Bytes bytes(std::min(length, mostRegistryBytes));
        length = static_cast<DWORD>(bytes.size());
        if (RegQueryValueExW(key.get(), wideName.c_str(), nullptr, &type, bytes.data(), &length) !=
            ERROR_SUCCESS) {
            return RegistryValue{};
        }
        bytes.resize(std::min<std::size_t>(length, bytes.size()));
        return valueOf(type, bytes);
    }

    std::string systemFolder(View view) const override {
        if (view == View::bits32 && architecture() != Architecture::x86) {
            return utf8(folderBy(GetSystemWow64DirectoryW));
        }
        return utf8(folderBy(GetSystemDirectoryW));
    }

    FileFacts file(const std::string& path) override {
        const WideText real = unredirected(wide(path));
        FileFacts facts;
        facts.exists = isThere(real, false);
        if (!facts.exists) return facts;
        try {
            facts.pe = peFacts(contentOf(std::filesystem::path(real), largestFile));
        } catch (const Failure& failure) {
            facts.unreadable = failure.what();
            return facts;
        }
        facts.version = versionOf(real);
        facts.signature = signatureOf(real);
        return facts;
    }

    Service service(const std::string& name) override {
        Service service;
        const ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
        if (!manager) {
            service.unreadable = os::reasonOf(GetLastError());
            return service;
        }
        const ServiceHandle handle(OpenServiceW(manager.get(), wide(name).c_str(),
                                                SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS));
        if (!handle) {
            const DWORD error = GetLastError();
            if (error != ERROR_SERVICE_DOES_NOT_EXIST) service.unreadable = os::reasonOf(error);
            return service;
        }
        service.exists = true;
        DWORD needed = 0;
        QueryServiceConfigW(handle.get(), nullptr, 0, &needed);
        std::vector<std::max_align_t> block(needed / sizeof(std::max_align_t) + 1);
        auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(block.data());
        if (QueryServiceConfigW(handle.get(), config,
                                static_cast<DWORD>(block.size() * sizeof(std::max_align_t)),
                                &needed)) {
            service.start = config->dwStartType == SERVICE_DISABLED ? Service::Start::disabled
                            : config->dwStartType == SERVICE_DEMAND_START
                                ? Service::Start::manual
                                : Service::Start::automatic;
        }
        SERVICE_STATUS status{};
        service.isRunning =
            QueryServiceStatus(handle.get(), &status) && status.dwCurrentState == SERVICE_RUNNING;
        return service;
    }

    AddressAnswer ask(bool isSecure, const std::string& host, std::uint16_t port) override {
        using Clock = std::chrono::steady_clock;
        const auto start = Clock::now();
        AddressAnswer answer = askOverHttp(isSecure, host, port);
        answer.time = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        return answer;
    }

    LogPlace log() override {
        LogPlace place;
        place.folder = R"(C:\Program Files\Kelmora-ID-minidriver\Log)";
        place.file = place.folder + R"(\Kelmora-ID-minidriver.log)";
        const WideText folder = wide(place.folder);
        const WideText file = wide(place.file);
        place.folderExists = isThere(folder, true);
        place.fileExists = isThere(file, false);
        place.redirected = redirectedLog();
        WIN32_FILE_ATTRIBUTE_DATA data{};
        if (place.fileExists && GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data)) {
            place.size = std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
        }
        if (place.folderExists) tryWriting(place, folder, file);
        return place;
    }

private:
    /// Whether a line could be written, without writing one.
    static void tryWriting(LogPlace& place, const WideText& folder, const WideText& file) {
        constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
        const bool isNew = GetFileAttributesW(file.c_str()) == INVALID_FILE_ATTRIBUTES;
        const WideText trial =
            folder + wide(fmt::format("\\cardhost-doctor-{}.tmp", GetCurrentProcessId()));
        HANDLE handle =
            isNew ? CreateFileW(trial.c_str(), GENERIC_WRITE, shareAll, nullptr, CREATE_NEW,
                                FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr)
                  : CreateFileW(file.c_str(), FILE_APPEND_DATA, shareAll, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
        place.isWritable = handle != INVALID_HANDLE_VALUE;
        if (place.isWritable) {
            CloseHandle(handle);
        } else {
            place.reason = os::reasonOf(GetLastError());
        }
    }

    /// Where Windows puts what programs without a manifest write under Program Files.
    static std::string redirectedLog() {
        WCHAR folder[MAX_PATH] = {};
        const DWORD length = GetEnvironmentVariableW(L"LOCALAPPDATA", folder, MAX_PATH);
        if (length == 0 || length >= MAX_PATH) return {};
        const WideText file =
            WideText(folder, length) +
            LR"(\VirtualStore\Program Files\Kelmora-ID-minidriver\Log\Kelmora-ID-minidriver.log)";
        return isThere(file, false) ? utf8(file) : std::string();
    }

    /// The name under which this program reaches a file of the 64-bit system folder.
    WideText unredirected(const WideText& path) const {
        if (sizeof(void*) == 8 || architecture() == Architecture::x86) return path;
        const WideText system = folderBy(GetSystemDirectoryW) + L"\\";
        const bool isSystem =
            path.size() > system.size() &&
            std::equal(system.begin(), system.end(), path.begin(),
                       [](WCHAR a, WCHAR b) { return std::towlower(a) == std::towlower(b); });
        if (!isSystem) return path;
        return folderBy(GetSystemWindowsDirectoryW) + L"\\Sysnative\\" + path.substr(system.size());
    }
};

}  // namespace

std::unique_ptr<Machine> realMachine(const CommonOptions& options) {
    return std::make_unique<WindowsMachine>(options);
}

}  // namespace cardhost::doctor
