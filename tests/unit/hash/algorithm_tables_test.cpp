#include "hash/algorithm_tables.h"

#include <gtest/gtest.h>

namespace KelmoraID {
namespace {

TEST(AlgorithmTables, HoldTheSignatureAlgorithm) {
    ASSERT_EQ(signatureAlgorithmTable.size(), 1U);
    const auto& [key, info] = signatureAlgorithmTable[0];
    EXPECT_EQ(key, 2U);
    EXPECT_EQ(info.name, "DST_RSASSA_PKCS1_v1_5");
    EXPECT_EQ(info.reference, 2U);
    EXPECT_EQ(info.bits, 3072U);
}

TEST(AlgorithmTables, HoldTheThreeHashAlgorithmsInTheOrderOfTheirNames) {
    struct {
        const char* name;
        std::uint32_t reference;
        std::uint32_t bits;
    } expected[] = {{"SHA-256", 0x40, 256}, {"SHA-384", 0x50, 384}, {"SHA-512", 0x60, 512}};
    ASSERT_EQ(hashAlgorithmTable.size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        const auto& [key, info] = hashAlgorithmTable[i];
        EXPECT_EQ(key, expected[i].name);
        EXPECT_EQ(info.name, expected[i].name);
        EXPECT_EQ(info.reference, expected[i].reference);
        EXPECT_EQ(info.bits, expected[i].bits);
    }
}

}  // namespace
}  // namespace KelmoraID
