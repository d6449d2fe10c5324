#include "doctor/pe_file.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace cardhost::doctor {

namespace {

constexpr std::size_t placeOfHeader = 0x3C;
constexpr std::size_t coffHeaderSize = 20;
constexpr std::size_t sectionHeaderSize = 40;
constexpr std::uint16_t libraryFlag = 0x2000;
constexpr std::uint32_t mostExports = 4096;
constexpr std::size_t longestName = 256;

// Numbers of data directories.
constexpr std::uint32_t exportTable = 0;
constexpr std::uint32_t certificateTable = 4;
constexpr std::uint32_t loadConfiguration = 10;

/// Numbers and texts at places of the file; nothing where it has no such place.
class Reader {
public:
    explicit Reader(ByteView bytes) : bytes_(bytes) {}

    /// Least significant byte first.
    template <typename Number>
    std::optional<Number> number(std::uint64_t place) const {
        if (place > bytes_.size() || bytes_.size() - place < sizeof(Number)) return std::nullopt;
        std::uint64_t value = 0;
        for (std::size_t i = sizeof(Number); i > 0; --i) {
            value = value << 8 | bytes_[static_cast<std::size_t>(place) + i - 1];
        }
        return static_cast<Number>(value);
    }

    /// A text that ends with a zero byte within a sensible length.
    std::optional<std::string> text(std::uint64_t place) const {
        if (place >= bytes_.size()) return std::nullopt;
        const ByteView rest = bytes_.subspan(static_cast<std::size_t>(place));
        const ByteView part = rest.first(std::min(rest.size(), longestName));
        const auto end = std::find(part.begin(), part.end(), std::uint8_t{0});
        if (end == part.end()) return std::nullopt;
        return std::string(part.begin(), end);
    }

private:
    ByteView bytes_;
};

struct Directory {
    std::uint32_t address = 0;
    std::uint32_t size = 0;
};

/// The headers of the file, as far as they make sense.
class Image {
public:
    explicit Image(ByteView file) : reader(file) {
        const auto start = reader.number<std::uint32_t>(placeOfHeader);
        if (reader.number<std::uint16_t>(0) != 0x5A4D || !start ||
            reader.number<std::uint32_t>(*start) != 0x00004550) {
            return;
        }
        coff_ = std::uint64_t{*start} + 4;
        optional_ = coff_ + coffHeaderSize;
        const auto magic = reader.number<std::uint16_t>(optional_);
        isWide_ = magic == 0x20B;
        isValid_ = isWide_ || magic == 0x10B;
    }

    bool isValid() const { return isValid_; }
    bool isWide() const { return isWide_; }
    std::uint16_t machine() const { return reader.number<std::uint16_t>(coff_).value_or(0); }
    bool isLibrary() const {
        return (reader.number<std::uint16_t>(coff_ + 18).value_or(0) & libraryFlag) != 0;
    }

    Directory directory(std::uint32_t number) const {
        const std::uint64_t count = optional_ + (isWide_ ? 108 : 92);
        if (reader.number<std::uint32_t>(count).value_or(0) <= number) return {};
        const std::uint64_t row = count + 4 + 8 * std::uint64_t{number};
        return {reader.number<std::uint32_t>(row).value_or(0),
                reader.number<std::uint32_t>(row + 4).value_or(0)};
    }

    /// The place in the file of the section with this number, from 1 on.
    std::optional<std::uint64_t> placeOfSection(std::uint16_t number) const {
        if (number == 0 || number > reader.number<std::uint16_t>(coff_ + 2).value_or(0)) {
            return std::nullopt;
        }
        return reader.number<std::uint32_t>(sectionRow(number - 1U) + 20);
    }

    /// The place in the file of what is loaded at this address.
    std::optional<std::uint64_t> placeOf(std::uint32_t address) const {
        const auto sections = reader.number<std::uint16_t>(coff_ + 2).value_or(0);
        for (std::uint32_t i = 0; i < sections; ++i) {
            const std::uint64_t row = sectionRow(i);
            const auto start = reader.number<std::uint32_t>(row + 12);
            const auto size = reader.number<std::uint32_t>(row + 16);
            const auto place = reader.number<std::uint32_t>(row + 20);
            if (!start || !size || !place) return std::nullopt;
            if (address >= *start && address - *start < *size) {
                return std::uint64_t{*place} + (address - *start);
            }
        }
        return std::nullopt;
    }

    Reader reader;

private:
    std::uint64_t sectionRow(std::uint32_t index) const {
        return optional_ + reader.number<std::uint16_t>(coff_ + 16).value_or(0) +
               sectionHeaderSize * std::uint64_t{index};
    }

    std::uint64_t coff_ = 0;
    std::uint64_t optional_ = 0;
    bool isWide_ = false;
    bool isValid_ = false;
};

std::vector<std::string> exportsOf(const Image& image) {
    std::vector<std::string> names;
    const auto table = image.placeOf(image.directory(exportTable).address);
    if (!table) return names;
    const auto count = image.reader.number<std::uint32_t>(*table + 24).value_or(0);
    const auto list = image.placeOf(image.reader.number<std::uint32_t>(*table + 32).value_or(0));
    if (!list) return names;
    for (std::uint32_t i = 0; i < std::min(count, mostExports); ++i) {
        const auto address = image.reader.number<std::uint32_t>(*list + 4 * std::uint64_t{i});
        const auto place = address ? image.placeOf(*address) : std::nullopt;
        const auto name = place ? image.reader.text(*place) : std::nullopt;
        if (!name) break;
        names.push_back(*name);
    }
    return names;
}

/// Whether the loader makes a file of another architecture of it on demand: among the relocations
/// that depend on the program there are those of the symbol that stands for this.
bool isHybrid(const Image& image) {
    constexpr std::uint32_t offsetField = 0xE0;   // DynamicValueRelocTableOffset
    constexpr std::uint32_t sectionField = 0xE4;  // DynamicValueRelocTableSection
    constexpr std::uint64_t arm64XSymbol = 6;     // IMAGE_DYNAMIC_RELOCATION_ARM64X
    constexpr std::uint32_t mostEntries = 64;
    const Reader& reader = image.reader;
    if (!image.isWide()) return false;
    const auto configuration = image.placeOf(image.directory(loadConfiguration).address);
    if (!configuration ||
        reader.number<std::uint32_t>(*configuration).value_or(0) < sectionField + 2) {
        return false;
    }
    const auto offset = reader.number<std::uint32_t>(*configuration + offsetField).value_or(0);
    const auto section = reader.number<std::uint16_t>(*configuration + sectionField).value_or(0);
    const auto start = image.placeOfSection(section);
    if (section == 0 || !start) return false;
    const std::uint64_t table = *start + offset;
    if (reader.number<std::uint32_t>(table) != 1) return false;  // of the version known here
    const std::uint64_t end = table + 8 + reader.number<std::uint32_t>(table + 4).value_or(0);
    std::uint64_t entry = table + 8;
    for (std::uint32_t i = 0; i < mostEntries && entry < end; ++i) {
        const auto symbol = reader.number<std::uint64_t>(entry);
        const auto size = reader.number<std::uint32_t>(entry + 8);
        if (!symbol || !size) return false;
        if (*symbol == arm64XSymbol) return true;
        entry += 12 + std::uint64_t{*size};
    }
    return false;
}

Architecture architectureOf(std::uint16_t machine) {
    switch (machine) {
        case 0x014C:
            return Architecture::x86;
        case 0x8664:
            return Architecture::x64;
        case 0xAA64:
            return Architecture::arm64;
        default:
            return Architecture::unknown;
    }
}

}  // namespace

bool PeFacts::exportsName(std::string_view name) const {
    return std::find(exports.begin(), exports.end(), name) != exports.end();
}

PeFacts peFacts(ByteView file) {
    const Image image(file);
    PeFacts facts;
    if (!image.isValid()) return facts;
    facts.isPe = true;
    facts.architecture = architectureOf(image.machine());
    facts.isLibrary = image.isLibrary();
    facts.isArm64X = facts.architecture == Architecture::arm64 && isHybrid(image);
    const Directory certificates = image.directory(certificateTable);
    facts.hasSignature = certificates.address != 0 && certificates.size != 0;
    facts.exports = exportsOf(image);
    return facts;
}

std::string_view architectureName(Architecture architecture) {
    switch (architecture) {
        case Architecture::x86:
            return "x86";
        case Architecture::x64:
            return "x64";
        case Architecture::arm64:
            return "ARM64";
        case Architecture::unknown:
            break;
    }
    return "another architecture";
}

}  // namespace cardhost::doctor
