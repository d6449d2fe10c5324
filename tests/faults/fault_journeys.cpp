#include "fault_journeys.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "support/platform_calls.h"

extern "C" PCCERT_CONTEXT WINAPI __real_CertCreateCertificateContext(DWORD, const BYTE*, DWORD);

namespace faults {
namespace {

using boundary::acquired;
using boundary::nothing;
using boundary::opened;
using KelmoraID::testing::platformCalls;
using virtual_card::Generation;
using virtual_card::PinRole;

// --- Which cards, and what goes before

bool everyCard(const Generation&) {
    return true;
}
bool logsOnWithRsaKey(const Generation& card) {
    return virtual_card::isRsa(card.keys.front().kind);
}
bool hasEcKey(const Generation& card) {
    return !logsOnWithRsaKey(card);
}
bool hasRsaKey(const Generation& card) {
    return std::any_of(card.keys.begin(), card.keys.end(),
                       [](const auto& key) { return virtual_card::isRsa(key.kind); });
}
bool hasThirdKey(const Generation& card) {
    return card.keys.size() > 2;
}

void openedForSignatures(PlatformSide& card) {
    card.acquireOrFail();
    card.openKey(1);
}

// The card's own public key as the other party's: the secret is the same each time.
Bytes otherParty;
void openedForAgreement(PlatformSide& card) {
    opened(card);
    otherParty = card.publicKey(0);
}

BYTE secretIndex = 0;
void agreed(PlatformSide& card) {
    opened(card);
    ASSERT_EQ(card.agreeWithItself(&secretIndex), 0u);
}

// The same in every run of a card, so that outcomes can be compared.
Bytes rsaBlock;
void openedWithBlock(PlatformSide& card) {
    static std::map<Bytes, Bytes> blocks;
    card.acquireOrFail();
    card.openKey(card.rsaContainer());
    Bytes& block = blocks[card.atr];
    if (block.empty()) {
        block = boundary::encryptedTo(card.certificate(card.rsaContainer()), "a secret");
    }
    rsaBlock = block;
}

// --- What the caller has

void append(Bytes& bytes, const void* data, std::size_t size) {
    const auto* first = static_cast<const std::uint8_t*>(data);
    bytes.insert(bytes.end(), first, first + size);
}

// A buffer of the platform's: taken over, and given back.
void takeOver(PlatformSide& card, Bytes& bytes, void* buffer, DWORD size) {
    if (buffer == nullptr) return;
    append(bytes, buffer, size);
    card.data.pfnCspFree(buffer);
}

Outcome acquire(PlatformSide& card) {
    return {card.acquire(), {}};
}

Outcome deleteContext(PlatformSide& card) {
    card.acquired = false;
    return {card.data.pfnCardDeleteContext(&card.data), {}};
}

constexpr char mscp[] = "mscp", cardid[] = "cardid", cmapfile[] = "cmapfile", kxc00[] = "kxc00",
               ksc02[] = "ksc02";

template <const char* directory, const char* file>
Outcome readFile(PlatformSide& card) {
    Outcome outcome;
    PBYTE bytes = nullptr;
    DWORD size = 0;
    outcome.status = card.data.pfnCardReadFile(&card.data, const_cast<LPSTR>(directory),
                                               const_cast<LPSTR>(file), 0, &bytes, &size);
    takeOver(card, outcome.given, bytes, size);
    return outcome;
}

Outcome readCardIdentifier(PlatformSide& card) {
    Outcome outcome;
    PBYTE bytes = nullptr;
    DWORD size = 0;
    outcome.status =
        card.data.pfnCardReadFile(&card.data, nullptr, const_cast<LPSTR>(cardid), 0, &bytes, &size);
    takeOver(card, outcome.given, bytes, size);
    return outcome;
}

Outcome listFiles(PlatformSide& card) {
    Outcome outcome;
    LPSTR names = nullptr;
    DWORD size = 0;
    outcome.status =
        card.data.pfnCardEnumFiles(&card.data, const_cast<LPSTR>(mscp), &names, &size, 0);
    takeOver(card, outcome.given, names, size);
    return outcome;
}

Outcome fileInfo(PlatformSide& card) {
    CARD_FILE_INFO info{};
    info.dwVersion = 1;
    const DWORD status = card.data.pfnCardGetFileInfo(&card.data, const_cast<LPSTR>(mscp),
                                                      const_cast<LPSTR>(cmapfile), &info);
    Outcome outcome{status, {}};
    if (status == 0) append(outcome.given, &info, sizeof(info));
    return outcome;
}

Outcome queryCapabilities(PlatformSide& card) {
    CARD_CAPABILITIES capabilities{};
    capabilities.dwVersion = 1;
    return {card.data.pfnCardQueryCapabilities(&card.data, &capabilities), {}};
}

Outcome queryFreeSpace(PlatformSide& card) {
    CARD_FREE_SPACE_INFO info{};
    info.dwVersion = 1;
    return {card.data.pfnCardQueryFreeSpace(&card.data, 0, &info), {}};
}

Outcome queryKeySizes(PlatformSide& card) {
    CARD_KEY_SIZES sizes{};
    sizes.dwVersion = 1;
    const DWORD status = card.data.pfnCardQueryKeySizes(&card.data, AT_KEYEXCHANGE, 0, &sizes);
    Outcome outcome{status, {}};
    if (sizes.dwDefaultBitlen != 0) append(outcome.given, &sizes, sizeof(sizes));
    return outcome;
}

Outcome getProperty(PlatformSide& card, LPCWSTR name, DWORD flags) {
    BYTE buffer[256] = {};
    DWORD size = 0;
    Outcome outcome;
    outcome.status =
        card.data.pfnCardGetProperty(&card.data, name, buffer, sizeof(buffer), &size, flags);
    append(outcome.given, buffer, size);
    return outcome;
}
Outcome pinInformation(PlatformSide& card) {
    return getProperty(card, WIDE_TEXT("PIN Information"), 4);
}
Outcome identifierProperty(PlatformSide& card) {
    return getProperty(card, WIDE_TEXT("Card Identifier"), 0);
}
Outcome keySizesProperty(PlatformSide& card) {
    return getProperty(card, WIDE_TEXT("Key Sizes"), 1);
}
Outcome capabilitiesProperty(PlatformSide& card) {
    return getProperty(card, WIDE_TEXT("Capabilities"), 0);
}
Outcome freeSpaceProperty(PlatformSide& card) {
    return getProperty(card, WIDE_TEXT("Free Space"), 0);
}
Outcome pinListProperty(PlatformSide& card) {
    return getProperty(card, WIDE_TEXT("PIN List"), 0);
}

Outcome setPinContext(PlatformSide& card) {
    static WCHAR text[] = WIDE_TEXT("A bank asks for your signature");
    return {card.data.pfnCardSetProperty(&card.data, WIDE_TEXT("PIN Context String"),
                                         reinterpret_cast<PBYTE>(text), 31, 0),
            {}};
}
Outcome setParentWindow(PlatformSide& card) {
    platformCalls().IsWindow = [](HWND) -> BOOL { return TRUE; };
    BYTE window[8] = {0x10, 0x20};
    return {card.data.pfnCardSetProperty(&card.data, WIDE_TEXT("Parent Window"), window, 8, 0), {}};
}

// The pointers in the record give way to what they point to.
void takeOverInfo(PlatformSide& card, Bytes& bytes, const CONTAINER_INFO& info) {
    takeOver(card, bytes, info.pbKeyExPublicKey, info.cbKeyExPublicKey);
    takeOver(card, bytes, info.pbSigPublicKey, info.cbSigPublicKey);
}
template <BYTE container>
Outcome containerInfo(PlatformSide& card) {
    CONTAINER_INFO info{};
    info.dwVersion = 1;
    Outcome outcome{card.data.pfnCardGetContainerInfo(&card.data, container, 0, &info), {}};
    takeOverInfo(card, outcome.given, info);
    return outcome;
}
Outcome containerInfoProperty(PlatformSide& card) {
    BYTE buffer[sizeof(CONTAINER_INFO)] = {};
    DWORD size = 0;
    Outcome outcome{
        card.data.pfnCardGetContainerProperty(&card.data, 0, WIDE_TEXT("Container Info"), buffer,
                                              sizeof(buffer), &size, 0),
        {}};
    CONTAINER_INFO info;
    std::memcpy(&info, buffer, sizeof(info));
    takeOverInfo(card, outcome.given, info);
    return outcome;
}
Outcome pinIdentifierProperty(PlatformSide& card) {
    DWORD identifier = 0;
    DWORD size = 0;
    Outcome outcome{card.data.pfnCardGetContainerProperty(
                        &card.data, 1, WIDE_TEXT("PIN Identifier"),
                        reinterpret_cast<PBYTE>(&identifier), sizeof(identifier), &size, 0),
                    {}};
    if (size != 0) append(outcome.given, &identifier, sizeof(identifier));
    return outcome;
}

std::string pinOf(const PlatformSide& card, PIN_ID pinId) {
    return card.pin(pinId == 1 ? PinRole::Authentication : PinRole::Signature);
}
template <PIN_ID pinId>
Outcome enterPin(PlatformSide& card) {
    return {card.authenticate(pinId, pinOf(card, pinId)), {}};
}
Outcome enterPinByTheOlderCall(PlatformSide& card) {
    static WCHAR user[] = WIDE_TEXT("user");
    std::string pin = pinOf(card, 1);
    return {card.data.pfnCardAuthenticatePin(&card.data, user, reinterpret_cast<PBYTE>(pin.data()),
                                             static_cast<DWORD>(pin.size()), nullptr),
            {}};
}

std::string enteredInTheDialog;
Outcome enterPinInTheDialog(PlatformSide& card) {
    enteredInTheDialog = pinOf(card, 1);
    return {
        card.data.pfnCardAuthenticateEx(&card.data, 1, 0, nullptr, 0, nullptr, nullptr, nullptr),
        {}};
}

Outcome sign(PlatformSide& card, BYTE container, bool pss) {
    Bytes hash(32, 0x11);
    BCRYPT_PSS_PADDING_INFO padding{WIDE_TEXT("SHA256"), 32};
    CARD_SIGNING_INFO info = card.signingInfo(container, hash);
    if (pss) {
        info.dwVersion = 2;
        info.aiHashAlg = 0;
        info.dwSigningFlags = CARD_PADDING_INFO_PRESENT;
        info.dwPaddingType = CARD_PADDING_PSS;
        info.pPaddingInfo = &padding;
    }
    Outcome outcome{card.data.pfnCardSignData(&card.data, &info), {}};
    takeOver(card, outcome.given, info.pbSignedData, info.cbSignedData);
    return outcome;
}
Outcome signForLogon(PlatformSide& card) {
    return sign(card, 0, false);
}
Outcome signDocument(PlatformSide& card) {
    return sign(card, 1, false);
}
Outcome signByPss(PlatformSide& card) {
    return sign(card, 0, true);
}

Outcome decrypt(PlatformSide& card) {
    Bytes buffer = rsaBlock;
    CARD_RSA_DECRYPT_INFO info{};
    info.dwVersion = 2;
    info.bContainerIndex = card.rsaContainer();
    info.dwKeySpec = info.bContainerIndex == 0 ? AT_KEYEXCHANGE : AT_SIGNATURE;
    info.pbData = buffer.data();
    info.cbData = static_cast<DWORD>(buffer.size());
    info.dwPaddingType = CARD_PADDING_PKCS1;
    Outcome outcome{card.data.pfnCardRSADecrypt(&card.data, &info), {}};
    if (buffer != rsaBlock) append(outcome.given, buffer.data(), buffer.size());
    return outcome;
}

Outcome agree(PlatformSide& card) {
    CARD_DH_AGREEMENT_INFO info{};
    info.dwVersion = 2;
    info.dwPublicKey = static_cast<DWORD>(otherParty.size());
    info.pbPublicKey = otherParty.data();
    Outcome outcome{card.data.pfnCardConstructDHAgreement(&card.data, &info), {}};
    if (info.bSecretAgreementIndex != 0) outcome.given.push_back(info.bSecretAgreementIndex);
    return outcome;
}

Outcome derive(PlatformSide& card) {
    static WCHAR kdf[] = WIDE_TEXT("HASH");
    static WCHAR sha256[] = WIDE_TEXT("SHA256");
    static BYTE ahead[] = {1, 2, 3};
    static BYTE behind[] = {4, 5};
    BCryptBuffer buffers[] = {{sizeof(sha256), KDF_HASH_ALGORITHM, sha256},
                              {sizeof(ahead), KDF_SECRET_PREPEND, ahead},
                              {sizeof(behind), KDF_SECRET_APPEND, behind}};
    BCryptBufferDesc list{BCRYPTBUFFER_VERSION, 3, buffers};
    CARD_DERIVE_KEY info{};
    info.dwVersion = 2;
    info.pwszKDF = kdf;
    info.bSecretAgreementIndex = secretIndex;
    info.pParameterList = &list;
    Outcome outcome{card.data.pfnCardDeriveKey(&card.data, &info), {}};
    takeOver(card, outcome.given, info.pbDerivedKey, info.cbDerivedKey);
    return outcome;
}

Outcome destroy(PlatformSide& card) {
    return {card.data.pfnCardDestroyDHAgreement(&card.data, secretIndex, 0), {}};
}

Outcome deauthenticate(PlatformSide& card) {
    return {card.data.pfnCardDeauthenticateEx(&card.data, 2, 0), {}};
}

// --- What stands around

int library = 0;
int window = 0;

std::int32_t __cdecl promptCodeEntryDefault(std::int32_t, std::int32_t, std::int32_t, std::int32_t,
                                            const char*, const char*, std::int32_t, std::int32_t,
                                            char* pin) {
    givenHandles().hasPrompted = true;
    std::memcpy(pin, enteredInTheDialog.c_str(), enteredInTheDialog.size() + 1);
    return 0;
}

LSTATUS give(std::u16string_view value, PVOID data, LPDWORD size) {
    const auto needed = static_cast<DWORD>((value.size() + 1) * sizeof(WCHAR));
    const DWORD room = *size;
    *size = needed;
    if (room < needed) return ERROR_MORE_DATA;
    std::memcpy(data, value.data(), needed - sizeof(WCHAR));
    std::memset(static_cast<BYTE*>(data) + needed - sizeof(WCHAR), 0, sizeof(WCHAR));
    return ERROR_SUCCESS;
}

void hookDialog() {
    auto& calls = platformCalls();
    calls.RegGetValueW = [](HKEY, LPCWSTR, LPCWSTR name, DWORD, LPDWORD, PVOID data,
                            LPDWORD size) -> LSTATUS {
        if (std::u16string_view(name) != WIDE_TEXT("Kelmora ID")) return ERROR_FILE_NOT_FOUND;
        return give(WIDE_TEXT("C:\\Kelmora\\app.exe"), data, size);
    };
    calls.LoadLibraryExW = [](LPCWSTR path, HANDLE, DWORD) -> HMODULE {
        if (*path == 0) return nullptr;
        ++givenHandles().libraries;
        return &library;
    };
    calls.GetProcAddress = [](HMODULE, LPCSTR) -> FARPROC {
        return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(&promptCodeEntryDefault));
    };
    calls.FreeLibrary = [](HMODULE) -> BOOL { return TRUE; };
    calls.SetCurrentDirectoryW = [](LPCWSTR folder) -> BOOL { return *folder != 0; };
    calls.GetForegroundWindow = [] { return static_cast<HWND>(&window); };
    calls.GetClassNameW = [](HWND handle, LPWSTR name, int) -> int {
        if (handle == nullptr) return 0;
        const std::u16string_view text = WIDE_TEXT("Chrome_WidgetWin_1");
        text.copy(name, text.size());
        name[text.size()] = 0;
        return static_cast<int>(text.size());
    };
}

int replyParts = 0;

void hookService() {
    auto& calls = platformCalls();
    calls.RegGetValueW = [](HKEY, LPCWSTR, LPCWSTR name, DWORD, LPDWORD, PVOID data,
                            LPDWORD size) -> LSTATUS {
        if (std::u16string_view(name) != WIDE_TEXT("ADRSURL")) return ERROR_FILE_NOT_FOUND;
        return give(WIDE_TEXT("https://directory.example:8443; http://second.example:80"), data,
                    size);
    };
    const auto open = []() -> HINTERNET {
        return reinterpret_cast<HINTERNET>(static_cast<std::uintptr_t>(++givenHandles().http));
    };
    calls.WinHttpOpen = [open](LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD) { return open(); };
    calls.WinHttpConnect = [open](HINTERNET, LPCWSTR, INTERNET_PORT, DWORD) { return open(); };
    calls.WinHttpOpenRequest = [open](HINTERNET, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR*,
                                      DWORD) { return open(); };
    calls.WinHttpSetTimeouts = [](HINTERNET, int, int, int, int) -> BOOL { return TRUE; };
    calls.WinHttpSendRequest = [](HINTERNET, LPCWSTR, DWORD, LPVOID, DWORD, DWORD,
                                  DWORD_PTR) -> BOOL {
        replyParts = 2;
        return TRUE;
    };
    calls.WinHttpReceiveResponse = [](HINTERNET, LPVOID) -> BOOL { return TRUE; };
    calls.WinHttpQueryDataAvailable = [](HINTERNET, LPDWORD count) -> BOOL {
        *count = replyParts-- > 0 ? 600 : 0;
        return TRUE;
    };
    calls.WinHttpReadData = [](HINTERNET, LPVOID buffer, DWORD count, LPDWORD read) -> BOOL {
        std::memset(buffer, 'x', count);
        *read = count;
        return TRUE;
    };
    calls.WinHttpCloseHandle = [](HINTERNET) -> BOOL { return TRUE; };
}

}  // namespace

const std::vector<Journey> journeys = {
    {"CardAcquireContext", "", everyCard, nothing, acquire, boundary::statusOfAcquisition},
    {"CardAcquireContext", "pairing", everyCard, nothing, acquire},
    {"CardDeleteContext", "", everyCard, acquired, deleteContext},
    {"CardReadFile", "cardid", everyCard, acquired, readCardIdentifier},
    {"CardReadFile", "cmapfile", everyCard, acquired, readFile<mscp, cmapfile>},
    {"CardReadFile", "kxc00", everyCard, acquired, readFile<mscp, kxc00>},
    {"CardReadFile", "ksc02", hasThirdKey, acquired, readFile<mscp, ksc02>},
    {"CardEnumFiles", "", everyCard, acquired, listFiles},
    {"CardGetFileInfo", "", everyCard, acquired, fileInfo},
    {"CardQueryCapabilities", "", everyCard, acquired, queryCapabilities},
    {"CardQueryFreeSpace", "", everyCard, acquired, queryFreeSpace},
    {"CardQueryKeySizes", "", everyCard, acquired, queryKeySizes},
    {"CardGetProperty", "PIN Information", everyCard, acquired, pinInformation},
    {"CardGetProperty", "PIN Information, dialog", everyCard, acquired, pinInformation},
    {"CardGetProperty", "Card Identifier", everyCard, acquired, identifierProperty},
    {"CardGetProperty", "Key Sizes", everyCard, acquired, keySizesProperty},
    {"CardGetProperty", "Capabilities", everyCard, acquired, capabilitiesProperty},
    {"CardGetProperty", "Free Space", everyCard, acquired, freeSpaceProperty},
    {"CardGetProperty", "PIN List", everyCard, acquired, pinListProperty},
    {"CardSetProperty", "PIN Context String", everyCard, acquired, setPinContext},
    {"CardSetProperty", "Parent Window", everyCard, acquired, setParentWindow},
    {"CardGetContainerInfo", "0", everyCard, acquired, containerInfo<0>},
    {"CardGetContainerInfo", "1", everyCard, acquired, containerInfo<1>},
    {"CardGetContainerInfo", "2", hasThirdKey, acquired, containerInfo<2>},
    {"CardGetContainerProperty", "Container Info", everyCard, acquired, containerInfoProperty},
    {"CardGetContainerProperty", "PIN Identifier", everyCard, acquired, pinIdentifierProperty},
    {"CardAuthenticateEx", "PIN 1", everyCard, acquired, enterPin<1>, boundary::statusOfPin, 1},
    {"CardAuthenticateEx", "PIN 4", everyCard, acquired, enterPin<4>, boundary::statusOfPin, 1},
    {"CardAuthenticateEx", "dialog", everyCard, acquired, enterPinInTheDialog, nullptr, 1},
    {"CardAuthenticatePin", "", everyCard, acquired, enterPinByTheOlderCall, boundary::statusOfPin,
     1},
    {"CardSignData", "container 0", everyCard, opened, signForLogon, boundary::statusOfSignature, 0,
     true},
    {"CardSignData", "container 1", everyCard, openedForSignatures, signDocument,
     boundary::statusOfSignature, 0, true},
    {"CardSignData", "PSS", logsOnWithRsaKey, opened, signByPss, boundary::statusOfSignature, 0,
     true},
    {"CardRSADecrypt", "", hasRsaKey, openedWithBlock, decrypt, boundary::statusOfDecryption},
    {"CardConstructDHAgreement", "", hasEcKey, openedForAgreement, agree,
     boundary::statusOfAgreement},
    {"CardDeriveKey", "", hasEcKey, agreed, derive},
    {"CardDestroyDHAgreement", "", hasEcKey, agreed, destroy},
    {"CardDeauthenticateEx", "", everyCard, acquired, deauthenticate},
};

Surroundings surroundingsOf(const Journey& journey) {
    const std::string_view variant = journey.variant;
    if (variant == "pairing") return Surroundings::service;
    return variant.ends_with("dialog") ? Surroundings::dialog : Surroundings::bare;
}

void hookSurroundings(const Journey& journey) {
    switch (surroundingsOf(journey)) {
        case Surroundings::dialog:
            return hookDialog();
        case Surroundings::service:
            return hookService();
        case Surroundings::bare:
            return;
    }
}

void hookCertificates() {
    givenHandles() = {};
    static auto* const kept = new std::vector<PCCERT_CONTEXT>;
    platformCalls().CertCreateCertificateContext = [](DWORD encoding, const BYTE* bytes,
                                                      DWORD size) {
        const PCCERT_CONTEXT made = __real_CertCreateCertificateContext(encoding, bytes, size);
        if (made != nullptr) {
            ++givenHandles().certificates;
            kept->push_back(made);
        }
        return made;
    };
}

GivenHandles& givenHandles() {
    static GivenHandles handles;
    return handles;
}

}  // namespace faults
