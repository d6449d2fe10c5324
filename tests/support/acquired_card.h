// A card whose CardContext stands as after an acquisition, without a card behind it: for entry
// points that answer from memory.
#pragma once

#include "profiles/card_profiles.h"
#include "session/card_context.h"
#include "support/fineid_script.h"
#include "support/test_certificates.h"

namespace KelmoraID::testing {

class AcquiredCard {
public:
    explicit AcquiredCard(CardType type) : record(type) {
        context = new CardContext;
        record.data.pvVendorSpecific = context;
        context->hasSecondSignCert = profileOf(type).hasSecondSigningKey;
        for (BYTE index = 0; index < 16; ++index) context->cardIdentifier[index] = index;
        context->authCert = certificate(p256Certificate());
        context->signCert = certificate(rsa2048Certificate());
        if (context->hasSecondSignCert) context->secondSignCert = certificate(p384Certificate());
        KeyContainer container{};
        container.bFlags = 3;
        container.wKeyExchangeKeySizeBits = 256;
        context->containers.push_back(container);
        container = {};
        container.bFlags = 1;
        container.wSigKeySizeBits = 2048;
        context->containers.push_back(container);
        if (context->hasSecondSignCert) {
            container.wSigKeySizeBits = 384;
            context->containers.push_back(container);
        }
    }

    PlatformRecord record;
    CardContext* context;
    PCARD_DATA data() { return &record.data; }

private:
    static PCCERT_CONTEXT certificate(const ByteVector& encoded) {
        return CertCreateCertificateContext(certificateEncodings, encoded.data(),
                                            static_cast<DWORD>(encoded.size()));
    }
};

}  // namespace KelmoraID::testing
