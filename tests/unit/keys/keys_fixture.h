// What the tests of keys stand on: an acquired record with chosen keys, a scripted card behind it,
// and both log channels.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "session/card_context.h"
#include "session/entry_points.h"
#include "support/fineid_script.h"
#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/scripted_card.h"

namespace KelmoraID::testing {

enum class TestKey { rsa1024, rsa2048, p256, p384, p521 };

/// An acquired card of a type: container 0 with one key, containers 1 and, where the type has it, 2
/// with another. No command was sent for it.
class KeysFixture {
public:
    KeysFixture(CardType type, TestKey authKey, TestKey signKey);
    explicit KeysFixture(CardType type, TestKey key = TestKey::rsa2048)
        : KeysFixture(type, key, key) {}

    PlatformCallsGuard calls;
    LogCapture log;
    ScriptedCard card;
    PlatformRecord record;
    CARD_DATA* data = &record.data;
    CardContext& context;

    /// The steps that ask the card whether the user PIN is open: SELECT of the root, VERIFY.
    void expectPinQuery(const std::string& reply = "9000");

private:
    CardType type_;
};

/// The bytes 00, 01, 02 ... of that length.
ByteVector counting(std::size_t length);
ByteVector reversed(ByteVector value);

}  // namespace KelmoraID::testing
