#include "apdu/apdu_messages.h"

#include <utility>

namespace KelmoraID {

ApduRequest::ApduRequest(BYTE cla, BYTE ins, BYTE p1, BYTE p2,
                         std::optional<ByteVector> requestData, std::optional<BYTE> expectedLength)
    : CLA(cla), INS(ins), P1(p1), P2(p2), data(std::move(requestData)), Le(expectedLength) {
    bytes.reserve(4 + (data ? 1 + data->size() : 0) + (Le ? 1 : 0));
    bytes.assign({cla, ins, p1, p2});
    if (data) {
        Lc = static_cast<BYTE>(data->size());
        bytes.push_back(*Lc);
        bytes.insert(bytes.end(), data->begin(), data->end());
    }
    if (Le) bytes.push_back(*Le);
}

ApduResponse::ApduResponse(std::span<const BYTE> received)
    : SW1(received[received.size() - 2]),
      SW2(received[received.size() - 1]),
      Sw1Sw2(static_cast<std::uint16_t>(SW1 << 8 | SW2)) {
    if (received.size() > 2) data.emplace(received.begin(), received.end() - 2);
}

}  // namespace KelmoraID
