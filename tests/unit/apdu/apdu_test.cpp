#include "apdu/apdu.h"

#include <gtest/gtest.h>

#include "apdu/select.h"
#include "apdu/verify.h"
#include "support/log_capture.h"
#include "support/scripted_card.h"

namespace KelmoraID::FINEID {
namespace {

using testing::bytes;
using testing::LogCapture;
using testing::LogLines;

TEST(Apdu, ThrowsWhileItsOutcomeIsUnset) {
    const Select select(SelectMode::masterFile, std::nullopt, false);
    EXPECT_THROW(select.success(), std::bad_optional_access);
    EXPECT_THROW(select.Sw1Sw2(), std::bad_optional_access);
}

TEST(Apdu, LogsACommandWithAllItsFields) {
    LogCapture log;
    Select select(SelectMode::childDirectory, bytes("50 16"), true);
    select.logCommand(select.buildRequest());
    EXPECT_EQ(
        log.output(),
        (LogLines{{"DEBUG", "SELECT cmd: CLA=00, INS=a4, P1=01, P2=04, Lc=02, Data=5016, Le=00"}}));
}

TEST(Apdu, LogsAbsentFieldsAsEmptyTexts) {
    LogCapture log;
    Verify verify(0x11, CardType::type3, std::nullopt);
    verify.logCommand(verify.buildRequest());
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "VERIFY cmd: CLA=00, INS=20, P1=00, P2=11, Lc=, Data=, Le="}}));
}

TEST(Apdu, LogsAResponse) {
    LogCapture log;
    const Select select(SelectMode::masterFile, std::nullopt, true);
    select.logResponse(ApduResponse(bytes("62 04 80 02 0A BC 90 00")));
    select.logResponse(ApduResponse(bytes("06 82")));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "SELECT res: Data=620480020abc, SW=9000"},
                                      {"DEBUG", "SELECT res: Data=, SW=0682"}}));
    EXPECT_EQ(log.file(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID::FINEID
