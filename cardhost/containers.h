// The key containers of a card, put together from its container map, its certificates and its
// container properties, as the platform does it.
#pragma once

#include <string>
#include <vector>

#include "certificates.h"
#include "driver.h"

namespace cardhost {

struct Container {
    BYTE index;
    std::string name;
    bool isDefault;
    bool isKeyExchange;  // otherwise a signature key
    unsigned mapBits;    // the key size that the container map tells
    std::string certificateFile;
    Certificate certificate;
    PIN_ID pin;
};

/// The records of the container map; throws a Failure (refused) if it is not made of whole records.
std::vector<CONTAINER_MAP_RECORD> containerMap(Acquisition& acquisition);

/// All containers with a key.
std::vector<Container> containersOf(Acquisition& acquisition);

/// One of them; throws a Failure (usage) if the card has no such container.
Container containerAt(Acquisition& acquisition, unsigned index);

/// The dwKeySpec with which the platform names the container's key.
DWORD keySpecOf(const Container& container);

}  // namespace cardhost
