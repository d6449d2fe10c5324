// How the platform describes a signature, turned into what the card takes: the hash nibble and the
// scheme nibble of the algorithm reference.
#pragma once

#include <variant>

#include "platform/minidriver.h"

namespace KelmoraID {

inline constexpr BYTE hashNibbleSha1 = 0x10;
inline constexpr BYTE hashNibbleSha224 = 0x30;
inline constexpr BYTE hashNibbleSha256 = 0x40;
inline constexpr BYTE hashNibbleSha384 = 0x50;
inline constexpr BYTE hashNibbleSha512 = 0x60;

inline constexpr BYTE schemeNibblePkcs1 = 0x02;
inline constexpr BYTE schemeNibbleEcdsa = 0x04;
inline constexpr BYTE schemeNibblePss = 0x05;

/// What the card is told to sign with.
struct SignatureAlgorithm {
    BYTE hashNibble;
    BYTE schemeNibble;
};

/// Why a description is refused: a status, and the end of the exit line.
struct SignatureRefusal {
    DWORD status;
    const char* suffix;
    const char* scope;  ///< of the exit line
};

/// What a description comes to. Each part of it that is there is read in turn and may refuse; of
/// several the last one read decides.
struct SignatureChoice {
    std::variant<SignatureAlgorithm, SignatureRefusal> outcome;
    // The parts that were read, a refused one included.
    bool readPaddingInfo = false;
    bool readAlgorithmId = false;
    bool readHashLength = false;
};

/// The algorithm of a signature, by the padding information, the ALG_ID and, for an elliptic-curve
/// key, the length of the hash. Reads the record and the padding information, and nothing else.
SignatureChoice chooseSignatureAlgorithm(const CARD_SIGNING_INFO& info, bool isEcc);

}  // namespace KelmoraID
