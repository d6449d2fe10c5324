#include "virtual_card/generations.h"

#include "virtual_card/file_system.h"

namespace virtual_card {

namespace {

constexpr std::uint16_t done = sw::ok;
constexpr std::string_view fineid = "A000000063504B43532D3135";
constexpr std::string_view cosmoX = "A000000077030C60000000FE00000500";

constexpr auto authentication = PinRole::Authentication;
constexpr auto signature = PinRole::Signature;
constexpr auto unblock = PinRole::Unblock;

// role, directory, P2, GET DATA, value, minimum, maximum, tries
constexpr PinRow pins3[] = {
    {authentication, masterFile, 0x11, 0x11, "1234", 4, 8, 5},
    {signature, esignDirectory, 0x95, 0x95, "123456", 6, 8, 5},
    {unblock, masterFile, 0x12, 0x12, "12345678", 8, 8, 10},
};
constexpr PinRow pins4[] = {
    {authentication, masterFile, 0x11, 0x11, "1234", 4, 12, 5},
    {signature, esignDirectory, 0x82, 0x82, "123456", 6, 12, 5},
    {unblock, masterFile, 0x83, 0x83, "12345678", 8, 12, 10},
};
constexpr PinRow pins6[] = {
    // The two PINs have one reference and differ by their directory alone.
    {authentication, masterFile, 0x81, 0x01, "1234", 4, 12, 3},
    {signature, esignDirectory, 0x81, 0x01, "123456", 6, 12, 3},
    {unblock, masterFile, 0x82, 0x02, "12345678", 8, 8, 10},
};
constexpr PinRow pins8[] = {
    {authentication, masterFile, 0x03, 0x03, "1234", 4, 8, 5},
    {signature, esignDirectory, 0x04, 0x04, "123456", 6, 8, 3},
    {unblock, masterFile, 0x12, 0x12, "12345678", 8, 8, 10},
};

// label, key, kind, signature reference, decipher reference, directory, PIN, certificate
constexpr KeyRow keys3[] = {
    {"authentication key", &generation3Authentication, KeyKind::Rsa2048, 0x81, 0x81, masterFile,
     authentication, "3F004331"},
    {"signature key", &generation3Signature, KeyKind::Rsa3072, 0x82, 0x82, esignDirectory,
     signature, "3F0050164332"},
};
constexpr KeyRow keys4[] = {
    {"authentication key", &generation4Authentication, KeyKind::P384, 0x01, 0x01, masterFile,
     authentication, "3F004331"},
    {"signature key", &generation4Signature, KeyKind::P384, 0x02, noReference, esignDirectory,
     signature, "3F0050164332"},
    {"seal key", &generation4Seal, KeyKind::P384, 0x03, noReference, esignDirectory, signature,
     "3F0050164333"},
};
constexpr KeyRow keys5[] = {
    {"authentication key", &generation5Authentication, KeyKind::P256, 0x01, 0x01, masterFile,
     authentication, "3F004331"},
    {"signature key", &generation5Signature, KeyKind::P256, 0x02, noReference, esignDirectory,
     signature, "3F0050164332"},
    {"seal key", &generation5Seal, KeyKind::P256, 0x03, noReference, esignDirectory, signature,
     "3F0050164333"},
};
constexpr KeyRow keys6[] = {
    {"authentication key", &generation6Authentication, KeyKind::P256, 0x91, 0x91, masterFile,
     authentication, "3F004331"},
    {"signature key", &generation6Signature, KeyKind::Rsa2048, 0x82, 0x82, esignDirectory,
     signature, "3F0050164332"},
};
constexpr KeyRow keys7[] = {
    {"authentication key", &generation7Authentication, KeyKind::P256, 0x01, 0x01, masterFile,
     authentication, "3F004331"},
    {"signature key", &generation7Signature, KeyKind::P256, 0x02, noReference, esignDirectory,
     signature, "3F0050164332"},
    {"seal key", &generation7Seal, KeyKind::P256, 0x03, noReference, esignDirectory, signature,
     "3F0050164333"},
};
constexpr KeyRow keys8[] = {
    {"authentication key", &generation8Authentication, KeyKind::P521, 0x91, 0x91, masterFile,
     authentication, "3F0050164331"},
    {"signature key", &generation8Signature, KeyKind::P256, 0x93, noReference, esignDirectory,
     signature, "3F0050164332"},
};

constexpr Generation rows[] = {
    {
        .cardType = 3,
        .name = "organisation card",
        .atr = "3BDD96008031FE450031B8640429ECC1739401808248",
        .protocol = 1,
        .applicationIdentifier = fineid,
        .serialNumber = "999000031234567890",  // shorter than an identifier of the platform's
        .label = "FINEID (virtual, generation 3)",
        .select = {.masterFileAsChild = done,
                   .childWithFcp = done,
                   .childWithoutReply = done,
                   .fileByIdentifier = done,
                   .fileByPath = sw::fileNotFound,
                   .pathToDirectory = sw::incorrectP1P2,
                   .pathToFile = sw::incorrectP1P2,
                   .unknownApplicationId = sw::fileNotFound},
        .fcpSize = FcpSize::Tag80,
        .replyStyle = ReplyStyle::Direct,
        .odfAhead = "",
        .filler = 0,
        .certificateDirectoryPath = "3F004403",
        .authenticationDirectoryPath = "3F004401",
        .privateKeyDirectoryPath = "3F004402",
        .knowsGetData = true,
        .pinBlockLength = 0,
        .blockedVerify = sw::methodBlocked,
        .blockedQuery = sw::triesLeft(0),
        .knowsSignatureEnvironment = true,
        .needsPsoHash = false,
        .pinForOneSignature = false,
        .pointHasIndicator = false,
        .ecdhStatus = sw::ok,
        .pins = pins3,
        .keys = keys3,
    },
    {
        .cardType = 4,
        .name = "Cosmo X citizen card, P-384",
        .atr = "3B7F9600008031B865B085050011122460829000",
        .protocol = 0,
        .applicationIdentifier = cosmoX,
        .serialNumber = "99900004000000000000000000001234",
        .label = "HENKILOKORTTI (virtual, generation 4)",
        .select = {.masterFileAsChild = sw::incorrectP1P2,
                   .childWithFcp = sw::incorrectP1P2,
                   .childWithoutReply = sw::incorrectP1P2,
                   .fileByIdentifier = sw::fileNotFound,
                   .fileByPath = sw::incorrectP1P2,
                   .pathToDirectory = sw::fileNotFound,
                   .pathToFile = done,
                   .unknownApplicationId = sw::fileNotFound},
        .fcpSize = FcpSize::Tag80,
        .replyStyle = ReplyStyle::Direct,
        .odfAhead = "",
        .filler = 16,
        .certificateDirectoryPath = "3F004403",
        .authenticationDirectoryPath = "3F004401",
        .privateKeyDirectoryPath = "3F004402",
        .knowsGetData = false,
        .pinBlockLength = 12,
        .blockedVerify = sw::methodBlocked,
        .blockedQuery = sw::referenceDataNotUsable,
        .knowsSignatureEnvironment = true,
        .needsPsoHash = true,
        .pinForOneSignature = false,
        .pointHasIndicator = true,
        .ecdhStatus = sw::endOfFile,
        .pins = pins4,
        .keys = keys4,
    },
    {
        .cardType = 5,
        .name = "citizen card, P-256",
        .atr = "3B7F9600008031B865B08504021B1200F6829000",
        .protocol = 0,
        .applicationIdentifier = fineid,
        .serialNumber = "9990000500001234",
        .label = "HENKILOKORTTI (virtual, generation 5)",
        .select = {.masterFileAsChild = sw::incorrectP1P2,
                   .childWithFcp = sw::incorrectP1P2,
                   .childWithoutReply = sw::incorrectP1P2,
                   .fileByIdentifier = sw::fileNotFound,
                   .fileByPath = done,
                   .pathToDirectory = sw::incorrectP1P2,
                   .pathToFile = sw::incorrectP1P2,
                   .unknownApplicationId = sw::fileNotFound},
        .fcpSize = FcpSize::Tag80,
        .replyStyle = ReplyStyle::ByGetResponse,
        .odfAhead = "",
        .filler = 0,
        .certificateDirectoryPath = "3F004403",
        .authenticationDirectoryPath = "3F004401",
        .privateKeyDirectoryPath = "3F004402",
        .knowsGetData = false,
        .pinBlockLength = 12,
        .blockedVerify = sw::referenceDataNotUsable,
        .blockedQuery = sw::triesLeft(0),
        .knowsSignatureEnvironment = true,
        .needsPsoHash = true,
        .pinForOneSignature = false,
        .pointHasIndicator = true,
        .ecdhStatus = sw::ok,
        .pins = pins4,
        .keys = keys5,
    },
    {
        .cardType = 6,
        .name = "organisation card, P-256 and RSA",
        .atr = "3BDF96008031FE450031B8640429ECC173940180829000",
        .protocol = 1,
        .applicationIdentifier = fineid,
        // Longer than an identifier of the platform's: the minidriver hashes it.
        .serialNumber = "9990000600000000000000000000000000001234",
        .label = "FINEID (virtual, generation 6)",
        .select = {.masterFileAsChild = sw::fileNotFound,
                   .childWithFcp = done,
                   .childWithoutReply = done,
                   .fileByIdentifier = done,
                   .fileByPath = sw::fileNotFound,
                   .pathToDirectory = sw::incorrectP1P2,
                   .pathToFile = sw::incorrectP1P2,
                   .unknownApplicationId = sw::fileNotFound},
        .fcpSize = FcpSize::Tag81,
        .replyStyle = ReplyStyle::ByGetResponse,
        .odfAhead = "",
        .filler = 64,
        .certificateDirectoryPath = "3F004403",
        .authenticationDirectoryPath = "3F004401",
        .privateKeyDirectoryPath = "3F004402",
        .knowsGetData = true,
        .pinBlockLength = 0,
        .blockedVerify = sw::referenceDataNotUsable,
        .blockedQuery = sw::referenceDataNotUsable,
        .knowsSignatureEnvironment = true,
        .needsPsoHash = false,
        .pinForOneSignature = false,
        .pointHasIndicator = false,
        .ecdhStatus = sw::ok,
        .pins = pins6,
        .keys = keys6,
    },
    {
        .cardType = 7,
        .name = "test card, P-256",
        .atr = "3B7F9600008031B865B0850300EF1200F6829000",
        .protocol = 0,
        .applicationIdentifier = fineid,
        .serialNumber = "99900007000000000000000000001234",
        .label = "TESTIKORTTI (virtual, generation 7)",
        .select = {.masterFileAsChild = sw::incorrectP1P2,
                   .childWithFcp = sw::incorrectP1P2,
                   .childWithoutReply = sw::incorrectP1P2,
                   .fileByIdentifier = done,
                   .fileByPath = sw::incorrectP1P2,
                   .pathToDirectory = done,
                   .pathToFile = done,
                   .unknownApplicationId = sw::fileNotFound},
        .fcpSize = FcpSize::Tag81AheadOf80,
        .replyStyle = ReplyStyle::Direct,
        // Public keys, trusted public keys, secret keys and data objects.
        .odfAhead = "A106300404024409A20630040402440AA30630040402440BA70630040402440C",
        .filler = 32,
        .certificateDirectoryPath = "3F004403",
        .authenticationDirectoryPath = "3F004401",
        .privateKeyDirectoryPath = "3F004402",
        .knowsGetData = false,
        .pinBlockLength = 12,
        .blockedVerify = sw::methodBlocked,
        .blockedQuery = sw::referenceDataNotUsable,
        .knowsSignatureEnvironment = true,
        .needsPsoHash = true,
        .pinForOneSignature = true,
        .pointHasIndicator = true,
        .ecdhStatus = sw::ok,
        .pins = pins4,
        .keys = keys7,
    },
    {
        .cardType = 8,
        .name = "organisation card, P-521",
        .atr = "3BDD96008031FE450031B8640429ECC1739401808349",
        .protocol = 1,
        .applicationIdentifier = fineid,
        .serialNumber = "99900008000000001234",
        .label = "FINEID (virtual, generation 8)",
        // A directory below the master file is refused to the walk by identifiers, and found by
        // its whole path.
        .select = {.masterFileAsChild = done,
                   .childWithFcp = sw::incorrectP1P2,
                   .childWithoutReply = done,
                   .fileByIdentifier = sw::fileNotFound,
                   .fileByPath = done,
                   .pathToDirectory = done,
                   .pathToFile = sw::incorrectP1P2,
                   .unknownApplicationId = sw::fileNotFound},
        .fcpSize = FcpSize::Tag80,
        .replyStyle = ReplyStyle::Direct,
        .odfAhead = "",
        .filler = 0,
        .certificateDirectoryPath = "3F0050164403",
        .authenticationDirectoryPath = "3F004401",
        .privateKeyDirectoryPath = "3F004402",
        .knowsGetData = false,
        .pinBlockLength = 0,
        .blockedVerify = sw::methodBlocked,
        .blockedQuery = sw::triesLeft(0),
        .knowsSignatureEnvironment = false,
        .needsPsoHash = false,
        .pinForOneSignature = false,
        .pointHasIndicator = true,
        .ecdhStatus = sw::ok,
        .pins = pins8,
        .keys = keys8,
    },
};

}  // namespace

std::span<const Generation> generations() {
    return rows;
}

const Generation* findGeneration(int cardType) {
    for (const Generation& row : rows) {
        if (row.cardType == cardType) return &row;
    }
    return nullptr;
}

}  // namespace virtual_card
