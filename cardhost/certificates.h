// Certificates and public keys, as far as the program shows and uses them (RFC 5280, RFC 5480).
#pragma once

#include <string>

#include "bytes.h"

namespace cardhost {

/// A point on a named curve, without its curve's other properties.
struct CurvePoint {
    std::string curve;  // "secp256r1" and so on
    Bytes x;            // both of the curve's length
    Bytes y;
};

struct PublicKey {
    bool isEc;
    std::size_t bits;
    std::string description;  // "RSA, 2048 bits" or "EC, 256 bits, secp256r1"
    Bytes bitString;          // the subject public key of the certificate, without its wrapping
};

struct Certificate {
    Bytes der;
    std::string subject;
    std::string issuer;
    std::string serialNumber;
    std::string notBefore;
    std::string notAfter;
    PublicKey key;
};

/// Reads a DER certificate; throws a Failure (refused) that names `origin` if it is none.
Certificate certificateOf(const Bytes& der, const std::string& origin);

std::string certificatePem(const Certificate& certificate);
std::string publicKeyPem(const Certificate& certificate);

/// The point of an EC public key in PEM or DER; throws a Failure (file) if it is none.
CurvePoint pointOfPublicKey(const Bytes& encoded, const std::string& origin);

/// The curve of a certificate's EC key, by name.
std::string curveOf(const Certificate& certificate);

}  // namespace cardhost
