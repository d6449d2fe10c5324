// The pairs of codes and names behind errorName, as constant data: nothing is built at load.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "platform/win32.h"

namespace KelmoraID {

struct ErrorNamePair {
    DWORD code;
    std::string_view name;
};

/// How many pairs there are.
std::size_t errorNameCount();

/// The index-th pair of the published list, in its order; several pairs may have the same code.
/// @param index  below errorNameCount()
ErrorNamePair errorNamePair(std::size_t index);

/// The name of the first pair with that code.
std::optional<std::string_view> findErrorName(DWORD code);

}  // namespace KelmoraID
