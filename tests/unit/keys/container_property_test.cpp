#include <cstring>

#include "keys/keys_fixture.h"
#include "platform/wide_text.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using testing::exited;
using testing::KeysFixture;
using testing::lines;
using testing::LogLines;
using testing::TestKey;

constexpr const char* scope = "CardGetContainerProperty";
constexpr const char* entered = "Entering the function";
constexpr const char* infoParameters = "with parameters wszProperty: 'Container Info'";
constexpr const char* pinParameters = "with parameters wszProperty: 'PIN Identifier'";
constexpr const char* ecdhParameters = "with parameters wszProperty: 'Associated ECDH Key'";

LogLines error(const char* message) {
    return {{"ERROR", message}};
}

struct Request {
    LPCWSTR name;
    BYTE index = 0;
    ByteVector buffer = ByteVector(64, 0);
    DWORD size = 64;
    DWORD length = 77;
    DWORD flags = 0;
    DWORD run(CARD_DATA* data) {
        return CardGetContainerProperty(data, index, name, buffer.data(), size, &length, flags);
    }
};

constexpr LPCWSTR containerInfo = WIDE_TEXT("Container Info");
constexpr LPCWSTR pinIdentifier = WIDE_TEXT("PIN Identifier");
constexpr LPCWSTR ecdhKey = WIDE_TEXT("Associated ECDH Key");

TEST(CardGetContainerProperty, RefusesANullRecord) {
    KeysFixture keys(CardType::type3);
    EXPECT_EQ(Request{pinIdentifier}.run(nullptr), status::invalidParameter);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered, exited(status::invalidParameter)}));
    EXPECT_EQ(keys.log.output(), error("CMR_389: pCardData is NULL."));
}

TEST(CardGetContainerProperty, RefusesWithoutACardContextWithTheExitLineAlone) {
    KeysFixture keys(CardType::type3);
    keys.data->hSCardCtx = 0;
    EXPECT_EQ(Request{nullptr}.run(keys.data), status::invalidParameter);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered, exited(status::invalidParameter)}));
    EXPECT_EQ(keys.log.output(), LogLines{});
}

TEST(CardGetContainerProperty, RefusesANullNameWithoutExitLine) {
    KeysFixture keys(CardType::type3);
    EXPECT_EQ(Request{nullptr}.run(keys.data), status::invalidParameter);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered}));
    EXPECT_EQ(keys.log.output(), error("CMR_391: wszProperty is NULL or empty"));
}

TEST(CardGetContainerProperty, RefusesANullBufferBeforeItLooksAtTheName) {
    KeysFixture keys(CardType::type3);
    DWORD length = 0;
    EXPECT_EQ(CardGetContainerProperty(keys.data, 9, WIDE_TEXT("Unknown"), nullptr, 64, &length, 1),
              status::invalidParameter);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered, "with parameters wszProperty: 'Unknown'"}));
    EXPECT_EQ(keys.log.output(), error("CMR_392: pbData is NULL."));
}

TEST(CardGetContainerProperty, RefusesAnIndexAtTheEndOfTheListBeforeItLooksAtTheName) {
    KeysFixture keys(CardType::type3);
    EXPECT_EQ((Request{WIDE_TEXT("Unknown"), 2}.run(keys.data)), status::noKeyContainer);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered, "with parameters wszProperty: 'Unknown'",
                                             exited(status::noKeyContainer)}));
    EXPECT_EQ(keys.log.output(), error("CMR_390: bContainerIndex is invalid."));
}

TEST(CardGetContainerProperty, RefusesAnUnknownName) {
    KeysFixture keys(CardType::type3);
    for (const LPCWSTR name : {WIDE_TEXT("container info"), WIDE_TEXT("Container Inf"),
                               WIDE_TEXT("Container Info "), WIDE_TEXT("")}) {
        EXPECT_EQ(Request{name}.run(keys.data), status::invalidParameter);
        EXPECT_EQ(keys.log.output(), error("CMR_391: wszProperty is invalid."));
    }
    EXPECT_EQ(Request{WIDE_TEXT("\u00E4")}.run(keys.data), status::invalidParameter);
    const LogLines file = keys.log.file();
    EXPECT_EQ(LogLines(file.end() - 3, file.end()),
              lines(scope, {entered, "with parameters wszProperty: '\xC3\xA4'",
                            exited(status::invalidParameter)}));
}

TEST(CardGetContainerProperty, ChecksFlagsSizeAndLengthInThisOrderForEachProperty) {
    struct Row {
        LPCWSTR name;
        const char* parameters;
        DWORD size;
    };
    for (const Row& row : {Row{containerInfo, infoParameters, sizeof(CONTAINER_INFO)},
                           Row{pinIdentifier, pinParameters, 4}, Row{ecdhKey, ecdhParameters, 1}}) {
        KeysFixture keys(CardType::type3);
        BYTE buffer[64] = {};
        const DWORD tooSmall = row.size - 1;
        EXPECT_EQ(CardGetContainerProperty(keys.data, 0, row.name, buffer, tooSmall, nullptr, 1),
                  status::invalidParameter);
        EXPECT_EQ(keys.log.file(),
                  lines(scope, {entered, row.parameters, exited(status::invalidParameter)}));
        EXPECT_EQ(keys.log.output(), error("CMR_393: dwFlags is invalid."));
        EXPECT_EQ(CardGetContainerProperty(keys.data, 0, row.name, buffer, tooSmall, nullptr, 0),
                  status::insufficientBuffer);
        EXPECT_EQ(keys.log.file(),
                  lines(scope, {entered, row.parameters, exited(status::insufficientBuffer)}));
        EXPECT_EQ(keys.log.output(), error("CMR_395: cbData is too small."));
        EXPECT_EQ(CardGetContainerProperty(keys.data, 0, row.name, buffer, row.size, nullptr, 0),
                  status::invalidParameter);
        EXPECT_EQ(keys.log.file(),
                  lines(scope, {entered, row.parameters, exited(status::invalidParameter)}));
        EXPECT_EQ(keys.log.output(), error("CMR_396: pdwDataLen is NULL."));
        EXPECT_EQ(testing::platformCalls().counts["CryptDecodeObject"], 0) << "no key is read";
    }
}

TEST(CardGetContainerProperty, FillsContainerInfoInABufferOfTheRecordsSize) {
    KeysFixture keys(CardType::type8, TestKey::p256);
    Request request{containerInfo, 1};
    request.size = sizeof(CONTAINER_INFO);
    EXPECT_EQ(request.run(keys.data), 0u);
    EXPECT_EQ(request.length, sizeof(CONTAINER_INFO));
    EXPECT_EQ(keys.log.file(),
              (LogLines{{scope, entered},
                        {scope, infoParameters},
                        {"CardGetContainerInfo", entered},
                        {"CardGetContainerInfo",
                         "with parameters, bContainerIndex:'1' dwFlags:'0', dwVersion:'0'"},
                        {"CardGetContainerInfo", exited(status::success)},
                        {scope, exited(status::success)}}));
    EXPECT_EQ(keys.log.output(), LogLines{});
    CONTAINER_INFO info;
    std::memcpy(&info, request.buffer.data(), sizeof(info));
    EXPECT_EQ(info.dwVersion, 1u);
    EXPECT_EQ(info.cbSigPublicKey, 72u);
    ASSERT_NE(info.pbSigPublicKey, nullptr);
    EXPECT_EQ(info.pbSigPublicKey[2], 'S');
    keys.data->pfnCspFree(info.pbSigPublicKey);
}

TEST(CardGetContainerProperty, FillsContainerInfoInABufferThatIsNotAligned) {
    KeysFixture keys(CardType::type8, TestKey::p256);
    BYTE buffer[sizeof(CONTAINER_INFO) + 1] = {};
    DWORD length = 0;
    EXPECT_EQ(CardGetContainerProperty(keys.data, 0, containerInfo, buffer + 1,
                                       sizeof(CONTAINER_INFO), &length, 0),
              0u);
    CONTAINER_INFO info;
    std::memcpy(&info, buffer + 1, sizeof(info));
    EXPECT_EQ(info.cbKeyExPublicKey, 72u);
    keys.data->pfnCspFree(info.pbKeyExPublicKey);
}

TEST(CardGetContainerProperty, PassesOnTheStatusOfContainerInfo) {
    KeysFixture keys(CardType::type3);
    Request request{containerInfo};
    request.buffer[0] = 2;  // the version of the record
    EXPECT_EQ(request.run(keys.data), 1306u);
    EXPECT_EQ(keys.log.file(),
              (LogLines{{scope, entered},
                        {scope, infoParameters},
                        {"CardGetContainerInfo", entered},
                        {"CardGetContainerInfo",
                         "with parameters, bContainerIndex:'0' dwFlags:'0', dwVersion:'2'"},
                        {scope, exited(status::revisionMismatch)}}));
    EXPECT_EQ(request.length, 77u);
    EXPECT_EQ(keys.log.output(), LogLines{});
}

TEST(CardGetContainerProperty, NamesThePinOfEachContainer) {
    KeysFixture keys(CardType::type7, TestKey::p256);
    struct Row {
        BYTE index;
        BYTE pin;
    };
    for (const Row& row : {Row{0, 1}, Row{1, 4}, Row{2, 4}}) {
        Request request{pinIdentifier, row.index};
        request.buffer = ByteVector(5, 0xEE);
        request.size = 4;
        EXPECT_EQ(request.run(keys.data), 0u);
        EXPECT_EQ(request.buffer, (ByteVector{row.pin, 0, 0, 0, 0xEE}));
        EXPECT_EQ(request.length, 4u);
        EXPECT_EQ(keys.log.file(), lines(scope, {entered, pinParameters, exited(status::success)}));
        EXPECT_EQ(keys.log.output(), LogLines{});
    }
}

TEST(CardGetContainerProperty, NamesNoPinOfAContainerThatIsNotValid) {
    KeysFixture keys(CardType::type3);
    keys.context.containers[1].bFlags = CONTAINER_MAP_DEFAULT_CONTAINER;
    EXPECT_EQ((Request{pinIdentifier, 1}.run(keys.data)), status::noKeyContainer);
    EXPECT_EQ(keys.log.file(),
              lines(scope, {entered, pinParameters, exited(status::noKeyContainer)}));
    EXPECT_EQ(keys.log.output(), error("CMR_390: bContainerIndex is invalid."));
}

TEST(CardGetContainerProperty, ExpectsNoThirdContainerWithoutSecondSigningKeyNorAFourth) {
    KeysFixture keys(CardType::type7, TestKey::p256);
    keys.context.containers.push_back(keys.context.containers[1]);
    EXPECT_EQ((Request{pinIdentifier, 3}.run(keys.data)), status::unexpected);
    keys.context.hasSecondSignCert = false;
    EXPECT_EQ((Request{pinIdentifier, 2}.run(keys.data)), status::unexpected);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered, pinParameters, exited(status::unexpected),
                                             entered, pinParameters, exited(status::unexpected)}));
    EXPECT_EQ(keys.log.output(), LogLines{});
}

TEST(CardGetContainerProperty, HasNoAssociatedEcdhKeyForAnyContainer) {
    KeysFixture keys(CardType::type7, TestKey::p256);
    for (const BYTE index : {BYTE{0}, BYTE{1}, BYTE{2}}) {
        Request request{ecdhKey, index};
        request.size = 1;
        EXPECT_EQ(request.run(keys.data), status::noKeyContainer);
        EXPECT_EQ(request.length, 77u);
        EXPECT_EQ(keys.log.file(),
                  lines(scope, {entered, ecdhParameters, exited(status::noKeyContainer)}));
        EXPECT_EQ(keys.log.output(), error("CMR_390: bContainerIndex is invalid."));
    }
}

}  // namespace
}  // namespace KelmoraID
