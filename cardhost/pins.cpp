#include "pins.h"

#include <algorithm>

#include <botan/mem_ops.h>
#include <fmt/format.h>

#include "files.h"
#include "options.h"

namespace cardhost {

namespace {

constexpr std::size_t longestPinFile = 4096;
constexpr DWORD attemptsUntouched = 0xFFFFFFFE;
constexpr DWORD attemptsNotTold = 0xFFFFFFFF;

/// A PIN in memory, wiped with the object.
class PinValue {
public:
    explicit PinValue(std::string text) : text_(std::move(text)) {}
    ~PinValue() { Botan::secure_scrub_memory(text_.data(), text_.size()); }
    PinValue(const PinValue&) = delete;
    PinValue& operator=(const PinValue&) = delete;

    const std::string& text() const { return text_; }

private:
    std::string text_;
};

std::string firstLineOf(const std::string& file) {
    Bytes content = contentOf(os::pathOf(file), longestPinFile);
    std::string line(content.begin(), std::find_if(content.begin(), content.end(), [](auto byte) {
                         return byte == '\n' || byte == '\r';
                     }));
    Botan::secure_scrub_memory(content.data(), content.size());
    if (line.empty()) {
        throw Failure(ExitCode::file, fmt::format("{} has no PIN in its first line", file));
    }
    return line;
}

/// The PINs to try, one after the other.
class PinSource {
public:
    PinSource(const PinOptions& options, PIN_ID pin) : options_(options), pin_(pin) {}

    std::optional<std::string> next() {
        if (!options_.pins.empty()) {
            return count_ < options_.pins.size() ? std::optional(options_.pins[count_++])
                                                 : std::nullopt;
        }
        if (!options_.file.empty()) {
            return count_++ == 0 ? std::optional(firstLineOf(options_.file)) : std::nullopt;
        }
        const auto typed = os::askWithoutEcho(fmt::format("PIN {}: ", pinText(pin_)));
        return typed && !typed->empty() ? typed : std::nullopt;
    }

    bool hasMore() const {
        return options_.pins.empty() ? options_.file.empty() : count_ < options_.pins.size();
    }

private:
    const PinOptions& options_;
    PIN_ID pin_;
    std::size_t count_ = 0;
};

Failure failureOf(PIN_ID pin, const PinAnswer& answer) {
    const std::string which = pinText(pin);
    const std::string status = statusText(answer.status);
    if (answer.status == static_cast<DWORD>(SCARD_W_CHV_BLOCKED)) {
        return {ExitCode::pinBlocked, fmt::format("PIN {} is blocked: {}", which, status)};
    }
    if (answer.status != static_cast<DWORD>(SCARD_W_WRONG_CHV)) {
        return {
            ExitCode::refused,
            fmt::format("the driver refused CardAuthenticateEx with PIN {}: {}", which, status)};
    }
    if (!answer.attemptsRemaining) {
        return {ExitCode::wrongPin,
                fmt::format("PIN {}: not a length that the card takes; no attempt was used: {}",
                            which, status)};
    }
    if (*answer.attemptsRemaining == attemptsNotTold) {
        return {ExitCode::wrongPin, fmt::format("PIN {} is wrong; the card does not say how many "
                                                "attempts remain: {}",
                                                which, status)};
    }
    if (*answer.attemptsRemaining == 0) {
        return {
            ExitCode::pinBlocked,
            fmt::format("PIN {} is wrong and now blocked: no attempts remain: {}", which, status)};
    }
    return {ExitCode::wrongPin, fmt::format("PIN {} is wrong; attempts remaining: {}: {}", which,
                                            *answer.attemptsRemaining, status)};
}

bool isExternal(Acquisition& acquisition, PIN_ID pin) {
    return acquisition.propertyAs<PIN_INFO>("PIN Information", pin).PinType == ExternalPinType;
}

}  // namespace

void addPinOptions(Command& command, PinOptions& options) {
    const Option pin =
        command
            .option("--pin", options.pins,
                    "The PIN. Given more than once, the values are tried in turn. Other "
                    "users may see it in the list of processes: prefer the prompt")
            .repeatable()
            .typeName("PIN");
    command.option("--pin-file", options.file, "A file with the PIN in its first line")
        .typeName("FILE")
        .excludes(pin);
}

std::string pinText(PIN_ID pin) {
    switch (pin) {
        case 1:
            return "1 (authentication)";
        case 2:
            return "2 (administrator)";
        case 3:
            return "3 (unblock)";
        case 4:
            return "4 (signature)";
        default:
            return fmt::format("{}", pin);
    }
}

PinAnswer presentPin(Acquisition& acquisition, PIN_ID pin, const std::string& value) {
    std::string copy = value;
    DWORD attempts = attemptsUntouched;
    const DWORD status =
        acquisition.call(fmt::format("CardAuthenticateEx with PIN {}", pin),
                         acquisition.record().pfnCardAuthenticateEx, pin, DWORD{0},
                         reinterpret_cast<PBYTE>(copy.data()), static_cast<DWORD>(copy.size()),
                         static_cast<PBYTE*>(nullptr), static_cast<PDWORD>(nullptr), &attempts);
    Botan::secure_scrub_memory(copy.data(), copy.size());
    return {status, attempts == attemptsUntouched ? std::nullopt : std::optional(attempts)};
}

void verifyPin(Acquisition& acquisition, PIN_ID pin, const PinOptions& options) {
    if (isExternal(acquisition, pin)) {
        const PinAnswer answer = presentPin(acquisition, pin, "");
        if (answer.status != 0) throw failureOf(pin, answer);
        return;
    }
    PinSource source(options, pin);
    auto next = source.next();
    if (!next) throw Failure(ExitCode::usage, "no PIN given");
    while (next) {
        const PinValue value(std::move(*next));
        const PinAnswer answer = presentPin(acquisition, pin, value.text());
        if (answer.status == 0) return;
        const Failure failure = failureOf(pin, answer);
        if (failure.code() != ExitCode::wrongPin || !source.hasMore()) throw failure;
        fmt::print(stderr, "cardhost: {}\n", failure.what());
        next = source.next();
    }
    throw Failure(ExitCode::wrongPin, "no further PIN given");
}

}  // namespace cardhost
