// The hash functions by all their names.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "bytes.h"

namespace cardhost {

struct Hash {
    const char* name;  // on this command line and on OpenSSL's
    const char* botanName;
    const char* providerName;  // in padding information and key derivation
    ALG_ID algorithm;          // 0 for none
};

/// The hash with that name, or null.
const Hash* hashNamed(const std::string& name);

/// The names of all hashes.
std::vector<std::string> hashNames();

/// The hash value of a file, read piece by piece; throws a Failure (file) if it cannot be read.
Bytes hashOfFile(const Hash& hash, const std::filesystem::path& file);

}  // namespace cardhost
