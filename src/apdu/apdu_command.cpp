#include "apdu/apdu_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "log/logger.h"

namespace KelmoraID {
namespace {

constexpr std::size_t headerLength = 4;

}  // namespace

ByteVector ApduCommand::encode() const {
    if (data.size() > SINGLE_APDU_DATAFIELD_MAX_SIZE) {
        logError(fmt::format(
            "Apdu data size too big {} > SINGLE_APDU_DATAFIELD_MAX_SIZE to fit single command, "
            "possibly chaining required, if APDU supports it (CLA=10h)!",
            data.size()));
    }
    // quirk: data-of-256-bytes. They pass the check above without a word, and are left out here.
    const bool hasData = !data.empty() && data.size() <= 0xFF;
    ByteVector bytes(headerLength + (hasData ? 1 + data.size() : 0) + (Le ? 1 : 0));
    const std::array<BYTE, headerLength> header{CLA, INS, P1, P2};
    auto end = std::copy(header.begin(), header.end(), bytes.begin());
    if (hasData) {
        *end++ = static_cast<BYTE>(data.size());
        end = std::copy(data.begin(), data.end(), end);
    }
    if (Le) *end = *Le;
    return bytes;
}

}  // namespace KelmoraID
