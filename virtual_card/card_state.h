// All that a command works upon: what the card holds, what is selected and verified, and what
// waits to be fetched or completed by the next command.
#pragma once

#include <map>
#include <memory>

#include "virtual_card/file_system.h"
#include "virtual_card/private_key.h"
#include "virtual_card/security_state.h"

namespace virtual_card {

/// Reply data that GET RESPONSE is to fetch.
struct WaitingReply {
    Bytes data;
    std::uint16_t status = sw::ok;  ///< given with the last byte
};

struct CardState {
    explicit CardState(const Generation& row);

    const Generation& generation;
    FileSystem files;
    SecurityState security;
    WaitingReply waiting;
    /// The blocks of a chained command gathered so far. No value when no chain is open.
    std::optional<Bytes> chain;

    /// The private key of a row, loaded at its first use.
    PrivateKey& key(const KeyRow& row);
    bool isOpen(const KeyRow& row) { return security.pinOf(row.pin).verified; }

    void reset();

private:
    std::unique_ptr<Botan::RandomNumberGenerator> random_;
    std::map<const KeyRow*, PrivateKey> keys_;
};

}  // namespace virtual_card
