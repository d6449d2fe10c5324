// The address of a directory service, in the one narrow form that is accepted.
#pragma once

#include <cstdint>
#include <string>

#include "platform/wide_text.h"

namespace KelmoraID {

enum class ServiceScheme : std::uint32_t { http = 1, https = 2 };

/// Takes "scheme://host:port" apart. There is no default port, and no form for an IPv6 literal.
/// What stands behind the port's digits, such as a path, is dropped without a word.
/// @param url     the address
/// @param scheme  written from the second check on, host from the fourth, port on success only
/// @param host    with the terminator that the conversion to wide text leaves
/// @param debug   whether the reason of a refusal is written on the DEBUG channel
/// @return whether the address has the form
/// @throws std::invalid_argument, std::out_of_range as std::stoi does, when the port is no number
bool parseServiceUrl(const std::string& url, ServiceScheme& scheme, WideString& host,
                     std::uint16_t& port, bool debug);

}  // namespace KelmoraID
