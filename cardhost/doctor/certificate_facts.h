// What a logon looks at in a certificate (RFC 5280; the usage and the name of smart-card logon).
#pragma once

#include "bytes.h"
#include "doctor/card_facts.h"

namespace cardhost::doctor {

/// Throws a Failure (refused) that names `origin` where the bytes are no certificate.
CertificateFacts certificateFacts(const Bytes& der, int container, const std::string& origin);

}  // namespace cardhost::doctor
