#include "hash/hash_text.h"

#include <botan/hash.h>
#include <botan/hex.h>

#include <stdexcept>

namespace KelmoraID {
namespace {

ByteVector digestOf(const std::string& algorithm, const BYTE* data, std::size_t length) {
    const auto hash = Botan::HashFunction::create(algorithm, "");
    if (!hash) throw std::runtime_error("Hash algorithm not found: " + algorithm);
    hash->update(data, length);
    Botan::secure_vector<BYTE> buffer(hash->output_length());
    hash->final(buffer.data());
    return {buffer.begin(), buffer.end()};
}

}  // namespace

ByteVector HashText::digest(const std::string& algorithm, const std::string& text) {
    return digestOf(algorithm, reinterpret_cast<const BYTE*>(text.data()), text.size());
}

ByteVector HashText::digest(const std::string& algorithm, const ByteVector& bytes) {
    return digestOf(algorithm, bytes.data(), bytes.size());
}

std::string HashText::hexDigest(const std::string& algorithm, const std::string& text) {
    return Botan::hex_encode(digest(algorithm, text));
}

std::string HashText::hexDigest(const std::string& algorithm, const ByteVector& bytes) {
    return Botan::hex_encode(digest(algorithm, bytes));
}

}  // namespace KelmoraID
