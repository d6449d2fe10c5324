#include "doctor/pe_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "support/pe_file.h"

namespace cardhost::doctor {
namespace {

using KelmoraID::testing::PeFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Row {
    std::uint16_t machine;
    bool isWide;
    Architecture architecture;
};

TEST(PeFile, TellsItsArchitecture) {
    for (const Row& row :
         {Row{0x014C, false, Architecture::x86}, Row{0x8664, true, Architecture::x64},
          Row{0xAA64, true, Architecture::arm64}, Row{0x01C4, false, Architecture::unknown}}) {
        const PeFacts facts = peFacts(PeFile(row.machine, row.isWide).bytes);
        EXPECT_TRUE(facts.isPe);
        EXPECT_TRUE(facts.isLibrary);
        EXPECT_EQ(facts.architecture, row.architecture);
        EXPECT_FALSE(facts.isArm64X);
        EXPECT_FALSE(facts.hasSignature);
        EXPECT_THAT(facts.exports, IsEmpty());
    }
}

TEST(PeFile, TellsAProgramFromALibrary) {
    PeFile file(0x8664, true);
    file.put16(PeFile::header + 22, 0x0002);
    EXPECT_FALSE(peFacts(file.bytes).isLibrary);
}

TEST(PeFile, TellsItsExports) {
    for (const bool isWide : {false, true}) {
        PeFile file(0x8664, isWide);
        file.addExports({"CardAcquireContext", "DllMain"});
        const PeFacts facts = peFacts(file.bytes);
        EXPECT_THAT(facts.exports, ElementsAre("CardAcquireContext", "DllMain"));
        EXPECT_TRUE(facts.exportsName("DllMain"));
        EXPECT_FALSE(facts.exportsName("Card"));
    }
}

TEST(PeFile, TellsThatItHasASignature) {
    PeFile file(0x8664, true);
    file.setDirectory(4, 0x700, 0x80);
    EXPECT_TRUE(peFacts(file.bytes).hasSignature);
}

TEST(PeFile, TellsAFileForTwoKindsOfProgram) {
    constexpr std::uint8_t arm64X = 6;
    PeFile file(0xAA64, true);
    file.addLoadConfiguration(0x140, arm64X);
    EXPECT_TRUE(peFacts(file.bytes).isArm64X);
    file.addLoadConfiguration(0x140, 5);
    EXPECT_FALSE(peFacts(file.bytes).isArm64X) << "a relocation for another purpose";
    file.addLoadConfiguration(0xE4, arm64X);
    EXPECT_FALSE(peFacts(file.bytes).isArm64X) << "the field lies behind the configuration's end";
    file.addLoadConfiguration(0x140, arm64X);
    file.put32(0x500, 2);
    EXPECT_FALSE(peFacts(file.bytes).isArm64X) << "a table of an unknown version";
    file.put32(0x500, 1);
    for (const int section : {0, 2, 0xFFFF}) {
        file.put16(0x600 + 0xE4, static_cast<std::uint16_t>(section));
        EXPECT_FALSE(peFacts(file.bytes).isArm64X) << "there is no section " << section;
    }
    PeFile x64(0x8664, true);
    x64.addLoadConfiguration(0x140, arm64X);
    EXPECT_FALSE(peFacts(x64.bytes).isArm64X);
}

TEST(PeFile, IsNoneOfOtherBytes) {
    EXPECT_FALSE(peFacts({}).isPe);
    EXPECT_FALSE(peFacts(Bytes(5000, 0xFF)).isPe);
    Bytes elf(200);
    elf[0] = 0x7F;
    EXPECT_FALSE(peFacts(elf).isPe);
    PeFile wrongMagic(0x8664, true);
    wrongMagic.put16(PeFile::optional, 0x107);
    EXPECT_FALSE(peFacts(wrongMagic.bytes).isPe);
}

TEST(PeFile, IsReadWhereverItIsCut) {
    PeFile file(0xAA64, true);
    file.addExports({"CardAcquireContext"});
    file.addLoadConfiguration(0x140, 6);
    for (std::size_t length = 0; length < file.bytes.size(); ++length) {
        const Bytes cut(file.bytes.begin(),
                        file.bytes.begin() + static_cast<std::ptrdiff_t>(length));
        const PeFacts facts = peFacts(cut);
        EXPECT_EQ(facts.isPe, length >= PeFile::optional + 2) << length;
    }
}

TEST(PeFile, BoundsWhatAHostileFileStates) {
    PeFile file(0x8664, true);
    file.addExports({"A"});
    file.put32(0x400 + 24, 0xFFFFFFFF);
    EXPECT_LE(peFacts(file.bytes).exports.size(), 4096U);
    std::mt19937 random(1);
    for (int round = 0; round < 2000; ++round) {
        PeFile spoilt(0xAA64, true);
        spoilt.addExports({"CardAcquireContext"});
        spoilt.addLoadConfiguration(0x140, 6);
        for (int i = 0; i < 6; ++i) {
            spoilt.bytes[random() % 0x640] = static_cast<std::uint8_t>(random());
        }
        EXPECT_LE(peFacts(spoilt.bytes).exports.size(), 4096U);
    }
}

}  // namespace
}  // namespace cardhost::doctor
