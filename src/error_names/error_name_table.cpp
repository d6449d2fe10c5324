#include "error_names/error_name_table.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace KelmoraID {
namespace {

// Places instead of pointers to the names: pointers would have to be relocated at load.
struct ErrorNameRow {
    std::uint32_t code;
    std::uint16_t block;
    std::uint16_t offset;
};

#include "error_names/error_name_table.inc"

consteval bool sortedWithTheFirstPairAhead() {
    for (std::size_t i = 1; i < std::size(errorNamesByCode); ++i) {
        const std::uint32_t before = errorNameRows[errorNamesByCode[i - 1]].code;
        const std::uint32_t code = errorNameRows[errorNamesByCode[i]].code;
        if (before > code) return false;
        if (before == code && errorNamesByCode[i - 1] >= errorNamesByCode[i]) return false;
    }
    return true;
}

static_assert(std::size(errorNameRows) == 6381);
static_assert(std::size(errorNamesByCode) == std::size(errorNameRows));
static_assert(sortedWithTheFirstPairAhead());

}  // namespace

std::size_t errorNameCount() {
    return std::size(errorNameRows);
}

ErrorNamePair errorNamePair(std::size_t index) {
    const ErrorNameRow& row = errorNameRows[index];
    return {row.code, errorNameBlocks[row.block] + row.offset};
}

std::optional<std::string_view> findErrorName(DWORD code) {
    const auto found = std::lower_bound(
        std::begin(errorNamesByCode), std::end(errorNamesByCode), code,
        [](std::uint16_t index, DWORD wanted) { return errorNameRows[index].code < wanted; });
    if (found == std::end(errorNamesByCode) || errorNameRows[*found].code != code) return {};
    return errorNamePair(*found).name;
}

}  // namespace KelmoraID
