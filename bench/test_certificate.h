// A certificate of any size for the virtual card.
#pragma once

#include <string>

namespace bench {

/// A certificate (RFC 5280, 4.1) of exactly that many bytes, from 400 on, as PEM: the fields of a
/// test certificate without their extensions, and as its signature as many zeros as it takes.
/// Nobody verifies it.
std::string certificateOfSize(std::size_t size);

}  // namespace bench
