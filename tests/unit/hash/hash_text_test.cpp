#include "hash/hash_text.h"

#include <botan/exceptn.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/scripted_card.h"

namespace KelmoraID {
namespace {

using testing::bytes;

struct Vector {
    const char* algorithm;
    const char* text;
    const char* digest;
};

// FIPS 180-4 and RFC 1321, A.5: the examples of the empty text, "abc" and two blocks.
constexpr const char* twoBlocks = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
constexpr Vector vectors[] = {
    {"SHA-256", "", "E3B0C44298FC1C149AFBF4C8996FB92427AE41E4649B934CA495991B7852B855"},
    {"SHA-256", "abc", "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD"},
    {"SHA-256", twoBlocks, "248D6A61D20638B8E5C026930C3E6039A33CE45964FF2167F6ECEDD419DB06C1"},
    {"SHA-384", "abc",
     "CB00753F45A35E8BB5A03D699AC65007272C32AB0EDED1631A8B605A43FF5BED"
     "8086072BA1E7CC2358BAECA134C825A7"},
    {"SHA-512", "abc",
     "DDAF35A193617ABACC417349AE20413112E6FA4E89A97EA20A9EEEE64B55D39A"
     "2192992A274FC1A836BA3C23A3FEEBBD454D4423643CE80E2A9AC94FA54CA49F"},
    {"SHA-1", "abc", "A9993E364706816ABA3E25717850C26C9CD0D89D"},
    {"MD5", "abc", "900150983CD24FB0D6963F7D28E17F72"},
};

TEST(HashText, GivesThePublishedDigests) {
    for (const Vector& vector : vectors) {
        SCOPED_TRACE(std::string(vector.algorithm) + " of '" + vector.text + "'");
        const std::string text = vector.text;
        const ByteVector data(text.begin(), text.end());
        EXPECT_EQ(HashText::digest(vector.algorithm, text), bytes(vector.digest));
        EXPECT_EQ(HashText::digest(vector.algorithm, data), bytes(vector.digest));
        EXPECT_EQ(HashText::hexDigest(vector.algorithm, text), vector.digest);
        EXPECT_EQ(HashText::hexDigest(vector.algorithm, data), vector.digest);
    }
}

TEST(HashText, TakesATextWithNulsWhole) {
    EXPECT_EQ(HashText::hexDigest("SHA-256", std::string("\0", 1)),
              "6E340B9CFFB37A989CA544E6BB780A2C78901D3FB33738768511A30617AFA01D");
}

TEST(HashText, NamesTheAlgorithmThatIsNotThere) {
    for (const std::string name : {"SHA-257", "sha 256"}) {
        SCOPED_TRACE("'" + name + "'");
        const auto expectRefusal = [&](auto digest) {
            try {
                digest();
                FAIL() << "nothing was thrown";
            } catch (const std::runtime_error& exception) {
                EXPECT_EQ(exception.what(), "Hash algorithm not found: " + name);
            }
        };
        const std::string text = "abc";
        expectRefusal([&] { HashText::digest(name, text); });
        expectRefusal([&] { HashText::digest(name, bytes("616263")); });
        expectRefusal([&] { HashText::hexDigest(name, text); });
        expectRefusal([&] { HashText::hexDigest(name, bytes("616263")); });
    }
}

// Botan takes a name apart ahead of its search, with exceptions of its own.
TEST(HashText, PassesBotansExceptionForAnEmptyNameAndOneThatCannotBeTakenApart) {
    for (const std::string name : {"", "SHA-3(", "SHA-3(256", "Parallel(SHA-256"}) {
        SCOPED_TRACE(name);
        EXPECT_THROW(HashText::digest(name, std::string("abc")), Botan::Exception);
        EXPECT_THROW(HashText::hexDigest(name, std::string("abc")), Botan::Exception);
    }
}

}  // namespace
}  // namespace KelmoraID
