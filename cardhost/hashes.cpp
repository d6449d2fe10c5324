#include "hashes.h"

#include <array>
#include <fstream>

#include <botan/hash.h>

#include "files.h"

namespace cardhost {

namespace {

constexpr std::array<Hash, 5> hashes = {{
    {"sha1", "SHA-1", "SHA1", CALG_SHA1},
    {"sha224", "SHA-224", "SHA224", 0},
    {"sha256", "SHA-256", "SHA256", CALG_SHA_256},
    {"sha384", "SHA-384", "SHA384", CALG_SHA_384},
    {"sha512", "SHA-512", "SHA512", CALG_SHA_512},
}};

}  // namespace

const Hash* hashNamed(const std::string& name) {
    for (const Hash& hash : hashes) {
        if (name == hash.name) return &hash;
    }
    return nullptr;
}

std::vector<std::string> hashNames() {
    std::vector<std::string> names;
    for (const Hash& hash : hashes) names.emplace_back(hash.name);
    return names;
}

Bytes hashOfFile(const Hash& hash, const std::filesystem::path& file) {
    const auto function = Botan::HashFunction::create_or_throw(hash.botanName);
    forEachPiece(file, [&](ByteView piece) { function->update(piece.data(), piece.size()); });
    Bytes value(function->output_length());
    function->final(value.data());
    return value;
}

}  // namespace cardhost
