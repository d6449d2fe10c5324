#include "apdu/apdu_command.h"

#include <fmt/format.h>

#include "log/logger.h"

namespace KelmoraID {

ByteVector ApduCommand::encode() const {
    ByteVector bytes{CLA, INS, P1, P2};
    if (data.size() > SINGLE_APDU_DATAFIELD_MAX_SIZE) {
        logError(fmt::format(
            "Apdu data size too big {} > SINGLE_APDU_DATAFIELD_MAX_SIZE to fit single command, "
            "possibly chaining required, if APDU supports it (CLA=10h)!",
            data.size()));
    }
    // quirk: data-of-256-bytes. They pass the check above without a word, and are left out here.
    if (!data.empty() && data.size() <= 0xFF) {
        bytes.push_back(static_cast<BYTE>(data.size()));
        bytes.insert(bytes.end(), data.begin(), data.end());
    }
    if (Le) bytes.push_back(*Le);
    return bytes;
}

}  // namespace KelmoraID
