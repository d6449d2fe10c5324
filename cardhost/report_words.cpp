#include "report_words.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

namespace cardhost {

namespace {

struct CallMeaning {
    const char* name;
    const char* meaning;
};

constexpr CallMeaning callMeanings[] = {
    {"CardAcquireContext",
     "The driver takes up the card and reads its serial number and certificates"},
    {"CardDeleteContext", "The platform lets the card go"},
    {"CardReadFile", "The platform reads a file, out of the driver's memory"},
    {"CardGetFileInfo", "The platform asks about a file"},
    {"CardEnumFiles", "The platform asks which files there are"},
    {"CardGetProperty", "The platform asks about the card or a PIN"},
    {"CardSetProperty", "The platform sets a property"},
    {"CardGetContainerProperty", "The platform asks which PIN opens a key"},
    {"CardGetContainerInfo", "The platform takes the public key"},
    {"CardQueryCapabilities", "The platform asks what the card can do"},
    {"CardQueryFreeSpace", "The platform asks how much room is left"},
    {"CardQueryKeySizes", "The platform asks for the sizes of keys"},
    {"CardAuthenticateEx", "The user shows the PIN"},
    {"CardAuthenticatePin", "The user shows the PIN"},
    {"CardDeauthenticateEx", "The PIN is forgotten"},
    {"CardSignData", "The card signs"},
    {"CardRSADecrypt", "The card decrypts"},
    {"CardConstructDHAgreement", "The card agrees on a secret"},
    {"CardDeriveKey", "A key is derived from the secret"},
    {"CardDestroyDHAgreement", "The secret is forgotten"},
    {"Query", "This program asks how many tries the PIN has left, which costs none"},
};

struct TagName {
    std::uint32_t tag;
    const char* name;
};

// ISO/IEC 7816-4, tables 10 and 12; X.690, 8.
constexpr TagName tagNames[] = {
    {0x01, "BOOLEAN"},
    {0x02, "INTEGER"},
    {0x03, "BIT STRING"},
    {0x04, "OCTET STRING"},
    {0x05, "NULL"},
    {0x06, "OBJECT IDENTIFIER"},
    {0x0A, "ENUMERATED"},
    {0x0C, "text"},
    {0x13, "text"},
    {0x16, "text"},
    {0x17, "time"},
    {0x18, "time"},
    {0x30, "SEQUENCE"},
    {0x31, "SET"},
    {0x61, "application"},
    {0x62, "file control parameters"},
    {0x6F, "file control information"},
    {0x70, "answer to GET DATA"},
    {0x7F41, "PIN object"},
    {0x9A, "tries at most"},
    {0x9B, "tries left"},
};

// ISO/IEC 7816-4, table 12: only in file control parameters.
constexpr TagName fileTagNames[] = {
    {0x80, "size"},
    {0x81, "size with structure"},
    {0x82, "kind of file"},
    {0x83, "file identifier"},
    {0x84, "name of the application"},
    {0x8A, "state of life"},
};

template <std::size_t size>
std::string nameIn(const TagName (&names)[size], std::uint32_t tag) {
    const auto* row = std::find_if(std::begin(names), std::end(names),
                                   [&](const TagName& name) { return name.tag == tag; });
    return row == std::end(names) ? "" : row->name;
}

constexpr bool isContextSpecific(std::uint32_t tag) {
    return tag <= 0xFF && (tag & 0xC0) == 0x80 && (tag & 0x1F) != 0x1F;
}

bool isPrintable(ByteView value) {
    constexpr std::size_t shortestText = 2;
    return value.size() >= shortestText &&
           std::all_of(value.begin(), value.end(),
                       [](std::uint8_t byte) { return byte >= 0x20 && byte < 0x7F; });
}

std::string objectIdentifier(ByteView value) {
    std::string text;
    std::uint64_t part = 0;
    for (const std::uint8_t byte : value) {
        if (part >> 56 != 0) return {};
        part = part << 7 | (byte & 0x7F);
        if ((byte & 0x80) != 0) continue;
        if (text.empty()) {
            const std::uint64_t first = std::min<std::uint64_t>(part / 40, 2);
            text = fmt::format("{}.{}", first, part - first * 40);
        } else {
            text += fmt::format(".{}", part);
        }
        part = 0;
    }
    return text;
}

}  // namespace

std::string meaningOfCall(const std::string& call) {
    const std::string name = call.substr(0, call.find(' '));
    const auto* row =
        std::find_if(std::begin(callMeanings), std::end(callMeanings),
                     [&](const CallMeaning& meaning) { return name == meaning.name; });
    return row == std::end(callMeanings) ? "" : row->meaning;
}

bool holdsFileParameters(std::uint32_t tag) {
    return tag == 0x62 || tag == 0x6F;
}

std::string nameOfTag(std::uint32_t tag, bool isFileParameter) {
    std::string name = isFileParameter ? nameIn(fileTagNames, tag) : "";
    if (name.empty()) name = nameIn(tagNames, tag);
    if (name.empty() && isContextSpecific(tag)) name = fmt::format("[{}]", tag & 0x1F);
    return name;
}

std::string textOfValue(std::uint32_t tag, ByteView value) {
    switch (tag) {
        case 0x06:
            return objectIdentifier(value);
        case 0x0C:
        case 0x13:
        case 0x16:
        case 0x17:
        case 0x18:
            return std::string(value.begin(), value.end());
        default:
            return isContextSpecific(tag) && isPrintable(value)
                       ? std::string(value.begin(), value.end())
                       : "";
    }
}

}  // namespace cardhost
