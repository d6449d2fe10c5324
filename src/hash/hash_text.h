// Digests by algorithm name, through Botan. Held ready: no operation of the minidriver calls it.
#pragma once

#include <string>

#include "bytes/byte_vector.h"

namespace KelmoraID {

/// Makes digests by the name of the hash algorithm, as Botan's factory knows it ("SHA-256").
class HashText {
public:
    /// @throws std::runtime_error "Hash algorithm not found: " followed by the name; Botan's own
    ///         exceptions, all derived from std::exception, for an empty name and for one that it
    ///         cannot take apart, such as one with an open bracket
    static ByteVector digest(const std::string& algorithm, const std::string& text);
    static ByteVector digest(const std::string& algorithm, const ByteVector& bytes);

    /// The same as upper-case hexadecimal text.
    static std::string hexDigest(const std::string& algorithm, const std::string& text);
    static std::string hexDigest(const std::string& algorithm, const ByteVector& bytes);
};

}  // namespace KelmoraID
