#include "keys/keys_fixture.h"
#include "profiles/card_profiles.h"

#include <algorithm>
#include <memory>

#include "support/test_certificates.h"

namespace KelmoraID::testing {
namespace {

const ByteVector& certificateBytes(TestKey key) {
    switch (key) {
        case TestKey::rsa1024:
            return rsa1024Certificate();
        case TestKey::rsa2048:
            return rsa2048Certificate();
        case TestKey::p256:
            return p256Certificate();
        case TestKey::p384:
            return p384Certificate();
        case TestKey::p521:
            break;
    }
    return p521Certificate();
}

WORD bitsOf(TestKey key) {
    switch (key) {
        case TestKey::rsa1024:
            return 1024;
        case TestKey::rsa2048:
            return 2048;
        case TestKey::p256:
            return 256;
        case TestKey::p384:
            return 384;
        case TestKey::p521:
            break;
    }
    return 521;
}

PCCERT_CONTEXT certificate(TestKey key) {
    const ByteVector& encoded = certificateBytes(key);
    return CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(),
                                        static_cast<DWORD>(encoded.size()));
}

CardContext* acquired(CardType type, TestKey authKey, TestKey signKey) {
    auto context = std::make_unique<CardContext>();
    context->hasSecondSignCert = profileOf(type).hasSecondSigningKey;
    context->authCert = certificate(authKey);
    context->signCert = certificate(signKey);
    if (context->hasSecondSignCert) context->secondSignCert = certificate(signKey);
    KeyContainer exchange{};
    exchange.bFlags = CONTAINER_MAP_VALID_CONTAINER | CONTAINER_MAP_DEFAULT_CONTAINER;
    exchange.wKeyExchangeKeySizeBits = bitsOf(authKey);
    KeyContainer signature{};
    signature.bFlags = CONTAINER_MAP_VALID_CONTAINER;
    signature.wSigKeySizeBits = bitsOf(signKey);
    context->containers = {exchange, signature};
    if (context->hasSecondSignCert) context->containers.push_back(signature);
    return context.release();
}

}  // namespace

KeysFixture::KeysFixture(CardType type, TestKey authKey, TestKey signKey)
    : record(type), context(*acquired(type, authKey, signKey)), type_(type) {
    record.data.pvVendorSpecific = &context;
    log.clear();
}

void KeysFixture::expectPinQuery(const std::string& reply) {
    std::string reference = "11";
    if (type_ == CardType::type6) reference = "81";
    if (type_ == CardType::type8) reference = "03";
    card.expect("00 A4 00 0C 02 3F 00", "9000").expect("00 20 00" + reference, reply);
}

ByteVector counting(std::size_t length) {
    ByteVector result(length);
    for (std::size_t at = 0; at < length; ++at) result[at] = static_cast<BYTE>(at);
    return result;
}

ByteVector reversed(ByteVector value) {
    std::reverse(value.begin(), value.end());
    return value;
}

}  // namespace KelmoraID::testing
