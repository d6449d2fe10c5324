// The keys and certificates that the virtual cards hold. They are TEST KEYS, public to everyone:
// they stand in the source so that runs are repeatable and a card starts at once.
#pragma once

namespace virtual_card {

/// One key: the private key as unencrypted PKCS#8, and its X.509 certificate, both in PEM.
struct TestKey {
    const char* privateKey;
    const char* certificate;
};

extern const TestKey generation3Authentication;
extern const TestKey generation3Signature;
extern const TestKey generation4Authentication;
extern const TestKey generation4Signature;
extern const TestKey generation4Seal;
extern const TestKey generation5Authentication;
extern const TestKey generation5Signature;
extern const TestKey generation5Seal;
extern const TestKey generation6Authentication;
extern const TestKey generation6Signature;
extern const TestKey generation7Authentication;
extern const TestKey generation7Signature;
extern const TestKey generation7Seal;
extern const TestKey generation8Authentication;
extern const TestKey generation8Signature;

/// The certificate of "Virtual Test CA", which issued all of the above. Its private key was thrown
/// away.
extern const char* const testIssuerCertificate;

}  // namespace virtual_card
