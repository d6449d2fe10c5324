#include "bytes/tlv_scan.h"

#include <gtest/gtest.h>

#include <random>

#include "support/scripted_card.h"

namespace KelmoraID {
namespace {

using testing::bytes;

ByteVector operator+(ByteVector left, const ByteVector& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

struct Element {
    BYTE tag;
    ByteVector value;
    bool operator==(const Element&) const = default;
};

// All elements that can be read, and what is left then.
std::pair<std::vector<Element>, ByteVector> elementsOf(ByteVector buffer) {
    std::vector<Element> elements;
    for (Element next; readNextElement(buffer, next.tag, next.value);) elements.push_back(next);
    return {elements, buffer};
}

TEST(TlvScan, ReadsElementsFromTheFrontAndRemovesThem) {
    ByteVector buffer = bytes("80 02 AA BB 81 00 30 01 CC");
    BYTE tag = 0;
    ByteVector value;
    EXPECT_TRUE(readNextElement(buffer, tag, value));
    EXPECT_EQ(tag, 0x80);
    EXPECT_EQ(value, bytes("AA BB"));
    EXPECT_EQ(buffer, bytes("81 00 30 01 CC"));
    EXPECT_TRUE(readNextElement(buffer, tag, value));
    EXPECT_EQ(tag, 0x81);
    EXPECT_EQ(value, ByteVector{});
    EXPECT_TRUE(readNextElement(buffer, tag, value));
    EXPECT_EQ(tag, 0x30);
    EXPECT_EQ(value, bytes("CC"));
    EXPECT_EQ(buffer, ByteVector{});
    EXPECT_FALSE(readNextElement(buffer, tag, value));
}

TEST(TlvScan, ReadsTheLengthForms81And82LikeTheShortOne) {
    const std::vector<Element> expected{{0x04, bytes("AA BB")}, {0x05, ByteVector{}}};
    for (const char* text :
         {"04 02 AA BB 05 00", "04 81 02 AA BB 05 81 00", "04 82 00 02 AA BB 05 82 00 00"}) {
        const auto [elements, rest] = elementsOf(bytes(text));
        EXPECT_EQ(elements, expected) << text;
        EXPECT_EQ(rest, ByteVector{}) << text;
    }
}

TEST(TlvScan, ReadsLongValues) {
    for (const auto& [header, size] :
         {std::pair{"04 7F", 127U}, std::pair{"04 81 80", 128U}, std::pair{"04 81 FF", 255U},
          std::pair{"04 82 01 00", 256U}, std::pair{"04 82 FF FF", 65535U}}) {
        const ByteVector value(size, 0x5A);
        EXPECT_EQ(elementsOf(bytes(header) + value).first, (std::vector<Element>{{0x04, value}}));
        // One byte short of its length, there is no element.
        const ByteVector cut(size - 1, 0x5A);
        EXPECT_EQ(elementsOf(bytes(header) + cut).first, std::vector<Element>{});
    }
}

TEST(TlvScan, EndsAtAnyOtherLengthFormAsIfNothingWereThere) {
    for (const int form : {0x80, 0x83, 0x84, 0x85, 0xFF}) {
        ByteVector data = bytes("01 00") + ByteVector{0x04, static_cast<BYTE>(form)};
        data.resize(0x120, 0x00);
        EXPECT_EQ(elementsOf(data).first, (std::vector<Element>{{0x01, ByteVector{}}})) << form;
        ByteVector value = bytes("77");
        EXPECT_FALSE(findElement(data, 0x04, value)) << form;
        EXPECT_EQ(value, ByteVector{}) << form;
        EXPECT_FALSE(findElement(data, 0x00, value)) << form;
    }
}

TEST(TlvScan, EndsAtALengthBeyondTheEndOfTheData) {
    for (const char* text : {"04 03 AA BB", "04 81", "04 81 01", "04 82", "04 82 00", "04 82 00 01",
                             "04 82 FF FF AA", "04 7F"}) {
        ByteVector value = bytes("77");
        EXPECT_FALSE(findElement(bytes(text), 0x04, value)) << text;
        EXPECT_EQ(value, ByteVector{}) << text;
    }
}

TEST(TlvScan, EndsAtASingleByte) {
    const auto [elements, rest] = elementsOf(bytes("04 01 AA 04"));
    EXPECT_EQ(elements, (std::vector<Element>{{0x04, bytes("AA")}}));
    EXPECT_EQ(rest, bytes("04"));
    ByteVector value;
    EXPECT_FALSE(findElement(bytes("04"), 0x04, value));
    EXPECT_FALSE(findElement({}, 0x04, value));
}

TEST(TlvScan, ChangesNothingWhenItReadsNothing) {
    for (const char* text : {"", "04", "04 80 00 00", "04 02 AA"}) {
        ByteVector buffer = bytes(text);
        BYTE tag = 0x99;
        ByteVector value = bytes("77");
        EXPECT_FALSE(readNextElement(buffer, tag, value)) << text;
        EXPECT_EQ(buffer, bytes(text));
        EXPECT_EQ(tag, 0x99);
        EXPECT_EQ(value, bytes("77"));
    }
}

TEST(TlvScan, ReadsAZeroFillerAsEmptyElementsOfTag00) {
    EXPECT_EQ(
        elementsOf(bytes("A8 01 55 00 00 00 00")).first,
        (std::vector<Element>{{0xA8, bytes("55")}, {0x00, ByteVector{}}, {0x00, ByteVector{}}}));
    ByteVector value;
    EXPECT_TRUE(findElement(bytes("A8 01 55 00 00 00 00"), 0x00, value, 2));
    EXPECT_FALSE(findElement(bytes("A8 01 55 00 00 00 00"), 0x00, value, 3));
}

TEST(TlvScan, ReadsATagOfTheHighNumberFormAsOneByte) {
    EXPECT_EQ(elementsOf(bytes("5F 01 AA 1F 00")).first,
              (std::vector<Element>{{0x5F, bytes("AA")}, {0x1F, ByteVector{}}}));
}

TEST(TlvScan, FindsTheOccurrenceAskedFor) {
    const ByteVector data = bytes("02 01 11 30 03 02 01 22 02 01 33 02 01 44");
    ByteVector value;
    EXPECT_TRUE(findElement(data, 0x02, value));
    EXPECT_EQ(value, bytes("11"));
    EXPECT_TRUE(findElement(data, 0x02, value, 2));
    EXPECT_EQ(value, bytes("33"));
    EXPECT_TRUE(findElement(data, 0x02, value, 3));
    EXPECT_EQ(value, bytes("44"));
    EXPECT_FALSE(findElement(data, 0x02, value, 4));
    EXPECT_EQ(value, ByteVector{});
}

TEST(TlvScan, NeverGoesDownIntoAValue) {
    ByteVector value;
    EXPECT_FALSE(findElement(bytes("30 03 02 01 22"), 0x02, value));
    EXPECT_TRUE(findElement(bytes("30 03 02 01 22"), 0x30, value));
    EXPECT_TRUE(findElement(value, 0x02, value));
    EXPECT_EQ(value, bytes("22"));
}

TEST(TlvScan, DoesNotNoticeABrokenElementBehindTheOneWanted) {
    ByteVector value;
    EXPECT_TRUE(findElement(bytes("02 01 11 04 83 00"), 0x02, value));
    EXPECT_EQ(value, bytes("11"));
    EXPECT_FALSE(findElement(bytes("04 83 00 02 01 11"), 0x02, value));
}

// Whatever the bytes: the scan ends, reads within the data, and what it read makes up the data's
// front. A fixed seed, so that a failure comes again.
TEST(TlvScan, TakesAnyBytes) {
    std::mt19937 random(20240229);
    const auto upTo = [&](unsigned most) { return static_cast<unsigned>(random() % (most + 1)); };
    for (int round = 0; round < 20'000; ++round) {
        ByteVector data(upTo(90));
        for (BYTE& byte : data) byte = static_cast<BYTE>(upTo(255));
        // Lengths in reach are rare among random bytes: put small ones in.
        for (std::size_t i = 1; i < data.size(); i += 1 + upTo(7)) {
            static constexpr BYTE forms[] = {0x00, 0x01, 0x02, 0x05, 0x81, 0x82};
            data[i] = forms[upTo(5)];
        }
        ByteVector rest = data;
        std::size_t read = 0;
        Element element;
        while (readNextElement(rest, element.tag, element.value)) {
            const std::size_t size = data.size() - read - rest.size();
            ASSERT_GE(size, element.value.size() + 2);
            ASSERT_LE(size, element.value.size() + 4);
            ASSERT_EQ(element.tag, data[read]);
            ASSERT_TRUE(std::equal(
                element.value.begin(), element.value.end(),
                data.begin() + static_cast<std::ptrdiff_t>(read + size - element.value.size())));
            read += size;
            ASSERT_TRUE(std::equal(rest.begin(), rest.end(),
                                   data.begin() + static_cast<std::ptrdiff_t>(read)));
        }
        // The two operations agree: every element read is found, and no more.
        const auto elements = elementsOf(data).first;
        for (const BYTE tag : {BYTE{0x00}, BYTE{0x30}, static_cast<BYTE>(upTo(255))}) {
            int occurrence = 0;
            ByteVector value;
            for (const Element& each : elements) {
                if (each.tag != tag) continue;
                ASSERT_TRUE(findElement(data, tag, value, ++occurrence));
                ASSERT_EQ(value, each.value);
            }
            ASSERT_FALSE(findElement(data, tag, value, occurrence + 1));
            ASSERT_EQ(value, ByteVector{});
        }
    }
}

}  // namespace
}  // namespace KelmoraID
