#include "pin/dialog_loop.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "log/logger.h"
#include "pin/dialog_library.h"
#include "pin/verification_outcome.h"
#include "session/entry_log.h"

namespace KelmoraID {
namespace {

// The dialog's one function. It returns 0 when a PIN was entered.
using PromptCodeEntry = std::int32_t(__cdecl*)(std::int32_t kind, std::int32_t, std::int32_t,
                                               std::int32_t reason, const char* title,
                                               const char* text, std::int32_t attempts,
                                               std::int32_t, char* pin);

enum class CodeKind : std::int32_t { authentication = 0, signature = 1, other = 2 };
enum class Reason : std::int32_t { firstTime = 0, invalidLength = 1, wrongPin = 2 };

// The library's own constants.
constexpr std::int32_t secondArgument = 30;
constexpr std::int32_t thirdArgument = 1;
constexpr std::int32_t eighthArgument = 0;
constexpr std::int32_t attemptsShownAtFirst = 5;

CodeKind kindOf(PinId pinId) {
    switch (pinId) {
        case PinId::user:
            return CodeKind::authentication;
        case PinId::signature:
            return CodeKind::signature;
        default:
            return CodeKind::other;
    }
}

// Everything between two showings of the dialog. quirk: dialog-buffer. The PIN's buffer is neither
// cleared between the tries nor wiped at the end.
class Dialog {
public:
    Dialog(PromptCodeEntry prompt, PinId pinId, const std::string& contextText)
        : prompt_(prompt), kind_(kindOf(pinId)), contextText_(contextText) {
        std::fill(pin_.begin(), pin_.end() - 1, '0');
    }

    // Whether a PIN was entered.
    bool ask(Reason reason) {
        const bool hasText = !contextText_.empty();
        return prompt_(static_cast<std::int32_t>(kind_), secondArgument, thirdArgument,
                       static_cast<std::int32_t>(reason), hasText ? "Message" : nullptr,
                       hasText ? contextText_.c_str() : nullptr, attempts_, eighthArgument,
                       pin_.data()) == 0;
    }

    const BYTE* pin() const { return reinterpret_cast<const BYTE*>(pin_.data()); }
    // The length of the text, or the whole buffer should the library have left no terminator.
    DWORD pinLength() const {
        return static_cast<DWORD>(std::find(pin_.begin(), pin_.end(), '\0') - pin_.begin());
    }
    void showAttempts(std::int32_t attempts) { attempts_ = attempts; }

private:
    PromptCodeEntry prompt_;
    CodeKind kind_;
    std::string contextText_;
    std::int32_t attempts_ = attemptsShownAtFirst;
    std::array<char, 13> pin_{};  // The library is not told the size: twelve and a terminator.
};

}  // namespace

DWORD runPinDialog(PinId pinId, PDWORD pcAttemptsRemaining, const CardContext& context,
                   CardOperations& card, const AttemptVerifyPin& attemptVerifyPin) {
    constexpr auto unusable = static_cast<DWORD>(SCARD_E_UNEXPECTED);
    DialogLibrary library;
    if (context.codeEntryLibPath.empty()) {
        logToFile(authenticationScope, "Error: The codeEntryLibPath was not set.");
    } else {
        library.load(context.codeEntryLibPath);
    }
    if (!library.isLoaded()) {
        library.logFailedLoad(authenticationScope);
        return exitWith(authenticationScope, unusable);
    }
    const FARPROC found = library.function("promptCodeEntryDefault");
    if (found == nullptr) {
        logToFile(authenticationScope, "Unable to find the function in the DLL!");
        return exitWith(authenticationScope, unusable);
    }
    // By way of the function type that compilers let any other be made from.
    const auto prompt = reinterpret_cast<PromptCodeEntry>(reinterpret_cast<void (*)()>(found));

    Dialog dialog(prompt, pinId, context.pinContextString);
    for (bool entered = dialog.ask(Reason::firstTime); entered;) {
        const auto [aborted, outcome] =
            attemptGuarded(attemptVerifyPin, dialog.pin(), dialog.pinLength());
        if (aborted) {
            library.giveUp();  // quirk: dialog-stays-loaded. It is not freed on this path.
            return unusable;
        }
        if (!outcome) {
            logDebug("PIN length was invalid. Try again.");
            entered = dialog.ask(Reason::invalidLength);
            continue;
        }
        if (outcome->status == PinVerifyResult::verified) {
            return exitWith(authenticationScope, SCARD_S_SUCCESS);
        }
        // quirk: last-attempts-untold. A PIN that ends the loop leaves the caller's number
        // unwritten.
        if (outcome->attemptsRemaining <= 0 || card.isPinBlocked(pinId)) {
            return exitWithRefusedPin(outcome->status);
        }
        dialog.showAttempts(outcome->attemptsRemaining);
        tellAttempts(pcAttemptsRemaining, outcome->attemptsRemaining);
        entered = dialog.ask(Reason::wrongPin);
    }
    return exitWith(authenticationScope, static_cast<DWORD>(SCARD_W_WRONG_CHV));
}

}  // namespace KelmoraID
