#include "fault_journeys.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "driver_memory.h"
#include "support/platform_calls.h"
#include "support/statuses.h"

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

template <BYTE container>
void openedForSignatures(PlatformSide& card) {
    card.acquireOrFail();
    card.openKey(container);
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

template <typename Field>
void appendField(Bytes& bytes, const Field& field) {
    append(bytes, &field, sizeof(field));
}

template <typename Record>
void appendChanged(Bytes& bytes, const Record& before, const Record& after) {
    // As bytes: nothing of it may have been touched.
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
    if (std::memcmp(&before, &after, sizeof(after)) != 0) appendField(bytes, after);
}

// A field of the caller's that holds this is as it came.
constexpr DWORD untouched = 0x5A17;

CARD_DATA recordBefore;
Outcome acquire(PlatformSide& card) {
    recordBefore = card.data;
    return {card.acquire(), {}, {}};
}

constexpr const char* certificateFiles[] = {"kxc00", "ksc01", "ksc02"};

// A context may stay behind in the record of a failed acquisition, and nothing else.
void lookAtTheRecord(PlatformSide& card, Outcome& outcome) {
    if (outcome.status != 0) {
        CARD_DATA before = recordBefore;
        before.pvVendorSpecific = card.data.pvVendorSpecific;
        appendChanged(outcome.given, before, card.data);
        return;
    }
    Bytes& given = outcome.given;
    for (BYTE container = 0; container < card.containers(); ++container) {
        const Bytes content = card.readFile("mscp", certificateFiles[container]).bytes;
        append(given, content.data(), content.size());
    }
    const Bytes map = card.readFile("mscp", "cmapfile").bytes;
    append(given, map.data(), map.size());
    const Bytes identifier = card.readFile(nullptr, "cardid").bytes;
    append(given, identifier.data(), identifier.size());
    given.push_back(card.data.pfnCardConstructDHAgreement != nullptr &&
                    card.data.pfnCardDeriveKey != nullptr &&
                    card.data.pfnCardDestroyDHAgreement != nullptr);
}

// A certificate as the platform reads it.
class Certificate {
public:
    explicit Certificate(const Bytes& encoded)
        : context_(CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING,
                                                encoded.data(),
                                                static_cast<DWORD>(encoded.size()))) {
        EXPECT_NE(context_, nullptr);
    }
    ~Certificate() { CertFreeCertificateContext(context_); }
    Certificate(const Certificate&) = delete;
    Certificate& operator=(const Certificate&) = delete;

    bool isEc() const { return std::string_view(key().Algorithm.pszObjId) == "1.2.840.10045.2.1"; }
    Bytes encoded() const {
        return {context_->pbCertEncoded, context_->pbCertEncoded + context_->cbCertEncoded};
    }
    // Of an EC key by the length of a coordinate; 0 for an RSA key that cannot be read.
    WORD bits() const {
        const auto& point = key().PublicKey;
        if (isEc()) {
            const long bits = static_cast<long>(point.cbData) * 4 - 4 - long(point.cUnusedBits);
            return static_cast<WORD>(std::clamp(bits, 0L, 0xFFFFL));
        }
        BYTE blob[2048];
        DWORD size = sizeof(blob);
        if (!CryptDecodeObject(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, RSA_CSP_PUBLICKEYBLOB,
                               point.pbData, point.cbData, 0, blob, &size)) {
            return 0;
        }
        RSAPUBKEY rsa;
        std::memcpy(&rsa, blob + sizeof(PUBLICKEYSTRUC), sizeof(rsa));
        return static_cast<WORD>(rsa.bitlen);
    }

private:
    const CERT_PUBLIC_KEY_INFO& key() const { return context_->pCertInfo->SubjectPublicKeyInfo; }
    PCCERT_CONTEXT context_;
};

// The name of a container: a GUID out of the hash of a text (RFC 4122, version 5), whose ninth byte
// is not kept in part but replaced.
std::string containerName(const std::string& text) {
    const Bytes hash = boundary::hashOf("SHA-1", text);
    char name[39];
    std::snprintf(name, sizeof(name),
                  "{%02X%02X%02X%02X-%02X%02X-%02X%02X-80%02X-%02X%02X%02X%02X%02X%02X}", hash[3],
                  hash[2], hash[1], hash[0], hash[5], hash[4], (hash[7] & 0x0F) | 0x50, hash[6],
                  hash[9], hash[10], hash[11], hash[12], hash[13], hash[14], hash[15]);
    return name;
}

std::string lowerHex(const Bytes& bytes) {
    std::string text = virtual_card::toHex(bytes);
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

Outcome deleteContext(PlatformSide& card) {
    card.acquired = false;
    return {card.data.pfnCardDeleteContext(&card.data), {}, {}};
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
    const CARD_FILE_INFO before = info;
    Outcome outcome{card.data.pfnCardGetFileInfo(&card.data, const_cast<LPSTR>(mscp),
                                                 const_cast<LPSTR>(cmapfile), &info),
                    {},
                    {}};
    appendChanged(outcome.given, before, info);
    return outcome;
}

Outcome queryCapabilities(PlatformSide& card) {
    CARD_CAPABILITIES capabilities{};
    capabilities.dwVersion = 1;
    const CARD_CAPABILITIES before = capabilities;
    Outcome outcome{card.data.pfnCardQueryCapabilities(&card.data, &capabilities), {}, {}};
    appendChanged(outcome.given, before, capabilities);
    return outcome;
}

Outcome queryFreeSpace(PlatformSide& card) {
    CARD_FREE_SPACE_INFO info{};
    info.dwVersion = 1;
    info.dwBytesAvailable = info.dwKeyContainersAvailable = untouched;
    const CARD_FREE_SPACE_INFO before = info;
    Outcome outcome{card.data.pfnCardQueryFreeSpace(&card.data, 0, &info), {}, {}};
    appendChanged(outcome.given, before, info);
    return outcome;
}

Outcome queryKeySizes(PlatformSide& card) {
    CARD_KEY_SIZES sizes{};
    sizes.dwVersion = 1;
    const CARD_KEY_SIZES before = sizes;
    Outcome outcome{card.data.pfnCardQueryKeySizes(&card.data, AT_KEYEXCHANGE, 0, &sizes), {}, {}};
    appendChanged(outcome.given, before, sizes);
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
            {},
            {}};
}
Outcome setParentWindow(PlatformSide& card) {
    platformCalls().IsWindow = [](HWND) -> BOOL { return TRUE; };
    BYTE window[8] = {0x10, 0x20};
    return {
        card.data.pfnCardSetProperty(&card.data, WIDE_TEXT("Parent Window"), window, 8, 0), {}, {}};
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
    Outcome outcome{card.data.pfnCardGetContainerInfo(&card.data, container, 0, &info), {}, {}};
    takeOverInfo(card, outcome.given, info);
    return outcome;
}
Outcome containerInfoProperty(PlatformSide& card) {
    BYTE buffer[sizeof(CONTAINER_INFO)] = {};
    DWORD size = 0;
    Outcome outcome{
        card.data.pfnCardGetContainerProperty(&card.data, 0, WIDE_TEXT("Container Info"), buffer,
                                              sizeof(buffer), &size, 0),
        {},
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
                    {},
                    {}};
    if (size != 0) append(outcome.given, &identifier, sizeof(identifier));
    return outcome;
}

// The number of tries that the caller is told.
void appendAttempts(Bytes& given, DWORD attempts) {
    if (attempts != untouched) appendField(given, attempts);
}

constexpr EnteredPin rightPin1{PinRole::Authentication, true};
constexpr EnteredPin wrongPin1{PinRole::Authentication, false};
constexpr EnteredPin rightPin4{PinRole::Signature, true};
constexpr EnteredPin wrongPin4{PinRole::Signature, false};

PIN_ID pinIdOf(const EnteredPin& pin) {
    return pin.role == PinRole::Authentication ? 1 : 4;
}

template <const EnteredPin& pin>
Outcome enterPin(PlatformSide& card) {
    std::string text = textOf(card, pin);
    DWORD attempts = untouched;
    Outcome outcome;
    outcome.status = card.data.pfnCardAuthenticateEx(
        &card.data, pinIdOf(pin), 0, reinterpret_cast<PBYTE>(text.data()),
        static_cast<DWORD>(text.size()), nullptr, nullptr, &attempts);
    appendAttempts(outcome.given, attempts);
    return outcome;
}
template <const EnteredPin& pin>
Outcome enterPinByTheOlderCall(PlatformSide& card) {
    static WCHAR user[] = WIDE_TEXT("user");
    std::string text = textOf(card, pin);
    DWORD attempts = untouched;
    Outcome outcome;
    outcome.status =
        card.data.pfnCardAuthenticatePin(&card.data, user, reinterpret_cast<PBYTE>(text.data()),
                                         static_cast<DWORD>(text.size()), &attempts);
    appendAttempts(outcome.given, attempts);
    return outcome;
}

// The user enters one after the other, and then gives up.
std::vector<std::string> enteredInTheDialog;
template <const EnteredPin& first, const EnteredPin&... more>
Outcome enterPinInTheDialog(PlatformSide& card) {
    enteredInTheDialog = {textOf(card, first), textOf(card, more)...};
    DWORD attempts = untouched;
    Outcome outcome;
    outcome.status = card.data.pfnCardAuthenticateEx(&card.data, pinIdOf(first), 0, nullptr, 0,
                                                     nullptr, nullptr, &attempts);
    appendAttempts(outcome.given, attempts);
    outcome.prompts = givenHandles().prompts;
    return outcome;
}

const std::string signedMessage = "what the user agrees to";

Outcome sign(PlatformSide& card, BYTE container, bool pss) {
    static const Bytes hashed = boundary::hashOf("SHA-256", signedMessage);
    static BYTE nowhere = 0;
    Bytes hash = hashed;
    BCRYPT_PSS_PADDING_INFO padding{WIDE_TEXT("SHA256"), 32};
    CARD_SIGNING_INFO info = card.signingInfo(container, hash);
    info.pbSignedData = &nowhere;
    info.cbSignedData = untouched;
    if (pss) {
        info.dwVersion = 2;
        info.aiHashAlg = 0;
        info.dwSigningFlags = CARD_PADDING_INFO_PRESENT;
        info.dwPaddingType = CARD_PADDING_PSS;
        info.pPaddingInfo = &padding;
    }
    Outcome outcome{card.data.pfnCardSignData(&card.data, &info), {}, {}};
    if (info.cbSignedData != untouched) appendField(outcome.given, info.cbSignedData);
    if (info.pbSignedData != &nowhere) {
        takeOver(card, outcome.given, info.pbSignedData, info.cbSignedData);
    }
    return outcome;
}
template <BYTE container>
Outcome signUsually(PlatformSide& card) {
    return sign(card, container, false);
}
Outcome signByPss(PlatformSide& card) {
    return sign(card, 0, true);
}

// By the key that the certificate names.
void confirmSignature(PlatformSide& card, const Bytes& given, BYTE container, const char* scheme) {
    ASSERT_GT(given.size(), sizeof(DWORD));
    const Bytes signature(given.begin() + sizeof(DWORD), given.end());
    const bool isEc = card.isEcKey(container);
    EXPECT_TRUE(boundary::isSignature(card.certificate(container), isEc ? "EMSA1(SHA-256)" : scheme,
                                      signedMessage,
                                      isEc ? signature : boundary::reversed(signature)));
}
template <BYTE container>
void confirmUsual(PlatformSide& card, const Bytes& given) {
    confirmSignature(card, given, container, "EMSA3(SHA-256)");
}
void confirmPss(PlatformSide& card, const Bytes& given) {
    confirmSignature(card, given, 0, "EMSA4(SHA-256)");
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
    Outcome outcome{card.data.pfnCardRSADecrypt(&card.data, &info), {}, {}};
    if (buffer != rsaBlock || info.cbData != buffer.size()) {
        appendField(outcome.given, info.cbData);
        append(outcome.given, buffer.data(), buffer.size());
    }
    return outcome;
}

Outcome agree(PlatformSide& card) {
    CARD_DH_AGREEMENT_INFO info{};
    info.dwVersion = 2;
    info.dwPublicKey = static_cast<DWORD>(otherParty.size());
    info.pbPublicKey = otherParty.data();
    Outcome outcome{card.data.pfnCardConstructDHAgreement(&card.data, &info), {}, {}};
    if (info.bSecretAgreementIndex != 0) outcome.given.push_back(info.bSecretAgreementIndex);
    return outcome;
}

// What is kept of an agreement, by a key that is derived from it.
void lookAtTheSecret(PlatformSide& card, Outcome& outcome) {
    const boundary::Answer answer = card.derive(1);
    if (answer.status == status::invalidParameter) return;  // there is none
    EXPECT_EQ(answer.status, 0u);
    append(outcome.given, answer.bytes.data(), answer.bytes.size());
}

Outcome derive(PlatformSide& card) {
    static WCHAR kdf[] = WIDE_TEXT("HASH");
    static WCHAR sha256[] = WIDE_TEXT("SHA256");
    static BYTE ahead[] = {1, 2, 3};
    static BYTE behind[] = {4, 5};
    static BYTE nowhere = 0;
    BCryptBuffer buffers[] = {{sizeof(sha256), KDF_HASH_ALGORITHM, sha256},
                              {sizeof(ahead), KDF_SECRET_PREPEND, ahead},
                              {sizeof(behind), KDF_SECRET_APPEND, behind}};
    BCryptBufferDesc list{BCRYPTBUFFER_VERSION, 3, buffers};
    CARD_DERIVE_KEY info{};
    info.dwVersion = 2;
    info.pwszKDF = kdf;
    info.bSecretAgreementIndex = secretIndex;
    info.pParameterList = &list;
    info.pbDerivedKey = &nowhere;
    info.cbDerivedKey = untouched;
    Outcome outcome{card.data.pfnCardDeriveKey(&card.data, &info), {}, {}};
    if (info.cbDerivedKey != untouched) appendField(outcome.given, info.cbDerivedKey);
    if (info.pbDerivedKey != &nowhere) {
        takeOver(card, outcome.given, info.pbDerivedKey, info.cbDerivedKey);
    }
    return outcome;
}

Outcome destroy(PlatformSide& card) {
    return {card.data.pfnCardDestroyDHAgreement(&card.data, secretIndex, 0), {}, {}};
}

// An index that is none any more is refused ahead of everything else.
void lookWhetherItIsGone(PlatformSide& card, Outcome& outcome) {
    if (card.derive(secretIndex).status == status::invalidParameter) outcome.given.push_back(1);
}

// What is not offered: nothing but the record is handed over.
template <typename Argument>
Argument bareArgument(PlatformSide& card) {
    if constexpr (std::is_same_v<Argument, PCARD_DATA>) {
        return &card.data;
    } else {
        return Argument{};
    }
}
template <auto member>
struct Refused;
template <typename... Arguments, DWORD (WINAPI* CARD_DATA::*member)(Arguments...)>
struct Refused<member> {
    static Outcome call(PlatformSide& card) {
        const CARD_DATA before = card.data;
        Outcome outcome{(card.data.*member)(bareArgument<Arguments>(card)...), {}, {}};
        appendChanged(outcome.given, before, card.data);
        return outcome;
    }
};
template <auto member>
Journey refused(const char* entryPoint, DWORD status) {
    Journey journey{entryPoint, "", everyCard, acquired, Refused<member>::call};
    journey.refusal = status;
    return journey;
}

// --- What each has to end with, by what arrived from the card

Outcome ruleOfAcquisition(const PlatformSide&, const GoodRun& good, const Steps& run) {
    const boundary::CardContent content = boundary::contentOf(good.steps, run);
    if (content.status != 0) return {content.status, {}, {}};
    return {0, givenByAcquisition(content), {}};
}

Outcome outcomeOf(const boundary::PinEnd& end) {
    Outcome outcome{end.status, {}, end.prompts};
    if (end.attempts) appendField(outcome.given, *end.attempts);
    return outcome;
}
template <const EnteredPin& pin>
Outcome ruleOfPin(const PlatformSide& card, const GoodRun& good, const Steps& run) {
    return outcomeOf(boundary::endOfPin(good.steps, run, textOf(card, pin)));
}
template <const EnteredPin&... pins>
Outcome ruleOfDialog(const PlatformSide& card, const GoodRun& good, const Steps& run) {
    return outcomeOf(boundary::endOfDialog(good.steps, run, {textOf(card, pins)...}));
}

// A signature is what the last command has brought by 9000; otherwise there is none, whatever the
// status says.
template <BYTE container>
Outcome ruleOfSignature(const PlatformSide& card, const GoodRun& good, const Steps& run) {
    Outcome outcome{boundary::statusOfSignature(good.steps, run), {}, {}};
    if (run.size() != good.steps.size()) return outcome;
    const boundary::Step& last = run.back();
    if (!isGood(last)) return outcome;
    appendField(outcome.given, static_cast<DWORD>(last.data.size()));
    const Bytes signature = card.isEcKey(container) ? last.data : boundary::reversed(last.data);
    append(outcome.given, signature.data(), signature.size());
    return outcome;
}

// The message overwrites the beginning of the block.
Outcome ruleOfDecryption(const PlatformSide&, const GoodRun& good, const Steps& run) {
    Outcome outcome{boundary::statusOfDecryption(good.steps, run), {}, {}};
    if (outcome.status != 0) return outcome;
    const Bytes message = boundary::reversed(run.back().lastData);
    Bytes block = rsaBlock;
    std::copy(message.begin(), message.end(), block.begin());
    appendField(outcome.given, static_cast<DWORD>(message.size()));
    append(outcome.given, block.data(), block.size());
    return outcome;
}

Outcome ruleOfAgreement(const PlatformSide&, const GoodRun& good, const Steps& run) {
    Outcome outcome{boundary::statusOfAgreement(good.steps, run), {}, {}};
    if (outcome.status != 0) return outcome;
    const Bytes& secret = run.back().lastData;
    const Bytes key = boundary::hashOf("SHA-1", std::string(secret.begin(), secret.end()));
    outcome.given.push_back(1);
    append(outcome.given, key.data(), key.size());
    return outcome;
}

// The card is only asked whether the PIN is open.
Outcome ruleOfPinQuery(const PlatformSide&, const GoodRun& good, const Steps& run) {
    const DWORD status = boundary::statusOfAgreement(good.steps, run);
    return {status, status == 0 ? good.outcome.given : Bytes{}, {}};
}

// --- What stands around

int library = 0;
int window = 0;

std::int32_t __cdecl promptCodeEntryDefault(std::int32_t, std::int32_t, std::int32_t,
                                            std::int32_t reason, const char*, const char*,
                                            std::int32_t attempts, std::int32_t, char* pin) {
    const OutsideDriver outside;  // The driver calls it by no call of the platform's.
    auto& prompts = givenHandles().prompts;
    prompts.push_back({static_cast<BYTE>(reason), static_cast<DWORD>(attempts)});
    givenHandles().pinBuffer = pin;
    givenHandles().foundInPinBuffer.emplace_back(pin, pin + pinBufferSize);
    if (prompts.size() > enteredInTheDialog.size()) return 1;
    const std::string& text = enteredInTheDialog[prompts.size() - 1];
    std::memcpy(pin, text.c_str(), text.size() + 1);
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

std::string textOf(const PlatformSide& card, const EnteredPin& pin) {
    return pin.isRight ? card.pin(pin.role) : "73519264";
}

Bytes givenByAcquisition(const boundary::CardContent& content, const Omitted& omitted) {
    constexpr const char* suffixes[] = {"_AUTH", "_SIGN", "_SIGN_SEC"};
    Bytes identifier = content.serialNumber;
    if (identifier.size() > 16) {
        identifier = boundary::hashOf("SHA-256", {identifier.begin(), identifier.end()});
    }
    identifier.resize(16);
    if (omitted.identity) identifier.assign(16, 0);

    Bytes given;
    std::vector<CONTAINER_MAP_RECORD> map;
    for (std::size_t container = 0; container < content.certificates.size(); ++container) {
        const Certificate certificate(content.certificates[container]);
        const Bytes encoded = certificate.encoded();
        append(given, encoded.data(), encoded.size());
        CONTAINER_MAP_RECORD record{};
        if (omitted.name != static_cast<int>(container)) {
            const std::string name = containerName(lowerHex(identifier) + suffixes[container]);
            std::copy(name.begin(), name.end(), record.wszGuid);
        }
        record.bFlags = container == 0 ? 3 : 1;
        WORD& bits = container == 0 ? record.wKeyExchangeKeySizeBits : record.wSigKeySizeBits;
        if (omitted.size != static_cast<int>(container)) bits = certificate.bits();
        map.push_back(record);
    }
    append(given, map.data(), map.size() * sizeof(CONTAINER_MAP_RECORD));
    append(given, identifier.data(), identifier.size());
    given.push_back(Certificate(content.certificates.front()).isEc());
    return given;
}

// --- The journeys

const std::vector<Journey> journeys = {
    {"CardAcquireContext", "", everyCard, nothing, acquire, ruleOfAcquisition, {}, lookAtTheRecord},
    {"CardAcquireContext",
     "pairing",
     everyCard,
     nothing,
     acquire,
     ruleOfAcquisition,
     {},
     lookAtTheRecord},
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
    {"CardAuthenticateEx",
     "PIN 1",
     everyCard,
     acquired,
     enterPin<rightPin1>,
     ruleOfPin<rightPin1>,
     {rightPin1}},
    {"CardAuthenticateEx",
     "PIN 4",
     everyCard,
     acquired,
     enterPin<rightPin4>,
     ruleOfPin<rightPin4>,
     {rightPin4}},
    {"CardAuthenticateEx",
     "wrong PIN 1",
     everyCard,
     acquired,
     enterPin<wrongPin1>,
     ruleOfPin<wrongPin1>,
     {wrongPin1}},
    {"CardAuthenticateEx",
     "wrong PIN 4",
     everyCard,
     acquired,
     enterPin<wrongPin4>,
     ruleOfPin<wrongPin4>,
     {wrongPin4}},
    {"CardAuthenticateEx",
     "dialog",
     everyCard,
     acquired,
     enterPinInTheDialog<rightPin1>,
     ruleOfDialog<rightPin1>,
     {rightPin1}},
    {"CardAuthenticateEx",
     "dialog, wrong PIN first",
     everyCard,
     acquired,
     enterPinInTheDialog<wrongPin1, rightPin1>,
     ruleOfDialog<wrongPin1, rightPin1>,
     {wrongPin1, rightPin1}},
    {"CardAuthenticateEx",
     "dialog, PIN 4",
     everyCard,
     acquired,
     enterPinInTheDialog<rightPin4>,
     ruleOfDialog<rightPin4>,
     {rightPin4}},
    {"CardAuthenticateEx",
     "dialog, wrong PIN 4 first",
     everyCard,
     acquired,
     enterPinInTheDialog<wrongPin4, rightPin4>,
     ruleOfDialog<wrongPin4, rightPin4>,
     {wrongPin4, rightPin4}},
    {"CardAuthenticatePin",
     "",
     everyCard,
     acquired,
     enterPinByTheOlderCall<rightPin1>,
     ruleOfPin<rightPin1>,
     {rightPin1}},
    {"CardAuthenticatePin",
     "wrong PIN",
     everyCard,
     acquired,
     enterPinByTheOlderCall<wrongPin1>,
     ruleOfPin<wrongPin1>,
     {wrongPin1}},
    {"CardSignData",
     "container 0",
     everyCard,
     opened,
     signUsually<0>,
     ruleOfSignature<0>,
     {},
     nullptr,
     confirmUsual<0>},
    {"CardSignData",
     "container 1",
     everyCard,
     openedForSignatures<1>,
     signUsually<1>,
     ruleOfSignature<1>,
     {},
     nullptr,
     confirmUsual<1>},
    {"CardSignData",
     "container 2",
     hasThirdKey,
     openedForSignatures<2>,
     signUsually<2>,
     ruleOfSignature<2>,
     {},
     nullptr,
     confirmUsual<2>},
    {"CardSignData",
     "PSS",
     logsOnWithRsaKey,
     opened,
     signByPss,
     ruleOfSignature<0>,
     {},
     nullptr,
     confirmPss},
    {"CardRSADecrypt", "", hasRsaKey, openedWithBlock, decrypt, ruleOfDecryption},
    {"CardConstructDHAgreement",
     "",
     hasEcKey,
     openedForAgreement,
     agree,
     ruleOfAgreement,
     {},
     lookAtTheSecret,
     nullptr,
     1},
    {"CardDeriveKey",
     "",
     hasEcKey,
     agreed,
     derive,
     ruleOfPinQuery,
     {},
     nullptr,
     nullptr,
     sizeof(DWORD)},
    {"CardDestroyDHAgreement",
     "",
     hasEcKey,
     agreed,
     destroy,
     ruleOfPinQuery,
     {},
     lookWhetherItIsGone},
#define REFUSED(name, status) refused<&CARD_DATA::pfn##name>(#name, status)
    REFUSED(CardDeleteContainer, status::unsupportedFeature),
    REFUSED(CardCreateContainer, status::unsupportedFeature),
    REFUSED(CardGetChallenge, status::unsupportedFeature),
    REFUSED(CardAuthenticateChallenge, status::unsupportedFeature),
    REFUSED(CardUnblockPin, status::unsupportedFeature),
    REFUSED(CardChangeAuthenticator, status::unsupportedFeature),
    REFUSED(CardCreateDirectory, status::unsupportedFeature),
    REFUSED(CardDeleteDirectory, status::unsupportedFeature),
    REFUSED(CardCreateFile, status::unsupportedFeature),
    REFUSED(CardWriteFile, status::unsupportedFeature),
    REFUSED(CardDeleteFile, status::unsupportedFeature),
    REFUSED(CspGetDHAgreement, status::unsupportedFeature),
    REFUSED(CardGetChallengeEx, status::unsupportedFeature),
    REFUSED(CardChangeAuthenticatorEx, status::unsupportedFeature),
    REFUSED(CardDeauthenticateEx, status::unsupportedFeature),
    REFUSED(CardSetContainerProperty, status::unsupportedFeature),
    REFUSED(CardImportSessionKey, status::unsupportedFeature),
    REFUSED(CardCreateContainerEx, status::unsupportedFeature),
    REFUSED(CspUnpadData, status::unexpected),
    REFUSED(MDImportSessionKey, status::unexpected),
    REFUSED(MDEncryptData, status::unexpected),
    REFUSED(CardGetSharedKeyHandle, status::unexpected),
    REFUSED(CardGetAlgorithmProperty, status::unexpected),
    REFUSED(CardGetKeyProperty, status::unexpected),
    REFUSED(CardSetKeyProperty, status::unexpected),
    REFUSED(CardDestroyKey, status::unexpected),
    REFUSED(CardProcessEncryptedData, status::unexpected),
#undef REFUSED
};

Surroundings surroundingsOf(const Journey& journey) {
    const std::string_view variant = journey.variant;
    if (variant == "pairing") return Surroundings::service;
    return variant.find("dialog") != variant.npos ? Surroundings::dialog : Surroundings::bare;
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
