// The sizes asked of the platform's allocator for what passes to the caller: those of the content,
// neither more nor less. Signatures and derived keys are looked at in their own tests.
#include <gtest/gtest.h>

#include "platform/wide_text.h"
#include "session/entry_points.h"
#include "support/acquired_card.h"

namespace KelmoraID {
namespace {

using testing::AcquiredCard;
using testing::PlatformRecord;
using Sizes = std::vector<std::size_t>;

class AllocationSizes : public ::testing::Test {
protected:
    AllocationSizes() { PlatformRecord::takeAllocatedSizes(); }

    AcquiredCard card{CardType::type5};
};

TEST_F(AllocationSizes, AreThoseOfTheFiles) {
    struct Row {
        const char* directory;
        const char* file;
        std::size_t size;
    };
    const Row rows[] = {
        {nullptr, "cardid", 16},
        {nullptr, "cardcf", 6},
        {nullptr, "cardapps", 8},
        {"mscp", "cmapfile", 3 * 86},
        {"mscp", "kxc00", card.context->authCert->cbCertEncoded},
        {"mscp", "ksc01", card.context->signCert->cbCertEncoded},
        {"mscp", "ksc02", card.context->secondSignCert->cbCertEncoded},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        PBYTE content = nullptr;
        DWORD size = 0;
        ASSERT_EQ(CardReadFile(card.data(), const_cast<LPSTR>(row.directory),
                               const_cast<LPSTR>(row.file), 0, &content, &size),
                  0u);
        EXPECT_EQ(size, row.size);
        EXPECT_EQ(PlatformRecord::takeAllocatedSizes(), Sizes{row.size});
        card.data()->pfnCspFree(content);
    }
}

TEST_F(AllocationSizes, AreThoseOfTheListings) {
    for (const auto& [directory, size] :
         {std::pair<const char*, std::size_t>{nullptr, 24}, {"mscp", 28}}) {
        LPSTR names = nullptr;
        DWORD told = 0;
        ASSERT_EQ(CardEnumFiles(card.data(), const_cast<LPSTR>(directory), &names, &told, 0), 0u);
        EXPECT_EQ(told, size);
        EXPECT_EQ(PlatformRecord::takeAllocatedSizes(), Sizes{size});
        card.data()->pfnCspFree(names);
    }
}

TEST_F(AllocationSizes, AreThoseOfTheProperties) {
    struct Row {
        LPCWSTR name;
        DWORD flags;
        std::size_t size;
    };
    const Row rows[] = {
        {WIDE_TEXT("Free Space"), 0, sizeof(CARD_FREE_SPACE_INFO)},
        {WIDE_TEXT("Capabilities"), 0, sizeof(CARD_CAPABILITIES)},
        {WIDE_TEXT("Key Sizes"), 1, sizeof(CARD_KEY_SIZES)},
        {WIDE_TEXT("Read Only Mode"), 0, 4},
        {WIDE_TEXT("Card Identifier"), 0, 16},
        {WIDE_TEXT("PIN Information"), 1, sizeof(PIN_INFO)},
        {WIDE_TEXT("Algorithms"), 1, 20},
        {WIDE_TEXT("Algorithms"), 2, 2},
        {WIDE_TEXT("Chaining Modes"), 1, 34},
    };
    for (const Row& row : rows) {
        BYTE answer[64];
        DWORD size = 0;
        ASSERT_EQ(CardGetProperty(card.data(), row.name, answer, sizeof answer, &size, row.flags),
                  0u);
        EXPECT_EQ(size, row.size);
        EXPECT_EQ(PlatformRecord::takeAllocatedSizes(), Sizes{row.size});
    }
}

TEST_F(AllocationSizes, AreThoseOfThePublicKeys) {
    // A header of 8 bytes, X and Y on P-256 and on P-384; headers of 20 bytes and a modulus.
    const std::size_t sizes[] = {8 + 64, 20 + 256, 8 + 96};
    for (BYTE container = 0; container < 3; ++container) {
        CONTAINER_INFO info{};
        ASSERT_EQ(CardGetContainerInfo(card.data(), container, 0, &info), 0u);
        EXPECT_EQ(container == 0 ? info.cbKeyExPublicKey : info.cbSigPublicKey, sizes[container]);
        EXPECT_EQ(PlatformRecord::takeAllocatedSizes(), Sizes{sizes[container]});
        card.data()->pfnCspFree(container == 0 ? info.pbKeyExPublicKey : info.pbSigPublicKey);
    }
}

}  // namespace
}  // namespace KelmoraID
