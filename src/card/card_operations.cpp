// The object for PIN and decipher sequences: how it is made, and its selections.
#include "card/card_operations.h"

#include <system_error>

#include "apdu/directory_identifiers.h"
#include "apdu/select.h"
#include "card/card_file_system.h"
#include "card/thrown_pointer.h"
#include "channel/protocol_control.h"
#include "log/logger.h"
#include "profiles/card_profiles.h"

namespace KelmoraID {
namespace {

using FINEID::Select;
using FINEID::SelectMode;

constexpr bool noResponse = false;

void throwUnlessSelected(const FINEID::Apdu& select, const char* text) {
    if (!select.success()) throwPointer(text);
}

}  // namespace

CardOperations::CardOperations(SCARDHANDLE card, CardType type)
    : hScard(card), sendPci(protocolControlOf(card)), cardType(type) {}

void CardOperations::SelectFineidApplication() {
    constexpr const char* failure = "Failed to select FINEID application.";
    // quirk: first-application-alone. Without the second try that file reading makes.
    Select select(SelectMode::applicationIdentifier, ByteVector(FineidAid.begin(), FineidAid.end()),
                  noResponse);
    try {
        select.Transmit(hScard, sendPci);
    } catch (const std::system_error& error) {
        logToFile("SelectFineidApplication", "Transmit error. Exception: {}, error: {}",
                  error.what(), error.code().value());
        throwPointer(failure);
    }
    throwUnlessSelected(select, failure);
}

void CardOperations::selectRoot() {
    Select select(SelectMode::masterFile, std::nullopt, noResponse);
    throwUnlessSelected(select.Transmit(hScard, sendPci), "Failed to select root.");
}

void CardOperations::selectParent() {
    Select select(SelectMode::parentDirectory, std::nullopt, noResponse);
    throwUnlessSelected(select.Transmit(hScard, sendPci), "Failed to select parent.");
}

void CardOperations::selectEsignDirectory() {
    selectRoot();
    const SelectMode mode = profileOf(cardType).selectsEsignUnderMasterFile
                                ? SelectMode::identifierUnderMasterFile
                                : SelectMode::childDirectory;
    Select select(mode, ByteVector(EsignIdentifier.begin(), EsignIdentifier.end()), noResponse);
    throwUnlessSelected(select.Transmit(hScard, sendPci), "Failed to select ESIGN directory.");
}

}  // namespace KelmoraID
