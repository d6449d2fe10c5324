// The companion application's dialog, with a real library behind it. Natively the window in front
// is scripted (desktop.h).
#include <algorithm>
#include <cstring>

#include "calls.h"
#include "desktop.h"
#include "support/statuses.h"

namespace boundary {
namespace {

class ExternalDialog : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Desktop::isUp());
        ASSERT_NE(desktop.script, nullptr) << "the library cannot be loaded";
        script = desktop.script;
        card.acquireOrFail();
        card.reader.clearExchanges();
    }
    DWORD authenticate(PIN_ID pinId, DWORD* attempts = nullptr, DWORD flags = 0) {
        if (attempts != nullptr) *attempts = 77;
        return card.data.pfnCardAuthenticateEx(&card.data, pinId, flags, nullptr, 0, nullptr,
                                               nullptr, attempts);
    }
    Desktop desktop;
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

TEST_F(ExternalDialog, TakesTheOrderToMakeASessionPinAndMakesNone) {
    BYTE untouched = 0x5A;
    PBYTE session = &untouched;
    DWORD size = 77;
    script->pins[0] = "1234";
    EXPECT_EQ(card.data.pfnCardAuthenticateEx(&card.data, 1, CARD_AUTHENTICATE_GENERATE_SESSION_PIN,
                                              nullptr, 0, &session, &size, nullptr),
              0u);
    EXPECT_EQ(script->calls, 1);
    EXPECT_EQ(session, &untouched);
    EXPECT_EQ(untouched, 0x5A);
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(card.signMessage(0, "a message").status, 0u) << "the PIN was verified all the same";
}

#ifdef _WIN32
// A window of the logon screen's class, in front for as long as this stands.
class LogonScreen {
public:
    LogonScreen() : before_(GetForegroundWindow()) {
        WNDCLASSA windowClass{};
        windowClass.lpfnWndProc = DefWindowProcA;
        windowClass.hInstance = GetModuleHandleA(nullptr);
        windowClass.lpszClassName = name;
        RegisterClassA(&windowClass);
        // The one kind that Wine makes without a display. It takes it in front.
        window_ = CreateWindowA(name, "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                windowClass.hInstance, nullptr);
        SetForegroundWindow(window_);
    }
    ~LogonScreen() {
        SetForegroundWindow(before_);
        DestroyWindow(window_);
        UnregisterClassA(name, GetModuleHandleA(nullptr));
    }
    LogonScreen(const LogonScreen&) = delete;
    LogonScreen& operator=(const LogonScreen&) = delete;

    bool isInFront() const { return window_ != nullptr && GetForegroundWindow() == window_; }

private:
    static constexpr const char* name = "LogonUI Logon Window";
    HWND before_;
    HWND window_;
};

TEST_F(ExternalDialog, GivesWayToThePlatformsPromptWhereTheLogonScreenIsInFront) {
    const auto pinType = [&] {
        PIN_INFO info{};
        const Answer answer = card.property(WIDE_TEXT("PIN Information"), 1);
        EXPECT_EQ(answer.bytes.size(), sizeof(info));
        std::memcpy(&info, answer.bytes.data(), std::min(answer.bytes.size(), sizeof(info)));
        return info.PinType;
    };
    {
        const LogonScreen logonScreen;
        ASSERT_TRUE(logonScreen.isInFront());
        EXPECT_EQ(pinType(), AlphaNumericPinType);
        EXPECT_EQ(authenticate(1), status::invalidParameter) << "the PIN is the platform's to ask";
        EXPECT_EQ(card.authenticate(1, "1234"), 0u);
        EXPECT_EQ(script->calls, 0);
    }
    ASSERT_TRUE(Desktop::isUp());
    EXPECT_EQ(pinType(), ExternalPinType) << "and afterwards the dialog is back";
}
#endif

TEST_F(ExternalDialog, IsNotThereForACommandInQuotationMarks) {
    writeSetting(Setting::companionStartCommand,
                 "\"" + programFolder() + "\\Companion.exe\" /tray");
    PIN_INFO info{};
    const Answer answer = card.property(WIDE_TEXT("PIN Information"), 1);
    ASSERT_EQ(answer.bytes.size(), sizeof(info));
    std::memcpy(&info, answer.bytes.data(), sizeof(info));
    EXPECT_EQ(info.PinType, AlphaNumericPinType);
}

// What a person does in front of the dialog, and what that comes to.
struct Prompts {
    const char* what;
    std::vector<const char*> typed;
    PIN_ID pinId = 1;
    DWORD flags = 0;
    /// The exchange with the card that fails, and how; 0 for none.
    std::size_t exchange = 0;
    virtual_card::Fault fault{};
    const WCHAR* context = nullptr;
    /// The companion application's start-up command in the place of its own.
    const char* command = nullptr;
};

std::string seenWith(const Prompts& row) {
    Desktop desktop;
    if (row.command != nullptr) writeSetting(Setting::companionStartCommand, row.command);
    Calls calls(5);
    calls.card.acquireOrFail();
    calls.card.reader.clearExchanges();
    calls.call(std::string("CardAuthenticateEx: ") + row.what, [&] {
        CARD_DATA& data = calls.data;
        if (row.context != nullptr) {
            WideString text(row.context);
            data.pfnCardSetProperty(&data, WIDE_TEXT("PIN Context String"),
                                    reinterpret_cast<PBYTE>(text.data()),
                                    static_cast<DWORD>(text.size()), 0);
        }
        std::copy(row.typed.begin(), row.typed.end(), desktop.script->pins);
        if (row.exchange != 0) calls.card.reader.failTransmit(row.exchange, row.fault);
        DWORD attempts = 77;
        const DWORD status = data.pfnCardAuthenticateEx(&data, row.pinId, row.flags, nullptr, 0,
                                                        nullptr, nullptr, &attempts);
        calls.tell("attempts", attempts);
        for (int at = 0; at < desktop.script->calls && at < CodeEntryScript::most; ++at) {
            const CodeEntryShown& shown = desktop.script->shown[at];
            std::string text;
            for (const auto number : {shown.kind, shown.second, shown.third, shown.reason,
                                      shown.attempts, shown.eighth}) {
                text += std::to_string(number) + " ";
            }
            text += shown.hasTitle ? std::string("'") + shown.text + "' " : "";
            text += std::string(shown.buffer, strnlen(shown.buffer, sizeof(shown.buffer)));
            calls.tell("shown", text);
        }
        return status;
    });
    return calls.text();
}

TEST(ExternalDialogCalls, AnswerExactlyAsTheyAreKept) {
    ASSERT_TRUE(Desktop::isUp());
    using Kind = virtual_card::Fault::Kind;
    const Prompts rows[] = {
        {"the PIN", {"1234"}},
        {"the signature PIN", {"123456"}, 4},
        {"another PIN", {"1234"}, 2},
        {"the unblocking PIN", {"1234"}, 3},
        {"cancelled", {}},
        {"no PIN", {""}},
        {"a wrong PIN, and cancelled", {"4321"}},
        {"a wrong PIN, and the PIN", {"4321", "1234"}},
        {"PINs of three and of thirteen digits, and the PIN", {"123", "1234567890123", "1234"}},
        {"a PIN of twelve digits", {"123456789012"}},
        {"no attempt left", {"4321", "4321", "4321", "4321", "4321"}},
        {"a text of the caller's", {"4321", "1234"}, 1, 0, 0, {}, WIDE_TEXT("Sign it")},
        {"silent", {"1234"}, 1, CARD_PIN_SILENT_CONTEXT},
        {"a session", {"1234"}, 1, 0x10000000},
        {"flags", {"1234"}, 1, 1},
        {"a reset card", {"1234"}, 1, 0, 1, {Kind::ResetCard, 0}},
        {"a card that was pulled out", {"1234"}, 1, 0, 1, {Kind::RemoveCard, 0}},
        {"a VERIFY answered 6984", {"1234", "1234"}, 1, 0, 8, {Kind::StatusWord, 0x6984}},
        {"no folder", {"1234"}, 1, 0, 0, {}, nullptr, "Companion.exe"},
        {"no library", {"1234"}, 1, 0, 0, {}, nullptr, "C:\\nowhere\\Companion.exe"},
    };
    std::string seen;
    for (const Prompts& row : rows) seen += seenWith(row);
    expectAsKept("dialog.txt", seen);
}

}  // namespace
}  // namespace boundary
