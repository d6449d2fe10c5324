// The client of the directory services: their configured addresses, and one request to one of them.
#pragma once

#include <string>
#include <vector>

#include "bytes/byte_vector.h"

namespace KelmoraID {

/// Base64 (RFC 4648, section 4) on one line.
/// @return the text; empty when the platform fails, with a line on the ERROR channel
std::string encodeBase64(const ByteVector& bytes);

/// The base URLs of the registry's setting, in their order and as they stand there.
/// @return the parts of the setting between semicolons; empty when it is missing
std::vector<std::string> readServiceAddresses();

/// Sends the body to the service at the URL.
/// @param type   "Post", or "Get" with an empty body; both go out as POST
/// @param url    as parseServiceUrl takes it
/// @param body   a JSON text; goes out up to its first NUL
/// @param debug  whether the gated lines are written
/// @return whether the reply was read to its end, whatever its HTTP status
/// @throws std::invalid_argument, std::out_of_range when the URL's port is no number
bool sendServiceRequest(const std::string& type, const std::string& url, const std::string& body,
                        bool debug);

/// One gated line for each part, with its index.
void logVectorParts(const std::vector<std::string>& parts, bool debug);

}  // namespace KelmoraID
