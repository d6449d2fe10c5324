// The object directories of a card (ISO/IEC 7816-15): the path of the n-th certificate and the
// lengths of the n-th PIN. The files are walked tag by tag; nothing else is taken out of them.
#include <fmt/format.h>

#include <climits>
#include <initializer_list>
#include <optional>
#include <span>

#include "bytes/byte_texts.h"
#include "bytes/tlv_scan.h"
#include "card/card_file_system.h"
#include "card/card_transaction_handler.h"

namespace KelmoraID {
namespace {

constexpr BYTE sequence = 0x30;
constexpr BYTE octetString = 0x04;
constexpr BYTE integer = 0x02;
constexpr BYTE bitString = 0x03;
constexpr BYTE certificates = 0xA4;           // in the ODF: where the CDF is
constexpr BYTE authenticationObjects = 0xA8;  // in the ODF: where the AODF is
constexpr BYTE typeAttributes = 0xA1;
constexpr BYTE pinReference = 0x80;

using Value = std::optional<std::span<const BYTE>>;  // of an element, in the file's bytes

// Goes down by the first element of each tag; nothing where one is not there.
Value descend(Value value, std::initializer_list<BYTE> tags) {
    for (const BYTE tag : tags) {
        if (!value) break;
        value = findValue(*value, tag);
    }
    return value;
}

// The entry of that index, counted from 0; other tags at this level are passed over.
Value entryOf(const ByteVector& directory, std::uint32_t index) {
    constexpr auto most = static_cast<std::uint32_t>(INT_MAX);
    if (index >= most) return std::nullopt;
    return findValue(directory, sequence, static_cast<int>(index) + 1);
}

struct PinLengths {
    ByteVector minimum;
    ByteVector stored;
};

// Of the AODF's entry. The PIN flags and the reference must be there, though neither is used; the
// path behind them may be there or not, and is of no use here.
// quirk: stored-length-is-maximum. The standard's maximum, a third number, is not looked at.
bool pinLengthsOf(const ByteVector& directory, std::uint32_t index, PinLengths& lengths) {
    const Value attributes = descend(entryOf(directory, index), {typeAttributes, sequence});
    return attributes && findValue(*attributes, bitString) &&
           findElement(*attributes, integer, lengths.minimum) &&
           findElement(*attributes, integer, lengths.stored, 2) && !lengths.stored.empty() &&
           findValue(*attributes, pinReference);
}

// Of the CDF's entry: the path of the certificate's file, if it is there.
Value certificatePathOf(const ByteVector& directory, std::uint32_t index) {
    return descend(entryOf(directory, index), {typeAttributes, sequence, sequence, octetString});
}

ByteVector bytesOf(const Value& value) {
    return value ? ByteVector(value->begin(), value->end()) : ByteVector();
}

}  // namespace

ByteVector CardTransactionHandler::GetDirectories(bool readPrivateKey, bool readCertificate,
                                                  std::uint32_t index) {
    trace("GetDirectories");
    const ApduResult odf = ReadFile(ByteVector(OdfPath.begin(), OdfPath.end()));
    if (!odf.success()) {
        trace("GetDirectories, ODF file reading failed");
        return {};
    }
    trace("GetDirectories, ODF file read successful.");
    if (readPrivateKey) return readPinLengths(odf.responseData, index);
    if (readCertificate) return readCertificatePath(odf.responseData, index);
    // quirk: nothing-asked-for. No caller does: certificatePath and pinLengths ask for one of them.
    trace("Not reading certificates or private keys? Error?");
    return {};
}

ByteVector CardTransactionHandler::pinLengths(std::uint32_t index) {
    return GetDirectories(true, false, index);
}

ByteVector CardTransactionHandler::certificatePath(std::uint32_t index) {
    return GetDirectories(false, true, index);
}

ByteVector CardTransactionHandler::readPinLengths(const ByteVector& odf, std::uint32_t index) {
    // quirk: aodf-called-private-keys. In all of these texts.
    const Value found = descend(odf, {authenticationObjects, sequence, octetString});
    if (!found) {
        trace("GetDirectories PRK, ODF file decoding failed.");
        return {};
    }
    const ByteVector path = bytesOf(found);
    trace([&] {
        return fmt::format("GetDirectories PRK, private key file reading, filepath: {}.",
                           bytesToLogHex(path));
    });
    const ApduResult aodf = ReadFile(path);
    if (!aodf.success()) {
        trace("GetDirectories PRK, AOD file reading failed.");
        return {};
    }
    trace("GetDirectories PRK, AOD file read successful.");
    PinLengths lengths;
    if (!pinLengthsOf(aodf.responseData, index, lengths)) {
        trace("GetDirectories PRK, exiting private key file reading.");
        return {};
    }
    trace("GetDirectories PRK, file read successful.");
    trace([&] {
        return fmt::format("GetDirectories PRK, pinmin: {}", bytesToHexSpaced(lengths.minimum));
    });
    trace([&] {
        return fmt::format("GetDirectories PRK, pinmax: {}", bytesToHexSpaced(lengths.stored));
    });
    ByteVector result = lengths.minimum;
    result.push_back(lengths.stored.front());
    return result;
}

ByteVector CardTransactionHandler::readCertificatePath(const ByteVector& odf, std::uint32_t index) {
    const Value found = descend(odf, {certificates, sequence, octetString});
    if (!found) {
        trace("GetDirectories, ODF file decoding failed.");
        return {};
    }
    const ByteVector path = bytesOf(found);
    trace([&] {
        return fmt::format("GetDirectories CERT, reading filepath: {}.", bytesToLogHex(path));
    });
    const ApduResult cdf = ReadFile(path);
    if (!cdf.success()) {
        trace("GetDirectories CERT, file reading failed.");
        return {};
    }
    const Value certificate = certificatePathOf(cdf.responseData, index);
    if (certificate) trace("GetDirectories CERT, file read successful.");
    trace("GetDirectories CERT, exit file reading.");
    return bytesOf(certificate);
}

std::pair<BYTE, BYTE> CardTransactionHandler::GetPinMinMaxLength(std::uint32_t index) {
    selectFINEIDApplication();  // Its failure shows itself in what comes after.
    const ByteVector lengths = pinLengths(index);
    if (lengths.size() != 2) {
        trace("GetPinMinMaxLength, GetDirectories call failed.");
        return {BYTE{0}, BYTE{0}};
    }
    return {lengths[0], lengths[1]};
}

}  // namespace KelmoraID
