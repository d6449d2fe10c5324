#include "frame/function_table.h"

#include <gtest/gtest.h>

#include <functional>
#include <iterator>

#include "support/acquired_card.h"
#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/scripted_card.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using namespace testing;

// A slot, by the name of the entry point that it has to lead to.
struct Slot {
    const char* entryPoint;
    std::function<DWORD(CARD_DATA&)> call;
};

// A call through that slot, with nothing in its arguments but the record.
template <typename... Arguments>
std::function<DWORD(CARD_DATA&)> through(DWORD (WINAPI* CARD_DATA::*slot)(PCARD_DATA,
                                                                          Arguments...)) {
    return [slot](CARD_DATA& card) { return (card.*slot)(&card, Arguments{}...); };
}

const Slot slots[] = {
    {"CardQueryCapabilities", through(&CARD_DATA::pfnCardQueryCapabilities)},
    {"CardDeleteContainer", through(&CARD_DATA::pfnCardDeleteContainer)},
    {"CardCreateContainer", through(&CARD_DATA::pfnCardCreateContainer)},
    {"CardGetContainerInfo", through(&CARD_DATA::pfnCardGetContainerInfo)},
    {"CardAuthenticatePin", through(&CARD_DATA::pfnCardAuthenticatePin)},
    {"CardGetChallenge", through(&CARD_DATA::pfnCardGetChallenge)},
    {"CardAuthenticateChallenge", through(&CARD_DATA::pfnCardAuthenticateChallenge)},
    {"CardUnblockPin", through(&CARD_DATA::pfnCardUnblockPin)},
    {"CardChangeAuthenticator", through(&CARD_DATA::pfnCardChangeAuthenticator)},
    {"CardCreateDirectory", through(&CARD_DATA::pfnCardCreateDirectory)},
    {"CardDeleteDirectory", through(&CARD_DATA::pfnCardDeleteDirectory)},
    {"CardCreateFile", through(&CARD_DATA::pfnCardCreateFile)},
    {"CardReadFile", through(&CARD_DATA::pfnCardReadFile)},
    {"CardWriteFile", through(&CARD_DATA::pfnCardWriteFile)},
    {"CardDeleteFile", through(&CARD_DATA::pfnCardDeleteFile)},
    {"CardEnumFiles", through(&CARD_DATA::pfnCardEnumFiles)},
    {"CardGetFileInfo", through(&CARD_DATA::pfnCardGetFileInfo)},
    {"CardQueryFreeSpace", through(&CARD_DATA::pfnCardQueryFreeSpace)},
    {"CardQueryKeySizes", through(&CARD_DATA::pfnCardQueryKeySizes)},
    {"CardSignData",
     [](CARD_DATA& card) {
         CARD_SIGNING_INFO info{};  // It logs what the record holds, so it needs one.
         return card.pfnCardSignData(&card, &info);
     }},
    {"CardRSADecrypt", through(&CARD_DATA::pfnCardRSADecrypt)},
    {"CardConstructDHAgreement", through(&CARD_DATA::pfnCardConstructDHAgreement)},
    {"CardDeriveKey", through(&CARD_DATA::pfnCardDeriveKey)},
    {"CardDestroyDHAgreement", through(&CARD_DATA::pfnCardDestroyDHAgreement)},
    {"CspGetDHAgreement", through(&CARD_DATA::pfnCspGetDHAgreement)},
    {"CardGetChallengeEx", through(&CARD_DATA::pfnCardGetChallengeEx)},
    {"CardAuthenticateEx", through(&CARD_DATA::pfnCardAuthenticateEx)},
    {"CardChangeAuthenticatorEx", through(&CARD_DATA::pfnCardChangeAuthenticatorEx)},
    {"CardDeauthenticateEx", through(&CARD_DATA::pfnCardDeauthenticateEx)},
    {"CardGetContainerProperty", through(&CARD_DATA::pfnCardGetContainerProperty)},
    {"CardSetContainerProperty", through(&CARD_DATA::pfnCardSetContainerProperty)},
    {"CardGetProperty", through(&CARD_DATA::pfnCardGetProperty)},
    {"CardSetProperty",
     [](CARD_DATA& card) {
         return card.pfnCardSetProperty(&card, WIDE_TEXT("PIN List"), nullptr, 0, 0);
     }},
    {"CspUnpadData",
     [](CARD_DATA& card) { return card.pfnCspUnpadData(nullptr, nullptr, nullptr); }},
    {"MDImportSessionKey", through(&CARD_DATA::pfnMDImportSessionKey)},
    {"MDEncryptData", through(&CARD_DATA::pfnMDEncryptData)},
    {"CardImportSessionKey", through(&CARD_DATA::pfnCardImportSessionKey)},
    {"CardGetSharedKeyHandle", through(&CARD_DATA::pfnCardGetSharedKeyHandle)},
    {"CardGetAlgorithmProperty", through(&CARD_DATA::pfnCardGetAlgorithmProperty)},
    {"CardGetKeyProperty", through(&CARD_DATA::pfnCardGetKeyProperty)},
    {"CardSetKeyProperty", through(&CARD_DATA::pfnCardSetKeyProperty)},
    {"CardDestroyKey", through(&CARD_DATA::pfnCardDestroyKey)},
    {"CardProcessEncryptedData", through(&CARD_DATA::pfnCardProcessEncryptedData)},
    {"CardCreateContainerEx", through(&CARD_DATA::pfnCardCreateContainerEx)},
};

class FunctionTable : public ::testing::Test {
protected:
    PlatformCallsGuard hooks;
    LogCapture log;
    ScriptedCard silent;  // No call through these slots sends a command.
    AcquiredCard card{CardType::type3};
};

TEST_F(FunctionTable, LeadsFromEachSlotToTheEntryPointOfItsName) {
    fillFunctionTable(*card.data(), true);
    for (const Slot& slot : slots) {
        log.clear();
        slot.call(*card.data());
        const LogLines file = log.file();
        ASSERT_FALSE(file.empty()) << slot.entryPoint;
        EXPECT_EQ(file.front().scope, slot.entryPoint);
    }
    log.clear();
}

TEST_F(FunctionTable, HasNoOtherSlotThanThoseAndTheDeletion) {
    fillFunctionTable(*card.data(), true);
    const auto* slot = reinterpret_cast<void* const*>(&card.data()->pfnCardDeleteContext);
    const auto* end = reinterpret_cast<void* const*>(card.data() + 1);
    std::size_t filled = 0;
    for (; slot != end; ++slot) filled += *slot == nullptr ? 0 : 1;
    EXPECT_EQ(filled, std::size(slots) + 1);
}

// Only a broken caller takes the context away: each entry point that needs it throws, and the slot
// stops that.
TEST_F(FunctionTable, RefusesARecordThatLostItsContextInEverySlotThatNeedsIt) {
    fillFunctionTable(*card.data(), true);
    void* context = card.data()->pvVendorSpecific;
    CARD_DATA& data = *card.data();
    data.pvVendorSpecific = nullptr;
    char directory[] = "mscp";
    char file[] = "kxc00";
    PBYTE bytes = nullptr;
    LPSTR names = nullptr;
    BYTE buffer[64] = {};
    DWORD size = 0;
    CARD_FILE_INFO fileInfo{};
    CONTAINER_INFO container{};
    CARD_KEY_SIZES keySizes{};
    EXPECT_EQ(data.pfnCardReadFile(&data, directory, file, 0, &bytes, &size), status::unexpected);
    EXPECT_EQ(data.pfnCardEnumFiles(&data, directory, &names, &size, 0), status::unexpected);
    EXPECT_EQ(data.pfnCardGetFileInfo(&data, directory, file, &fileInfo), status::unexpected);
    EXPECT_EQ(data.pfnCardGetContainerInfo(&data, 0, 0, &container), status::unexpected);
    EXPECT_EQ(data.pfnCardQueryKeySizes(&data, AT_KEYEXCHANGE, 0, &keySizes), status::unexpected);
    EXPECT_EQ(data.pfnCardGetContainerProperty(&data, 0, WIDE_TEXT("PIN Identifier"), buffer, 64,
                                               &size, 0),
              status::unexpected);
    EXPECT_EQ(data.pfnCardGetProperty(&data, WIDE_TEXT("PIN Information"), buffer, 64, &size, 1),
              status::unexpected);
    EXPECT_EQ(data.pfnCardSetProperty(&data, WIDE_TEXT("Parent Window"), buffer, 8, 0),
              status::unexpected);
    EXPECT_EQ(PlatformRecord::liveAllocations(), 0) << "the property's buffer is freed on the way";
    EXPECT_EQ(log.output(), LogLines{}) << "and no line tells of it";
    data.pvVendorSpecific = context;
}

}  // namespace
}  // namespace KelmoraID
