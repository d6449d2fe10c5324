// CardRSADecrypt: a private-key RSA operation, in place. Only PKCS#1 is carried out, and its
// padding stays: the message is what the card returned.
#include <algorithm>
#include <stdexcept>

#include "card/card_operations.h"
#include "session/card_context.h"
#include "session/card_type_of.h"
#include "session/entry_log.h"
#include "session/entry_points.h"

namespace KelmoraID {
namespace {

constexpr const char* scope = "CardRSADecrypt";

bool isAllowedPair(const CardContext& context, DWORD dwKeySpec, BYTE bContainerIndex) {
    if (dwKeySpec == AT_KEYEXCHANGE) return bContainerIndex == 0;
    return bContainerIndex != 0 && hasContainer(context, bContainerIndex);
}

}  // namespace

DWORD WINAPI CardRSADecrypt(PCARD_DATA pCardData, PCARD_RSA_DECRYPT_INFO pInfo) {
    if (pCardData == nullptr || pInfo == nullptr) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, " (CMR_413/414).");
    }
    if (pInfo->dwVersion == 0) pInfo->dwVersion = 1;
    // dwPaddingType is a field of version 2 and is read whatever the version.
    logToFile(scope,
              "Entering the function, with parameters, bContainerIndex:'{}' "
              "cbData:'{}', dwPaddingType:'{}' dwVersion:'{}'",
              pInfo->bContainerIndex, pInfo->cbData, pInfo->dwPaddingType, pInfo->dwVersion);
    const bool takesVersion1 = pCardData->dwVersion != CARD_DATA_VERSION_SEVEN;
    if (pInfo->dwVersion != 2 && !(pInfo->dwVersion == 1 && takesVersion1)) {
        return exitWith(scope, ERROR_REVISION_MISMATCH, " (CMR_415).");
    }
    const CardContext& context = contextOf(pCardData);
    if (pInfo->bContainerIndex >= context.containers.size()) {
        return exitWith(scope, SCARD_E_NO_KEY_CONTAINER, " (CMR_416).");
    }
    if (pInfo->dwKeySpec != AT_KEYEXCHANGE && pInfo->dwKeySpec != AT_SIGNATURE) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, " (CMR_417 case 1).");
    }
    if (!isAllowedPair(context, pInfo->dwKeySpec, pInfo->bContainerIndex)) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, " (CMR_417 case 2).");
    }
    if (pInfo->pbData == nullptr) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, " (CMR_418).");
    }
    // quirk: measured-by-the-first-key. Also when another container is asked for.
    if (pInfo->cbData < context.containers.front().wKeyExchangeKeySizeBits / 8u) {
        return exitWith(scope, SCARD_E_INSUFFICIENT_BUFFER, " (not enough data).");
    }
    CardOperations card(pCardData->hScard, cardTypeOf(pCardData));
    ByteVector block(pInfo->pbData, pInfo->pbData + pInfo->cbData);
    std::reverse(block.begin(), block.end());

    if (pInfo->dwPaddingType == CARD_PADDING_OAEP) {
        if (pInfo->pPaddingInfo == nullptr) {
            return exitWith(scope, ERROR_INVALID_PARAMETER, " (pPaddingInfo).");
        }
        return exitWith(scope, SCARD_E_UNEXPECTED, ". OAEP padding not implemented.");
    }
    if (pInfo->dwPaddingType != CARD_PADDING_PKCS1) {
        return exitWith(scope, ERROR_INVALID_PARAMETER, ". None padding not implemented.");
    }
    ByteVector message;
    try {
        // quirk: block-length-of-16-bits. It wraps, and the script goes by the wrapped number.
        const auto length = static_cast<std::uint16_t>(pInfo->cbData);
        message = card.decipherRsa(block, length, pInfo->dwKeySpec);
    } catch (const std::logic_error&) {
        return exitWith(scope, SCARD_W_SECURITY_VIOLATION);
    } catch (...) {  // Objects and pointers alike.
        return exitWith(scope, SCARD_E_UNEXPECTED);
    }
    if (message.empty()) return exitWith(scope, SCARD_E_UNEXPECTED, " (empty data vector)");
    // A card that gives more than the block holds is not believed. None can, as long as a reply
    // holds 256 bytes, which every block has that comes this far.
    if (message.size() > pInfo->cbData) return exitWith(scope, SCARD_E_UNEXPECTED);

    std::reverse_copy(message.begin(), message.end(), pInfo->pbData);
    pInfo->cbData = static_cast<DWORD>(message.size());
    return exitWith(scope, SCARD_S_SUCCESS);
}

}  // namespace KelmoraID
