// Where this driver answers otherwise than a reader of the minidriver interface would expect of it:
// the rows of docs/windows-limits.md, on every card there is.
#include <algorithm>
#include <cstring>
#include <set>

#include "platform_side.h"
#include "support/statuses.h"

namespace boundary {
namespace {

class WindowsLimits : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override {
        card.acquireOrFail();
        card.reader.clearExchanges();
    }

    PIN_INFO pinInformation(PIN_ID pinId) {
        PIN_INFO info{};
        const Answer answer = card.property(WIDE_TEXT("PIN Information"), pinId);
        EXPECT_EQ(answer.bytes.size(), sizeof(info));
        if (answer.bytes.size() == sizeof(info)) {
            std::memcpy(&info, answer.bytes.data(), sizeof(info));
        }
        return info;
    }
    DWORD setProperty(LPCWSTR name, Bytes value) {
        return data.pfnCardSetProperty(&data, name, value.data(), static_cast<DWORD>(value.size()),
                                       0);
    }
    CONTAINER_MAP_RECORD containerRecord(BYTE container) {
        CONTAINER_MAP_RECORD record{};
        const Bytes map = card.readFile("mscp", "cmapfile").bytes;
        EXPECT_GE(map.size(), (container + 1) * sizeof(record));
        std::memcpy(&record, map.data() + container * sizeof(record), sizeof(record));
        return record;
    }

    PlatformSide card{GetParam()};
    CARD_DATA& data = card.data;
    char mscp[5] = "mscp";
    char file[5] = "file";
};
INSTANTIATE_TEST_SUITE_P(EveryCard, WindowsLimits, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

// What the driver can do -----------------------------------------------------------------------

TEST_P(WindowsLimits, CardQueryCapabilitiesFillsNothing) {
    for (const DWORD version : {0u, 1u}) {
        CARD_CAPABILITIES capabilities{version, 0x5A5A5A5A, 0x5A5A5A5A};
        EXPECT_EQ(data.pfnCardQueryCapabilities(&data, &capabilities), 0u);
        EXPECT_EQ(capabilities.dwVersion, version);
        EXPECT_EQ(capabilities.fCertificateCompression, 0x5A5A5A5A);
        EXPECT_EQ(capabilities.fKeyGen, 0x5A5A5A5A);
    }
    EXPECT_EQ(toHex(card.property(WIDE_TEXT("Capabilities"), 0).bytes), "010000000100000000000000");
}

TEST_P(WindowsLimits, CertificatesAreNotCompressed) {
    for (BYTE container = 0; container < card.containers(); ++container) {
        const Bytes certificate = card.certificate(container);
        // A SEQUENCE with a length of two bytes that reaches to the end of the file.
        ASSERT_GE(certificate.size(), 4u);
        EXPECT_EQ(toHex(Bytes(certificate.begin(), certificate.begin() + 2)), "3082");
        EXPECT_EQ(std::size_t(certificate[2] << 8 | certificate[3]) + 4, certificate.size());
    }
}

TEST_P(WindowsLimits, EnrolmentIsOfferedAndNoContainerCanBeMade) {
    EXPECT_EQ(card.numberOf(WIDE_TEXT("Supports Windows x.509 Enrollment"), 0), 1u);
    EXPECT_EQ(card.numberOf(WIDE_TEXT("Read Only Mode"), 0), 1u);
    EXPECT_EQ(data.pfnCardCreateContainer(&data, 0, 1, AT_KEYEXCHANGE, 2048, nullptr),
              status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardCreateContainerEx(&data, 0, 1, AT_KEYEXCHANGE, 2048, nullptr, 1),
              status::unsupportedFeature);
}

TEST_P(WindowsLimits, EveryChangeOfTheCardIsRefused) {
    BYTE bytes[4] = {};
    EXPECT_EQ(data.pfnCardDeleteContainer(&data, 0, 0), status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardCreateDirectory(&data, mscp, UserCreateDeleteDirAc),
              status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardDeleteDirectory(&data, mscp), status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardCreateFile(&data, mscp, file, 4, EveryoneReadUserWriteAc),
              status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardWriteFile(&data, mscp, file, 0, bytes, 4), status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardDeleteFile(&data, mscp, file, 0), status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardSetContainerProperty(&data, 0, WIDE_TEXT("PIN Identifier"), bytes, 4, 0),
              status::unsupportedFeature);
    for (const LPCWSTR name :
         {WIDE_TEXT("Read Only Mode"), WIDE_TEXT("Cache Mode"),
          WIDE_TEXT("Supports Windows x.509 Enrollment"), WIDE_TEXT("Card Identifier"),
          WIDE_TEXT("Card Serial Number"), WIDE_TEXT("PIN Information")}) {
        EXPECT_EQ(setProperty(name, Bytes(4, 0)), status::unsupportedFeature);
    }
    EXPECT_EQ(setProperty(WIDE_TEXT("Free Space"), Bytes(16, 0)), status::invalidParameter);
    EXPECT_EQ(setProperty(WIDE_TEXT("Nobody's"), Bytes(4, 0)), status::invalidParameter);
    EXPECT_TRUE(card.reader.exchanges().empty());
}

TEST_P(WindowsLimits, ChallengesAndNewPinsAreRefused) {
    BYTE bytes[8] = {};
    PBYTE challenge = nullptr;
    DWORD number = 0;
    WCHAR user[] = WIDE_TEXT("user");
    EXPECT_EQ(data.pfnCardGetChallenge(&data, &challenge, &number), status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardAuthenticateChallenge(&data, bytes, 8, &number),
              status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardGetChallengeEx(&data, 2, &challenge, &number, 0),
              status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardUnblockPin(&data, user, bytes, 8, bytes, 8, 3, 0),
              status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardChangeAuthenticator(&data, user, bytes, 4, bytes, 4, 3, 0, &number),
              status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardChangeAuthenticatorEx(&data, 1, 1, bytes, 4, 1, bytes, 4, 3, &number),
              status::unsupportedFeature);
    EXPECT_EQ(challenge, nullptr);
    EXPECT_TRUE(card.reader.exchanges().empty());
}

TEST_P(WindowsLimits, FunctionsOfSessionKeysEndAsUnexpectedAndNotAsUnsupported) {
    BYTE bytes[4] = {};
    PBYTE output = nullptr;
    DWORD size = 0;
    CARD_KEY_HANDLE key = 0;
    CARD_RSA_DECRYPT_INFO decrypted{};
    CARD_ENCRYPTED_DATA encrypted{};
    PCARD_ENCRYPTED_DATA encryptedList = nullptr;
    const LPCWSTR name = WIDE_TEXT("3DES_112");
    EXPECT_EQ(data.pfnCspUnpadData(&decrypted, &size, &output), status::unexpected);
    EXPECT_EQ(data.pfnMDImportSessionKey(&data, name, name, &key, bytes, 4), status::unexpected);
    EXPECT_EQ(data.pfnMDEncryptData(&data, key, name, bytes, 4, 0, &encryptedList, &size),
              status::unexpected);
    EXPECT_EQ(data.pfnCardGetSharedKeyHandle(&data, bytes, 4, &output, &size, &key),
              status::unexpected);
    EXPECT_EQ(data.pfnCardGetAlgorithmProperty(&data, name, name, bytes, 4, &size, 0),
              status::unexpected);
    EXPECT_EQ(data.pfnCardGetKeyProperty(&data, key, name, bytes, 4, &size, 0), status::unexpected);
    EXPECT_EQ(data.pfnCardSetKeyProperty(&data, key, name, bytes, 4, 0), status::unexpected);
    EXPECT_EQ(data.pfnCardDestroyKey(&data, key), status::unexpected);
    EXPECT_EQ(data.pfnCardProcessEncryptedData(&data, key, name, &encrypted, 1, bytes, 4, &size, 0),
              status::unexpected);
    EXPECT_EQ(data.pfnCardImportSessionKey(&data, 0, nullptr, name, name, &key, bytes, 4, 0),
              status::unsupportedFeature);
    EXPECT_EQ(data.pfnCspGetDHAgreement(&data, nullptr, bytes, 0), status::unsupportedFeature);
    EXPECT_EQ(output, nullptr);
    EXPECT_EQ(encryptedList, nullptr);
}

TEST_P(WindowsLimits, KeyImportIsRefusedAndItsAlgorithmsAreNamedAllTheSame) {
    EXPECT_EQ(card.numberOf(WIDE_TEXT("Key Import Support"), 0), 0u);
    EXPECT_EQ(toHex(card.property(WIDE_TEXT("Algorithms"), 1).bytes),
              "33004400450053005F0031003100320000000000");
    EXPECT_EQ(card.property(WIDE_TEXT("Chaining Modes"), 1).bytes.size(), 34u);
}

TEST_P(WindowsLimits, NoPaddingSchemeIsNamed) {
    for (const DWORD operation : {1u, 2u}) {
        EXPECT_EQ(card.numberOf(WIDE_TEXT("Padding Schemes"), operation), 0u);
    }
    EXPECT_TRUE(card.signsTruly(0)) << "with a padding, if the key is an RSA key";
}

TEST_P(WindowsLimits, FreeContainersAreNoneAndTheMostIsTwoOrNone) {
    CARD_FREE_SPACE_INFO space{};
    EXPECT_EQ(data.pfnCardQueryFreeSpace(&data, 0, &space), 0u);
    EXPECT_EQ(space.dwBytesAvailable, 0u);
    EXPECT_EQ(space.dwKeyContainersAvailable, 0u);
    EXPECT_EQ(space.dwMaxKeyContainers, 2u) << "also of a card with three";
    EXPECT_EQ(toHex(card.property(WIDE_TEXT("Free Space"), 0).bytes),
              "01000000000000000000000000000000");
}

TEST_P(WindowsLimits, PropertiesThatAreNotOffered) {
    for (const LPCWSTR name :
         {WIDE_TEXT("Card Serial Number"), WIDE_TEXT("Authenticated State"),
          WIDE_TEXT("PIN Strength Change"), WIDE_TEXT("PIN Strength Unblock")}) {
        EXPECT_EQ(card.property(name, 0).status, status::unsupportedFeature);
    }
    EXPECT_EQ(card.property(WIDE_TEXT("Nobody's"), 0).status, status::invalidParameter);
}

// Records, buffers and windows -----------------------------------------------------------------

TEST_P(WindowsLimits, OnlyTheSeventhVersionOfTheRecordIsServed) {
    for (const DWORD version : {4u, 5u, 6u}) {
        CARD_DATA older = data;
        older.dwVersion = version;
        EXPECT_EQ(acquireContextOfDriver()(&older, 0), status::revisionMismatch) << version;
        EXPECT_EQ(older.dwVersion, version);
    }
    EXPECT_EQ(data.dwVersion, 7u);
    CARD_DATA none = data;
    none.dwVersion = 0;
    EXPECT_EQ(acquireContextOfDriver()(&none, 0), status::revisionMismatch);
    EXPECT_EQ(none.dwVersion, 1u) << "the one that comes back changed";

    card.release();
    data.dwVersion = 8;
    card.acquireOrFail();
    EXPECT_EQ(data.dwVersion, 7u);
    EXPECT_TRUE(card.signsTruly(0)) << "and it serves as one of version 7";
}

TEST_P(WindowsLimits, NoTransactionIsBegunByTheDriver) {
    for (BYTE container = 0; container < card.containers(); ++container) {
        EXPECT_TRUE(card.signsTruly(container));
    }
    card.openKey(0);
    if (card.isEcKey(0)) {
        BYTE index = 0;
        EXPECT_EQ(card.agreeWithItself(&index), 0u);
        EXPECT_EQ(card.derive(index).status, 0u);
    } else {
        EXPECT_EQ(card.decrypt(0, encryptedTo(card.certificate(0), "a secret")).status, 0u);
    }
    card.release();
    EXPECT_EQ(card.reader.transactionsBegun(), 0u) << "from the acquisition to the deletion";
}

TEST_P(WindowsLimits, ARecordKeepsItsPointerAfterItsContextIsDeleted) {
    void* context = data.pvVendorSpecific;
    card.release();
    EXPECT_EQ(data.pvVendorSpecific, context);
}

TEST_P(WindowsLimits, AShortBufferIsToldByACodeOfTheSmartCardService) {
    struct Row {
        LPCWSTR name;
        DWORD dwFlags;
        DWORD size;
    };
    const Row rows[] = {
        {WIDE_TEXT("Free Space"), 0, 16},
        {WIDE_TEXT("Capabilities"), 0, 12},
        {WIDE_TEXT("Key Sizes"), 1, 20},
        {WIDE_TEXT("Read Only Mode"), 0, 4},
        {WIDE_TEXT("Cache Mode"), 0, 4},
        {WIDE_TEXT("Supports Windows x.509 Enrollment"), 0, 4},
        {WIDE_TEXT("Card Identifier"), 0, 16},
        {WIDE_TEXT("PIN Information"), 1, 36},
        {WIDE_TEXT("PIN List"), 0, 4},
        {WIDE_TEXT("PIN Strength Verify"), 1, 4},
        {WIDE_TEXT("Key Import Support"), 0, 4},
        {WIDE_TEXT("Algorithms"), 1, 20},
        {WIDE_TEXT("Algorithms"), 2, 2},
        {WIDE_TEXT("Padding Schemes"), 1, 4},
        {WIDE_TEXT("Chaining Modes"), 1, 34},
    };
    for (const Row& row : rows) {
        const std::string what = std::to_string(&row - rows);
        EXPECT_EQ(card.property(row.name, row.dwFlags, row.size).status, 0u) << what;
        for (DWORD room = 1; room < row.size; ++room) {
            EXPECT_EQ(card.property(row.name, row.dwFlags, room).status, status::insufficientBuffer)
                << what;
        }
    }
    for (DWORD room = 1; room < 4; ++room) {
        EXPECT_EQ(card.containerProperty(0, WIDE_TEXT("PIN Identifier"), room).status,
                  status::insufficientBuffer);
    }
    EXPECT_EQ(
        card.containerProperty(0, WIDE_TEXT("Container Info"), sizeof(CONTAINER_INFO) - 1).status,
        status::insufficientBuffer);
}

TEST_P(WindowsLimits, NoBufferIsABadArgumentAndNoQuestionForTheSize) {
    DWORD size = 77;
    EXPECT_EQ(data.pfnCardGetProperty(&data, WIDE_TEXT("PIN List"), nullptr, 0, &size, 0),
              status::invalidParameter);
    EXPECT_EQ(data.pfnCardGetContainerProperty(&data, 0, WIDE_TEXT("PIN Identifier"), nullptr, 0,
                                               &size, 0),
              status::invalidParameter);
    EXPECT_EQ(size, 77u);
}

TEST_P(WindowsLimits, AParentWindowTakesEightBytesOnEveryBuild) {
    EXPECT_EQ(setProperty(WIDE_TEXT("Parent Window"), Bytes(8, 0)), 0u);
    EXPECT_EQ(setProperty(WIDE_TEXT("Parent Window"), Bytes(4, 0)), status::invalidParameter);
    // The whole handle of a 32-bit program is refused, that of a 64-bit program is taken.
    EXPECT_EQ(setProperty(WIDE_TEXT("Parent Window"), Bytes(sizeof(void*), 0)),
              sizeof(void*) == 8 ? 0u : status::invalidParameter);
    EXPECT_EQ(card.property(WIDE_TEXT("Parent Window"), 0).status, status::invalidParameter);
}

// What a caller keeps behind a text is read where the text has no terminator.
TEST_P(WindowsLimits, ThePinContextIsAsManyCharactersAsItIsSaidToHaveBytes) {
    WCHAR text[] = WIDE_TEXT("pay 5 euros now");
    const auto set = [&](DWORD cbData) {
        return data.pfnCardSetProperty(&data, WIDE_TEXT("PIN Context String"),
                                       reinterpret_cast<PBYTE>(text), cbData, 0);
    };
    DriverLog log;
    const auto taken = [&] {
        const auto lines = log.file();
        return lines.size() < 2 ? std::string() : lines[lines.size() - 2].message;
    };
    EXPECT_EQ(set(5 * sizeof(WCHAR)), 0u);
    EXPECT_EQ(taken(), "Pin context string: pay 5 euro") << "ten characters, not ten bytes";
    log.clear();
    EXPECT_EQ(set(5), 0u);
    EXPECT_EQ(taken(), "Pin context string: pay 5");
    log.clear();
    EXPECT_EQ(set(sizeof(text)), 0u);
    EXPECT_EQ(taken(), "Pin context string: pay 5 euros now") << "nothing behind a terminator";
    EXPECT_TRUE(card.reader.exchanges().empty());
}

// Files and containers -------------------------------------------------------------------------

TEST_P(WindowsLimits, FilesOfCertificatesAreToldTwentyBytesLong) {
    for (BYTE container = 0; container < card.containers(); ++container) {
        char name[] = "kxc00";
        if (container > 0) std::memcpy(name, container == 1 ? "ksc01" : "ksc02", 5);
        CARD_FILE_INFO info{};
        EXPECT_EQ(data.pfnCardGetFileInfo(&data, mscp, name, &info), 0u);
        EXPECT_EQ(info.cbFileSize, 20u);
        EXPECT_EQ(info.dwVersion, 7u);
        EXPECT_EQ(info.AccessCondition, EveryoneReadUserWriteAc);
        EXPECT_GT(card.certificate(container).size(), 600u);
    }
    struct Row {
        const char* directory;
        const char* name;
    };
    for (const Row& row : {Row{nullptr, "cardid"}, Row{nullptr, "cardcf"}, Row{nullptr, "cardapps"},
                           Row{"mscp", "cmapfile"}}) {
        CARD_FILE_INFO info{};
        EXPECT_EQ(data.pfnCardGetFileInfo(&data, const_cast<LPSTR>(row.directory),
                                          const_cast<LPSTR>(row.name), &info),
                  0u);
        EXPECT_EQ(info.cbFileSize, card.readFile(row.directory, row.name).bytes.size()) << row.name;
    }
}

TEST_P(WindowsLimits, ARecordOfAFileServesOneCall) {
    char map[] = "cmapfile";
    CARD_FILE_INFO info{};
    info.dwVersion = 1;
    EXPECT_EQ(data.pfnCardGetFileInfo(&data, mscp, map, &info), 0u);
    EXPECT_EQ(info.dwVersion, 7u);
    EXPECT_EQ(data.pfnCardGetFileInfo(&data, mscp, map, &info), status::revisionMismatch);
    info.dwVersion = 1;
    EXPECT_EQ(data.pfnCardGetFileInfo(&data, mscp, file, &info), status::fileNotFound);
    EXPECT_EQ(info.dwVersion, 7u) << "also where there is no such file";
}

TEST_P(WindowsLimits, TheFileOfRootCertificatesIsUnexpectedAndNotMissing) {
    EXPECT_EQ(card.readFile("mscp", "msroots").status, status::unexpected);
    EXPECT_EQ(card.readFile("mscp", "unknown").status, status::fileNotFound);
    EXPECT_EQ(card.readFile("other", "cmapfile").status, status::directoryNotFound);
}

TEST_P(WindowsLimits, NothingIsToBeCached) {
    EXPECT_EQ(card.numberOf(WIDE_TEXT("Cache Mode"), 0), 3u);
    EXPECT_EQ(card.readFile(nullptr, "cardcf").bytes, Bytes(6, 0));
    EXPECT_TRUE(card.signsTruly(0));
    EXPECT_EQ(card.readFile(nullptr, "cardcf").bytes, Bytes(6, 0)) << "no counter moves";
}

TEST_P(WindowsLimits, TheContainerMapHasOneDefaultContainerAndNamesOfTheirOwn) {
    std::set<WideString> names;
    for (BYTE container = 0; container < card.containers(); ++container) {
        const CONTAINER_MAP_RECORD record = containerRecord(container);
        EXPECT_EQ(record.bFlags,
                  container == 0 ? CONTAINER_MAP_VALID_CONTAINER | CONTAINER_MAP_DEFAULT_CONTAINER
                                 : CONTAINER_MAP_VALID_CONTAINER);
        const WideString name(record.wszGuid);
        EXPECT_EQ(name.size(), 38u);
        names.insert(name);
        EXPECT_EQ(record.wKeyExchangeKeySizeBits != 0, container == 0);
        EXPECT_EQ(record.wSigKeySizeBits != 0, container != 0);
    }
    EXPECT_EQ(names.size(), card.containers());
}

class WindowsLimitsOfAP521Card : public WindowsLimits {};
INSTANTIATE_TEST_SUITE_P(CardType, WindowsLimitsOfAP521Card, ::testing::Values(8),
                         ::testing::PrintToStringParamName());

TEST_P(WindowsLimitsOfAP521Card, AKeyOnP521IsToldAs528Bits) {
    for (BYTE container = 0; container < card.containers(); ++container) {
        if (card.key(container).kind != virtual_card::KeyKind::P521) continue;
        const CONTAINER_MAP_RECORD record = containerRecord(container);
        EXPECT_EQ(container == 0 ? record.wKeyExchangeKeySizeBits : record.wSigKeySizeBits, 528);
        CARD_KEY_SIZES sizes{};
        sizes.dwVersion = 1;
        EXPECT_EQ(data.pfnCardQueryKeySizes(&data, container == 0 ? AT_KEYEXCHANGE : AT_SIGNATURE,
                                            0, &sizes),
                  0u);
        EXPECT_EQ(sizes.dwMaximumBitlen, 528u);
        EXPECT_EQ(data.pfnCardQueryKeySizes(&data, AT_ECDHE_P521, 0, &sizes), 0u);
        EXPECT_EQ(sizes.dwMaximumBitlen, 521u);
    }
}

class WindowsLimitsOfAnEcCard : public WindowsLimits {};
INSTANTIATE_TEST_SUITE_P(CardType, WindowsLimitsOfAnEcCard, ::testing::ValuesIn(ecCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(WindowsLimitsOfAnEcCard, EveryEllipticCurveKeyIsMarkedAsOneOnP384) {
    for (BYTE container = 0; container < card.containers(); ++container) {
        if (!card.isEcKey(container)) continue;
        const Bytes blob = card.publicKey(container);
        ASSERT_GE(blob.size(), 8u);
        EXPECT_EQ(std::string(blob.begin(), blob.begin() + 4), container == 0 ? "ECK3" : "ECS3");
        DWORD cbKey = 0;
        std::memcpy(&cbKey, blob.data() + 4, sizeof(cbKey));
        EXPECT_EQ(blob.size(), 8 + 2 * cbKey);
        switch (card.key(container).kind) {
            case virtual_card::KeyKind::P256:
                EXPECT_EQ(cbKey, 32u);
                break;
            case virtual_card::KeyKind::P384:
                EXPECT_EQ(cbKey, 48u);
                break;
            default:
                EXPECT_EQ(cbKey, 66u);
        }
    }
}

// PINs -----------------------------------------------------------------------------------------

TEST_P(WindowsLimits, ThePinListSetsBitsThatNameNoPin) {
    const DWORD list = card.numberOf(WIDE_TEXT("PIN List"), 0);
    EXPECT_EQ(list & 0xFF, 0x1Eu) << "PINs 1 to 4";
    EXPECT_EQ(list >> 8, 0xFFFFFFu);
    for (DWORD pinId = 0; pinId < 32; ++pinId) {
        const bool exists = pinId >= 1 && pinId <= 4;
        EXPECT_EQ(card.property(WIDE_TEXT("PIN Information"), pinId).status,
                  exists ? 0u : status::invalidParameter)
            << pinId;
    }
}

TEST_P(WindowsLimits, PinsAreOfFourKindsWithTheirCachePolicies) {
    struct Row {
        PIN_ID pinId;
        SECRET_PURPOSE purpose;
        PIN_SET change;
        PIN_SET unblock;
        PIN_CACHE_POLICY_TYPE cache;
    };
    for (const Row& row : {Row{1, AuthenticationPin, 0x2, 0x8, PinCacheNormal},
                           Row{2, AdministratorPin, 0x4, 0x4, PinCacheAlwaysPrompt},
                           Row{3, UnblockOnlyPin, 0, 0, PinCacheAlwaysPrompt},
                           Row{4, DigitalSignaturePin, 0x18, 0x8, PinCacheAlwaysPrompt}}) {
        const PIN_INFO info = pinInformation(row.pinId);
        EXPECT_EQ(info.dwVersion, 6u);
        EXPECT_EQ(info.PinType, AlphaNumericPinType) << "no companion application is installed";
        EXPECT_EQ(info.PinPurpose, row.purpose);
        EXPECT_EQ(info.dwChangePermission, row.change);
        EXPECT_EQ(info.dwUnblockPermission, row.unblock);
        EXPECT_EQ(info.PinCachePolicy.dwVersion, 6u);
        EXPECT_EQ(info.PinCachePolicy.PinCachePolicyType, row.cache);
        EXPECT_EQ(info.dwFlags, 0u);
    }
}

TEST_P(WindowsLimits, DeauthenticationIsLeftToAResetOfTheCard) {
    EXPECT_EQ(data.pfnCardDeauthenticate, nullptr);
    card.openKey(0);
    EXPECT_EQ(data.pfnCardDeauthenticateEx(&data, 1 << 1, 0), status::unsupportedFeature);
    EXPECT_EQ(card.signMessage(0, "a message").status, 0u) << "the PIN is still open";
    card.reader.resetCard();
    card.reconnect();
    EXPECT_EQ(card.signMessage(0, "a message").status, status::securityViolation);
    EXPECT_TRUE(card.signsTruly(0));
}

TEST_P(WindowsLimits, SessionPinsAreRefused) {
    BYTE pin[] = {'1', '2', '3', '4'};
    PBYTE session = nullptr;
    DWORD size = 0;
    for (const DWORD flag :
         {CARD_AUTHENTICATE_GENERATE_SESSION_PIN, CARD_AUTHENTICATE_SESSION_PIN}) {
        EXPECT_EQ(data.pfnCardAuthenticateEx(&data, 1, flag, pin, 4, &session, &size, nullptr),
                  status::unsupportedFeature);
    }
    EXPECT_EQ(session, nullptr);
    EXPECT_TRUE(card.reader.exchanges().empty());
}

}  // namespace
}  // namespace boundary
