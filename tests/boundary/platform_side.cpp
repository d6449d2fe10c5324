#include "platform_side.h"

#include <botan/auto_rng.h>
#include <botan/hash.h>
#include <botan/pubkey.h>
#include <botan/x509_key.h>
#include <botan/x509cert.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support/platform_record.h"

namespace boundary {
namespace {

using KelmoraID::testing::PlatformMemory;

LPSTR text(const char* value) {
    return const_cast<LPSTR>(value);
}

const virtual_card::Generation& generationOf(int cardType) {
    const auto* generation = virtual_card::findGeneration(cardType);
    if (generation == nullptr) std::abort();
    return *generation;
}

bool isRead(const Bytes& command) {
    return command.size() == 5 && command[0] == 0x00 && command[1] == 0xB0;
}

}  // namespace

std::vector<int> rsaCardTypes() {
    return cardTypes([](const auto& generation) {
        return std::any_of(generation.keys.begin(), generation.keys.end(),
                           [](const auto& key) { return virtual_card::isRsa(key.kind); });
    });
}

std::vector<int> ecCardTypes() {
    return cardTypes(
        [](const auto& generation) { return !virtual_card::isRsa(generation.keys.front().kind); });
}

PlatformSide::PlatformSide(int cardType)
    : reader(generationOf(cardType)), atr(reader.card().atr()) {
    PlatformMemory::begin();
    putBehindTheSeam(reader.seam());
    KelmoraID::testing::fillRecord(data, atr, reader.contextHandle(), reader.cardHandle());
}

PlatformSide::~PlatformSide() {
    PlatformMemory::failNth(0);
    release();
    EXPECT_EQ(PlatformMemory::liveBuffers(), 0) << "buffers of the platform's are left";
    EXPECT_EQ(reader.openTransactions(), 0);
    putBehindTheSeam(nullptr);
}

DWORD PlatformSide::acquire(PFN_CARD_ACQUIRE_CONTEXT driver) {
    const DWORD status = driver(&data, 0);
    acquired = status == 0;
    // A context whose certificates the platform refused stays in the record.
    if (!acquired && data.pvVendorSpecific != nullptr) leftBehind(data.pvVendorSpecific);
    return status;
}

void PlatformSide::acquireOrFail() {
    ASSERT_EQ(acquire(), 0u);
}

void PlatformSide::release() {
    if (!acquired) return;
    EXPECT_EQ(data.pfnCardDeleteContext(&data), 0u);
    acquired = false;
}

Answer PlatformSide::readFile(const char* directory, const char* file, DWORD dwFlags) {
    PBYTE bytes = nullptr;
    DWORD size = 0;
    Answer answer;
    answer.status =
        data.pfnCardReadFile(&data, text(directory), text(file), dwFlags, &bytes, &size);
    if (answer.status == 0) {
        EXPECT_EQ(PlatformMemory::lastSize(), size)
            << "a buffer for the caller has the size of its content";
        answer.bytes.assign(bytes, bytes + size);
    }
    PlatformMemory::release(bytes);
    return answer;
}

Answer PlatformSide::listFiles(const char* directory) {
    LPSTR names = nullptr;
    DWORD size = 0;
    Answer answer;
    answer.status = data.pfnCardEnumFiles(&data, text(directory), &names, &size, 0);
    if (answer.status == 0) {
        EXPECT_EQ(PlatformMemory::lastSize(), size);
        answer.bytes.assign(names, names + size);
    }
    PlatformMemory::release(names);
    return answer;
}

Answer PlatformSide::property(LPCWSTR name, DWORD dwFlags, DWORD room) {
    Bytes buffer(room, 0xEE);
    DWORD size = 0;
    Answer answer;
    answer.status = data.pfnCardGetProperty(&data, name, buffer.data(), room, &size, dwFlags);
    if (answer.status == 0) {
        EXPECT_EQ(PlatformMemory::lastSize(), size);
        answer.bytes.assign(buffer.begin(), buffer.begin() + size);
    }
    return answer;
}

Answer PlatformSide::containerProperty(BYTE container, LPCWSTR name, DWORD room) {
    Bytes buffer(room, 0);  // A record in it begins with its version, which is read.
    DWORD size = 0;
    Answer answer;
    answer.status =
        data.pfnCardGetContainerProperty(&data, container, name, buffer.data(), room, &size, 0);
    if (answer.status == 0) answer.bytes.assign(buffer.begin(), buffer.begin() + size);
    return answer;
}

DWORD PlatformSide::numberOf(LPCWSTR name, DWORD dwFlags) {
    const Answer answer = property(name, dwFlags);
    EXPECT_EQ(answer.status, 0u);
    DWORD number = 0;
    if (answer.bytes.size() == sizeof(number)) {
        std::memcpy(&number, answer.bytes.data(), sizeof(number));
    } else {
        ADD_FAILURE() << "the property has " << answer.bytes.size() << " bytes";
    }
    return number;
}

DWORD PlatformSide::authenticate(PIN_ID pinId, const std::string& pinText, DWORD* attempts) {
    if (attempts != nullptr) *attempts = 77;
    std::string copy = pinText;
    return data.pfnCardAuthenticateEx(&data, pinId, 0, reinterpret_cast<PBYTE>(copy.data()),
                                      static_cast<DWORD>(copy.size()), nullptr, nullptr, attempts);
}

void PlatformSide::openKey(BYTE container) {
    const auto role = key(container).pin;
    const PIN_ID pinId = role == virtual_card::PinRole::Authentication ? 1 : 4;
    ASSERT_EQ(authenticate(pinId, pin(role)), 0u);
}

CARD_SIGNING_INFO PlatformSide::signingInfo(BYTE container, Bytes& hash) const {
    CARD_SIGNING_INFO info{};
    info.dwVersion = 1;
    info.bContainerIndex = container;
    info.dwKeySpec = isEcKey(container) ? AT_ECDSA_P256
                     : container == 0   ? AT_KEYEXCHANGE
                                        : AT_SIGNATURE;
    info.aiHashAlg = isEcKey(container) ? 0 : CALG_SHA_256;
    info.pbData = hash.data();
    info.cbData = static_cast<DWORD>(hash.size());
    return info;
}

CARD_SIGNING_INFO PlatformSide::pssInfo(BYTE container, Bytes& hash) const {
    static BCRYPT_PSS_PADDING_INFO padding{WIDE_TEXT("SHA256"), 32};
    CARD_SIGNING_INFO info = signingInfo(container, hash);
    info.dwVersion = 2;
    info.aiHashAlg = 0;
    info.dwSigningFlags = CARD_PADDING_INFO_PRESENT;
    info.dwPaddingType = CARD_PADDING_PSS;
    info.pPaddingInfo = &padding;
    return info;
}

Answer PlatformSide::sign(CARD_SIGNING_INFO info) {
    info.pbSignedData = nullptr;
    info.cbSignedData = 0;
    Answer answer;
    answer.status = data.pfnCardSignData(&data, &info);
    if (answer.status == 0 && info.pbSignedData != nullptr) {
        EXPECT_EQ(PlatformMemory::lastSize(), info.cbSignedData);
        answer.bytes.assign(info.pbSignedData, info.pbSignedData + info.cbSignedData);
    }
    PlatformMemory::release(info.pbSignedData);
    return answer;
}

Answer PlatformSide::decrypt(BYTE container, const Bytes& block, DWORD padding) {
    Bytes buffer = block;
    CARD_RSA_DECRYPT_INFO info{};
    info.dwVersion = 2;
    info.bContainerIndex = container;
    info.dwKeySpec = container == 0 ? AT_KEYEXCHANGE : AT_SIGNATURE;
    info.pbData = buffer.data();
    info.cbData = static_cast<DWORD>(buffer.size());
    info.dwPaddingType = padding;
    Answer answer;
    answer.status = data.pfnCardRSADecrypt(&data, &info);
    if (answer.status == 0) {
        answer.bytes.assign(buffer.begin(), buffer.begin() + info.cbData);
        EXPECT_TRUE(
            std::equal(buffer.begin() + info.cbData, buffer.end(), block.begin() + info.cbData))
            << "the old block stays behind the message";
    } else {
        EXPECT_EQ(buffer, block) << "the block stays as it came";
    }
    return answer;
}

Answer PlatformSide::signMessage(BYTE container, const std::string& message) {
    Bytes hash = hashOf("SHA-256", message);
    Answer answer = sign(signingInfo(container, hash));
    if (!isEcKey(container)) answer.bytes = reversed(answer.bytes);
    return answer;
}

bool PlatformSide::signsTruly(BYTE container) {
    openKey(container);
    const std::string message = "what the user agrees to";
    const Answer answer = signMessage(container, message);
    return answer.status == 0 &&
           isSignature(certificate(container),
                       isEcKey(container) ? "EMSA1(SHA-256)" : "EMSA3(SHA-256)", message,
                       answer.bytes);
}

DWORD PlatformSide::agreeWithItself(BYTE* index) {
    Bytes blob = publicKey(0);
    CARD_DH_AGREEMENT_INFO info{};
    info.dwVersion = 2;
    info.dwPublicKey = static_cast<DWORD>(blob.size());
    info.pbPublicKey = blob.data();
    const DWORD status = data.pfnCardConstructDHAgreement(&data, &info);
    if (index != nullptr) *index = info.bSecretAgreementIndex;
    return status;
}

Answer PlatformSide::derive(BYTE index) {
    static WCHAR hash[] = WIDE_TEXT("HASH");
    CARD_DERIVE_KEY info{};
    info.dwVersion = 2;
    info.pwszKDF = hash;
    info.bSecretAgreementIndex = index;
    Answer answer;
    answer.status = data.pfnCardDeriveKey(&data, &info);
    if (answer.status == 0) {
        EXPECT_EQ(PlatformMemory::lastSize(), info.cbDerivedKey);
        answer.bytes.assign(info.pbDerivedKey, info.pbDerivedKey + info.cbDerivedKey);
        PlatformMemory::release(info.pbDerivedKey);
    }
    return answer;
}

Bytes PlatformSide::publicKey(BYTE container) {
    CONTAINER_INFO info{};
    EXPECT_EQ(data.pfnCardGetContainerInfo(&data, container, 0, &info), 0u);
    const PBYTE blob = container == 0 ? info.pbKeyExPublicKey : info.pbSigPublicKey;
    const DWORD size = container == 0 ? info.cbKeyExPublicKey : info.cbSigPublicKey;
    EXPECT_EQ(PlatformMemory::lastSize(), size);
    Bytes bytes(blob, blob + size);
    PlatformMemory::release(blob);
    return bytes;
}

BYTE PlatformSide::containers() const {
    return static_cast<BYTE>(
        const_cast<PlatformSide*>(this)->reader.card().generation().keys.size());
}

Bytes PlatformSide::transmit(const std::string& commandHex) {
    const Bytes command = fromHex(commandHex);
    Bytes reply(258);
    auto length = static_cast<std::uint32_t>(reply.size());
    const CardSeam& seam = *reader.seam();
    EXPECT_EQ(seam.transmit(seam.self, reader.cardHandle(), reader.protocol(), command.data(),
                            static_cast<std::uint32_t>(command.size()), reply.data(), &length),
              0);
    reply.resize(length);
    return reply;
}

void PlatformSide::reconnect() {
    const CardSeam& seam = *reader.seam();
    std::uint32_t protocol = 0;
    EXPECT_EQ(seam.reconnect(seam.self, reader.cardHandle(), SCARD_SHARE_SHARED,
                             virtual_card::pcsc::protocolT0 | virtual_card::pcsc::protocolT1,
                             SCARD_LEAVE_CARD, &protocol),
              0);
}

Bytes PlatformSide::certificate(BYTE container) {
    const char* names[] = {"kxc00", "ksc01", "ksc02"};
    const Answer answer = readFile("mscp", names[container]);
    EXPECT_EQ(answer.status, 0u);
    return answer.bytes;
}

const virtual_card::KeyRow& PlatformSide::key(BYTE container) const {
    return const_cast<PlatformSide*>(this)->reader.card().generation().keys[container];
}

bool PlatformSide::isEcKey(BYTE container) const {
    return !virtual_card::isRsa(key(container).kind);
}

BYTE PlatformSide::rsaContainer() const {
    BYTE container = 0;
    while (container < containers() && isEcKey(container)) ++container;
    return container;
}

std::string PlatformSide::pin(virtual_card::PinRole role) const {
    for (const auto& row : const_cast<PlatformSide*>(this)->reader.card().generation().pins) {
        if (row.role == role) return std::string(row.value);
    }
    return {};
}

int PlatformSide::liveBuffers() {
    return PlatformMemory::liveBuffers();
}

void PlatformSide::failAllocation(int n) {
    PlatformMemory::failNth(n);
}

Bytes hashOf(const std::string& algorithm, const std::string& message) {
    const auto hash = Botan::HashFunction::create_or_throw(algorithm);
    hash->update(message);
    const auto digest = hash->final();
    return {digest.begin(), digest.end()};
}

Bytes reversed(Bytes bytes) {
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

Bytes encryptedTo(const Bytes& certificate, const std::string& message) {
    Botan::AutoSeeded_RNG random;
    const Botan::X509_Certificate parsed(certificate);
    const auto key = parsed.load_subject_public_key();
    Botan::PK_Encryptor_EME encryptor(*key, random, "PKCS1v15");
    const auto block = encryptor.encrypt(reinterpret_cast<const std::uint8_t*>(message.data()),
                                         message.size(), random);
    return reversed({block.begin(), block.end()});
}

bool isSignature(const Bytes& certificate, const std::string& scheme, const std::string& message,
                 const Bytes& signature) {
    const Botan::X509_Certificate parsed(certificate);
    const auto key = parsed.load_subject_public_key();
    Botan::PK_Verifier verifier(*key, scheme);
    verifier.update(message);
    return verifier.check_signature(signature);
}

std::vector<std::string> journey(const virtual_card::VirtualReader& reader) {
    std::vector<std::string> lines;
    const auto& exchanges = reader.exchanges();
    for (std::size_t at = 0; at < exchanges.size();) {
        std::size_t read = 0;
        std::size_t next = at;
        while (next < exchanges.size() && isRead(exchanges[next].command)) {
            const Bytes& command = exchanges[next].command;
            if (std::size_t(command[2] << 8 | command[3]) != read || read % 127 != 0) break;
            read += command[4];
            ++next;
        }
        if (next > at) {
            lines.push_back("read " + std::to_string(read) + " bytes");
            at = next;
        } else {
            lines.push_back(toHex(exchanges[at++].command));
        }
    }
    return lines;
}

}  // namespace boundary
