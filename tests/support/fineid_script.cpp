#include "support/fineid_script.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "support/delete_context.h"
#include "support/platform_record.h"

namespace KelmoraID::testing {
namespace {

const ByteVector odfPath = bytes("3F00 5031");
const ByteVector cdfPath = bytes("3F00 4402");

ByteVector pathRecord(const ByteVector& path) {
    return tlv(0x30, tlv(0x04, path));
}

ByteVector odf() {
    return tlv(0xA4, pathRecord(cdfPath));
}

ByteVector certificatePath(std::size_t index) {
    return bytes("3F00") + ByteVector{0x43, static_cast<BYTE>(0x31 + index)};
}

ByteVector cdf(const FineidContent& content) {
    ByteVector directory;
    for (std::size_t index = 0; index < content.certificates.size(); ++index) {
        directory =
            directory + tlv(0x30, tlv(0x30, tlv(0x0C, bytes("61"))) +
                                      tlv(0xA1, tlv(0x30, pathRecord(certificatePath(index)))));
    }
    return directory;
}

}  // namespace

const char* atrOf(CardType type) {
    switch (type) {
        case CardType::type3:
            return "3bdd96008031fe450031b8640429ecc1739401808248";
        case CardType::type4:
            return "3b7f9600008031b865b085050011122460829000";
        case CardType::type5:
            return "3b7f9600008031b865b08504021b1200f6829000";
        case CardType::type6:
            return "3bdf96008031fe450031b8640429ecc173940180829000";
        case CardType::type7:
            return "3b7f9600008031b865b0850300ef1200f6829000";
        case CardType::type8:
            return "3bdd96008031fe450031b8640429ecc1739401808349";
        case CardType::noAtr:
            return "";
        default:
            return "3b00";
    }
}

ByteVector tlv(BYTE tag, const ByteVector& value) {
    ByteVector element{tag};
    if (value.size() >= 0x100) {
        element.push_back(0x82);
        element.push_back(static_cast<BYTE>(value.size() >> 8));
    } else if (value.size() >= 0x80) {
        element.push_back(0x81);
    }
    element.push_back(static_cast<BYTE>(value.size() & 0xFF));
    return element + value;
}

ByteVector operator+(const ByteVector& left, const ByteVector& right) {
    ByteVector both = left;
    both.insert(both.end(), right.begin(), right.end());
    return both;
}

std::string hexOf(const ByteVector& value) {
    return fmt::format("{:02X}", fmt::join(value, ""));
}

ByteVector ciaInfo(const FineidContent& content) {
    const ByteVector label(content.label.begin(), content.label.end());
    return tlv(0x30, tlv(0x02, bytes("01")) + tlv(0x04, content.serialNumber) +
                         tlv(0x0C, bytes("56524B")) + tlv(0x80, label));
}

void expectApplication(ScriptedCard& card) {
    card.expect("00 A4 04 00 0C A0 00 00 00 63 50 4B 43 53 2D 31 35 00", "9000");
}

void expectRead(ScriptedCard& card, const ByteVector& path, const ByteVector& content) {
    for (std::size_t at = 0; at + 2 < path.size(); at += 2) {
        card.expect("00A4010402" + hexOf({path[at], path[at + 1]}) + "00", "9000");
    }
    const ByteVector fcp = tlv(0x62, tlv(0x80, {static_cast<BYTE>(content.size() >> 8),
                                                static_cast<BYTE>(content.size() & 0xFF)}));
    card.expect("00A4020402" + hexOf({path.end() - 2, path.end()}) + "00", hexOf(fcp) + "9000");
    for (std::size_t at = 0; at < content.size(); at += 127) {
        const std::size_t chunk = std::min<std::size_t>(127, content.size() - at);
        const auto first = content.begin() + static_cast<std::ptrdiff_t>(at);
        card.expect("00B0" + hexOf({static_cast<BYTE>(at >> 8), static_cast<BYTE>(at & 0xFF),
                                    static_cast<BYTE>(chunk)}),
                    hexOf({first, first + static_cast<std::ptrdiff_t>(chunk)}) + "9000");
    }
}

void expectCertificate(ScriptedCard& card, const FineidContent& content, std::size_t index) {
    expectApplication(card);
    expectRead(card, odfPath, odf());
    expectRead(card, cdfPath, cdf(content));
    if (index < content.certificates.size()) {
        expectRead(card, certificatePath(index), content.certificates[index]);
    }
}

void expectAcquisition(ScriptedCard& card, const FineidContent& content, std::size_t asked) {
    expectApplication(card);
    expectApplication(card);
    expectRead(card, bytes("3F00 5032"), ciaInfo(content));
    for (std::size_t index = 0; index < asked; ++index) expectCertificate(card, content, index);
}

PlatformRecord::PlatformRecord(CardType type) : atr(bytes(atrOf(type))) {
    PlatformMemory::begin();
    PlatformMemory::noteSizes();
    fillRecord(data, atr, 0xC0, ScriptedCard::handle);
}

PlatformRecord::~PlatformRecord() {
    PlatformMemory::failNth(0);
    deleteContext(data);
}

void PlatformRecord::failAllocation(int n) {
    PlatformMemory::failNth(n);
}

int PlatformRecord::liveAllocations() {
    return PlatformMemory::liveBuffers();
}

std::vector<std::size_t> PlatformRecord::takeAllocatedSizes() {
    return PlatformMemory::takeSizes();
}

}  // namespace KelmoraID::testing
