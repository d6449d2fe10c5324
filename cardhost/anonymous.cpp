#include "anonymous.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>

#include <botan/bigint.h>
#include <botan/ec_group.h>

#include "tlv.h"

namespace cardhost {

namespace {

using recording::Exchange;
using Span = std::span<std::uint8_t>;

// Tags of DER (X.690).
constexpr std::uint8_t tagInteger = 0x02;
constexpr std::uint8_t tagBitString = 0x03;
constexpr std::uint8_t tagOctetString = 0x04;
constexpr std::uint8_t tagObjectIdentifier = 0x06;
constexpr std::uint8_t tagUtf8String = 0x0C;
constexpr std::uint8_t tagNumericString = 0x12;
constexpr std::uint8_t tagUniversalString = 0x1C;
constexpr std::uint8_t tagBmpString = 0x1E;
constexpr std::uint8_t tagUtcTime = 0x17;
constexpr std::uint8_t tagGeneralizedTime = 0x18;
constexpr std::uint8_t tagSequence = 0x30;
constexpr std::uint8_t constructed = 0x20;
constexpr std::uint8_t contextSpecific = 0x80;

// Shorter values tell nobody apart, and would be found everywhere.
constexpr std::size_t shortestTelling = 4;
// As far as a certificate can be told by: its own header, and the tag of what is signed.
constexpr std::size_t shortestCertificate = 5;
constexpr int deepest = 16;

struct Replacement {
    Bytes from;
    Bytes to;
};

/// An element at the front of some bytes; of one that was cut, what is there of it.
struct Element {
    std::uint8_t tag = 0;
    Span value;
    Span rest;
    bool isWhole = false;
};

bool readElement(Span bytes, Element& element) {
    const auto read = readTlv(bytes);
    if (!read || read->tag > 0xFF) return false;
    element = {static_cast<std::uint8_t>(read->tag),
               bytes.subspan(read->header, read->value.size()), bytes.subspan(read->size()),
               read->isWhole};
    return true;
}

/// Whether bytes are one whole element, and so may have elements in them.
bool isOneElement(Span bytes) {
    const auto element = readTlv(bytes);
    return element && element->isWhole && element->size() == bytes.size();
}

/// The first of the month, at midnight.
void roundTime(Span time, std::size_t monthEnd) {
    constexpr char first[] = "01000000";
    for (std::size_t i = 0; i + 1 < sizeof(first) && monthEnd + i < time.size(); ++i) {
        if (std::isdigit(time[monthEnd + i]) != 0) {
            time[monthEnd + i] = static_cast<std::uint8_t>(first[i]);
        }
    }
}

void blankText(Span text, bool isWide = false) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        text[at] = isWide && at % 2 == 0 ? std::uint8_t{0} : std::uint8_t{'X'};
    }
}

void blankBytes(Span bytes) {
    std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
}

void keep(std::vector<Replacement>& replacements, const Bytes& before, Span after) {
    if (before.size() < shortestTelling) return;
    Bytes to(after.begin(), after.end());
    if (to != before) replacements.push_back({before, std::move(to)});
}

class CertificateBlanker {
public:
    explicit CertificateBlanker(std::vector<Replacement>& replacements)
        : replacements_(replacements) {}

    void blank(Span certificate) {
        Element whole;
        if (!readElement(certificate, whole)) return;
        // To be signed, algorithm, signature (RFC 5280, 4.1).
        Element tbs;
        if (!readElement(whole.value, tbs)) return;
        blankToBeSigned(tbs.value);
        blankAll(tbs.rest, 0);
    }

private:
    void blankToBeSigned(Span bytes) {
        // Version, serial number, algorithm, issuer, and the rest.
        constexpr int serialNumber = 1;
        constexpr int issuer = 3;
        int place = !bytes.empty() && bytes[0] == (contextSpecific | constructed) ? 0 : 1;
        for (Element element; readElement(bytes, element); bytes = element.rest, ++place) {
            if (place == serialNumber && element.value.size() < shortestTelling) {
                // Too short to be looked for elsewhere.
                std::fill(element.value.begin(), element.value.end(), std::uint8_t{1});
            } else if (place != issuer) {
                blankOne(element, 0);
            }
        }
    }

    void blankAll(Span bytes, int depth) {
        for (Element element; depth < deepest && readElement(bytes, element);
             bytes = element.rest) {
            blankOne(element, depth);
        }
    }

    void blankOne(const Element& element, int depth) {
        const Span value = element.value;
        const Bytes before(value.begin(), value.end());
        switch (element.tag) {
            case 0x01:  // BOOLEAN
            case 0x05:  // NULL
            case tagObjectIdentifier:
            case 0x0A:  // ENUMERATED
                return;
            case tagInteger:
                if (value.size() < shortestTelling) return;
                // An odd and positive number, as an RSA modulus has to be.
                std::fill(value.begin(), value.end(), std::uint8_t{0x55});
                if (before[0] == 0) {
                    value[0] = 0;
                    value[1] = 0xD5;
                }
                break;
            case tagBitString:
                return blankBitString(element, depth);
            case tagOctetString:
                if (isOneElement(value)) return blankAll(value, depth + 1);
                std::fill(value.begin(), value.end(), std::uint8_t{0});
                break;
            case tagUtcTime:
                roundTime(value, 4);
                return;
            case tagGeneralizedTime:
                roundTime(value, 6);
                return;
            default:
                if ((element.tag & constructed) != 0) return blankAll(value, depth + 1);
                // Countries have two letters.
                if (value.size() <= 2 && element.isWhole && (element.tag & contextSpecific) == 0) {
                    return;
                }
                blankText(value, element.tag == tagBmpString);
                break;
        }
        keep(replacements_, before, value);
    }

    void blankBitString(const Element& element, int depth) {
        const Span value = element.value;
        if (value.size() <= shortestTelling) return;  // key usages
        const Span content = value.subspan(1);
        if (isOneElement(content) && content[0] == tagSequence) return blankAll(content, depth + 1);
        const Bytes before(content.begin(), content.end());
        if (!element.isWhole || !becomeBasePoint(content)) {
            std::fill(content.begin(), content.end(), std::uint8_t{0});
        }
        keep(replacements_, before, content);
    }

    /// An uncompressed point becomes the one that everybody has: the curve's base point.
    static bool becomeBasePoint(Span point) {
        const char* curve = point.size() == 65    ? "secp256r1"
                            : point.size() == 97  ? "secp384r1"
                            : point.size() == 133 ? "secp521r1"
                                                  : nullptr;
        if (curve == nullptr || point[0] != 0x04) return false;
        const Botan::EC_Group group(curve);
        const std::size_t length = group.get_p_bytes();
        group.get_g_x().binary_encode(point.data() + 1, length);
        group.get_g_y().binary_encode(point.data() + 1 + length, length);
        return true;
    }

    std::vector<Replacement>& replacements_;
};

/// What the files about the card's objects say of the card and of its holder (ISO/IEC 7816-15).
class ObjectFileBlanker {
public:
    explicit ObjectFileBlanker(std::vector<Replacement>& replacements)
        : replacements_(replacements) {}

    void blank(Span file) {
        Element info;
        Element version;
        if (readElement(file, info) && info.tag == tagSequence &&
            readElement(info.value, version) && version.tag == tagInteger &&
            version.value.size() == 1) {
            return blankInfo(version.rest);
        }
        blankDirectory(file);
    }

private:
    static bool isText(std::uint8_t tag) {
        return tag == tagUtf8String || tag == tagBmpString ||
               (tag >= tagNumericString && tag <= tagUniversalString && tag != tagUtcTime &&
                tag != tagGeneralizedTime);
    }

    static bool isPrimitiveContext(std::uint8_t tag) {
        return (tag & (contextSpecific | 0x40 | constructed)) == contextSpecific;
    }

    /// EF.CIAInfo (8.10), behind the version. The manufacturer stays, and all that is no text, no
    /// bytes and no time.
    void blankInfo(Span bytes) {
        bool hasManufacturer = false;
        for (Element element; readElement(bytes, element); bytes = element.rest) {
            if (element.tag == tagUtf8String && !hasManufacturer) {
                hasManufacturer = true;
            } else if (element.tag == tagOctetString) {
                blankSerialNumber(element.value);
            } else {
                blankInfoElement(element, element.tag, 0);
            }
        }
    }

    /// `part` is the tag at the top of what the element is in.
    void blankInfoElement(const Element& element, std::uint8_t part, int depth) {
        constexpr std::uint8_t recordInformation = 0xA1;
        constexpr std::uint8_t algorithms = 0xA2;
        constexpr std::uint8_t holder = 0x84;
        const Span value = element.value;
        if ((element.tag & constructed) != 0) {
            Span bytes = value;
            for (Element inner; depth < deepest && readElement(bytes, inner); bytes = inner.rest) {
                blankInfoElement(inner, part, depth + 1);
            }
            return;
        }
        if (element.tag == tagOctetString) return blankBytes(value);
        if (element.tag == tagUtcTime) return roundTime(value, 4);
        if (element.tag == tagGeneralizedTime) return roundTime(value, 6);
        if (isPrimitiveContext(element.tag)) {
            // Numbers stand in these.
            if (part == recordInformation || part == algorithms) return;
            if (isTime(value)) return roundTime(value, 6);
        } else if (!isText(element.tag) || (value.size() <= 2 && element.isWhole)) {
            return;  // two letters are a language
        }
        const Bytes before(value.begin(), value.end());
        blankText(value, element.tag == tagBmpString);
        if ((part | constructed) == (holder | constructed)) keep(replacements_, before, value);
    }

    /// GeneralizedTime, whatever its tag: digits, and at most a fraction and a zone behind them.
    static bool isTime(Span value) {
        constexpr std::size_t hour = 10;
        if (value.size() < hour || value.size() > 24) return false;
        return std::all_of(value.begin(), value.begin() + hour,
                           [](std::uint8_t byte) { return std::isdigit(byte) != 0; }) &&
               std::all_of(value.begin(), value.end(), [](std::uint8_t byte) {
                   return std::isdigit(byte) != 0 || byte == 'Z' || byte == '.' || byte == '+' ||
                          byte == '-';
               });
    }

    void blankSerialNumber(Span serial) {
        const Bytes before(serial.begin(), serial.end());
        blankBytes(serial);
        // Elsewhere it may stand without the zeros that fill it up.
        Bytes telling = before;
        while (!telling.empty() && telling.back() == 0) telling.pop_back();
        for (const Bytes& number : {before, telling}) {
            if (number.size() >= shortestTelling) {
                replacements_.push_back({number, Bytes(number.size(), 0)});
            }
        }
    }

    /// A directory of keys, certificates or PINs (8.3 to 8.9). Of each object the label at its
    /// front stays.
    void blankDirectory(Span bytes) {
        for (Element object; readElement(bytes, object); bytes = object.rest) {
            if ((object.tag & constructed) == 0) continue;
            Element common;
            if (!readElement(object.value, common)) continue;
            Element label;
            if (common.tag == tagSequence && readElement(common.value, label)) {
                if (label.tag != tagUtf8String) blankAttribute(label, 0);
                blankAttributes(label.rest, 0);
            } else {
                blankAttribute(common, 0);
            }
            blankAttributes(common.rest, 0);
        }
    }

    void blankAttributes(Span bytes, int depth) {
        for (Element element; depth < deepest && readElement(bytes, element);
             bytes = element.rest) {
            blankAttribute(element, depth);
        }
    }

    /// Names, times, and numbers that are too long for a path, a reference or a size.
    void blankAttribute(const Element& element, int depth) {
        constexpr std::size_t longestPath = 15;
        const Span value = element.value;
        if ((element.tag & constructed) != 0) return blankAttributes(value, depth + 1);
        if (element.tag == tagUtcTime) return roundTime(value, 4);
        if (element.tag == tagGeneralizedTime) return roundTime(value, 6);
        if (isText(element.tag)) {
            if (value.size() > 2 || !element.isWhole) blankText(value, element.tag == tagBmpString);
            return;
        }
        const std::size_t longest = element.tag == tagInteger ? shortestTelling - 1 : longestPath;
        if (element.tag == tagObjectIdentifier || value.size() <= longest) return;
        const Bytes before(value.begin(), value.end());
        blankBytes(value);
        keep(replacements_, before, value);
    }

    std::vector<Replacement>& replacements_;
};

bool isCertificate(const Bytes& file) {
    return file.size() >= shortestCertificate && file[0] == tagSequence && file[1] == 0x82 &&
           file[4] == tagSequence;
}

std::size_t dataSize(const Exchange& exchange) {
    return exchange.reply.bytes.size() > 2 ? exchange.reply.bytes.size() - 2 : 0;
}

/// Bytes of several replies as one, and back again.
class JoinedReplies {
public:
    void add(Exchange& exchange) {
        exchanges_.push_back(&exchange);
        bytes.insert(
            bytes.end(), exchange.reply.bytes.begin(),
            exchange.reply.bytes.begin() + static_cast<std::ptrdiff_t>(dataSize(exchange)));
    }

    void giveBack() const {
        auto at = bytes.begin();
        for (Exchange* exchange : exchanges_) {
            const auto size = static_cast<std::ptrdiff_t>(dataSize(*exchange));
            std::copy(at, at + size, exchange->reply.bytes.begin());
            at += size;
        }
    }

    Bytes bytes;

private:
    std::vector<Exchange*> exchanges_;
};

std::uint8_t byteOf(const Exchange& exchange, std::size_t at) {
    return at < exchange.command.bytes.size() ? exchange.command.bytes[at].value_or(0) : 0;
}

bool isRead(const Exchange& exchange) {
    return exchange.command.bytes.size() >= 4 && byteOf(exchange, 1) == 0xB0;
}

/// The files as they were read, each from its start.
std::vector<JoinedReplies> filesOf(const std::vector<Exchange*>& exchanges) {
    std::vector<JoinedReplies> files;
    bool isOpen = false;
    for (Exchange* exchange : exchanges) {
        const bool isFetched = byteOf(*exchange, 1) == 0xC0 && isOpen;
        if (!isRead(*exchange) && !isFetched) {
            isOpen = false;
            continue;
        }
        const auto offset =
            static_cast<std::size_t>(byteOf(*exchange, 2) << 8 | byteOf(*exchange, 3));
        if (isRead(*exchange) && offset == 0) {
            files.emplace_back();
            isOpen = true;
        }
        if (isOpen) files.back().add(*exchange);
    }
    return files;
}

template <typename Sequence, typename Same>
void replaceIn(Sequence& bytes, const Replacement& replacement, const Same& same) {
    auto at = bytes.begin();
    for (;;) {
        at = std::search(at, bytes.end(), replacement.from.begin(), replacement.from.end(), same);
        if (at == bytes.end()) return;
        at = std::copy(replacement.to.begin(), replacement.to.end(), at);
    }
}

/// Whether bytes are the other party's key of an agreement: an uncompressed point (SEC 1, 2.3.3) on
/// a curve of a card, with a zero ahead of it for some cards.
bool isPoint(ByteView data) {
    constexpr std::size_t sizes[] = {65, 97, 133};
    if (!data.empty() && data[0] == 0) data = data.subspan(1);
    return !data.empty() && data[0] == 0x04 &&
           std::find(std::begin(sizes), std::end(sizes), data.size()) != std::end(sizes);
}

/// What keys computed, and blocks that were encrypted to one.
void blankResults(const std::vector<Exchange*>& exchanges) {
    constexpr std::uint8_t performSecurityOperation = 0x2A;
    constexpr std::uint8_t getResponse = 0xC0;
    constexpr std::size_t header = 5;
    bool isResult = false;
    bool isChained = false;
    for (Exchange* exchange : exchanges) {
        const std::uint8_t instruction = byteOf(*exchange, 1);
        isResult =
            instruction == performSecurityOperation || (isResult && instruction == getResponse);
        if (!isResult) continue;
        std::fill_n(exchange->reply.bytes.begin(), dataSize(*exchange), std::uint8_t{0});
        const bool isDecipher = instruction == performSecurityOperation &&
                                byteOf(*exchange, 2) == 0x80 && byteOf(*exchange, 3) == 0x86;
        if (!isDecipher) continue;
        auto& bytes = exchange->command.bytes;
        const std::size_t dataEnd =
            std::min<std::size_t>(header + byteOf(*exchange, 4), bytes.size());
        const Bytes command = exchange->command.withoutPin();
        const bool isBlock = isChained || dataEnd < header ||
                             !isPoint(ByteView(command).subspan(header, dataEnd - header));
        isChained = (byteOf(*exchange, 0) & 0x10) != 0 && isBlock;
        for (std::size_t at = header + 1; isBlock && at < dataEnd; ++at) {
            bytes[at] = 0;
        }
    }
}

}  // namespace

void anonymize(recording::Conversation& conversation) {
    std::vector<Exchange*> exchanges;
    for (recording::Entry& entry : conversation.entries) {
        if (auto* exchange = std::get_if<Exchange>(&entry)) exchanges.push_back(exchange);
    }
    std::vector<Replacement> replacements;
    for (JoinedReplies& file : filesOf(exchanges)) {
        if (isCertificate(file.bytes)) {
            CertificateBlanker(replacements).blank(file.bytes);
        } else {
            ObjectFileBlanker(replacements).blank(file.bytes);
        }
        file.giveBack();
    }
    blankResults(exchanges);
    // The longest first, since some are part of others.
    std::stable_sort(replacements.begin(), replacements.end(),
                     [](const Replacement& left, const Replacement& right) {
                         return left.from.size() > right.from.size();
                     });
    JoinedReplies all;
    for (Exchange* exchange : exchanges) all.add(*exchange);
    for (const Replacement& replacement : replacements) {
        replaceIn(all.bytes, replacement, std::equal_to<>());
        for (Exchange* exchange : exchanges) {
            replaceIn(exchange->command.bytes, replacement,
                      [](const std::optional<std::uint8_t>& left, std::uint8_t right) {
                          return left && *left == right;
                      });
        }
    }
    all.giveBack();
}

}  // namespace cardhost
