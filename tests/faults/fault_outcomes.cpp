#include "fault_outcomes.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "support/statuses.h"

namespace faults {
namespace {

bool startsWith(std::string_view text, std::string_view head) {
    return text.starts_with(head);
}

bool isOf(const Journey& journey, std::string_view entryPoint) {
    return startsWith(journey.entryPoint, entryPoint);
}
bool hasDialog(const Journey& journey) {
    return surroundingsOf(journey) == Surroundings::dialog;
}

// How often a name stands among the calls up to a place, that place included.
int timesUpTo(const Calls& calls, std::size_t at, std::string_view name) {
    return static_cast<int>(
        std::count_if(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(at) + 1,
                      [&](const Call& call) { return startsWith(call.name, name); }));
}

// With a protocol that the platform does not tell, T=1 is taken.
bool onT0(const PlatformSide& card) {
    return const_cast<PlatformSide&>(card).reader.protocol() == virtual_card::pcsc::protocolT0;
}
bool always(const PlatformSide&) {
    return true;
}

constexpr int any = 0;

struct Rule {
    std::string_view entryPoint;  // the beginning
    std::string_view variant;     // the beginning
    std::string_view call;        // the beginning
    int which;                    // of the calls of that name, from 1
    bool (*holds)(const PlatformSide& card);
    DWORD status;
    Gives gives = status == status::success ? Gives::asGood : Gives::nothing;
};

// The first row that fits decides. What no row names changes nothing.
const Rule rules[] = {
    {"CardAcquireContext", "", "SCardStatusW", any, onT0, status::unexpected},
    {"CardAcquireContext", "", "CertCreateCertificateContext", any, always,
     status::notEnoughMemory},
    // The card's label: without one it is not known.
    {"CardAcquireContext", "", "MultiByteToWideChar", 1, always, status::unexpected},
    {"CardAcquireContext", "", "MultiByteToWideChar", 2, always, status::unexpected},
    {"CardAcquireContext", "", "WideCharToMultiByte", 1, always, status::unexpected},
    {"CardAcquireContext", "", "WideCharToMultiByte", 2, always, status::unexpected},
    // A name, a size or an identity that could not be worked out is left empty.
    {"CardAcquireContext", "", "CryptAcquireContextW", any, always, status::success,
     Gives::otherwise},
    {"CardAcquireContext", "", "CryptCreateHash", any, always, status::success, Gives::otherwise},
    {"CardAcquireContext", "", "CryptHashData", any, always, status::success, Gives::otherwise},
    {"CardAcquireContext", "", "CryptGetHashParam", any, always, status::success, Gives::otherwise},
    {"CardAcquireContext", "", "StringFromGUID2", any, always, status::success, Gives::otherwise},
    {"CardAcquireContext", "", "CryptDecodeObject", any, always, status::success, Gives::otherwise},
    {"CardGetContainerInfo", "", "CryptDecodeObject", any, always, status::unexpected},
    {"CardGetContainerProperty", "", "CryptDecodeObject", any, always, status::unexpected},
    {"CardSetProperty", "Parent Window", "IsWindow", any, always, status::invalidParameter},

    // The dialog cannot be used: the PIN is the platform's to ask for, and it has handed over none.
    {"CardAuthenticateEx", "dialog", "SCardStatusW", 1, onT0, status::unexpected},
    {"CardAuthenticateEx", "dialog", "SCardStatusW", any, always, status::success},
    {"CardAuthenticateEx", "dialog", "WideCharToMultiByte", 1, always, status::success},
    {"CardAuthenticateEx", "dialog", "WideCharToMultiByte", 2, always, status::success},
    {"CardAuthenticateEx", "dialog", "LoadLibraryExW", 2, always, status::unexpected},
    {"CardAuthenticateEx", "dialog", "GetProcAddress", any, always, status::unexpected},
    {"CardAuthenticateEx", "dialog", "FreeLibrary", any, always, status::success},
    {"CardAuthenticateEx", "dialog", "", any, always, status::invalidParameter},
    // The property's name, for a line of the log.
    {"CardGetProperty", "PIN Information, dialog", "WideCharToMultiByte", 1, always,
     status::success},
    {"CardGetProperty", "PIN Information, dialog", "WideCharToMultiByte", 2, always,
     status::success},
    {"CardGetProperty", "PIN Information, dialog", "FreeLibrary", any, always, status::success},
    {"CardGetProperty", "PIN Information, dialog", "", any, always, status::success,
     Gives::otherwise},

    {"CardAuthenticate", "", "SCardStatusW", 1, onT0, status::unexpected},
    {"CardSignData", "", "SCardStatusW", any, onT0, status::unexpected},
    {"CardRSADecrypt", "", "SCardStatusW", any, onT0, status::unexpected},
    // Whether the PIN is open cannot be asked: it counts as closed.
    {"CardConstructDHAgreement", "", "SCardStatusW", any, onT0, status::securityViolation},
    {"CardDeriveKey", "", "SCardStatusW", any, onT0, status::securityViolation},
    {"CardDestroyDHAgreement", "", "SCardStatusW", any, onT0, status::securityViolation},
    {"CardDeriveKey", "", "BCryptOpenAlgorithmProvider", any, always, status::unexpected},
    {"CardDeriveKey", "", "BCryptGetProperty", any, always, status::unexpected},
    {"CardDeriveKey", "", "BCryptCreateHash", any, always, status::unexpected, Gives::ahead},
    {"CardDeriveKey", "", "BCryptHashData", any, always, status::unexpected, Gives::ahead},
    {"CardDeriveKey", "", "BCryptFinishHash", any, always, status::unexpected, Gives::ahead},
};

// Where the calls that an allocation stands behind reach to, and where the last of a name is.
struct Place {
    const Calls& calls;
    std::size_t reached;  // so many calls were made before it

    int seen(std::string_view name) const {
        return reached == 0 ? 0 : timesUpTo(calls, reached - 1, name);
    }
    bool isAheadOfTheLast(std::string_view name) const {
        return seen(name) < timesUpTo(calls, calls.size() - 1, name);
    }
    std::string_view last(std::size_t back = 1) const {
        return reached < back ? std::string_view() : std::string_view(calls[reached - back].name);
    }
};

// What an acquisition leaves empty when the call at a place fails. A name ends with
// StringFromGUID2, and the size comes behind it; a serial number that is too long is hashed ahead
// of them all.
Bytes withoutWhatFails(const GoodRun& good, const Calls& calls, std::size_t at) {
    constexpr std::size_t longestSerial = 16;
    const boundary::CardContent content = boundary::contentOf(good.steps, good.steps);
    const std::string_view name = calls[at].name;
    const int named = at == 0 ? 0 : timesUpTo(calls, at - 1, "StringFromGUID2");
    Omitted omitted;
    if (name == "CryptDecodeObject" || name == "pfnCspAlloc") {
        omitted.size = named - 1;
    } else if (content.serialNumber.size() > longestSerial && timesUpTo(calls, at, name) == 1 &&
               name != "StringFromGUID2") {
        omitted.identity = true;
    } else {
        omitted.name = named;
    }
    return givenByAcquisition(content, omitted);
}

// The record of a PIN that the platform's own prompt asks for.
Bytes ofThePlatformsPrompt(const GoodRun& good) {
    Bytes given = good.outcome.given;
    const decltype(PIN_INFO::PinType) type = AlphaNumericPinType;
    std::memcpy(given.data() + offsetof(PIN_INFO, PinType), &type, sizeof(type));
    return given;
}

}  // namespace

Expected afterPlatformCall(const Journey& journey, const PlatformSide& card, const GoodRun& good,
                           const Calls& calls, std::size_t at, DWORD code) {
    const std::string& name = calls[at].name;
    // The registry is asked once more, with more room.
    if (name == "RegGetValueW" && code == ERROR_MORE_DATA) {
        return {status::success, Gives::asGood};
    }
    for (const Rule& rule : rules) {
        if (!isOf(journey, rule.entryPoint) || !startsWith(journey.variant, rule.variant) ||
            !startsWith(name, rule.call)) {
            continue;
        }
        if (rule.which != any && rule.which != timesUpTo(calls, at, name)) continue;
        if (!rule.holds(card)) continue;
        Expected expected{rule.status, rule.gives};
        if (rule.gives == Gives::otherwise) {
            expected.otherwise = isOf(journey, "CardAcquireContext")
                                     ? withoutWhatFails(good, calls, at)
                                     : ofThePlatformsPrompt(good);
        }
        return expected;
    }
    return {status::success, Gives::asGood};
}

Expected afterCallersAllocation(const Journey& journey, const GoodRun& good, const Calls& calls,
                                std::size_t at) {
    if (isOf(journey, "CardAcquireContext")) {
        return {status::success, Gives::otherwise, withoutWhatFails(good, calls, at)};
    }
    // What kind of PIN it is cannot be told.
    if (isOf(journey, "CardAuthenticate")) return {status::unexpected, Gives::nothing};
    if (isOf(journey, "CardDeriveKey")) return {status::notEnoughMemory, Gives::ahead};
    return {status::notEnoughMemory, Gives::nothing};
}

Expected afterAllocation(const Journey& journey, const GoodRun& good, const Calls& calls, long n) {
    const auto reached =
        std::ranges::count_if(calls, [n](const Call& call) { return call.allocationsBefore < n; });
    const Place place{calls, static_cast<std::size_t>(reached)};
    const bool asksForTheKindOfPin =
        isOf(journey, "CardAuthenticate") || startsWith(journey.variant, "PIN Information");
    if (asksForTheKindOfPin) {
        // The companion application's setting cannot be read, or the window's class not told.
        const bool readsTheSetting =
            place.seen("pfnCspAlloc") != 0 && place.isAheadOfTheLast("RegGetValueW");
        const bool tellsTheWindow =
            place.last(2) == "GetClassNameW" && place.last() == "WideCharToMultiByte";
        if (readsTheSetting || tellsTheWindow) {
            if (!hasDialog(journey)) return {status::success, Gives::asGood};
            if (!isOf(journey, "CardGetProperty")) {
                return {status::invalidParameter, Gives::nothing};
            }
            return {status::success, Gives::otherwise, ofThePlatformsPrompt(good)};
        }
    }
    // No address can be read: nothing is paired.
    if (isOf(journey, "CardAcquireContext") && place.seen("CryptBinaryToStringA") == 2 &&
        place.isAheadOfTheLast("RegGetValueW")) {
        return {status::success, Gives::asGood};
    }
    const bool asksForThePin = isOf(journey, "CardConstruct") || isOf(journey, "CardDerive") ||
                               isOf(journey, "CardDestroy");
    if (asksForThePin && place.seen("SCardStatusW") != 0 &&
        place.isAheadOfTheLast("SCardTransmit 20")) {
        return {status::securityViolation, Gives::nothing};
    }
    // Between two PINs of the dialog the card is asked whether no try is left, under a guard that
    // takes no answer for a no. Where the one ends and the other begins no call of the platform
    // tells.
    const int verifies = place.seen("SCardTransmit 20");
    const bool isBetweenPins =
        hasDialog(journey) && journey.pins.size() > 1 && (verifies == 1 || verifies == 2);
    return {status::unexpected, Gives::nothing, {}, isBetweenPins};
}

std::vector<DWORD> codesOf(const std::string& name) {
    if (name.starts_with("SCard")) {
        return {status::removedCard,      status::resetCard,         status::noService,
                status::sharingViolation, status::readerUnavailable, status::invalidHandle};
    }
    if (name.starts_with("Reg")) return {2, 5, 14, 234, 1009, 1630};
    if (name.starts_with("BCrypt")) return {0xC0000001, 0xC000000D, 0xC0000017, 0xC00000BB};
    if (name.starts_with("WinHttp")) return {12002, 12007, 12029, 12030};
    if (name.starts_with("LoadLibrary")) return {5, 8, 126, 193};
    return {5, 8, 0x8009200B};
}

}  // namespace faults
