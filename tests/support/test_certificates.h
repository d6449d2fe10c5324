// Encoded certificates of test keys, for tests that need real ones without a card.
#pragma once

#include "bytes/byte_vector.h"

namespace KelmoraID::testing {

const ByteVector& rsa2048Certificate();
const ByteVector& rsa1024Certificate();
const ByteVector& p256Certificate();
const ByteVector& p384Certificate();
const ByteVector& p521Certificate();
const ByteVector& ed25519Certificate();

}  // namespace KelmoraID::testing
