// One exchange with a directory service over HTTP or HTTPS, on the caller's thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "pairing/service_url.h"
#include "platform/wide_text.h"

namespace KelmoraID {

/// How long an exchange may take from the sending of the request on: the sum of its four time-outs.
/// A server that keeps each of them, but sends its reply byte by byte, is held to it between reads.
inline constexpr std::chrono::milliseconds exchangeBudget{3000 + 3000 + 4000 + 6000};

using ExchangeClock = std::function<std::chrono::steady_clock::time_point()>;

/// Sends a POST to the path /registercard and reads the reply to its end. Nothing of the reply is
/// kept, and its HTTP status is not looked at. Chunks of more than 4000 bytes are refused, and so
/// is any further chunk from 4001 bytes on in all.
/// @param host   its NUL-terminated form is used
/// @param body   goes out up to its first NUL
/// @param debug  whether the gated lines are written
/// @param now    the clock of exchangeBudget
/// @return whether the reply was read to its end
bool postToService(ServiceScheme scheme, const WideString& host, std::uint16_t port,
                   const std::string& body, bool debug,
                   const ExchangeClock& now = std::chrono::steady_clock::now);

}  // namespace KelmoraID
