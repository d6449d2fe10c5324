#include "frame/container_list.h"

#include <array>
#include <string>
#include <string_view>

#include "bytes/byte_texts.h"
#include "hash/guid_name.h"
#include "keys/public_key_size.h"

namespace KelmoraID {
namespace {

struct ContainerRow {
    std::string_view suffix;
    PCCERT_CONTEXT CardContext::*certificate;
    BYTE bFlags;
    WORD KeyContainer::*keySizeBits;
};

// In the order of the container indexes; the last row only with hasSecondSignCert.
constexpr std::array<ContainerRow, 3> containerTable{{
    {"_AUTH", &CardContext::authCert,
     CONTAINER_MAP_VALID_CONTAINER | CONTAINER_MAP_DEFAULT_CONTAINER,
     &KeyContainer::wKeyExchangeKeySizeBits},
    {"_SIGN", &CardContext::signCert, CONTAINER_MAP_VALID_CONTAINER,
     &KeyContainer::wSigKeySizeBits},
    {"_SIGN_SEC", &CardContext::secondSignCert, CONTAINER_MAP_VALID_CONTAINER,
     &KeyContainer::wSigKeySizeBits},
}};

}  // namespace

void listContainers(const CARD_DATA& card, CardContext& context) {
    for (const ContainerRow& row : containerTable) {
        PCCERT_CONTEXT certificate = context.*row.certificate;
        if (certificate == nullptr) continue;
        KeyContainer container{};
        containerGuidName(bytesToHex(context.cardIdentifier) + std::string(row.suffix),
                          container.wszGuid);
        container.bFlags = row.bFlags;
        container.*row.keySizeBits = publicKeyBits(card, certificate);
        context.containers.push_back(container);
    }
}

}  // namespace KelmoraID
