#include "fault_rules.h"
#include "support/statuses.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <span>

namespace boundary {
namespace {

using virtual_card::Exchange;
using virtual_card::Fault;

// The driver's larger buffer. A length beyond it is cut, and what no byte has arrived for is 0.
constexpr std::size_t longestReply = 512;

BYTE ins(const Step& step) {
    return step.command.at(1);
}
bool has(const Step& step, unsigned statusWord) {
    return step.answered && step.statusWord == statusWord;
}
void put(Step& step, const Exchange& exchange, const Fault* fault) {
    Bytes bytes = exchange.reply;
    if (fault != nullptr && fault->kind == Fault::Kind::ClaimedLength) {
        bytes.resize(std::min<std::size_t>(fault->value, longestReply));
    }
    // A reply to a GET RESPONSE that was too long for its room leaves its length and no bytes.
    const bool isTooLong = exchange.code == status::insufficientBuffer;
    if (isTooLong) bytes = {0, 0};
    step.wasReset = exchange.code == status::resetCard;
    step.answered = (exchange.code == 0 || isTooLong) && bytes.size() >= 2;
    if (!step.answered) return;
    step.statusWord = bytes[bytes.size() - 2] * 256u + bytes.back();
    step.lastData.assign(bytes.begin(), bytes.end() - 2);
    step.data.insert(step.data.end(), step.lastData.begin(), step.lastData.end());
}

// --- Sequences: one command after the other, until one has an answer that ends them

// A verdict on a step: the status that ends the sequence here, or nothing to go on.
using Verdict = std::optional<DWORD>;
using Judge = Verdict (*)(const Step& step, bool isLast);

// PINs and deciphering try a command again after a reset, signatures do not.
DWORD statusOfSequence(std::span<const Step> good, std::span<const Step> run, Judge judge,
                       bool reconnects = true) {
    for (std::size_t at = 0; at < run.size(); ++at) {
        EXPECT_FALSE(reconnects && run[at].wasReset) << "no second try after a reset";
        if (at >= good.size() || run[at].command != good[at].command) {
            ADD_FAILURE() << "a command too many: " << toHex(run[at].command);
            break;
        }
        const Verdict verdict = judge(run[at], at + 1 == good.size());
        if (!verdict) continue;
        EXPECT_EQ(at + 1, run.size()) << "goes on after " << toHex(run[at].command);
        return *verdict;
    }
    ADD_FAILURE() << "stops without a cause after " << run.size() << " commands";
    return status::unexpected;
}

// The status of a signature command is that of its status word's row; a word without a row, or with
// one that has no code of the platform's, is 0.
DWORD statusByRow(const Step& step) {
    if (!step.answered) return status::unexpected;
    if (step.statusWord >> 8 == 0x67) return status::invalidParameter;
    switch (step.statusWord) {
        case 0x6A86:
            return status::invalidParameter;
        case 0x6982:
        case 0x6A84:
            return status::securityViolation;
        case 0x6985:
            return status::cardNotAuthenticated;
        case 0x6986:
            return status::unsupportedFeature;
        case 0x6A88:
            return status::fileNotFound;
        default:
            return status::success;
    }
}

Verdict judgeSignature(const Step& step, bool isLast) {
    const bool environmentIsFixed = ins(step) == 0x22 && has(step, 0x6D00);
    if ((isGood(step) && !isLast) || environmentIsFixed) return std::nullopt;
    return statusByRow(step);
}

Verdict judgeDecipher(const Step& step, bool isLast) {
    if (ins(step) == 0x22) {
        if (isGood(step)) return std::nullopt;
        return status::unexpected;
    }
    if (has(step, 0x6982)) return status::securityViolation;
    if (!isGood(step) && !has(step, 0x6282)) return status::unexpected;
    if (!isLast) return std::nullopt;
    return step.lastData.empty() ? status::unexpected : status::success;
}

Verdict judgeAgreement(const Step& step, bool isLast) {
    const bool asksForThePin = ins(step) == 0xA4 || ins(step) == 0x20;
    if (!asksForThePin) return judgeDecipher(step, isLast);
    if (!isGood(step)) return status::securityViolation;
    if (!isLast) return std::nullopt;
    return status::success;
}

// --- Errors as pointers, by the commands that report so

constexpr std::size_t bytesUpToTheLimits = 15;  // of the answer to GET DATA

struct Failure {
    bool failed = false;
    bool asPointer = false;  // at the command itself; where no answer came, there is none
};

Failure failureOf(const Step& step) {
    const bool isRefused = step.answered && !isGood(step);
    const BYTE p1 = step.command.at(2), p2 = step.command.at(3);
    switch (ins(step)) {
        case 0xA4: {
            if (p2 != 0x0C) return {};  // file reading
            const bool byName = p1 == 0x04;
            return {!isGood(step), isRefused || (byName && !isGood(step))};
        }
        case 0xCB: {
            const bool isEndless = step.statusWord >> 8 == 0x61;
            const bool isShort = isGood(step) && step.data.size() < bytesUpToTheLimits;
            return {!isGood(step) || isShort,
                    (isRefused && !isEndless) || (isShort && !step.data.empty())};
        }
        case 0x20: {
            constexpr unsigned words[] = {0x9000, 0x6300, 0x6700, 0x6983, 0x6984};
            const bool tells = std::ranges::find(words, step.statusWord) != std::end(words) ||
                               (step.statusWord & 0xFFF0) == 0x63C0;
            return {!step.answered || !tells, step.answered && !tells};
        }
        case 0x22:
            return {!isGood(step), isRefused && p2 == 0xB8};  // not that of a signature
        default:
            return {};
    }
}

// --- The answers of a run in their order: what has to go out next is held against what did

class Replay {
public:
    explicit Replay(const Steps& run) : run_(run) {}

    /// The answer to that command of file reading, which has to be the next one.
    const Step& read(const Bytes& command) { return next(command); }
    /// The same of the sequences around a PIN, which are tried again after a reset.
    const Step& carryOut(const Bytes& command) {
        const Step& step = next(command);
        EXPECT_FALSE(step.wasReset) << "no second try after a reset";
        return step;
    }
    void expectEnd() const {
        if (isAstray_ || at_ == run_.size()) return;
        ADD_FAILURE() << "goes on with " << toHex(run_[at_].command);
    }

private:
    const Step& next(const Bytes& command) {
        static const Step none;
        if (isAstray_) return none;
        if (at_ < run_.size() && run_[at_].command == command) return run_[at_++];
        isAstray_ = true;  // One report is enough.
        ADD_FAILURE() << "there should follow " << toHex(command) << ", and there does "
                      << (at_ < run_.size() ? toHex(run_[at_].command) : "nothing");
        return none;
    }

    const Steps& run_;
    std::size_t at_ = 0;
    bool isAstray_ = false;
};

// --- Elements of a file (ISO/IEC 8825-1): a tag of one byte, a length of one to three

using Value = std::optional<Bytes>;

// The value of the n-th element (from 1) of that tag. What is broken ends the search.
Value elementOf(const Value& within, BYTE tag, int n = 1) {
    if (!within) return std::nullopt;
    std::span<const BYTE> rest = *within;
    while (rest.size() >= 2) {
        std::size_t header = 2;
        std::size_t length = rest[1];
        if (length == 0x81 && rest.size() >= 3) {
            header = 3;
            length = rest[2];
        } else if (length == 0x82 && rest.size() >= 4) {
            header = 4;
            length = rest[2] * 256u + rest[3];
        } else if (length >= 0x80) {
            return std::nullopt;
        }
        if (header + length > rest.size()) return std::nullopt;
        const auto value = rest.subspan(header, length);
        if (rest[0] == tag && --n == 0) return Bytes(value.begin(), value.end());
        rest = rest.subspan(header + length);
    }
    return std::nullopt;
}

Value descend(Value value, std::initializer_list<BYTE> tags) {
    for (const BYTE tag : tags) value = elementOf(value, tag);
    return value;
}

// --- The reading of files: which command has to follow which answer

const Bytes objectDirectoryPath = fromHex("3F005031");
const Bytes cardInformationPath = fromHex("3F005032");
constexpr std::size_t longestChunk = 127;

Bytes selectOf(BYTE p1, BYTE p2, const Bytes& data) {
    Bytes command{0x00, 0xA4, p1, p2, static_cast<BYTE>(data.size())};
    command.insert(command.end(), data.begin(), data.end());
    command.push_back(0x00);
    return command;
}

void selectApplication(Replay& run) {
    static const Bytes identifier = fromHex("A000000063504B43532D3135");
    static const Bytes secondIdentifier = fromHex("A000000077030C60000000FE00000500");
    if (!isGood(run.read(selectOf(0x04, 0x00, identifier)))) {
        run.read(selectOf(0x04, 0x00, secondIdentifier));
    }
}

// Each identifier of the path under the one before, to the first that is refused.
const Step& walk(Replay& run, BYTE p1, const Bytes& path) {
    for (std::size_t at = 0;; at += 2) {
        const auto first = path.begin() + static_cast<std::ptrdiff_t>(at);
        const Step& step = run.read(selectOf(p1, 0x04, Bytes(first, first + 2)));
        if (!isGood(step) || at + 4 > path.size()) return step;
    }
}

bool selectDirectory(Replay& run, const Bytes& path) {
    const Step* last = &walk(run, 0x01, path);
    if (has(*last, 0x6A86)) last = &run.read(selectOf(0x09, 0x04, path));
    if (has(*last, 0x6A86) || has(*last, 0x6A82)) last = &walk(run, 0x00, path);
    return isGood(*last);
}

std::size_t fileSizeOf(const Bytes& controlParameters) {
    const Value parameters = elementOf(controlParameters, 0x62);
    Value size = elementOf(parameters, 0x80);
    if (!size) size = elementOf(parameters, 0x81);
    std::size_t number = 0;
    for (const BYTE byte : size.value_or(Bytes{})) number = number << 8 | byte;
    return number;
}

// The content of a file, or nothing. What states no size, or comes as a chunk of another length,
// passes for the file itself.
Value readFile(Replay& run, const Bytes& path) {
    if (path.size() < 4 || path.size() % 2 != 0) {
        ADD_FAILURE() << "no rule for a path of " << path.size() << " bytes";
        return std::nullopt;
    }
    const Bytes name(path.end() - 2, path.end());
    if (!selectDirectory(run, Bytes(path.begin(), path.end() - 2))) return std::nullopt;
    const Step* selected = &run.read(selectOf(0x02, 0x04, name));
    if (!isGood(*selected)) selected = &run.read(selectOf(0x02, 0x04, path));
    if (!isGood(*selected)) selected = &run.read(selectOf(0x09, 0x04, path));
    if (!isGood(*selected)) return std::nullopt;
    const std::size_t size = fileSizeOf(selected->data);
    if (size == 0) return selected->data;
    Bytes content;
    while (content.size() < size) {
        const std::size_t at = content.size();
        const auto wanted = static_cast<BYTE>(std::min(size - at, longestChunk));
        const Step& chunk = run.read(
            {0x00, 0xB0, static_cast<BYTE>(at >> 8 & 0xFF), static_cast<BYTE>(at & 0xFF), wanted});
        if (!isGood(chunk)) return std::nullopt;
        if (chunk.data.size() != wanted) return chunk.data;
        content.insert(content.end(), chunk.data.begin(), chunk.data.end());
    }
    return content;
}

// A file that the object directory names by an element of that tag.
Value readDirectory(Replay& run, BYTE tag) {
    const Value path = descend(readFile(run, objectDirectoryPath), {tag, 0x30, 0x04});
    return path && !path->empty() ? readFile(run, *path) : std::nullopt;
}

Bytes readCertificate(Replay& run, int index) {
    selectApplication(run);
    const Value entry = elementOf(readDirectory(run, 0xA4), 0x30, index + 1);
    const Value path = descend(entry, {0xA1, 0x30, 0x30, 0x04});
    if (!path || path->empty()) return {};
    return readFile(run, *path).value_or(Bytes{});
}

// Each certificate's reading begins with the object directory, whose first SELECT is always this.
int certificatesIn(const Steps& good) {
    const Bytes first = selectOf(0x02, 0x04, {0x50, 0x31});
    return static_cast<int>(std::ranges::count(good, first, &Step::command));
}

bool isTaken(const Bytes& certificate) {
    const PCCERT_CONTEXT context =
        CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, certificate.data(),
                                     static_cast<DWORD>(certificate.size()));
    if (context == nullptr) return false;
    CertFreeCertificateContext(context);
    return true;
}

// --- PINs

bool selectsFile(const Step& step) {
    return ins(step) == 0xA4;
}
bool isVerify(const Step& step) {
    return ins(step) == 0x20;
}
bool carriesPin(const Step& step) {
    return isVerify(step) && step.command.size() > 5;
}

// How a PIN goes to a card, taken from a good run.
class PinWay {
public:
    explicit PinWay(const Steps& good) {
        const auto verify = std::ranges::find_if(good, carriesPin);
        if (verify == good.end()) {
            ADD_FAILURE() << "no PIN went out";
            return;
        }
        verify_ = verify->command;
        auto first = verify;
        while (first != good.begin() && selectsFile(*std::prev(first)) &&
               std::prev(first)->command.at(3) == 0x0C) {
            --first;
        }
        for (; first != verify; ++first) selections_.push_back(first->command);
        // The second PIN lives in a directory of its own.
        isSecond_ = selections_.size() > 1;
        for (auto step = good.begin(); step != verify; ++step) {
            if (step->command.at(1) != 0xCB) continue;
            for (auto asked = good.begin(); asked <= step; ++asked) {
                asksFor_.push_back(asked->command);
            }
        }
    }

    // What became of one PIN. No value: it counts as one of a wrong length.
    std::optional<PinEnd> attempt(Replay& run, const std::string& pin) const {
        const std::optional<Limits> limits =
            asksFor_.empty() ? limitsInFiles(run) : limitsByCommand(run);
        if (!limits) return PinEnd{status::unexpected, {}, {}};
        if (pin.size() < limits->least || pin.size() > limits->most) return std::nullopt;
        if (!select(run)) return PinEnd{status::unexpected, {}, {}};
        return endOf(run.carryOut(verifyOf(pin)));
    }

    // Whether the card says that no try is left.
    bool isBlocked(Replay& run) const {
        if (!select(run)) return false;
        const Step& step = run.carryOut({0x00, 0x20, 0x00, verify_.at(3)});
        return has(step, 0x63C0) || has(step, 0x6984);
    }

private:
    struct Limits {
        std::size_t least;
        std::size_t most;
    };

    // On some cards in their files. Whatever comes of that, there are limits.
    Limits limitsInFiles(Replay& run) const {
        constexpr Limits usual{4, 12};
        selectApplication(run);
        const Value entry = elementOf(readDirectory(run, 0xA8), 0x30, isSecond_ ? 2 : 1);
        const Value attributes = descend(entry, {0xA1, 0x30});
        const Value least = elementOf(attributes, 0x02, 1);
        const Value most = elementOf(attributes, 0x02, 2);
        const bool isWhole = elementOf(attributes, 0x03) && elementOf(attributes, 0x80) && least &&
                             most && least->size() == 1 && !most->empty();
        if (!isWhole || least->front() == 0 || most->front() == 0) return usual;
        return {least->front(), most->front()};
    }

    std::optional<Limits> limitsByCommand(Replay& run) const {
        const Step* answer = nullptr;
        for (const Bytes& command : asksFor_) {
            answer = &run.carryOut(command);
            if (!isGood(*answer)) return std::nullopt;
        }
        if (answer->data.size() < 15) return std::nullopt;
        return Limits{answer->data[14], answer->data[11]};
    }

    bool select(Replay& run) const {
        return std::ranges::all_of(
            selections_, [&](const Bytes& command) { return isGood(run.carryOut(command)); });
    }

    Bytes verifyOf(const std::string& pin) const {
        constexpr std::size_t padded = 12;
        Bytes command(verify_.begin(), verify_.begin() + 4);
        const std::size_t length = verify_.at(4) == padded ? padded : pin.size();
        command.push_back(static_cast<BYTE>(length));
        command.insert(command.end(), pin.begin(), pin.end());
        command.resize(5 + length);
        return command;
    }

    static std::optional<PinEnd> endOf(const Step& step) {
        if (!step.answered) return PinEnd{status::unexpected, {}, {}};
        if ((step.statusWord & 0xFFF0) == 0x63C0) {
            return PinEnd{status::wrongPin, static_cast<DWORD>(step.statusWord & 0xF), {}};
        }
        switch (step.statusWord) {
            case 0x9000:
                return PinEnd{status::success, {}, {}};
            case 0x6300:
                return PinEnd{status::wrongPin, static_cast<DWORD>(-1), {}};
            case 0x6700:  // not a form of PIN that the card takes
                return std::nullopt;
            case 0x6983:
                return PinEnd{status::wrongPin, 0, {}};
            case 0x6984:
                return PinEnd{status::blockedPin, 0, {}};
            default:
                return PinEnd{status::unexpected, {}, {}};
        }
    }

    Bytes verify_;
    std::vector<Bytes> selections_;
    std::vector<Bytes> asksFor_;  // the commands that end with the one for the limits
    bool isSecond_ = false;
};

}  // namespace

bool isGood(const Step& step) {
    return has(step, 0x9000);
}

Steps stepsOf(const std::vector<Exchange>& exchanges, std::size_t n, const Fault& fault,
              bool reconnects) {
    Steps steps;
    bool isSecondTry = false;
    for (std::size_t at = 0; at < exchanges.size(); ++at) {
        const Exchange& exchange = exchanges[at];
        const bool isTriedAgain = exchange.code == status::resetCard && at + 1 < exchanges.size() &&
                                  exchanges[at + 1].command == exchange.command;
        if (isTriedAgain) {
            // File reading asks for the rest again, whatever came.
            EXPECT_TRUE(reconnects || exchange.command.at(1) == 0xC0)
                << "sent again although the card did not come back: " << toHex(exchange.command);
            isSecondTry = true;
            continue;
        }
        const bool gathers = exchange.command.at(1) == 0xC0 && !steps.empty();
        if (!gathers) steps.emplace_back().command = exchange.command;
        put(steps.back(), exchange, at + 1 == n ? &fault : nullptr);
        // One try more, and no third.
        if (isSecondTry || !reconnects) steps.back().wasReset = false;
        isSecondTry = false;
    }
    return steps;
}

int errorsAsPointers(const Steps& run) {
    int errors = 0;
    bool asksForLimits = false;
    for (const Step& step : run) {
        const bool selectsByName = ins(step) == 0xA4 && step.command.at(2) == 0x04;
        // With limits in files the name is selected with an answer.
        if (selectsByName && step.command.at(3) == 0x0C) asksForLimits = true;
        const auto [failed, asPointer] = failureOf(step);
        if (asPointer) ++errors;
        if (asksForLimits && failed) ++errors;
        if (failed || ins(step) == 0xCB) asksForLimits = false;
    }
    return errors;
}

CardContent contentOf(const Steps& good, const Steps& run) {
    Replay replay(run);
    selectApplication(replay);  // once ahead of all reading
    selectApplication(replay);
    CardContent content;
    content.status = status::unexpected;
    const Value record = elementOf(readFile(replay, cardInformationPath), 0x30);
    const Value serial = elementOf(record, 0x04);
    const Value label = elementOf(record, 0x80);
    const bool isKnown = elementOf(record, 0x02) && elementOf(record, 0x0C) && serial &&
                         !serial->empty() && label && !label->empty() && label->front() != 0;
    if (isKnown) {
        content.status = status::success;
        content.serialNumber = *serial;
        // Each certificate is read, also behind one that could not be.
        for (int index = 0; index < certificatesIn(good); ++index) {
            content.certificates.push_back(readCertificate(replay, index));
        }
        if (std::ranges::find(content.certificates, Bytes{}) != content.certificates.end()) {
            content.status = status::fileNotFound;
        } else if (!std::ranges::all_of(content.certificates, isTaken)) {
            content.status = status::notEnoughMemory;
        }
    }
    replay.expectEnd();
    return content;
}

DWORD statusOfAcquisition(const Steps& good, const Steps& run) {
    return contentOf(good, run).status;
}

PinEnd endOfPin(const Steps& good, const Steps& run, const std::string& pin) {
    Replay replay(run);
    const PinWay way(good);
    const std::optional<PinEnd> end = way.attempt(replay, pin);
    replay.expectEnd();
    return end.value_or(PinEnd{status::wrongPin, {}, {}});
}

PinEnd endOfDialog(const Steps& good, const Steps& run, const std::vector<std::string>& pins) {
    constexpr BYTE firstTime = 0, invalidLength = 1, wrongPin = 2;
    Replay replay(run);
    const PinWay way(good);
    PinEnd end{status::wrongPin, {}, {{firstTime, 5}}};
    for (const std::string& pin : pins) {
        const std::optional<PinEnd> attempt = way.attempt(replay, pin);
        if (!attempt) {
            end.prompts.push_back({invalidLength, end.prompts.back().attempts});
            continue;
        }
        const bool isRefused =
            attempt->status == status::wrongPin || attempt->status == status::blockedPin;
        if (!isRefused || static_cast<std::int32_t>(*attempt->attempts) <= 0 ||
            way.isBlocked(replay)) {
            end.status = attempt->status;
            replay.expectEnd();
            return end;
        }
        end.attempts = attempt->attempts;
        end.prompts.push_back({wrongPin, *attempt->attempts});
    }
    // The user gives up, which counts as a wrong PIN.
    replay.expectEnd();
    return end;
}

DWORD statusOfSignature(const Steps& good, const Steps& run) {
    return statusOfSequence(good, run, judgeSignature, false);
}

DWORD statusOfDecryption(const Steps& good, const Steps& run) {
    return statusOfSequence(good, run, judgeDecipher);
}

DWORD statusOfAgreement(const Steps& good, const Steps& run) {
    return statusOfSequence(good, run, judgeAgreement);
}

}  // namespace boundary
