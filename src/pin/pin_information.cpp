#include "pin/pin_information.h"

#include <array>

#include "pin/external_dialog.h"

namespace KelmoraID {
namespace {

struct PinRow {
    PinId pinId;
    SECRET_PURPOSE purpose;
    PIN_SET changePermission;
    PIN_SET unblockPermission;
    PIN_CACHE_POLICY_TYPE cachePolicy;
};

consteval PIN_SET setOf(PinId pinId) {
    return PIN_SET{1} << static_cast<DWORD>(pinId);
}

constexpr std::array<PinRow, 4> pinTable{{
    {PinId::user, AuthenticationPin, setOf(PinId::user), setOf(PinId::unblock), PinCacheNormal},
    {PinId::administrator, AdministratorPin, setOf(PinId::administrator),
     setOf(PinId::administrator), PinCacheAlwaysPrompt},
    {PinId::unblock, UnblockOnlyPin, 0, 0, PinCacheAlwaysPrompt},
    {PinId::signature, DigitalSignaturePin, setOf(PinId::unblock) | setOf(PinId::signature),
     setOf(PinId::unblock), PinCacheAlwaysPrompt},
}};

// The version of PIN_INFO and of its cache policy, as published.
constexpr DWORD pinInfoVersion = 6;

}  // namespace

PIN_INFO pinInformationOf(CardContext& context, PinId pinId) {
    const bool external =
        isExternalPinDialogAvailable(context.codeEntryLibPath) && !isLoginWindowHandle();
    const PinRow& row = pinTable.at(static_cast<std::size_t>(pinId) - 1);
    PIN_INFO info{};
    info.dwVersion = pinInfoVersion;
    info.PinType = external ? ExternalPinType : AlphaNumericPinType;
    info.PinPurpose = row.purpose;
    info.dwChangePermission = row.changePermission;
    info.dwUnblockPermission = row.unblockPermission;
    info.PinCachePolicy.dwVersion = pinInfoVersion;
    info.PinCachePolicy.PinCachePolicyType = row.cachePolicy;
    return info;
}

}  // namespace KelmoraID
