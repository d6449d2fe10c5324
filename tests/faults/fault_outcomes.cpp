#include "fault_outcomes.h"

#include <algorithm>
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
constexpr bool less = false;

struct Rule {
    std::string_view entryPoint;  // the beginning
    std::string_view variant;     // the beginning
    std::string_view call;        // the beginning
    int which;                    // of the calls of that name, from 1
    bool (*holds)(const PlatformSide& card);
    DWORD status;
    bool outputsAsGood = true;
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
    // A name or a size that could not be worked out is left empty; the pairing is nobody's
    // business.
    {"CardAcquireContext", "", "Crypt", any, always, status::success, less},
    {"CardAcquireContext", "", "StringFromGUID2", any, always, status::success, less},
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
    {"CardGetProperty", "PIN Information, dialog", "", any, always, status::success, less},

    {"CardAuthenticate", "", "SCardStatusW", 1, onT0, status::unexpected},
    {"CardSignData", "", "SCardStatusW", any, onT0, status::unexpected},
    {"CardRSADecrypt", "", "SCardStatusW", any, onT0, status::unexpected},
    // Whether the PIN is open cannot be asked: it counts as closed.
    {"CardConstructDHAgreement", "", "SCardStatusW", any, onT0, status::securityViolation},
    {"CardDeriveKey", "", "SCardStatusW", any, onT0, status::securityViolation},
    {"CardDestroyDHAgreement", "", "SCardStatusW", any, onT0, status::securityViolation},
    {"CardDeriveKey", "", "BCryptOpenAlgorithmProvider", any, always, status::unexpected},
    {"CardDeriveKey", "", "BCryptGetProperty", any, always, status::unexpected},
    {"CardDeriveKey", "", "BCryptCreateHash", any, always, status::unexpected},
    {"CardDeriveKey", "", "BCryptHashData", any, always, status::unexpected},
    {"CardDeriveKey", "", "BCryptFinishHash", any, always, status::unexpected},
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

}  // namespace

Expected afterPlatformCall(const Journey& journey, const PlatformSide& card, const Calls& calls,
                           std::size_t at, DWORD code) {
    const std::string& name = calls[at].name;
    // The registry is asked once more, with more room.
    if (name == "RegGetValueW" && code == ERROR_MORE_DATA) return {{status::success}, true};
    for (const Rule& rule : rules) {
        if (!isOf(journey, rule.entryPoint) || !startsWith(journey.variant, rule.variant) ||
            !startsWith(name, rule.call)) {
            continue;
        }
        if (rule.which != any && rule.which != timesUpTo(calls, at, name)) continue;
        if (rule.holds(card)) return {{rule.status}, rule.outputsAsGood};
    }
    return {{status::success}, true};
}

Expected afterCallersAllocation(const Journey& journey) {
    // The size of a key is left at 0.
    if (isOf(journey, "CardAcquireContext")) return {{status::success}, false};
    // What kind of PIN it is cannot be told.
    if (isOf(journey, "CardAuthenticate")) return {{status::unexpected}, true};
    return {{status::notEnoughMemory}, true};
}

Expected afterAllocation(const Journey& journey, const Calls& calls, long n) {
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
            if (!hasDialog(journey)) return {{status::success}, true};
            return isOf(journey, "CardGetProperty") ? Expected{{status::success}, false}
                                                    : Expected{{status::invalidParameter}, true};
        }
    }
    // No address can be read: nothing is paired.
    if (isOf(journey, "CardAcquireContext") && place.seen("CryptBinaryToStringA") == 2 &&
        place.isAheadOfTheLast("RegGetValueW")) {
        return {{status::success}, true};
    }
    const bool asksForThePin = isOf(journey, "CardConstruct") || isOf(journey, "CardDerive") ||
                               isOf(journey, "CardDestroy");
    if (asksForThePin && place.seen("SCardStatusW") != 0 &&
        place.isAheadOfTheLast("SCardTransmit 20")) {
        return {{status::securityViolation}, true};
    }
    return {{status::unexpected}, true};
}

Expected afterWrongData(const Journey& journey) {
    if (isOf(journey, "CardAcquireContext")) {
        return {
            {status::success, status::unexpected, status::fileNotFound, status::notEnoughMemory},
            false};
    }
    return {{status::success, status::wrongPin, status::unexpected}, false};
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
