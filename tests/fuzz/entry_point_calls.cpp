#include "entry_point_calls.h"

#include <array>
#include <cstddef>
#include <memory>
#include <type_traits>

#include "fuzz_target.h"
#include "known_statuses.h"
#include "session/card_context.h"

namespace fuzz {
namespace {

constexpr LPCWSTR propertyNames[] = {
    WIDE_TEXT("PIN Information"),    WIDE_TEXT("Card Identifier"),
    WIDE_TEXT("Key Sizes"),          WIDE_TEXT("Algorithms"),
    WIDE_TEXT("Chaining Modes"),     WIDE_TEXT("Padding Schemes"),
    WIDE_TEXT("PIN List"),           WIDE_TEXT("PIN Strength Verify"),
    WIDE_TEXT("Free Space"),         WIDE_TEXT("Capabilities"),
    WIDE_TEXT("Card Serial Number"), WIDE_TEXT("Authenticated State"),
    WIDE_TEXT("Read Only Mode"),     WIDE_TEXT("Container Info"),
    WIDE_TEXT("PIN Identifier"),     WIDE_TEXT("Associated ECDH Key"),
    WIDE_TEXT("Parent Window"),
};
constexpr LPCWSTR pinContext = WIDE_TEXT("PIN Context String");

constexpr LPCWSTR hashNames[] = {WIDE_TEXT("SHA1"),   WIDE_TEXT("SHA224"), WIDE_TEXT("SHA256"),
                                 WIDE_TEXT("SHA384"), WIDE_TEXT("SHA512"), WIDE_TEXT("MD5")};
constexpr LPCWSTR userNames[] = {WIDE_TEXT("user"), WIDE_TEXT("admin"), WIDE_TEXT("")};
constexpr const char* fileNames[] = {"cardid", "cardcf", "cardapps", "cmapfile",
                                     "kxc00",  "KSC01",  "ksc02",    "msroots"};
constexpr const char* pins[] = {"1234", "123456", "12345678", "0000"};
constexpr DWORD paddings[] = {0, CARD_PADDING_NONE, CARD_PADDING_PKCS1, CARD_PADDING_PSS,
                              CARD_PADDING_OAEP};
constexpr ALG_ID algorithms[] = {0,          CALG_SHA1, CALG_SHA_256, CALG_SHA_384, CALG_SHA_512,
                                 0x0000800B, 0x00008003};
constexpr std::size_t hashLengths[] = {20, 28, 32, 36, 48, 64};
constexpr DWORD signingFlags[] = {0, CARD_BUFFER_SIZE_ONLY, CARD_PADDING_INFO_PRESENT,
                                  CARD_BUFFER_SIZE_ONLY | CARD_PADDING_INFO_PRESENT};

/// The record's pointer, or now and then none.
PCARD_DATA recordOf(CallersRecord& record, FuzzInput& input) {
    return input.byte() == 0xFF ? nullptr : &record.data;
}

/// Small numbers mostly, any number now and then.
DWORD numberOf(FuzzInput& input) {
    const std::uint8_t first = input.byte();
    return first < 0xF0 ? first % 9 : input.number();
}

/// A version that is right mostly.
DWORD versionOf(FuzzInput& input, DWORD right) {
    const std::uint8_t first = input.byte();
    return first < 0x80 ? right : first % 8;
}

/// Flags that are none mostly.
DWORD flagsOf(FuzzInput& input) {
    const std::uint8_t first = input.byte();
    return first < 0x80 ? 0 : input.number();
}

/// A name with its terminator in a buffer of its very length; no value now and then.
template <typename Text, std::size_t count>
class Name {
public:
    using Character = std::remove_const_t<std::remove_pointer_t<Text>>;
    Name(FuzzInput& input, const Text (&known)[count]) {
        const std::uint8_t choice = input.byte();
        if (choice == 0xFF) return;
        if (choice >= 0xF0) {
            if constexpr (sizeof(Character) == 1) {
                text_ = input.text();
            } else {
                text_ = input.wideText();
            }
        } else {
            text_ = known[choice % count];
        }
        // A string may keep a short text within itself, where overruns are not seen.
        buffer_ = std::make_unique<Character[]>(text_.size() + 1);
        std::copy(text_.begin(), text_.end(), buffer_.get());
    }
    Character* get() const { return buffer_.get(); }

private:
    std::basic_string<Character> text_;
    std::unique_ptr<Character[]> buffer_;
};

/// Bytes in a buffer of their very length, which may be none; null now and then.
class Buffer {
public:
    explicit Buffer(const Bytes& bytes, bool isNull = false)
        : size_(bytes.size()), bytes_(isNull ? nullptr : new std::uint8_t[bytes.size()]) {
        if (!isNull) std::copy(bytes.begin(), bytes.end(), bytes_.get());
    }
    PBYTE get() const { return bytes_.get(); }
    DWORD size() const { return static_cast<DWORD>(size_); }

private:
    std::size_t size_;
    std::unique_ptr<std::uint8_t[]> bytes_;
};

Buffer bufferOf(FuzzInput& input) {
    Bytes bytes = input.longBlock();
    return Buffer(bytes, bytes.empty() && input.flag());
}

/// A buffer to be filled, of a size from the input.
Buffer roomOf(FuzzInput& input) {
    return Buffer(Bytes(input.byte(), 0), input.byte() == 0xFF);
}

DWORD sign(CallersRecord& record, FuzzInput& input) {
    const DWORD flags = input.byte() < 0xE0 ? input.oneOf(signingFlags) : input.number();
    const Name hash(input, hashNames);
    BCRYPT_PSS_PADDING_INFO padding{hash.get(), numberOf(input)};
    Bytes data = input.bytes(input.byte() < 0xE0 ? input.oneOf(hashLengths) : input.word());
    if (data.empty()) data.resize(32);
    const Buffer buffer(data, input.byte() == 0xFF);
    CARD_SIGNING_INFO info{};
    info.dwVersion = versionOf(input, 2);
    info.bContainerIndex = static_cast<BYTE>(input.byte() % 4);
    info.dwKeySpec = info.bContainerIndex == 0 ? AT_KEYEXCHANGE : AT_SIGNATURE;
    if (input.flag()) info.dwKeySpec = numberOf(input);
    info.dwSigningFlags = flags;
    info.aiHashAlg = input.oneOf(algorithms);
    info.pbData = buffer.get();
    info.cbData = buffer.size();
    info.dwPaddingType = input.oneOf(paddings);
    info.pPaddingInfo = input.byte() == 0xFF ? nullptr : &padding;
    const DWORD status = record.data.pfnCardSignData(recordOf(record, input), &info);
    CallersRecord::take(info.pbSignedData, info.cbSignedData, status == 0);
    return status;
}

DWORD decrypt(CallersRecord& record, FuzzInput& input) {
    Bytes block = input.longBlock();
    if (block.size() < 8) block.resize(input.flag() ? 256 : 384, 0x11);
    const Buffer buffer(block, input.byte() == 0xFF);
    CARD_RSA_DECRYPT_INFO info{};
    info.dwVersion = versionOf(input, 2);
    info.bContainerIndex = static_cast<BYTE>(input.byte() % 4);
    info.dwKeySpec = info.bContainerIndex == 0 ? AT_KEYEXCHANGE : AT_SIGNATURE;
    if (input.flag()) info.dwKeySpec = numberOf(input);
    info.pbData = buffer.get();
    info.cbData = buffer.size();
    info.dwPaddingType = input.flag() ? input.oneOf(paddings) : CARD_PADDING_PKCS1;
    info.pPaddingInfo = input.flag() ? &info : nullptr;
    const DWORD status = record.data.pfnCardRSADecrypt(recordOf(record, input), &info);
    require(info.cbData <= buffer.size(), "a message is no longer than its block");
    return status;
}

// The point of the card's own key, which is one of the right curve, as a key blob.
Bytes ownPoint(const CallersRecord& record) {
    const auto& context = *static_cast<const KelmoraID::CardContext*>(record.data.pvVendorSpecific);
    const CRYPT_BIT_BLOB& key = context.authCert->pCertInfo->SubjectPublicKeyInfo.PublicKey;
    Bytes blob(8, 0);
    if (key.cbData != 0) blob.insert(blob.end(), key.pbData + 1, key.pbData + key.cbData);
    return blob;
}

DWORD agree(CallersRecord& record, FuzzInput& input) {
    Bytes blob = input.longBlock();
    if (blob.size() < 8) blob = ownPoint(record);
    const Buffer buffer(blob, input.byte() == 0xFF);
    const Buffer reserved = bufferOf(input);
    CARD_DH_AGREEMENT_INFO info{};
    info.dwVersion = versionOf(input, 2);
    info.bContainerIndex = static_cast<BYTE>(input.byte() < 0xC0 ? 0 : input.byte() % 4);
    info.dwFlags = flagsOf(input);
    info.pbPublicKey = buffer.get();
    info.dwPublicKey = buffer.size();
    info.pbReserved = reserved.get();
    info.cbReserved = reserved.size();
    if (record.data.pfnCardConstructDHAgreement == nullptr) return 0;
    return record.data.pfnCardConstructDHAgreement(recordOf(record, input), &info);
}

DWORD derive(CallersRecord& record, FuzzInput& input) {
    static constexpr LPCWSTR functions[] = {WIDE_TEXT("HASH"), WIDE_TEXT("HMAC"), WIDE_TEXT("")};
    const Name function(input, functions);
    const Name algorithm(input, hashNames);
    std::vector<Buffer> contents;
    std::vector<BCryptBuffer> list;
    for (std::size_t count = input.below(5); count != 0; --count) {
        contents.push_back(bufferOf(input));
        // A name's bytes can stand anywhere, with a terminator or without.
        list.push_back({contents.back().size(), numberOf(input), contents.back().get()});
    }
    const Name hash(input, hashNames);
    if (hash.get() != nullptr) {
        const auto units = static_cast<ULONG>(WideString(hash.get()).size() + input.below(2));
        list.push_back({static_cast<ULONG>(units * sizeof(WCHAR)), KDF_HASH_ALGORITHM, hash.get()});
    }
    // The list too in a buffer of its very length.
    const std::unique_ptr<BCryptBuffer[]> exact(new BCryptBuffer[list.size()]);
    std::copy(list.begin(), list.end(), exact.get());
    BCryptBufferDesc description{BCRYPTBUFFER_VERSION, static_cast<ULONG>(list.size()),
                                 input.byte() == 0xFF ? nullptr : exact.get()};
    CARD_DERIVE_KEY info{};
    info.dwVersion = versionOf(input, 2);
    info.dwFlags = input.flag() ? flagsOf(input) : 0;
    info.pwszKDF = function.get();
    info.bSecretAgreementIndex = static_cast<BYTE>(input.byte() < 0xC0 ? 1 : input.byte());
    info.pParameterList = input.byte() == 0xFF ? nullptr : &description;
    info.pwszAlgId = algorithm.get();
    info.dwKeyLen = numberOf(input);
    if (record.data.pfnCardDeriveKey == nullptr) return 0;
    const DWORD status = record.data.pfnCardDeriveKey(recordOf(record, input), &info);
    CallersRecord::take(info.pbDerivedKey, info.cbDerivedKey, status == 0);
    return status;
}

DWORD destroyAgreement(CallersRecord& record, FuzzInput& input) {
    if (record.data.pfnCardDestroyDHAgreement == nullptr) return 0;
    const auto index = static_cast<BYTE>(input.byte() < 0xC0 ? 1 : input.byte());
    const DWORD flags = flagsOf(input);
    return record.data.pfnCardDestroyDHAgreement(recordOf(record, input), index, flags);
}

DWORD authenticate(CallersRecord& record, FuzzInput& input) {
    const bool isKnown = input.byte() < 0xC0;
    const std::string known = input.oneOf(pins);
    const Buffer pin = isKnown ? Buffer(Bytes(known.begin(), known.end())) : bufferOf(input);
    const std::uint8_t choice = input.byte();
    const PIN_ID pinId = choice < 0xC0 ? (choice % 2 == 0 ? 1u : 4u) : numberOf(input);
    const DWORD flags = flagsOf(input);
    PBYTE sessionPin = nullptr;
    DWORD sessionPinSize = 0;
    DWORD attempts = 0;
    const bool wantsSession = input.byte() >= 0xC0;
    return record.data.pfnCardAuthenticateEx(recordOf(record, input), pinId, flags, pin.get(),
                                             pin.size(), wantsSession ? &sessionPin : nullptr,
                                             wantsSession ? &sessionPinSize : nullptr,
                                             input.flag() ? nullptr : &attempts);
}

DWORD authenticateByName(CallersRecord& record, FuzzInput& input) {
    const Name user(input, userNames);
    const Buffer pin = bufferOf(input);
    DWORD attempts = 0;
    return record.data.pfnCardAuthenticatePin(recordOf(record, input), user.get(), pin.get(),
                                              pin.size(), input.flag() ? nullptr : &attempts);
}

DWORD getProperty(CallersRecord& record, FuzzInput& input) {
    const Name name(input, propertyNames);
    const Buffer room = roomOf(input);
    const DWORD flags = numberOf(input);
    DWORD length = 0;
    const DWORD status =
        record.data.pfnCardGetProperty(recordOf(record, input), name.get(), room.get(), room.size(),
                                       input.byte() == 0xFF ? nullptr : &length, flags);
    require(status != 0 || length <= room.size(), "a property is no longer than its buffer");
    return status;
}

DWORD setProperty(CallersRecord& record, FuzzInput& input) {
    const Buffer value = bufferOf(input);
    const DWORD flags = flagsOf(input);
    if (input.flag()) {
        // Its length is told in characters, and the buffer has that many.
        const DWORD characters = value.size() / static_cast<DWORD>(sizeof(WCHAR));
        return record.data.pfnCardSetProperty(recordOf(record, input), pinContext, value.get(),
                                              characters, flags);
    }
    const Name name(input, propertyNames);
    return record.data.pfnCardSetProperty(recordOf(record, input), name.get(), value.get(),
                                          value.size(), flags);
}

void take(CONTAINER_INFO& info, DWORD status) {
    CallersRecord::take(info.pbSigPublicKey, info.cbSigPublicKey, status == 0);
    CallersRecord::take(info.pbKeyExPublicKey, info.cbKeyExPublicKey, status == 0);
}

DWORD getContainerProperty(CallersRecord& record, FuzzInput& input) {
    const Name name(input, propertyNames);
    const Buffer room = roomOf(input);
    const auto index = static_cast<BYTE>(input.byte() % 4);
    const DWORD flags = flagsOf(input);
    if (room.get() != nullptr && room.size() >= sizeof(DWORD)) {
        const DWORD version = versionOf(input, 1);  // Of the record in it, which is read.
        std::copy_n(reinterpret_cast<const BYTE*>(&version), sizeof(version), room.get());
    }
    DWORD length = 0;
    const DWORD status = record.data.pfnCardGetContainerProperty(
        recordOf(record, input), index, name.get(), room.get(), room.size(),
        input.byte() == 0xFF ? nullptr : &length, flags);
    require(status != 0 || length <= room.size(), "a property is no longer than its buffer");
    if (room.get() != nullptr && room.size() >= sizeof(CONTAINER_INFO) && name.get() != nullptr &&
        WideStringView(name.get()) == WIDE_TEXT("Container Info")) {
        CONTAINER_INFO info;
        std::copy_n(room.get(), sizeof(info), reinterpret_cast<BYTE*>(&info));
        take(info, status);
    }
    return status;
}

DWORD getContainerInfo(CallersRecord& record, FuzzInput& input) {
    CONTAINER_INFO info{};
    info.dwVersion = versionOf(input, 1);
    const auto index = static_cast<BYTE>(input.byte() % 4);
    const DWORD flags = flagsOf(input);
    const DWORD status = record.data.pfnCardGetContainerInfo(
        recordOf(record, input), index, flags, input.byte() == 0xFF ? nullptr : &info);
    take(info, status);
    return status;
}

const char* directoryOf(FuzzInput& input) {
    static constexpr const char* directories[] = {nullptr, "mscp", "MSCP", "", "mscpmscp9"};
    return input.oneOf(directories);
}

DWORD readFile(CallersRecord& record, FuzzInput& input) {
    const char* directory = directoryOf(input);
    const Name file(input, fileNames);
    const DWORD flags = flagsOf(input);
    PBYTE content = nullptr;
    DWORD size = 0;
    const bool wantsContent = input.byte() != 0xFF;
    const DWORD status = record.data.pfnCardReadFile(
        recordOf(record, input), const_cast<LPSTR>(directory), file.get(), flags,
        wantsContent ? &content : nullptr, input.byte() == 0xFF ? nullptr : &size);
    CallersRecord::take(content, size, status == 0);
    return status;
}

DWORD listFiles(CallersRecord& record, FuzzInput& input) {
    const char* directory = directoryOf(input);
    const DWORD flags = flagsOf(input);
    LPSTR names = nullptr;
    DWORD size = 0;
    const DWORD status =
        record.data.pfnCardEnumFiles(recordOf(record, input), const_cast<LPSTR>(directory), &names,
                                     input.byte() == 0xFF ? nullptr : &size, flags);
    CallersRecord::take(names, size, status == 0);
    return status;
}

DWORD getFileInfo(CallersRecord& record, FuzzInput& input) {
    const char* directory = directoryOf(input);
    const Name file(input, fileNames);
    CARD_FILE_INFO info{};
    info.dwVersion = versionOf(input, 1);
    return record.data.pfnCardGetFileInfo(recordOf(record, input), const_cast<LPSTR>(directory),
                                          file.get(), input.byte() == 0xFF ? nullptr : &info);
}

DWORD askCapabilities(CallersRecord& record, FuzzInput& input) {
    CARD_CAPABILITIES capabilities{};
    CARD_FREE_SPACE_INFO space{};
    CARD_KEY_SIZES sizes{};
    capabilities.dwVersion = space.dwVersion = sizes.dwVersion = versionOf(input, 1);
    const DWORD flags = flagsOf(input);
    const bool isNull = input.byte() == 0xFF;
    PCARD_DATA card = recordOf(record, input);
    switch (input.below(3)) {
        case 0:
            return record.data.pfnCardQueryCapabilities(card, isNull ? nullptr : &capabilities);
        case 1:
            return record.data.pfnCardQueryFreeSpace(card, flags, isNull ? nullptr : &space);
        default:
            return record.data.pfnCardQueryKeySizes(card, numberOf(input), flags,
                                                    isNull ? nullptr : &sizes);
    }
}

// An argument of a call that is not offered: a name, a few zeros behind any other pointer, or a
// number. It looks at nothing behind them, so no length is made to fit.
template <typename Argument>
Argument argumentOf(FuzzInput& input, LPWSTR name) {
    alignas(std::max_align_t) static std::array<std::uint8_t, 64> zeros;
    if constexpr (std::is_same_v<Argument, LPWSTR> || std::is_same_v<Argument, LPCWSTR>) {
        return name;
    } else if constexpr (std::is_pointer_v<Argument>) {
        zeros.fill(0);
        return input.byte() == 0xFF ? nullptr : reinterpret_cast<Argument>(zeros.data());
    } else {
        return static_cast<Argument>(flagsOf(input));
    }
}

template <typename... Arguments>
DWORD callSlot(DWORD(WINAPI* call)(PCARD_DATA, Arguments...), CallersRecord& record,
               FuzzInput& input) {
    const Name name(input, userNames);
    if (call == nullptr) return 0;
    return call(recordOf(record, input), argumentOf<Arguments>(input, name.get())...);
}

template <auto slot>
DWORD refuse(CallersRecord& record, FuzzInput& input) {
    return callSlot(record.data.*slot, record, input);
}

constexpr DWORD (*refused[])(CallersRecord&, FuzzInput&) = {
    refuse<&CARD_DATA::pfnCardDeleteContainer>,
    refuse<&CARD_DATA::pfnCardCreateContainer>,
    refuse<&CARD_DATA::pfnCardGetChallenge>,
    refuse<&CARD_DATA::pfnCardAuthenticateChallenge>,
    refuse<&CARD_DATA::pfnCardUnblockPin>,
    refuse<&CARD_DATA::pfnCardChangeAuthenticator>,
    refuse<&CARD_DATA::pfnCardDeauthenticate>,
    refuse<&CARD_DATA::pfnCardCreateDirectory>,
    refuse<&CARD_DATA::pfnCardDeleteDirectory>,
    refuse<&CARD_DATA::pfnCardCreateFile>,
    refuse<&CARD_DATA::pfnCardWriteFile>,
    refuse<&CARD_DATA::pfnCardDeleteFile>,
    refuse<&CARD_DATA::pfnCspGetDHAgreement>,
    refuse<&CARD_DATA::pfnCardGetChallengeEx>,
    refuse<&CARD_DATA::pfnCardChangeAuthenticatorEx>,
    refuse<&CARD_DATA::pfnCardDeauthenticateEx>,
    refuse<&CARD_DATA::pfnCardSetContainerProperty>,
    refuse<&CARD_DATA::pfnMDImportSessionKey>,
    refuse<&CARD_DATA::pfnMDEncryptData>,
    refuse<&CARD_DATA::pfnCardImportSessionKey>,
    refuse<&CARD_DATA::pfnCardGetSharedKeyHandle>,
    refuse<&CARD_DATA::pfnCardGetAlgorithmProperty>,
    refuse<&CARD_DATA::pfnCardGetKeyProperty>,
    refuse<&CARD_DATA::pfnCardSetKeyProperty>,
    refuse<&CARD_DATA::pfnCardDestroyKey>,
    refuse<&CARD_DATA::pfnCardProcessEncryptedData>,
    refuse<&CARD_DATA::pfnCardCreateContainerEx>,
};

// All of them at once: each looks at next to nothing.
DWORD callRefused(CallersRecord& record, FuzzInput& input) {
    for (const auto call : refused) {
        require(isKnownStatus(call(record, input)), "a refusal ends with a known status");
    }
    return 0;
}

// The first byte of each call picks from this table; seeds count on the order.
constexpr DWORD (*calls[])(CallersRecord&, FuzzInput&) = {
    authenticate,
    sign,
    decrypt,
    agree,
    derive,
    destroyAgreement,
    getProperty,
    setProperty,
    getContainerProperty,
    getContainerInfo,
    readFile,
    listFiles,
    getFileInfo,
    askCapabilities,
    authenticateByName,
    callRefused,
};

}  // namespace

void callEntryPoints(CallersRecord& record, FuzzInput& input, int most) {
    for (int made = 0; made < most && !input.atEnd(); ++made) {
        const std::uint8_t choice = input.byte();
        const auto call = calls[choice % std::size(calls)];
        // The high bits: the platform is out of memory, or has taken the reader's context away.
        if (choice >= 0xF0) {
            CallersRecord::failAllocation(static_cast<int>(1 + input.below(3)));
        }
        const SCARDCONTEXT context = record.data.hSCardCtx;
        if ((choice & 0xF0) == 0xE0) record.data.hSCardCtx = 0;
        const DWORD status = call(record, input);
        record.data.hSCardCtx = context;
        CallersRecord::failAllocation(0);
        require(isKnownStatus(status), "a call ends with a known status");
    }
}

}  // namespace fuzz
