// The end of an acquired record in a program that has the driver linked in.
#pragma once

#include "session/card_context.h"
#include "session/entry_points.h"

namespace KelmoraID::testing {

/// CardDeleteContext of a record that has a context, acquired or half filled. The driver gives the
/// handle of a second signing certificate up: it is freed here, so that the leak checker sees real
/// leaks.
inline void deleteContext(CARD_DATA& data) {
    const auto* context = static_cast<const CardContext*>(data.pvVendorSpecific);
    if (context == nullptr) return;
    if (context->secondSignCert != nullptr) CertFreeCertificateContext(context->secondSignCert);
    CardDeleteContext(&data);
}

}  // namespace KelmoraID::testing
