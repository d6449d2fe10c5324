// The log lines of a command object. Transmit calls neither: no PIN may reach a log.
#include "apdu/apdu.h"

#include <fmt/format.h>

#include "bytes/byte_texts.h"
#include "log/logger.h"

namespace KelmoraID::FINEID {
namespace {

std::string textOf(const std::optional<BYTE>& byte) {
    return byte ? fmt::format("{:02x}", *byte) : std::string();
}

std::string textOf(const std::optional<ByteVector>& data) {
    return data ? bytesToHex(*data) : std::string();
}

}  // namespace

void Apdu::logCommand(const ApduRequest& request) const {
    logDebug(
        fmt::format("{} cmd: CLA={:02x}, INS={:02x}, P1={:02x}, P2={:02x}, Lc={}, Data={}, Le={}",
                    getName(), request.CLA, request.INS, request.P1, request.P2, textOf(request.Lc),
                    textOf(request.data), textOf(request.Le)));
}

void Apdu::logResponse(const ApduResponse& response) const {
    logDebug(fmt::format("{} res: Data={}, SW={:04x}", getName(), textOf(response.data),
                         response.Sw1Sw2));
}

}  // namespace KelmoraID::FINEID
