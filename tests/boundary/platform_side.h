// The platform's side of one card: a virtual card in a reader, a CARD_DATA record as the platform
// fills it, and the calls that the platform makes, through the record's table alone.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "driver_under_test.h"
#include "platform/wide_text.h"
#include "support/card_types.h"
#include "support/log_capture.h"
#include "virtual_card/winscard/virtual_reader.h"

namespace boundary {

using ::allCardTypes;
using virtual_card::Bytes;
using virtual_card::fromHex;
using virtual_card::toHex;

/// Those with an RSA key.
std::vector<int> rsaCardTypes();
/// Those whose key of container 0, the only one that agrees, is an EC key.
std::vector<int> ecCardTypes();

/// A status and what came with it.
struct Answer {
    DWORD status = 0;
    Bytes bytes;
};

/// Both log channels, without the lines that the driver writes for threads of the platform's: those
/// come and go as they like.
class DriverLog : public KelmoraID::testing::LogCapture {
public:
    KelmoraID::testing::LogLines file() {
        KelmoraID::testing::LogLines lines = LogCapture::file();
        std::erase_if(lines, [](const auto& line) { return line.scope == "DllMain"; });
        return lines;
    }
};

class PlatformSide {
public:
    explicit PlatformSide(int cardType);
    /// Deletes the context, and fails the test if a buffer of the platform's was not given back.
    ~PlatformSide();
    PlatformSide(const PlatformSide&) = delete;
    PlatformSide& operator=(const PlatformSide&) = delete;

    /// By the driver under test, or a copy of it.
    DWORD acquire(PFN_CARD_ACQUIRE_CONTEXT driver = acquireContextOfDriver());
    /// Acquires, and fails the test if that fails.
    void acquireOrFail();
    /// CardDeleteContext, if the card is acquired.
    void release();

    Answer readFile(const char* directory, const char* file, DWORD dwFlags = 0);
    Answer listFiles(const char* directory);
    Answer property(LPCWSTR name, DWORD dwFlags, DWORD room = 256);
    Answer containerProperty(BYTE container, LPCWSTR name, DWORD room = 256);
    DWORD numberOf(LPCWSTR name, DWORD dwFlags);

    /// The PIN as the platform hands it over; attempts, where asked for, start as 77.
    DWORD authenticate(PIN_ID pinId, const std::string& pin, DWORD* attempts = nullptr);
    /// Verifies the right PIN for the key of a container.
    void openKey(BYTE container);

    /// A request for the signature of a hash with the key of a container, as the older provider
    /// makes it: without padding information, with the ALG_ID of SHA-256 for an RSA key.
    /// @param hash  stays the caller's
    CARD_SIGNING_INFO signingInfo(BYTE container, Bytes& hash) const;
    /// The same by PSS with SHA-256, for an RSA key.
    CARD_SIGNING_INFO pssInfo(BYTE container, Bytes& hash) const;
    /// CardSignData of the record; the signature as the platform gets it.
    Answer sign(CARD_SIGNING_INFO info);
    Answer decrypt(BYTE container, const Bytes& block, DWORD padding = CARD_PADDING_PKCS1);

    /// Signs the SHA-256 hash of a message with the key of a container, in the way of its kind. The
    /// signature in the order of the card.
    Answer signMessage(BYTE container, const std::string& message);
    /// Opens the key of a container and signs with it; whether the certificate confirms that.
    bool signsTruly(BYTE container);
    /// CardConstructDHAgreement of container 0 with the card's own public key as the other party's.
    DWORD agreeWithItself(BYTE* index = nullptr);
    /// CardDeriveKey by SHA-1 of the bare secret.
    Answer derive(BYTE index);

    /// The public key of a container as CardGetContainerInfo gives it.
    Bytes publicKey(BYTE container);
    BYTE containers() const;
    /// One command as any program may send it, ahead of the driver or between its calls.
    Bytes transmit(const std::string& commandHex);
    /// The platform renews its connection after a reset; the card is left as it is.
    void reconnect();

    /// The certificate of a container, as the virtual file has it.
    Bytes certificate(BYTE container);
    bool isEcKey(BYTE container) const;
    /// The first container with an RSA key; as many as there are where none has one.
    BYTE rsaContainer() const;
    const virtual_card::KeyRow& key(BYTE container) const;
    std::string pin(virtual_card::PinRole role) const;

    static int liveBuffers();
    static void failAllocation(int n);

    virtual_card::VirtualReader reader;
    Bytes atr;
    CARD_DATA data{};
    bool acquired = false;
};

/// What goes ahead of the step that a test is about: nothing, the acquisition, and the right PIN
/// for the key of container 0 besides.
inline void nothing(PlatformSide&) {}
inline void acquired(PlatformSide& card) {
    card.acquireOrFail();
}
inline void opened(PlatformSide& card) {
    card.acquireOrFail();
    card.openKey(0);
}

/// A hash by Botan's name.
Bytes hashOf(const std::string& algorithm, const std::string& message);
/// Bytes in the other order: the platform's RSA blocks are little-endian.
Bytes reversed(Bytes bytes);
/// A message encrypted to the RSA key of a certificate (PKCS#1 v1.5), in the platform's byte order.
Bytes encryptedTo(const Bytes& certificate, const std::string& message);
/// Whether the signature of a message is that of the certificate's key. RSA signatures in the order
/// of the card. Scheme: "EMSA3(SHA-256)" (PKCS#1), "EMSA4(SHA-256)" (PSS), "EMSA1(SHA-256)"
/// (ECDSA).
bool isSignature(const Bytes& certificate, const std::string& scheme, const std::string& message,
                 const Bytes& signature);

/// The commands of a journey, one a line. A run of READ BINARY that reads a file from its start in
/// chunks of 127 bytes is folded to "read N bytes".
std::vector<std::string> journey(const virtual_card::VirtualReader& reader);

}  // namespace boundary
