// Each entry point with each call of the platform failing in turn, but for those to the card: the
// status and the lines of both log channels, compared whole with tests/data/calls. Only natively,
// where the linker leads every call of the platform by way of the test. That each failure has the
// status that the rules give for it is tests/faults' to say.
#include <algorithm>
#include <cstring>

#include "calls.h"
#include "desktop.h"
#include "native_platform.h"
#include "support/platform_calls.h"
#include "support/scripted_service.h"

namespace boundary {
namespace {

using KelmoraID::testing::countsPlatformCalls;
using KelmoraID::testing::platformCalls;

class CountedCalls {
public:
    CountedCalls() { countsPlatformCalls = true; }
    ~CountedCalls() {
        countsPlatformCalls = false;
        resetPlatform();
    }
    CountedCalls(const CountedCalls&) = delete;
    CountedCalls& operator=(const CountedCalls&) = delete;
};

// Calls once well, and once with each call of the platform that this made failing.
void failEach(Calls& calls, const std::string& entryPoint, const std::function<DWORD()>& work) {
    const auto clear = [] {
        platformCalls().counts.clear();
        platformCalls().failures.clear();
    };
    clear();
    calls.call(entryPoint, work);
    auto made = platformCalls().counts;
    std::erase_if(made, [](const auto& entry) { return entry.first.starts_with("SCard"); });
    for (const auto& [name, count] : made) {
        for (int nth = 1; nth <= count; ++nth) {
            clear();
            platformCalls().failCall(name, nth);
            calls.call(entryPoint + ": " + name + " " + std::to_string(nth), work);
        }
    }
    clear();
}

std::string seen(int cardType) {
    const CountedCalls counted;
    KelmoraID::testing::ScriptedService service;
    Desktop desktop;
    service.reply = {{2, "{}"}};
    writeSetting(Setting::serviceAddresses, "http://one:80;http://two:80");
    Calls calls(cardType);
    PlatformSide& card = calls.card;
    CARD_DATA& data = calls.data;
    failEach(calls, "CardAcquireContext", [&] {
        const DWORD status = card.acquire();
        calls.tell("exchanges", static_cast<DWORD>(service.exchanges.size()));
        service.exchanges.clear();
        card.release();
        return status;
    });
    writeSetting(Setting::serviceAddresses, "");
    card.acquireOrFail();
    const auto tellAnswer = [&](const Answer& answer) {
        calls.tell("size", static_cast<DWORD>(answer.bytes.size()));
        return answer.status;
    };
    failEach(calls, "CardGetProperty: PIN Information",
             [&] { return tellAnswer(card.property(WIDE_TEXT("PIN Information"), 1)); });
    WCHAR context[] = WIDE_TEXT("a text");
    failEach(calls, "CardSetProperty: PIN Context String", [&] {
        return data.pfnCardSetProperty(&data, WIDE_TEXT("PIN Context String"),
                                       reinterpret_cast<PBYTE>(context), sizeof(context), 0);
    });
    std::uint64_t window = 1;
    platformCalls().IsWindow = [](HWND) -> BOOL { return TRUE; };
    failEach(calls, "CardSetProperty: Parent Window", [&] {
        return data.pfnCardSetProperty(&data, WIDE_TEXT("Parent Window"),
                                       reinterpret_cast<PBYTE>(&window), sizeof(window), 0);
    });
    const std::string pin = card.pin(virtual_card::PinRole::Authentication);
    failEach(calls, "CardAuthenticateEx", [&] {
        *desktop.script = {};
        desktop.script->pins[0] = pin.c_str();
        std::string typed = pin;
        const DWORD status =
            data.pfnCardAuthenticateEx(&data, 1, 0, reinterpret_cast<PBYTE>(typed.data()),
                                       static_cast<DWORD>(typed.size()), nullptr, nullptr, nullptr);
        calls.tell("shown", static_cast<DWORD>(desktop.script->calls));
        return status;
    });
    writeSetting(Setting::companionStartCommand, "");
    for (BYTE container = 0; container < card.containers(); ++container) {
        const std::string of = " of container " + std::to_string(container);
        failEach(calls, "CardGetContainerInfo" + of, [&] {
            CONTAINER_INFO info{};
            const DWORD status = data.pfnCardGetContainerInfo(&data, container, 0, &info);
            calls.tell("sizes", std::to_string(info.cbSigPublicKey) + " and " +
                                    std::to_string(info.cbKeyExPublicKey));
            calls.free(info.pbSigPublicKey);
            calls.free(info.pbKeyExPublicKey);
            return status;
        });
        card.openKey(container);
        failEach(calls, "CardSignData" + of,
                 [&] { return tellAnswer(card.signMessage(container, "a message")); });
    }
    if (const BYTE container = card.rsaContainer(); container < card.containers()) {
        card.openKey(container);
        const Bytes block = encryptedTo(card.certificate(container), "a message");
        failEach(calls, "CardRSADecrypt",
                 [&] { return tellAnswer(card.decrypt(container, block)); });
    }
    if (card.isEcKey(0)) {
        card.openKey(0);
        Bytes own = card.publicKey(0);
        failEach(calls, "CardConstructDHAgreement and CardDeriveKey", [&] {
            CARD_DH_AGREEMENT_INFO info{};
            info.dwVersion = 2;
            info.dwPublicKey = static_cast<DWORD>(own.size());
            info.pbPublicKey = own.data();
            const DWORD status = data.pfnCardConstructDHAgreement(&data, &info);
            if (status != 0) return status;
            const DWORD derived = tellAnswer(card.derive(info.bSecretAgreementIndex));
            data.pfnCardDestroyDHAgreement(&data, info.bSecretAgreementIndex, 0);
            return derived;
        });
    }
    return calls.text();
}

// RSA keys alone, a second signing key, and keys of both kinds.
class FailingPlatform : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(CardType, FailingPlatform, ::testing::Values(3, 4, 6),
                         ::testing::PrintToStringParamName());

TEST_P(FailingPlatform, AnswersExactlyAsItIsKept) {
    expectAsKept("failing-platform-card-type-" + std::to_string(GetParam()) + ".txt",
                 seen(GetParam()));
}

}  // namespace
}  // namespace boundary
