#include "pin/pin_fixture.h"
#include "profiles/card_profiles.h"

#include <fmt/format.h>

namespace KelmoraID::testing {
namespace {

// A file's SELECT walks the ladder of the organisation cards and its READ BINARY takes it whole.
void expectFile(ScriptedCard& card, const std::string& identifier, const ByteVector& content) {
    card.expect("00 A4 01 04 02 3F00 00", "9000");
    card.expect("00 A4 02 04 02" + identifier + "00",
                fmt::format("6204 8002 {:04X} 9000", content.size()));
    card.expect(fmt::format("00 B0 0000 {:02X}", content.size()),
                fmt::format("{:02X} 9000", fmt::join(content, "")));
}

}  // namespace

AcquiredPinCard::AcquiredPinCard(CardType cardType) : record(cardType) {
    data.pvVendorSpecific = &context;
    context.hasSecondSignCert = profileOf(cardType).hasSecondSigningKey;
}

LogLine authenticationLine(const std::string& message) {
    return {"CardAuthenticateEx", message};
}

LogLine authenticationExit(DWORD status) {
    return exitLine("CardAuthenticateEx", status);
}

void expectLimitsInDirectories(ScriptedCard& card,
                               const std::vector<std::pair<int, int>>& limitsOfEntries) {
    card.expect("00 A4 04 00 0C A0000000 63504B43532D3135 00", "9000");
    expectFile(card, "5031", bytes("A808 3006 0404 3F00 4401"));
    ByteVector directory;
    for (const auto& [minimum, stored] : limitsOfEntries) {
        const ByteVector entry = bytes(fmt::format(
            "3013 A111 300F 0302 0410 0A0101 0201{:02X} 0201{:02X} 8000", minimum, stored));
        directory.insert(directory.end(), entry.begin(), entry.end());
    }
    expectFile(card, "4401", directory);
}

std::string pinProperties(BYTE minimum, BYTE maximum) {
    ByteVector properties(15, 0xEE);
    properties[11] = maximum;
    properties[14] = minimum;
    return fmt::format("{:02X} 9000", fmt::join(properties, ""));
}

void expectLimitsByGetData(ScriptedCard& card, const std::string& reference, BYTE minimum,
                           BYTE maximum) {
    card.expect(selectApplication, "9000");
    card.expect(selectRootCommand, "9000");
    card.expect("00 CB 3F FF 0B 4D09 7007 BF81" + reference + "03 7F4180 00",
                pinProperties(minimum, maximum));
}

}  // namespace KelmoraID::testing
