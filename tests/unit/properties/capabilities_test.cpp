#include <gtest/gtest.h>

#include <cstring>

#include "session/entry_points.h"
#include "support/acquired_card.h"
#include "support/log_capture.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using namespace testing;

class Capabilities : public ::testing::Test {
protected:
    LogCapture log;
    AcquiredCard card{CardType::type3};
};

TEST_F(Capabilities, QueryFillsNoField) {
    CARD_CAPABILITIES capabilities{1, 77, 78};
    EXPECT_EQ(CardQueryCapabilities(card.data(), &capabilities), 0);
    EXPECT_EQ(capabilities.dwVersion, 1);
    EXPECT_EQ(capabilities.fCertificateCompression, 77);
    EXPECT_EQ(capabilities.fKeyGen, 78);
    EXPECT_EQ(log.file(), (LogLines{{"CardQueryCapabilities", "Entering the function"}}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(Capabilities, QueryRefusesNullPointersInOrder) {
    EXPECT_EQ(CardQueryCapabilities(nullptr, nullptr), status::invalidParameter);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_318: pCardData is NULL"}}));
    EXPECT_EQ(CardQueryCapabilities(card.data(), nullptr), status::invalidParameter);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_319: pCardCapabilities is NULL"}}));
}

TEST_F(Capabilities, QueryRefusesARecordOfVersionTwo) {
    CARD_CAPABILITIES capabilities{2, 0, 0};
    EXPECT_EQ(CardQueryCapabilities(card.data(), &capabilities), status::revisionMismatch);
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "CMR_320: pCardCapabilities version 2 is not supported"}}));
}

TEST_F(Capabilities, QueryWorksWithoutAContextHandle) {
    card.data()->hSCardCtx = 0;
    CARD_CAPABILITIES capabilities{};
    EXPECT_EQ(CardQueryCapabilities(card.data(), &capabilities), 0);
}

TEST_F(Capabilities, FreeSpaceTellsOfTwoContainersOnEveryCard) {
    for (const CardType type : {CardType::type3, CardType::type5}) {
        AcquiredCard other(type);
        log.clear();
        CARD_FREE_SPACE_INFO info{0, 9, 9, 9};
        EXPECT_EQ(CardQueryFreeSpace(other.data(), 0, &info), 0);
        EXPECT_EQ(info.dwVersion, 1);
        EXPECT_EQ(info.dwBytesAvailable, 0);
        EXPECT_EQ(info.dwKeyContainersAvailable, 0);
        EXPECT_EQ(info.dwMaxKeyContainers, 2);
        EXPECT_EQ(log.file(), (LogLines{{"CardQueryFreeSpace", "Entering the function"}}));
    }
}

TEST_F(Capabilities, FreeSpaceTakesARecordOfVersionOneAlsoWithoutAContextHandle) {
    card.data()->hSCardCtx = 0;
    CARD_FREE_SPACE_INFO info{1, 9, 9, 9};
    EXPECT_EQ(CardQueryFreeSpace(card.data(), 0, &info), 0);
    EXPECT_EQ(info.dwVersion, 1);
    EXPECT_EQ(info.dwMaxKeyContainers, 2);
}

TEST_F(Capabilities, FreeSpaceRefusesBadArgumentsWithoutALine) {
    CARD_FREE_SPACE_INFO info{};
    EXPECT_EQ(CardQueryFreeSpace(card.data(), 1, &info), status::invalidParameter);
    EXPECT_EQ(CardQueryFreeSpace(nullptr, 0, &info), status::invalidParameter);
    EXPECT_EQ(CardQueryFreeSpace(card.data(), 0, nullptr), status::invalidParameter);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file().size(), 3u);
}

TEST_F(Capabilities, FreeSpaceRefusesARecordOfVersionTwo) {
    CARD_FREE_SPACE_INFO info{2, 9, 9, 9};
    EXPECT_EQ(CardQueryFreeSpace(card.data(), 0, &info), status::revisionMismatch);
    EXPECT_EQ(info.dwMaxKeyContainers, 9);
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "CMR_314: pCardFreeSpaceInfo version 2 is not supported"}}));
}

}  // namespace
}  // namespace KelmoraID
