// ECDH agreement and key derivation with real keys: the other party computes the same.
#include <cstring>

#include "other_party.h"
#include "support/statuses.h"

namespace boundary {
namespace {

using KelmoraID::testing::exited;
using KelmoraID::testing::LogLine;
using KelmoraID::testing::LogLines;

WCHAR hashKdf[] = WIDE_TEXT("HASH");

// The parameter list of a derivation.
class Parameters {
public:
    Parameters& hash(LPCWSTR name) {
        names_.push_back(std::make_unique<WideString>(name));
        return add(0, names_.back()->data(),
                   static_cast<ULONG>((names_.back()->size() + 1) * sizeof(WCHAR)));
    }
    Parameters& bytes(ULONG type, const std::string& value) {
        values_.push_back(std::make_unique<std::string>(value));
        return add(type, values_.back()->data(), static_cast<ULONG>(value.size()));
    }
    Parameters& add(ULONG type, void* value, ULONG size) {
        buffers_.push_back({size, type, value});
        return *this;
    }
    void* list() {
        description_ = {0, static_cast<ULONG>(buffers_.size()), buffers_.data()};
        return &description_;
    }

private:
    std::vector<std::unique_ptr<WideString>> names_;
    std::vector<std::unique_ptr<std::string>> values_;
    std::vector<BCryptBuffer> buffers_;
    BCryptBufferDesc description_{};
};

class AgreementBase {
protected:
    explicit AgreementBase(int cardType) : card(cardType) {}

    DWORD agree(Bytes blob, BYTE* index = nullptr) {
        CARD_DH_AGREEMENT_INFO info{};
        info.dwVersion = 2;
        info.dwPublicKey = static_cast<DWORD>(blob.size());
        info.pbPublicKey = blob.data();
        const DWORD status = card.data.pfnCardConstructDHAgreement(&card.data, &info);
        if (index != nullptr) *index = info.bSecretAgreementIndex;
        return status;
    }

    Answer derive(BYTE index, Parameters* parameters, DWORD flags = 0, LPWSTR kdf = hashKdf,
                  DWORD version = 2) {
        CARD_DERIVE_KEY info{};
        BYTE untouched = 0;
        info.pbDerivedKey = &untouched;
        info.dwVersion = version;
        info.dwFlags = flags;
        info.pwszKDF = kdf;
        info.bSecretAgreementIndex = index;
        info.pParameterList = parameters == nullptr ? nullptr : parameters->list();
        Answer answer;
        answer.status = card.data.pfnCardDeriveKey(&card.data, &info);
        if (info.pbDerivedKey == &untouched) {
            // A size alone comes as one byte.
            if (answer.status == 0) answer.bytes = {static_cast<std::uint8_t>(info.cbDerivedKey)};
        } else if (answer.status == 0) {
            answer.bytes.assign(info.pbDerivedKey, info.pbDerivedKey + info.cbDerivedKey);
            card.data.pfnCspFree(info.pbDerivedKey);
        } else {
            EXPECT_EQ(info.pbDerivedKey, nullptr) << "only an allocation that fails writes it";
            EXPECT_EQ(answer.status, status::notEnoughMemory);
        }
        return answer;
    }

    // Nothing was kept of an agreement that failed: the next one is the first.
    void expectNoneKept(const Bytes& blob) {
        BYTE index = 0;
        ASSERT_EQ(agree(blob, &index), 0u);
        EXPECT_EQ(index, 1);
    }

    PlatformSide card;
};

class Agreement : public ::testing::TestWithParam<int>, protected AgreementBase {
protected:
    Agreement() : AgreementBase(GetParam()) {}
    void SetUp() override {
        card.acquireOrFail();
        card.openKey(0);
        other.emplace(card.certificate(0));
    }
    std::optional<OtherParty> other;
};
INSTANTIATE_TEST_SUITE_P(EveryEcCard, Agreement, ::testing::ValuesIn(ecCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(Agreement, DerivesWhatTheOtherPartyComputesWithEachHash) {
    BYTE index = 0;
    ASSERT_EQ(agree(other->blob(), &index), 0u);
    EXPECT_EQ(index, 1);
    const Bytes secret = other->secret();
    const std::string bare(secret.begin(), secret.end());
    EXPECT_EQ(derive(index, nullptr).bytes, hashOf("SHA-1", bare)) << "SHA-1 without a list";
    for (const auto& [name, botanName] :
         {std::pair{WIDE_TEXT("SHA1"), "SHA-1"}, std::pair{WIDE_TEXT("SHA256"), "SHA-256"},
          std::pair{WIDE_TEXT("SHA384"), "SHA-384"}, std::pair{WIDE_TEXT("SHA512"), "SHA-512"}}) {
        Parameters plain;
        plain.hash(name);
        EXPECT_EQ(derive(index, &plain).bytes, hashOf(botanName, bare)) << botanName;
        Parameters around;
        around.bytes(1, "A").hash(name).bytes(2, "C").bytes(1, "B").bytes(2, "D");
        EXPECT_EQ(derive(index, &around).bytes, hashOf(botanName, "AB" + bare + "CD"));
    }
}

TEST_P(Agreement, SendsThePointInTheFormOfTheCard) {
    card.reader.clearExchanges();
    const Bytes blob = other->blob();
    ASSERT_EQ(agree(blob), 0u);
    const bool indicator = card.reader.card().generation().pointHasIndicator;
    Bytes point = indicator ? fromHex("0004") : fromHex("04");
    point.insert(point.end(), blob.begin() + 8, blob.end());
    const auto lines = journey(card.reader);
    // The card is asked for its PIN by a VERIFY without data, from the root.
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines[0], "00A4000C023F00");
    EXPECT_EQ(lines[1].substr(0, 6), "002000");
    EXPECT_EQ(lines[1].size(), 8u);
    const bool second = card.reader.card().generation().keys.size() == 3;
    EXPECT_EQ(lines[2], std::string("002241B8098004FF3004008401") + (second ? "01" : "91"));
    EXPECT_EQ(lines[3].substr(0, 8), "002A8086");
    EXPECT_EQ(lines[3].substr(10), toHex(point) + "00");
}

TEST_P(Agreement, GivesIndexesInOrderAndTheLargestPlusOne) {
    BYTE index = 0;
    ASSERT_EQ(agree(other->blob(), &index), 0u);
    EXPECT_EQ(index, 1);
    ASSERT_EQ(agree(other->blob(), &index), 0u);
    EXPECT_EQ(index, 2);
    EXPECT_EQ(card.data.pfnCardDestroyDHAgreement(&card.data, 1, 0), 0u);
    ASSERT_EQ(agree(other->blob(), &index), 0u);
    EXPECT_EQ(index, 3) << "an index below the largest is not used again";
    EXPECT_EQ(card.data.pfnCardDestroyDHAgreement(&card.data, 3, 0), 0u);
    ASSERT_EQ(agree(other->blob(), &index), 0u);
    EXPECT_EQ(index, 3) << "one above the largest is";
}

TEST_P(Agreement, OnAContainerOfTheWrongKindOrNoneIsRefusedApart) {
    const bool second = card.reader.card().generation().keys.size() == 3;
    CARD_DH_AGREEMENT_INFO info{};
    Bytes blob = other->blob();
    info.dwVersion = 2;
    info.dwPublicKey = static_cast<DWORD>(blob.size());
    info.pbPublicKey = blob.data();
    card.reader.clearExchanges();
    info.bContainerIndex = 1;
    EXPECT_EQ(card.data.pfnCardConstructDHAgreement(&card.data, &info), status::invalidParameter);
    info.bContainerIndex = 2;
    EXPECT_EQ(card.data.pfnCardConstructDHAgreement(&card.data, &info),
              second ? status::invalidParameter : status::noKeyContainer);
    info.bContainerIndex = 3;
    EXPECT_EQ(card.data.pfnCardConstructDHAgreement(&card.data, &info), status::noKeyContainer);
    EXPECT_TRUE(card.reader.exchanges().empty());
}

TEST_P(Agreement, ChecksTheRecordInOrder) {
    Bytes blob = other->blob();
    CARD_DH_AGREEMENT_INFO info{};
    info.dwVersion = 1;
    info.dwPublicKey = static_cast<DWORD>(blob.size());
    card.reader.clearExchanges();
    const auto construct = [&] { return card.data.pfnCardConstructDHAgreement(&card.data, &info); };
    EXPECT_EQ(card.data.pfnCardConstructDHAgreement(nullptr, &info), status::invalidParameter);
    EXPECT_EQ(card.data.pfnCardConstructDHAgreement(&card.data, nullptr), status::invalidParameter);
    EXPECT_EQ(construct(), status::revisionMismatch);
    info.dwVersion = 2;
    EXPECT_EQ(construct(), status::invalidParameter) << "no public key";
    info.pbPublicKey = blob.data();
    info.dwFlags = 1;
    EXPECT_EQ(construct(), status::invalidParameter);
    info.dwFlags = 0;
    EXPECT_TRUE(card.reader.exchanges().empty());
}

TEST_P(Agreement, TakesNoStrangeLengthOfAPublicKey) {
    for (const std::size_t size : {1u, 7u, 8u, 9u, 300u, 5000u}) {
        const DWORD status = agree(Bytes(size, 4));
        EXPECT_TRUE(status == status::invalidParameter || status == status::unexpected) << size;
    }
    expectNoneKept(other->blob());
}

TEST_P(Agreement, WithoutAVerifiedPinSendsNoMse) {
    card.reader.card().reset();
    card.reader.clearExchanges();
    DriverLog log;
    EXPECT_EQ(agree(other->blob()), status::securityViolation);
    for (const auto& exchange : card.reader.exchanges()) EXPECT_NE(exchange.command[1], 0x22);
}

TEST_P(Agreement, ReachesTheFirstHandlerWhenTheCardWantsItsPinAfterAll) {
    DriverLog log;
    // Root, VERIFY, MSE, and then the PSO is refused for lack of a PIN: a thrown logic error.
    card.reader.failTransmit(4, {virtual_card::Fault::Kind::StatusWord, 0x6982});
    EXPECT_EQ(agree(other->blob()), status::securityViolation);
    EXPECT_EQ(log.file().back(),
              (LogLine{"CardConstructDHAgreement",
                       exited(status::securityViolation, " (security violation)")}));
    expectNoneKept(other->blob());
}

TEST_P(Agreement, ReachesTheSecondHandlerByAThrownPointerAndByAThrownObject) {
    const LogLine other_{"CardConstructDHAgreement", exited(status::unexpected, " (other)")};
    for (const std::size_t n : {3u, 4u}) {
        DriverLog log;
        card.reader.failTransmit(n, {virtual_card::Fault::Kind::StatusWord, 0x6A80});
        EXPECT_EQ(agree(other->blob()), status::unexpected) << n;
        EXPECT_EQ(log.file().back(), other_) << n;
    }
    expectNoneKept(other->blob());
}

TEST_P(Agreement, WithoutDataFromTheCardIsAFailure) {
    DriverLog log;
    card.reader.failTransmit(4, {virtual_card::Fault::Kind::StatusWord, 0x9000});
    EXPECT_EQ(agree(other->blob()), status::unexpected);
    EXPECT_EQ(log.file().back(),
              (LogLine{"CardConstructDHAgreement", exited(status::unexpected, " (failure)")}));
    expectNoneKept(other->blob());
}

TEST_P(Agreement, DerivationRefusesInOrderWithItsNumbers) {
    BYTE index = 0;
    ASSERT_EQ(agree(other->blob(), &index), 0u);
    DriverLog log;
    const auto expectLine = [&](const char* suffix) {
        EXPECT_EQ(log.file().back(),
                  (LogLine{"CardDeriveKey",
                           std::string("Exiting the function, with status code: '") + suffix}));
    };
    WCHAR other_[] = WIDE_TEXT("HMAC");
    EXPECT_EQ(derive(99, nullptr, 0x80000000, other_, 3).status, status::revisionMismatch);
    expectLine("0x0000051a'. CMR_443");
    EXPECT_EQ(derive(99, nullptr, 0x80000000, nullptr).status, status::invalidParameter);
    expectLine("0x80100004'. CMR_444");
    EXPECT_EQ(derive(99, nullptr, 0x80000000, other_).status, status::invalidParameter);
    expectLine("0x80100004'. CMR_445");
    EXPECT_EQ(derive(99, nullptr, 0, other_).status, status::invalidParameter);
    expectLine("0x80100004'. CMR_446");
    EXPECT_EQ(derive(99, nullptr).status, status::invalidParameter);
    expectLine("0x80100004'. CMR_447");
    Parameters unknown;
    unknown.bytes(9, "x");
    EXPECT_EQ(derive(index, &unknown).status, status::invalidParameter);
    expectLine("0x80100004'. CMR_448");
    Parameters lower;
    lower.hash(WIDE_TEXT("sha256"));
    EXPECT_EQ(derive(index, &lower).status, status::invalidParameter);
    expectLine("0x80100004'. Invalid hash algorithm.");
    Parameters nameless;
    nameless.add(0, nullptr, 0);
    EXPECT_EQ(derive(index, &nameless).status, status::invalidParameter);
    EXPECT_EQ(card.data.pfnCardDeriveKey(nullptr, nullptr), status::invalidParameter);
    EXPECT_EQ(card.data.pfnCardDeriveKey(&card.data, nullptr), status::invalidParameter);
}

TEST_P(Agreement, DerivationTellsItsSizeAndStillWantsThePin) {
    BYTE index = 0;
    ASSERT_EQ(agree(other->blob(), &index), 0u);
    Parameters sha384;
    sha384.hash(WIDE_TEXT("SHA384"));
    const Answer size = derive(index, &sha384, CARD_BUFFER_SIZE_ONLY);
    EXPECT_EQ(size.status, 0u);
    EXPECT_EQ(size.bytes, Bytes(1, 48)) << "48, and no buffer";
    card.reader.card().reset();
    EXPECT_EQ(derive(index, &sha384, CARD_BUFFER_SIZE_ONLY).status, status::securityViolation);
    EXPECT_EQ(derive(index, nullptr).status, status::securityViolation);
    EXPECT_EQ(card.data.pfnCardDestroyDHAgreement(&card.data, index, 0), status::securityViolation);
}

TEST_P(Agreement, LooksAtTheContextHandleLate) {
    BYTE index = 0;
    ASSERT_EQ(agree(other->blob(), &index), 0u);
    const SCARDCONTEXT context = card.data.hSCardCtx;
    card.data.hSCardCtx = 0;
    card.reader.clearExchanges();
    DriverLog log;
    EXPECT_EQ(derive(index, nullptr).status, status::invalidParameter);
    EXPECT_FALSE(card.reader.exchanges().empty()) << "after the card has been spoken to";
    EXPECT_EQ(log.file().back(),
              (LogLine{"CardDeriveKey", exited(status::invalidParameter, ". isNoCardMode")}));
    card.reader.clearExchanges();
    EXPECT_EQ(card.data.pfnCardDestroyDHAgreement(&card.data, index, 0), status::invalidParameter);
    EXPECT_FALSE(card.reader.exchanges().empty());
    card.data.hSCardCtx = context;
}

TEST_P(Agreement, ServesManyDerivationsUntilItIsDestroyed) {
    BYTE index = 0;
    ASSERT_EQ(agree(other->blob(), &index), 0u);
    const Bytes first = derive(index, nullptr).bytes;
    EXPECT_EQ(derive(index, nullptr).bytes, first);
    EXPECT_EQ(card.data.pfnCardDestroyDHAgreement(&card.data, index, 1), status::invalidParameter);
    EXPECT_EQ(card.data.pfnCardDestroyDHAgreement(&card.data, index, 0), 0u);
    EXPECT_EQ(card.data.pfnCardDestroyDHAgreement(&card.data, index, 0), status::invalidParameter);
    EXPECT_EQ(card.data.pfnCardDestroyDHAgreement(nullptr, index, 0), status::invalidParameter);
    DriverLog log;
    EXPECT_EQ(derive(index, nullptr).status, status::invalidParameter);
    EXPECT_EQ(log.file().back(),
              (LogLine{"CardDeriveKey", exited(status::invalidParameter, ". CMR_447")}));
}

TEST_P(Agreement, AnAllocationThatFailsIsStatusEight) {
    BYTE index = 0;
    ASSERT_EQ(agree(other->blob(), &index), 0u);
    PlatformSide::failAllocation(1);
    DriverLog log;
    EXPECT_EQ(derive(index, nullptr).status, status::notEnoughMemory);
    EXPECT_EQ(log.file().back(),
              (LogLine{"CardDeriveKey", exited(status::notEnoughMemory, ". No memory.")}));
}

TEST(AgreementOnP256, SendsThePointIn66BytesOnCardType5AndIn65OnCardType6) {
    for (const auto& [cardType, command] :
         {std::pair{5, "002A80864200"}, std::pair{6, "002A80864104"}}) {
        PlatformSide card(cardType);
        card.acquireOrFail();
        card.openKey(0);
        card.reader.clearExchanges();
        Bytes blob = OtherParty(card.certificate(0)).blob();
        ASSERT_EQ(blob.size(), 8u + 64u);
        CARD_DH_AGREEMENT_INFO info{};
        info.dwVersion = 2;
        info.dwPublicKey = static_cast<DWORD>(blob.size());
        info.pbPublicKey = blob.data();
        ASSERT_EQ(card.data.pfnCardConstructDHAgreement(&card.data, &info), 0u);
        EXPECT_EQ(journey(card.reader).at(3).substr(0, 12), command);
    }
}

class AgreementIndexes : public ::testing::Test, protected AgreementBase {
protected:
    AgreementIndexes() : AgreementBase(5) {}
};

TEST_F(AgreementIndexes, WrapAt255AndKeepTheOldSecret) {
    card.acquireOrFail();
    card.openKey(0);
    OtherParty first(card.certificate(0));
    OtherParty second(card.certificate(0));
    BYTE index = 0;
    for (int n = 1; n <= 255; ++n) {
        ASSERT_EQ(agree(first.blob(), &index), 0u);
        ASSERT_EQ(index, n);
    }
    ASSERT_EQ(agree(first.blob(), &index), 0u);
    EXPECT_EQ(index, 0);
    // 0 is taken: the new secret is dropped with the same report.
    ASSERT_EQ(agree(second.blob(), &index), 0u);
    EXPECT_EQ(index, 0);
    const Bytes secret = first.secret();
    EXPECT_EQ(derive(0, nullptr).bytes, hashOf("SHA-1", std::string(secret.begin(), secret.end())));
}

}  // namespace
}  // namespace boundary
