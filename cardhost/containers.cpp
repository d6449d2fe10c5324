#include "containers.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

namespace cardhost {

std::vector<CONTAINER_MAP_RECORD> containerMap(Acquisition& acquisition) {
    const Bytes map = acquisition.readFile("mscp", "cmapfile");
    if (map.size() % sizeof(CONTAINER_MAP_RECORD) != 0 ||
        map.size() > 256 * sizeof(CONTAINER_MAP_RECORD)) {
        throw Failure(ExitCode::refused,
                      fmt::format("the container map has {} bytes: that is no whole number of "
                                  "records",
                                  map.size()));
    }
    std::vector<CONTAINER_MAP_RECORD> records(map.size() / sizeof(CONTAINER_MAP_RECORD));
    for (std::size_t i = 0; i < records.size(); ++i) {
        std::memcpy(&records[i], map.data() + i * sizeof(CONTAINER_MAP_RECORD),
                    sizeof(CONTAINER_MAP_RECORD));
    }
    return records;
}

std::vector<Container> containersOf(Acquisition& acquisition) {
    std::vector<Container> containers;
    const auto records = containerMap(acquisition);
    for (std::size_t i = 0; i < records.size(); ++i) {
        const CONTAINER_MAP_RECORD& record = records[i];
        if ((record.bFlags & CONTAINER_MAP_VALID_CONTAINER) == 0) continue;
        Container container{};
        container.index = static_cast<BYTE>(i);
        container.name = utf8(std::basic_string_view<WCHAR>(record.wszGuid, 40));
        container.isDefault = (record.bFlags & CONTAINER_MAP_DEFAULT_CONTAINER) != 0;
        container.isKeyExchange = record.wKeyExchangeKeySizeBits != 0;
        container.mapBits =
            container.isKeyExchange ? record.wKeyExchangeKeySizeBits : record.wSigKeySizeBits;
        container.certificateFile =
            fmt::format("{}{:02}", container.isKeyExchange ? "kxc" : "ksc", i);
        container.certificate =
            certificateOf(acquisition.readFile("mscp", container.certificateFile),
                          "mscp/" + container.certificateFile);
        container.pin = acquisition.pinOfContainer(container.index);
        containers.push_back(std::move(container));
    }
    return containers;
}

Container containerAt(Acquisition& acquisition, unsigned index) {
    auto containers = containersOf(acquisition);
    const auto found =
        std::find_if(containers.begin(), containers.end(),
                     [&](const Container& container) { return container.index == index; });
    if (found == containers.end()) {
        throw Failure(ExitCode::usage, fmt::format("the card has no container {} (it has {})",
                                                   index, containers.size()));
    }
    return std::move(*found);
}

DWORD keySpecOf(const Container& container) {
    const PublicKey& key = container.certificate.key;
    if (!key.isEc) return container.isKeyExchange ? AT_KEYEXCHANGE : AT_SIGNATURE;
    if (key.bits <= 256) return container.isKeyExchange ? AT_ECDHE_P256 : AT_ECDSA_P256;
    if (key.bits <= 384) return container.isKeyExchange ? AT_ECDHE_P384 : AT_ECDSA_P384;
    return container.isKeyExchange ? AT_ECDHE_P521 : AT_ECDSA_P521;
}

}  // namespace cardhost
