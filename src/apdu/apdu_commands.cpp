#include "apdu/apdu_commands.h"

#include <utility>

#include "apdu/directory_identifiers.h"

namespace KelmoraID::apduCommands {
namespace {

// CLA is 00 in every command record.
ApduCommand command(BYTE INS, BYTE P1, BYTE P2, ByteVector data, BYTE Le) {
    ApduCommand made;
    made.INS = INS;
    made.P1 = P1;
    made.P2 = P2;
    made.Lc = static_cast<BYTE>(data.size());
    made.data = std::move(data);
    made.Le = Le;
    return made;
}

constexpr BYTE authenticationPin = 0x11;
constexpr BYTE signaturePin = 0x15;

}  // namespace

ApduCommand select(BYTE P1, BYTE P2, ByteVector data) {
    return command(0xA4, P1, P2, std::move(data), 0x00);
}

ApduCommand selectRootDir() {
    return select(0x00, 0x0C, ByteVector(MfIdentifier.begin(), MfIdentifier.end()));
}

ApduCommand selectEsign() {
    return select(0x01, 0x0C, ByteVector(EsignIdentifier.begin(), EsignIdentifier.end()));
}

ApduCommand getResponse(BYTE Le) {
    return command(0xC0, 0x00, 0x00, {}, Le);
}

ApduCommand readBinary(BYTE P1, BYTE P2, BYTE Le) {
    return command(0xB0, P1, P2, {}, Le);
}

ApduCommand verify(BYTE reference, const ByteVector& pin) {
    return command(0x20, 0x00, static_cast<BYTE>(reference + 0x80), pin, 0x00);
}

ApduCommand verifyPIN1(const ByteVector& pin) {
    return verify(authenticationPin, pin);
}

ApduCommand verifyPIN2(const ByteVector& pin) {
    return verify(signaturePin, pin);
}

ApduCommand mseSetDst(BYTE algorithmA, BYTE algorithmB, BYTE keyRef) {
    const BYTE algorithm = static_cast<BYTE>(algorithmA | algorithmB);
    return command(0x22, 0x41, 0xB6, {0x84, 0x01, keyRef, 0x80, 0x01, algorithm}, 0x00);
}

ApduCommand psoHash(const ByteVector& hash) {
    ByteVector data{0x90, static_cast<BYTE>(hash.size())};
    data.insert(data.end(), hash.begin(), hash.end());
    return command(0x2A, 0x90, 0xA0, std::move(data), 0x00);
}

ApduCommand psoComputeSignature(ByteVector data) {
    return command(0x2A, 0x9E, 0x9A, std::move(data), 0x00);
}

}  // namespace KelmoraID::apduCommands
