#include <tuple>

#include "keys/keys_fixture.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using testing::exited;
using testing::KeysFixture;
using testing::lines;
using testing::LogLines;
using testing::TestKey;

constexpr const char* scope = "CardQueryKeySizes";

std::string entered(DWORD keySpec, DWORD flags, DWORD version) {
    return "Entering the function, with parameters, dwKeySpec:'" + std::to_string(keySpec) +
           "' dwFlags:'" + std::to_string(flags) + "', dwVersion:'" + std::to_string(version) + "'";
}

using Sizes = std::tuple<DWORD, DWORD, DWORD, DWORD, DWORD>;
Sizes all(const CARD_KEY_SIZES& sizes) {
    return {sizes.dwVersion, sizes.dwMinimumBitlen, sizes.dwDefaultBitlen, sizes.dwMaximumBitlen,
            sizes.dwIncrementalBitlen};
}

TEST(CardQueryKeySizes, RefusesNullPointersWithTheExitLineAlone) {
    KeysFixture keys(CardType::type3);
    CARD_KEY_SIZES sizes{};
    EXPECT_EQ(CardQueryKeySizes(nullptr, 1, 0, &sizes), status::invalidParameter);
    EXPECT_EQ(CardQueryKeySizes(keys.data, 1, 0, nullptr), status::invalidParameter);
    EXPECT_EQ(keys.log.file(),
              lines(scope, {exited(status::invalidParameter), exited(status::invalidParameter)}));
    EXPECT_EQ(keys.log.output(), LogLines{});
}

TEST(CardQueryKeySizes, RefusesKeySpecifications0And9AndLeavesTheRecord) {
    for (const DWORD keySpec : {0u, 9u, 0xFFFFFFFFu}) {
        KeysFixture keys(CardType::type3);
        CARD_KEY_SIZES sizes{5, 6, 7, 8, 9};  // Neither flags nor version are looked at.
        EXPECT_EQ(CardQueryKeySizes(keys.data, keySpec, 1, &sizes), status::invalidParameter);
        EXPECT_EQ(all(sizes), Sizes(5, 6, 7, 8, 9));
        EXPECT_EQ(keys.log.file(),
                  lines(scope, {entered(keySpec, 1, 5), exited(status::invalidParameter)}));
    }
}

TEST(CardQueryKeySizes, GivesTheSizesOfEachKeySpecification) {
    struct Row {
        DWORD keySpec;
        DWORD bits;
        DWORD increment;
    };
    KeysFixture keys(CardType::type3, TestKey::rsa2048, TestKey::rsa1024);
    for (const Row& row : {Row{1, 2048, 0}, Row{2, 1024, 0}, Row{3, 256, 1}, Row{4, 384, 1},
                           Row{5, 521, 1}, Row{6, 256, 1}, Row{7, 384, 1}, Row{8, 521, 1}}) {
        CARD_KEY_SIZES sizes{1, 6, 7, 8, 9};
        EXPECT_EQ(CardQueryKeySizes(keys.data, row.keySpec, 0, &sizes), 0u);
        EXPECT_EQ(all(sizes), Sizes(1, row.bits, row.bits, row.bits, row.increment));
        EXPECT_EQ(keys.log.file(),
                  lines(scope, {entered(row.keySpec, 0, 1), exited(status::success)}));
    }
}

TEST(CardQueryKeySizes, FillsTheRecordAlsoWhenItRefusesTheFlags) {
    KeysFixture keys(CardType::type3);
    CARD_KEY_SIZES sizes{2, 0, 0, 0, 5};  // The flags are looked at before the version.
    EXPECT_EQ(CardQueryKeySizes(keys.data, 1, 4, &sizes), status::invalidParameter);
    EXPECT_EQ(all(sizes), Sizes(2, 2048, 2048, 2048, 0));
    EXPECT_EQ(keys.log.file(), lines(scope, {entered(1, 4, 2), exited(status::invalidParameter)}));
}

TEST(CardQueryKeySizes, FillsARecordOfVersion2AndRefusesIt) {
    KeysFixture keys(CardType::type3);
    CARD_KEY_SIZES sizes{2, 0, 0, 0, 5};
    EXPECT_EQ(CardQueryKeySizes(keys.data, 2, 0, &sizes), 1306u);
    EXPECT_EQ(all(sizes), Sizes(2, 2048, 2048, 2048, 0));
    EXPECT_EQ(keys.log.file(), lines(scope, {entered(2, 0, 2), exited(status::revisionMismatch)}));
}

TEST(CardQueryKeySizes, WorksWithoutACardContext) {
    KeysFixture keys(CardType::type3);
    keys.data->hSCardCtx = 0;
    CARD_KEY_SIZES sizes{};
    EXPECT_EQ(CardQueryKeySizes(keys.data, 3, 0, &sizes), 0u);
}

}  // namespace
}  // namespace KelmoraID
