#include <gtest/gtest.h>

#include <functional>

#include "session/entry_points.h"
#include "support/log_capture.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using namespace testing;

struct Refusal {
    const char* name;
    std::function<DWORD(PCARD_DATA)> call;
};

// Refused by the card's state alone: 0x80100022, or 0x80100004 without a context handle.
const Refusal notOffered[] = {
    {"CardDeleteContainer", [](PCARD_DATA c) { return CardDeleteContainer(c, 0, 0); }},
    {"CardCreateContainer",
     [](PCARD_DATA c) { return CardCreateContainer(c, 0, 0, 0, 0, nullptr); }},
    {"CardUnblockPin",
     [](PCARD_DATA c) { return CardUnblockPin(c, nullptr, nullptr, 0, nullptr, 0, 0, 0); }},
    {"CardChangeAuthenticator",
     [](PCARD_DATA c) {
         return CardChangeAuthenticator(c, nullptr, nullptr, 0, nullptr, 0, 0, 0, nullptr);
     }},
    {"CardDeauthenticate", [](PCARD_DATA c) { return CardDeauthenticate(c, nullptr, 0); }},
    {"CardCreateDirectory",
     [](PCARD_DATA c) { return CardCreateDirectory(c, nullptr, InvalidDirAc); }},
    {"CardDeleteDirectory", [](PCARD_DATA c) { return CardDeleteDirectory(c, nullptr); }},
    {"CardCreateFile",
     [](PCARD_DATA c) { return CardCreateFile(c, nullptr, nullptr, 0, InvalidAc); }},
    {"CardWriteFile",
     [](PCARD_DATA c) { return CardWriteFile(c, nullptr, nullptr, 0, nullptr, 0); }},
    {"CardDeleteFile", [](PCARD_DATA c) { return CardDeleteFile(c, nullptr, nullptr, 0); }},
    {"CspGetDHAgreement", [](PCARD_DATA c) { return CspGetDHAgreement(c, nullptr, nullptr, 0); }},
    {"CardDeauthenticateEx", [](PCARD_DATA c) { return CardDeauthenticateEx(c, 0, 0); }},
    {"CardSetContainerProperty",
     [](PCARD_DATA c) { return CardSetContainerProperty(c, 0, nullptr, nullptr, 0, 0); }},
    {"CardImportSessionKey",
     [](PCARD_DATA c) {
         return CardImportSessionKey(c, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0);
     }},
    {"CardCreateContainerEx",
     [](PCARD_DATA c) { return CardCreateContainerEx(c, 0, 0, 0, 0, nullptr, 0); }},
};

// Refused with 0x80100022 in every case.
const Refusal neverOffered[] = {
    {"CardGetChallenge", [](PCARD_DATA c) { return CardGetChallenge(c, nullptr, nullptr); }},
    {"CardAuthenticateChallenge",
     [](PCARD_DATA c) { return CardAuthenticateChallenge(c, nullptr, 0, nullptr); }},
    {"CardGetChallengeEx",
     [](PCARD_DATA c) { return CardGetChallengeEx(c, 0, nullptr, nullptr, 0); }},
    {"CardChangeAuthenticatorEx",
     [](PCARD_DATA c) {
         return CardChangeAuthenticatorEx(c, 0, 0, nullptr, 0, 0, nullptr, 0, 0, nullptr);
     }},
};

// Refused with 0x8010001F in every case.
const Refusal notProvided[] = {
    {"CspUnpadData", [](PCARD_DATA) { return CspUnpadData(nullptr, nullptr, nullptr); }},
    {"MDImportSessionKey",
     [](PCARD_DATA c) { return MDImportSessionKey(c, nullptr, nullptr, nullptr, nullptr, 0); }},
    {"MDEncryptData",
     [](PCARD_DATA c) { return MDEncryptData(c, 0, nullptr, nullptr, 0, 0, nullptr, nullptr); }},
    {"CardGetSharedKeyHandle",
     [](PCARD_DATA c) { return CardGetSharedKeyHandle(c, nullptr, 0, nullptr, nullptr, nullptr); }},
    {"CardGetAlgorithmProperty",
     [](PCARD_DATA c) {
         return CardGetAlgorithmProperty(c, nullptr, nullptr, nullptr, 0, nullptr, 0);
     }},
    {"CardGetKeyProperty",
     [](PCARD_DATA c) { return CardGetKeyProperty(c, 0, nullptr, nullptr, 0, nullptr, 0); }},
    {"CardSetKeyProperty",
     [](PCARD_DATA c) { return CardSetKeyProperty(c, 0, nullptr, nullptr, 0, 0); }},
    {"CardDestroyKey", [](PCARD_DATA c) { return CardDestroyKey(c, 0); }},
    {"CardProcessEncryptedData",
     [](PCARD_DATA c) {
         return CardProcessEncryptedData(c, 0, nullptr, nullptr, 0, nullptr, 0, nullptr, 0);
     }},
    {"I_CardConvertFileNameToAnsi",
     [](PCARD_DATA c) { return I_CardConvertFileNameToAnsi(c, nullptr, nullptr); }},
};

class UnsupportedOperations : public ::testing::Test {
protected:
    void expect(const Refusal& refusal, PCARD_DATA record, DWORD status) {
        EXPECT_EQ(refusal.call(record), status) << refusal.name;
        EXPECT_EQ(log.file(), (LogLines{{refusal.name, "Entering the function"}}))
            << "one line, and only that";
        EXPECT_EQ(log.output(), LogLines{}) << refusal.name;
    }
    LogCapture log;
    CARD_DATA live = [] {
        CARD_DATA data{};
        data.hSCardCtx = 1;
        return data;
    }();
    CARD_DATA noCard{};
};

TEST_F(UnsupportedOperations, AreNotOfferedOnALiveRecord) {
    for (const Refusal& refusal : notOffered) expect(refusal, &live, status::unsupportedFeature);
}

TEST_F(UnsupportedOperations, AreABadArgumentWithoutAContextHandle) {
    for (const Refusal& refusal : notOffered) expect(refusal, &noCard, status::invalidParameter);
}

TEST_F(UnsupportedOperations, AreABadArgumentWithoutARecord) {
    for (const Refusal& refusal : notOffered) expect(refusal, nullptr, status::invalidParameter);
}

TEST_F(UnsupportedOperations, OfTheChallengeFamilyAreRefusedInEveryCase) {
    for (const Refusal& refusal : neverOffered) {
        expect(refusal, &live, status::unsupportedFeature);
        expect(refusal, &noCard, status::unsupportedFeature);
        expect(refusal, nullptr, status::unsupportedFeature);
    }
}

TEST_F(UnsupportedOperations, OfTheKeyFamilyAreUnexpectedAndNotUnsupported) {
    for (const Refusal& refusal : notProvided) {
        expect(refusal, &live, status::unexpected);
        expect(refusal, &noCard, status::unexpected);
        expect(refusal, nullptr, status::unexpected);
    }
}

}  // namespace
}  // namespace KelmoraID
