// What the platform is told about a PIN.
#pragma once

#include "card/pin_types.h"
#include "session/card_context.h"

namespace KelmoraID {

/// The record of the property "PIN Information". The kind of PIN is decided afresh on every call:
/// external if the dialog of the companion application can be used now, alphanumeric otherwise.
/// @param pinId  a valid identifier
PIN_INFO pinInformationOf(CardContext& context, PinId pinId);

}  // namespace KelmoraID
