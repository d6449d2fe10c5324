// What the PIN tests stand on: an acquired record over the scripted card, the commands that they
// expect by name, and the catching of what is thrown as a pointer.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "card/card_operations.h"
#include "profiles/card_profiles.h"
#include "session/card_context.h"
#include "support/fineid_script.h"
#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/scripted_card.h"
#include "support/statuses.h"

namespace KelmoraID::testing {

/// The supported cards' types, and those of a card that is none of them.
inline std::vector<CardType> everyCardType() {
    std::vector<CardType> types{CardType::unknown, CardType::noAtr};
    for (const CardProfile& card : supportedCards()) types.push_back(card.type);
    return types;
}

// The commands of the selections, whole.
inline constexpr const char* selectApplication = "00 A4 04 0C 0C A0000000 63504B43532D3135";
inline constexpr const char* selectRootCommand = "00 A4 00 0C 02 3F00";
inline constexpr const char* selectEsignAsChild = "00 A4 01 0C 02 5016";
inline constexpr const char* selectEsignByIdentifier = "00 A4 00 0C 02 5016";

/// An acquired record of a card of that type, as CardAcquireContext leaves it, without
/// certificates.
struct AcquiredPinCard {
    explicit AcquiredPinCard(CardType cardType);
    /// Takes the context back: no deletion stands in the log.
    ~AcquiredPinCard() { data.pvVendorSpecific = nullptr; }

    CardContext context;
    PlatformRecord record;
    CARD_DATA& data = record.data;
};

// The lines of CardAuthenticateEx: any one, its exit line, and that of a refused PIN.
LogLine authenticationLine(const std::string& message);
LogLine authenticationExit(DWORD status);
inline const LogLine refusedPinExit =
    authenticationLine(exited(status::wrongPin) + " or '0x8010006c'");

/// Adds the walk through the directories that gives a PIN's limits: the application, the object
/// directory and the authentication object directory, with one entry for each pair (minimum,
/// stored length).
void expectLimitsInDirectories(ScriptedCard& card,
                               const std::vector<std::pair<int, int>>& limitsOfEntries);

/// Adds the GET DATA that gives the limits, with its two selections.
/// @param reference  two hexadecimal digits
void expectLimitsByGetData(ScriptedCard& card, const std::string& reference, BYTE minimum,
                           BYTE maximum);

/// The answer to that GET DATA, with the status word.
std::string pinProperties(BYTE minimum, BYTE maximum);

/// Runs the call, which has to throw a pointer to a std::runtime_error, frees the error and gives
/// its text.
template <typename Call>
std::string textOfThrownPointer(Call call) {
    try {
        call();
    } catch (const std::exception& exception) {
        return std::string("an object was thrown: ") + exception.what();
    } catch (std::runtime_error* error) {
        const std::unique_ptr<std::runtime_error> owned(error);
        return owned->what();
    }
    return "nothing was thrown";
}

}  // namespace KelmoraID::testing
