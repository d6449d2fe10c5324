// The command records, one function each that makes it (ISO/IEC 7816-4 and 7816-8). Each sets Lc to
// the size of the data.
#pragma once

#include "apdu/apdu_command.h"

namespace KelmoraID::apduCommands {

/// P2 of a SELECT whose answer is the file's control parameters (ISO/IEC 7816-4, 11.2.2).
inline constexpr BYTE withControlParameters = 0x04;

/// SELECT: 00 A4 P1 P2 Lc data 00
ApduCommand select(BYTE P1, BYTE P2, ByteVector data);

/// SELECT of the root directory: 00 A4 00 0C 02 3F 00 00
ApduCommand selectRootDir();

/// SELECT of the ESIGN directory: 00 A4 01 0C 02 50 16 00
ApduCommand selectEsign();

/// GET RESPONSE: 00 C0 00 00 Le
ApduCommand getResponse(BYTE Le);

/// READ BINARY: 00 B0 P1 P2 Le
ApduCommand readBinary(BYTE P1, BYTE P2, BYTE Le);

/// VERIFY: 00 20 00 P2 Lc PIN 00, with P2 the reference plus 80
ApduCommand verify(BYTE reference, const ByteVector& pin);

/// verify with reference 11 and with reference 15. No sequence of the system sends either.
ApduCommand verifyPIN1(const ByteVector& pin);
ApduCommand verifyPIN2(const ByteVector& pin);

/// MSE SET, digital signature template: 00 22 41 B6 06 84 01 keyRef 80 01 (a OR b) 00
ApduCommand mseSetDst(BYTE algorithmA, BYTE algorithmB, BYTE keyRef);

/// PSO HASH: 00 2A 90 A0 Lc 90 L hash 00
ApduCommand psoHash(const ByteVector& hash);

/// PSO COMPUTE DIGITAL SIGNATURE: 00 2A 9E 9A Lc data Le, with Le 00 unless the caller sets it
ApduCommand psoComputeSignature(ByteVector data);

}  // namespace KelmoraID::apduCommands
