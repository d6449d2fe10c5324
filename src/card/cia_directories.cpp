// The object directories of a card (ISO/IEC 7816-15): the path of the n-th certificate and the
// lengths of the n-th PIN. The files are walked tag by tag; nothing else is taken out of them.
#include <fmt/format.h>

#include <climits>
#include <initializer_list>

#include "bytes/byte_texts.h"
#include "bytes/tlv_scan.h"
#include "card/card_transaction_handler.h"
#include "card/identifiers.h"

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

// Goes down by the first element of each tag. @return whether every one was there
bool descend(const ByteVector& from, std::initializer_list<BYTE> tags, ByteVector& value) {
    value = from;
    for (const BYTE tag : tags) {
        ByteVector inner;
        if (!findElement(value, tag, inner)) {
            value.clear();
            return false;
        }
        value = std::move(inner);
    }
    return true;
}

// The entry of that index, counted from 0; other tags at this level are passed over.
bool entryOf(const ByteVector& directory, std::uint32_t index, ByteVector& entry) {
    constexpr auto most = static_cast<std::uint32_t>(INT_MAX);
    if (index >= most) {
        entry.clear();
        return false;
    }
    return findElement(directory, sequence, entry, static_cast<int>(index) + 1);
}

struct PinLengths {
    ByteVector minimum;
    ByteVector stored;
};

// Of the AODF's entry. The PIN flags and the reference must be there, though neither is used; the
// path behind them may be there or not, and is of no use here.
// quirk: stored-length-is-maximum. The standard's maximum, a third number, is not looked at.
bool pinLengthsOf(const ByteVector& directory, std::uint32_t index, PinLengths& lengths) {
    ByteVector entry;
    ByteVector attributes;
    ByteVector unused;
    return entryOf(directory, index, entry) &&
           descend(entry, {typeAttributes, sequence}, attributes) &&
           findElement(attributes, bitString, unused) &&
           findElement(attributes, integer, lengths.minimum) &&
           findElement(attributes, integer, lengths.stored, 2) && !lengths.stored.empty() &&
           findElement(attributes, pinReference, unused);
}

// Of the CDF's entry: the path of the certificate's file. @return whether it was there
bool certificatePathOf(const ByteVector& directory, std::uint32_t index, ByteVector& path) {
    ByteVector entry;
    return entryOf(directory, index, entry) &&
           descend(entry, {typeAttributes, sequence, sequence, octetString}, path);
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
    ByteVector path;
    if (!descend(odf, {authenticationObjects, sequence, octetString}, path)) {
        trace("GetDirectories PRK, ODF file decoding failed.");
        return {};
    }
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
    ByteVector path;
    if (!descend(odf, {certificates, sequence, octetString}, path)) {
        trace("GetDirectories, ODF file decoding failed.");
        return {};
    }
    trace([&] {
        return fmt::format("GetDirectories CERT, reading filepath: {}.", bytesToLogHex(path));
    });
    const ApduResult cdf = ReadFile(path);
    if (!cdf.success()) {
        trace("GetDirectories CERT, file reading failed.");
        return {};
    }
    ByteVector found;
    if (certificatePathOf(cdf.responseData, index, found)) {
        trace("GetDirectories CERT, file read successful.");
    }
    trace("GetDirectories CERT, exit file reading.");
    return found;
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
