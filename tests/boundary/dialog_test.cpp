// The companion application's dialog, with a real library behind it. Only where there is a desktop:
// without one the logon screen is assumed, and the platform prompts.
#include <cstring>

#include "dialog/code_entry_script.h"
#include "platform_side.h"
#include "support/statuses.h"

namespace boundary {
namespace {

// A desktop that has only just been started has no window in front yet, and the driver then takes
// it for the logon screen.
bool desktopIsUp() {
    constexpr ULONGLONG patience = 60'000;
    const ULONGLONG began = GetTickCount64();
    while (GetTickCount64() - began < patience) {
        GetDesktopWindow();  // Asks for it anew, should its start have been given up on.
        char name[64];
        if (GetClassNameA(GetForegroundWindow(), name, sizeof(name)) > 0) return true;
        Sleep(50);
    }
    return false;
}

class ExternalDialog : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(desktopIsUp());
        library = LoadLibraryA((programFolder() + "\\CodeEntryLibrary.dll").c_str());
        ASSERT_NE(library, nullptr);
        const auto find = reinterpret_cast<CodeEntryScript* (*)()>(
            reinterpret_cast<void (*)()>(GetProcAddress(library, "codeEntryScript")));
        ASSERT_NE(find, nullptr);
        script = find();
        *script = {};
        writeSetting(Setting::companionStartCommand, programFolder() + "\\Companion.exe");
        card.acquireOrFail();
        card.reader.clearExchanges();
    }
    void TearDown() override {
        writeSetting(Setting::companionStartCommand, "");
        FreeLibrary(library);
    }
    DWORD authenticate(PIN_ID pinId, DWORD* attempts = nullptr, DWORD flags = 0) {
        if (attempts != nullptr) *attempts = 77;
        return card.data.pfnCardAuthenticateEx(&card.data, pinId, flags, nullptr, 0, nullptr,
                                               nullptr, attempts);
    }
    HMODULE library = nullptr;
    CodeEntryScript* script = nullptr;
    PlatformSide card{5};
};

TEST_F(ExternalDialog, MakesThePinExternal) {
    PIN_INFO info{};
    const Answer answer = card.property(WIDE_TEXT("PIN Information"), 1);
    ASSERT_EQ(answer.bytes.size(), sizeof(info));
    std::memcpy(&info, answer.bytes.data(), sizeof(info));
    EXPECT_EQ(info.PinType, ExternalPinType);
}

TEST_F(ExternalDialog, AsksForThePinAndVerifiesIt) {
    script->pins[0] = "1234";
    EXPECT_EQ(authenticate(1), 0u);
    ASSERT_EQ(script->calls, 1);
    const CodeEntryShown& shown = script->shown[0];
    EXPECT_EQ(shown.kind, 0);
    EXPECT_EQ(shown.second, 30);
    EXPECT_EQ(shown.third, 1);
    EXPECT_EQ(shown.reason, 0);
    EXPECT_EQ(shown.attempts, 5);
    EXPECT_EQ(shown.eighth, 0);
    EXPECT_FALSE(shown.hasTitle);
    EXPECT_STREQ(shown.buffer, "000000000000");
}

TEST_F(ExternalDialog, ShowsThePinContext) {
    WCHAR context[] = WIDE_TEXT("Sign the agreement");
    ASSERT_EQ(card.data.pfnCardSetProperty(&card.data, WIDE_TEXT("PIN Context String"),
                                           reinterpret_cast<PBYTE>(context), sizeof(context), 0),
              0u);
    script->pins[0] = "123456";
    EXPECT_EQ(authenticate(4), 0u);
    EXPECT_EQ(script->shown[0].kind, 1);
    EXPECT_TRUE(script->shown[0].hasTitle);
    EXPECT_STREQ(script->shown[0].text, "Sign the agreement");
}

TEST_F(ExternalDialog, AsksAgainAfterAWrongPinAndAfterOneOfAWrongLength) {
    script->pins[0] = "4321";
    script->pins[1] = "12";
    script->pins[2] = "1234";
    DWORD attempts = 0;
    EXPECT_EQ(authenticate(1, &attempts), 0u);
    ASSERT_EQ(script->calls, 3);
    EXPECT_EQ(script->shown[1].reason, 2);
    EXPECT_EQ(script->shown[1].attempts, 4);
    EXPECT_EQ(script->shown[2].reason, 1);
    EXPECT_EQ(script->shown[2].attempts, 4) << "the attempts shown stay";
    EXPECT_EQ(attempts, 4u);
}

TEST_F(ExternalDialog, ThatIsCancelledIsAWrongPinWithoutAVerify) {
    EXPECT_EQ(authenticate(1), status::wrongPin);
    EXPECT_EQ(script->calls, 1);
    EXPECT_TRUE(card.reader.exchanges().empty());
}

TEST_F(ExternalDialog, ThatIsUpWhileTheCardIsResetStillLeadsToASignature) {
    script->pins[0] = "1234";
    card.reader.failTransmit(1, {virtual_card::Fault::Kind::ResetCard, 0});
    EXPECT_EQ(authenticate(1), 0u);
    EXPECT_EQ(script->calls, 1);
    EXPECT_EQ(card.reader.reconnects(), 1u);
    EXPECT_EQ(card.signMessage(0, "a message").status, 0u);
}

TEST_F(ExternalDialog, EndsWhenThereAreNoAttemptsLeft) {
    for (auto& pin : script->pins) pin = "4321";
    DWORD attempts = 0;
    EXPECT_EQ(authenticate(1, &attempts), status::wrongPin);
    EXPECT_EQ(script->calls, 5);
    EXPECT_EQ(attempts, 1u) << "the PIN that ends the loop leaves the attempts unwritten";
}

TEST_F(ExternalDialog, IsRefusedInASilentContext) {
    EXPECT_EQ(authenticate(1, nullptr, CARD_PIN_SILENT_CONTEXT), status::unsupportedFeature);
    EXPECT_EQ(script->calls, 0);
}

TEST_F(ExternalDialog, IsNotThereForACommandInQuotationMarks) {
    writeSetting(Setting::companionStartCommand,
                 "\"" + programFolder() + "\\Companion.exe\" /tray");
    PIN_INFO info{};
    const Answer answer = card.property(WIDE_TEXT("PIN Information"), 1);
    ASSERT_EQ(answer.bytes.size(), sizeof(info));
    std::memcpy(&info, answer.bytes.data(), sizeof(info));
    EXPECT_EQ(info.PinType, AlphaNumericPinType);
}

}  // namespace
}  // namespace boundary
