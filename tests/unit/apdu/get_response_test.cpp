#include "apdu/get_response.h"

#include <gtest/gtest.h>

#include "support/scripted_card.h"

namespace KelmoraID::FINEID {
namespace {

using testing::bytes;

TEST(GetResponse, SendsItsLeIfThereIsOne) {
    EXPECT_EQ(GetResponse(BYTE{0x10}).getName(), "GET RESPONSE");
    EXPECT_EQ(GetResponse(BYTE{0x10}).buildRequest().bytes, bytes("00 C0 00 00 10"));
    EXPECT_EQ(GetResponse(BYTE{0x00}).buildRequest().bytes, bytes("00 C0 00 00 00"));
    EXPECT_EQ(GetResponse(std::nullopt).buildRequest().bytes, bytes("00 C0 00 00"));
}

TEST(GetResponse, TakesSw1Of90ForSuccess) {
    for (const auto& [reply, success] : {std::pair{"90 00", true}, std::pair{"90 11", true},
                                         std::pair{"61 10", false}, std::pair{"62 82", false}}) {
        GetResponse command(BYTE{0x00});
        EXPECT_FALSE(command.handleResponse(ApduResponse(bytes(reply))).has_value()) << reply;
        EXPECT_EQ(command.success(), success) << reply;
    }
}

}  // namespace
}  // namespace KelmoraID::FINEID
