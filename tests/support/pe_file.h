// Library files of Windows, made field by field.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KelmoraID::testing {

/// A library file with one section that is loaded at 0x1000.
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
    std::vector<std::uint8_t> bytes;
};

}  // namespace KelmoraID::testing
