// The helpers for texts: conversions, lists, hexadecimal and base64.
#include <cstring>
#include <stdexcept>

#include "bytes/byte_texts.h"
#include "fuzz_target.h"
#include "pairing/service_client.h"
#include "text/text_conversion.h"
#include "text/text_lists.h"

using namespace KelmoraID;

namespace {

void convert(const std::string& text) {
    const WideString wide = utf8ToWide(text);
    fuzz::require(wide.empty() || wide.back() == 0, "a wide text has its terminator");
    const std::string again = wideToUtf8(wide);
    fuzz::require(utf8ToWide(again) == wide, "what was converted once converts back");
    ansiToUtf8(text);
    ansiBytesToUtf8(ByteVector(text.begin(), text.end()));
}

void convertWide(const std::string& text) {
    WideString wide(text.size() / sizeof(WCHAR), WCHAR{});
    std::memcpy(wide.data(), text.data(), wide.size() * sizeof(WCHAR));
    wideToUtf8(wide);
    for (const WideString& part : multiStringToList(wide)) {
        fuzz::require(!part.empty() && part.find(WCHAR{}) == WideString::npos,
                      "a part of a list is a text");
    }
}

void cut(std::string text) {
    const char delimiter = text.empty() ? ';' : text.front();
    const auto parts = splitString(text, delimiter);
    if (!parts.empty()) {
        const std::string joined = joinStrings(parts, std::string(1, delimiter));
        fuzz::require(joined == text || joined + delimiter == text,
                      "parts joined again are the text, but for a delimiter at its end");
    }
    trimBlanks(text);
    fuzz::require(text.empty() || (!std::strchr(" \t\n\v\f\r", text.front()) || text[0] == '\0'),
                  "a trimmed text begins with no blank");
}

void spell(const std::string& text) {
    const ByteVector bytes(text.begin(), text.end());
    fuzz::require(hexToBytes(bytesToHex(bytes)) == bytes, "bytes come back from their digits");
    fuzz::require(hexToString(bytesToHex(bytes)) == text, "a text comes back from its digits");
    bytesToHexSpaced(bytes);
    bytesToLogHex(bytes);
    fuzz::require(encodeBase64(bytes).size() == (bytes.size() + 2) / 3 * 4,
                  "base64 has four characters for three bytes");
    try {
        hexToString(text);
    } catch (const std::invalid_argument&) {  // As documented, for what is no digit.
    }
    try {
        fuzz::require(hexToBytes(text).size() * 2 == text.size(), "two digits are a byte");
    } catch (const std::invalid_argument&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    convert(text);
    convertWide(text);
    cut(text);
    spell(text);
    return 0;
}
