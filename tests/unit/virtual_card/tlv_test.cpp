#include "virtual_card/tlv.h"

#include <gmock/gmock.h>

namespace virtual_card {
namespace {

TEST(CardTlv, WritesTheShortestLength) {
    EXPECT_EQ(toHex(tlv(0x04, Bytes{})), "0400");
    EXPECT_EQ(toHex(tlv(0x04, Bytes(0x7F, 0xAA))).substr(0, 6), "047FAA");
    EXPECT_EQ(toHex(tlv(0x04, Bytes(0x80, 0xAA))).substr(0, 8), "048180AA");
    EXPECT_EQ(toHex(tlv(0x04, Bytes(0xFF, 0xAA))).substr(0, 8), "0481FFAA");
    EXPECT_EQ(toHex(tlv(0x04, Bytes(0x100, 0xAA))).substr(0, 10), "04820100AA");
    EXPECT_THROW(tlv(0x04, Bytes(0x10000)), std::length_error);
}

TEST(CardTlv, WritesNumbersWithTheirSign) {
    EXPECT_EQ(toHex(tlvNumber(0x02, 0)), "020100");
    EXPECT_EQ(toHex(tlvNumber(0x02, 127)), "02017F");
    EXPECT_EQ(toHex(tlvNumber(0x80, 130)), "80020082");
    EXPECT_EQ(toHex(tlvNumber(0x02, 3072)), "02020C00");
}

TEST(CardTlv, ReadsElementsOneLevelDeep) {
    auto elements = parseTlvs(fromHex("84 01 82 30 81 03 02 01 05 80 00"));
    ASSERT_TRUE(elements);
    ASSERT_EQ(elements->size(), 3U);
    EXPECT_EQ(elements->at(0).tag, 0x84);
    EXPECT_EQ(toHex(elements->at(1).value), "020105");
    EXPECT_TRUE(elements->at(2).value.empty());
}

TEST(CardTlv, RefusesWhatIsNotElements) {
    for (const char* bytes : {"84", "8402AA", "8480", "8481", "848202AAAA", "840100 80"}) {
        EXPECT_FALSE(parseTlvs(fromHex(bytes))) << bytes;
    }
}

}  // namespace
}  // namespace virtual_card
