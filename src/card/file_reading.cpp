// Reading an elementary file whole, by up to three forms of SELECT and READ BINARY in chunks
// (ISO/IEC 7816-4, 11.2.2 and 11.3.3). Nothing is cached.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "apdu/apdu_commands.h"
#include "bytes/byte_texts.h"
#include "card/card_file_system.h"
#include "card/card_transaction_handler.h"

namespace KelmoraID {
namespace {

constexpr std::uint32_t chunkSize = 127;
// No FINEID file is near this size. A card that states more would be read for hours.
constexpr std::uint32_t largestFile = 0x100000;
constexpr BYTE closingMarker = 0x7F;

constexpr BYTE inCurrentDirectory = 0x02;
constexpr BYTE byPath = 0x09;

ApduCommand selectFile(BYTE P1, ByteVector identifier) {
    return apduCommands::select(P1, apduCommands::withControlParameters, std::move(identifier));
}

}  // namespace

ApduResult CardTransactionHandler::ReadFile(const ByteVector& filePath) {
    trace("readFile");
    trace([&] { return fmt::format("ReadFile: full filePath: {}", bytesToLogHex(filePath)); });

    ByteVector efIdentifier = filePath;
    if (filePath.size() > identifierLength) {
        const auto split = filePath.end() - identifierLength;
        const ByteVector directory(filePath.begin(), split);
        efIdentifier.assign(split, filePath.end());
        trace([&] {
            return fmt::format("ReadFile: selectDF, filePath-mid: {}", bytesToLogHex(directory));
        });
        ApduResult walked = selectDF(directory);
        if (walked.isError()) {
            trace([&] {
                return fmt::format("ReadFile, selecting DF resulted in an error: {}",
                                   walked.transportErrorCode);
            });
            return walked;
        }
    }

    trace([&] {
        return fmt::format("ReadFile: selectFileApdu, efIdentifier: {}",
                           bytesToLogHex(efIdentifier));
    });
    ApduResult result = send(selectFile(inCurrentDirectory, efIdentifier));
    if (!result.success()) {
        trace([&] {
            return fmt::format("ReadFile: selectFileApdu, whole filepath: {}",
                               bytesToLogHex(filePath));
        });
        // quirk: whole-path-as-identifier. Some cards want it under the P1 of a file in the
        // directory.
        result = send(selectFile(inCurrentDirectory, filePath));
    }
    if (!result.success()) {
        trace([&] {
            return fmt::format("ReadFile: selectFileApdu (Cosmo X), filePath: {}",
                               bytesToLogHex(filePath));
        });
        result = send(selectFile(byPath, filePath));
    }

    if (!result.success()) {
        trace("Completing ReadFile with error.");
    } else if (const std::uint32_t size = result.fileSize(); size != 0) {
        result = readBinary(size);
        if (!result.success()) trace("ReadFile, readBinary failed.");
    }
    // quirk: file-of-size-0. Its control parameters stand as its content.
    trace("Completing ReadFile.");
    return result;
}

ApduResult CardTransactionHandler::readBinary(std::uint32_t length) {
    trace("readBinary");
    if (length > largestFile) {
        trace("Error in readBinary!");
        return ApduResult(SCARD_E_UNEXPECTED);
    }
    ByteVector content;
    content.reserve(length);
    std::uint32_t remaining = length;
    while (remaining != 0) {
        const std::uint32_t chunk = std::min(remaining, chunkSize);
        const std::uint32_t offset = length - remaining;
        // quirk: offset-beyond-a-file. The two lowest bytes of the offset, whatever the card makes
        // of them: from 32,768 on P1 reads as a short file identifier, and from 65,536 on the
        // offset starts again. A whole file of that size cannot be had by this command.
        ApduResult read = send(apduCommands::readBinary(static_cast<BYTE>(offset >> 8),
                                                        static_cast<BYTE>(offset & 0xFF),
                                                        static_cast<BYTE>(chunk)));
        if (!read.success() || read.responseData.size() != chunk) {
            trace("Error in readBinary!");
            // quirk: short-chunk-alone. This chunk's result, although a short one may say 9000.
            return read;
        }
        content.insert(content.end(), read.responseData.begin(), read.responseData.end());
        remaining -= chunk;
    }
    trace("readBinary exiting successfully!");
    // quirk: closing-record. A command that is never sent stands for the whole reading.
    ApduResult whole(
        apduCommands::readBinary(closingMarker, 0x00, static_cast<BYTE>(length & 0xFF)));
    whole.applyReply(std::array<BYTE, 2>{0x90, 0x00});
    whole.responseData = std::move(content);
    return whole;
}

}  // namespace KelmoraID
