#include "doctor/pe_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

namespace cardhost::doctor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A library file made field by field, with one section that is loaded at 0x1000.
class PeFile {
public:
    PeFile(std::uint16_t machine, bool isWide) : isWide_(isWide), bytes(0x800) {
        put16(0, 0x5A4D);
        put32(0x3C, header);
        put32(header, 0x00004550);
        put16(header + 4, machine);
        put16(header + 6, 1);                    // sections
        put16(header + 20, isWide ? 240 : 224);  // size of the optional header
        put16(header + 22, 0x2000);              // a library
        put16(optional, isWide ? 0x20B : 0x10B);
        put32(directories() - 4, 16);
        const std::size_t section = optional + (isWide ? 240 : 224);
        put32(section + 12, 0x1000);  // loaded at
        put32(section + 16, 0x400);   // bytes in the file
        put32(section + 20, 0x400);   // place in the file
    }

    void addExports(const std::vector<std::string>& names) {
        setDirectory(0, 0x1000, 40);
        put32(0x400 + 24, static_cast<std::uint32_t>(names.size()));
        put32(0x400 + 32, 0x1040);
        std::uint32_t place = 0x10C0;
        for (std::size_t i = 0; i < names.size(); ++i) {
            put32(0x440 + 4 * i, place);
            std::copy(names[i].begin(), names[i].end(), bytes.begin() + place - 0x1000 + 0x400);
            place += static_cast<std::uint32_t>(names[i].size()) + 1;
        }
    }

    /// With a table of relocations whose second entry is of that symbol.
    void addLoadConfiguration(std::uint32_t size, std::uint8_t symbol) {
        setDirectory(10, 0x1200, size);
        put32(0x600, size);
        put32(0x600 + 0xE0, 0x100);  // the table's place in its section
        put16(0x600 + 0xE4, 1);      // the section
        put32(0x500, 1);             // version
        put32(0x504, 28);            // bytes behind these eight
        put32(0x508, 3);             // a symbol, with four bytes of its own
        put32(0x510, 4);
        put32(0x518, symbol);
        put32(0x520, 0);
    }

    void setDirectory(std::size_t number, std::uint32_t address, std::uint32_t size) {
        put32(directories() + 8 * number, address);
        put32(directories() + 8 * number + 4, size);
    }

    void put16(std::size_t place, std::uint16_t value) {
        bytes[place] = static_cast<std::uint8_t>(value);
        bytes[place + 1] = static_cast<std::uint8_t>(value >> 8);
    }
    void put32(std::size_t place, std::uint32_t value) {
        put16(place, static_cast<std::uint16_t>(value));
        put16(place + 2, static_cast<std::uint16_t>(value >> 16));
    }

    static constexpr std::uint32_t header = 0x80;
    static constexpr std::size_t optional = header + 24;

private:
    std::size_t directories() const { return optional + (isWide_ ? 112 : 96); }

    bool isWide_;

public:
    Bytes bytes;
};

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
