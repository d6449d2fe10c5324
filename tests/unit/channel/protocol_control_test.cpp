#include "channel/protocol_control.h"

#include <gtest/gtest.h>

#include "support/scripted_card.h"

namespace KelmoraID {
namespace {

using testing::ScriptedCard;

TEST(ProtocolControl, IsTheT0RecordForACardOnT0) {
    ScriptedCard card;
    card.setProtocol(SCARD_PROTOCOL_T0);
    EXPECT_EQ(protocolControlOf(ScriptedCard::handle).dwProtocol, SCARD_PROTOCOL_T0);
    EXPECT_EQ(card.statusCalls(), 1);
}

TEST(ProtocolControl, IsTheT1RecordForAnyOtherAnswer) {
    ScriptedCard card;
    for (const DWORD protocol : {DWORD{0}, SCARD_PROTOCOL_T1, DWORD{3}, DWORD{0x10000}}) {
        card.setProtocol(protocol);
        EXPECT_EQ(protocolControlOf(ScriptedCard::handle).dwProtocol, SCARD_PROTOCOL_T1);
    }
}

TEST(ProtocolControl, IsTheT1RecordAfterAFailedCall) {
    ScriptedCard card;
    card.setProtocol(SCARD_PROTOCOL_T0);
    card.setStatusCode(SCARD_W_REMOVED_CARD);
    const SCARD_IO_REQUEST record = protocolControlOf(ScriptedCard::handle);
    EXPECT_EQ(record.dwProtocol, SCARD_PROTOCOL_T1);
    EXPECT_EQ(record.cbPciLength, sizeof(SCARD_IO_REQUEST));
}

}  // namespace
}  // namespace KelmoraID
