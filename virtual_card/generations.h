// The generations of card that there are: each is a row of data, and the card's code reads it. A
// new generation is a new row.
#pragma once

#include <span>
#include <string_view>

#include "virtual_card/apdu_codec.h"
#include "virtual_card/test_keys.h"

namespace virtual_card {

/// What a PIN is for.
enum class PinRole { Authentication, Signature, Unblock };

struct PinRow {
    PinRole role;
    std::uint16_t directory;     ///< VERIFY finds it here and nowhere else
    std::uint8_t reference;      ///< P2 of VERIFY
    std::uint8_t dataReference;  ///< its number in GET DATA
    std::string_view value;
    std::uint8_t minimumLength;
    std::uint8_t maximumLength;
    std::uint8_t tries;
};

enum class KeyKind { Rsa2048, Rsa3072, P256, P384, P521 };

constexpr bool isRsa(KeyKind kind) {
    return kind == KeyKind::Rsa2048 || kind == KeyKind::Rsa3072;
}

/// No reference: the key does not do that operation.
inline constexpr std::uint8_t noReference = 0;

struct KeyRow {
    std::string_view label;
    const TestKey* key;
    KeyKind kind;
    std::uint8_t signReference;
    std::uint8_t decipherReference;  ///< of RSA decipher or ECDH, or noReference
    std::uint16_t directory;         ///< where the key lives
    PinRole pin;                     ///< which PIN opens it
    std::string_view certificatePath;
};

/// The answer to each form of SELECT by file: 9000 means that the form is carried out, anything
/// else is the status word that it gets whatever it names. P1 00 (by identifier), 03 (parent) and
/// 04 (by application identifier) are carried out on every generation.
struct SelectForms {
    std::uint16_t masterFileAsChild;     ///< P1 01 with 3F 00
    std::uint16_t childWithFcp;          ///< P1 01 with another identifier, FCP wanted
    std::uint16_t childWithoutReply;     ///< P1 01 with another identifier, no reply wanted
    std::uint16_t fileByIdentifier;      ///< P1 02 with two bytes
    std::uint16_t fileByPath;            ///< P1 02 with a whole path
    std::uint16_t pathToDirectory;       ///< P1 09, the path ends at a directory
    std::uint16_t pathToFile;            ///< P1 09, the path ends at an elementary file
    std::uint16_t unknownApplicationId;  ///< P1 04 with another application identifier
};

/// Which size tags the FCP of an elementary file has (ISO/IEC 7816-4, table 12).
enum class FcpSize { Tag80, Tag81, Tag81AheadOf80 };

/// How data goes out for a command that carries data itself: with the status word at once, or
/// kept for GET RESPONSE behind a 61xx.
enum class ReplyStyle { Direct, ByGetResponse };

struct Generation {
    int cardType;
    std::string_view name;
    std::string_view atr;
    int protocol;  ///< 0 for T=0, 1 for T=1: what a reader settles on
    std::string_view applicationIdentifier;
    std::string_view serialNumber;  ///< hexadecimal; of EF.CIAInfo
    std::string_view label;
    SelectForms select;
    FcpSize fcpSize;
    ReplyStyle replyStyle;
    std::string_view odfAhead;  ///< hexadecimal: elements ahead of the usual ones in the ODF
    std::size_t filler;         ///< zero bytes behind the ODF, CDF and AODF
    std::string_view certificateDirectoryPath;
    std::string_view authenticationDirectoryPath;
    std::string_view privateKeyDirectoryPath;
    bool knowsGetData;            ///< GET DATA for PIN properties; 6D00 otherwise
    std::size_t pinBlockLength;   ///< PINs come padded with zeros to this length; 0 for unpadded
    std::uint16_t blockedVerify;  ///< to a PIN given when no tries are left
    std::uint16_t blockedQuery;   ///< to VERIFY without data when no tries are left
    /// MSE SET for a signature; 6D00 otherwise, and then the key is the one that lives in the
    /// current directory.
    bool knowsSignatureEnvironment;
    bool needsPsoHash;         ///< PSO HASH has to give the hash ahead of the signature
    bool pinForOneSignature;   ///< the signature PIN closes after each signature with its keys
    bool pointHasIndicator;    ///< ECDH data: 00 04 X Y, and not 04 X Y
    std::uint16_t ecdhStatus;  ///< 9000, or the warning 6282: fewer bytes than Le asked for
    std::span<const PinRow> pins;
    std::span<const KeyRow> keys;
};

/// All generations, by rising card type.
std::span<const Generation> generations();

/// The generation of a card type; nullptr for a number that is none.
const Generation* findGeneration(int cardType);

}  // namespace virtual_card
