#include "fault_rules.h"
#include "support/statuses.h"

#include <algorithm>
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
BYTE p1(const Step& step) {
    return step.command.at(2);
}
bool has(const Step& step, unsigned statusWord) {
    return step.answered && step.statusWord == statusWord;
}
bool isGood(const Step& step) {
    return has(step, 0x9000);
}

void put(Step& step, const Exchange& exchange, const Fault* fault) {
    Bytes bytes = exchange.reply;
    if (fault != nullptr && fault->kind == Fault::Kind::ClaimedLength) {
        bytes.resize(std::min<std::size_t>(fault->value, longestReply));
    }
    step.wasReset = exchange.code == status::resetCard;
    step.answered = exchange.code == 0 && bytes.size() >= 2;
    step.leftCode = exchange.code == status::insufficientBuffer ? exchange.code : 0;
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

// The answer to a VERIFY with a PIN.
DWORD statusOfVerify(const Step& step) {
    if (!step.answered) return status::unexpected;
    if ((step.statusWord & 0xFFF0) == 0x63C0) return status::wrongPin;
    switch (step.statusWord) {
        case 0x9000:
            return status::success;
        case 0x6300:
        case 0x6700:  // not a form of PIN that the card takes
        case 0x6983:
            return status::wrongPin;
        case 0x6984:
            return status::blockedPin;
        default:
            return status::unexpected;
    }
}

Verdict judgePin(const Step& step, bool) {
    constexpr std::size_t limitsNeed = 15;
    constexpr BYTE longestPin = 12;
    switch (ins(step)) {
        case 0x20:
            return statusOfVerify(step);
        case 0xCB:
            if (!isGood(step) || step.data.size() < limitsNeed) return status::unexpected;
            // Limits that no PIN keeps: it is not tried.
            if (step.data[14] > step.data[11] || step.data[14] > longestPin)
                return status::wrongPin;
            return std::nullopt;
        default:
            if (isGood(step)) return std::nullopt;
            return status::unexpected;
    }
}

// The status of a signature command is that of its status word's row; a word without a row, or with
// one that has no code of the platform's, is 0.
DWORD statusByRow(const Step& step) {
    if (step.leftCode != 0) return step.leftCode;
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
    if (isGood(step)) return std::nullopt;
    return status::securityViolation;
}

// --- The reading of files: which command has to follow which answer

bool selectsApplication(const Step& step) {
    return ins(step) == 0xA4 && p1(step) == 0x04;
}
bool isSecondApplication(const Step& step) {
    return step.command.at(5) == 0xA0 && step.command.at(9) == 0x77;
}
// The commands of PIN sequences want no control parameters, those of file reading always do.
bool isOfSequence(const Step& step) {
    return ins(step) != 0xA4 || step.command.at(3) == 0x0C;
}

enum class Role {
    application,
    identifier,
    wholePath,
    fromRoot,
    file,
    fileByPath,
    fileByLastForm,
    read
};

// The whole path goes out under P1 09 both for a directory and for a file; what went before tells.
Role roleOf(const Step& step, const Step* before) {
    if (ins(step) == 0xB0) return Role::read;
    switch (p1(step)) {
        case 0x04:
            return Role::application;
        case 0x01:
            return Role::identifier;
        case 0x00:
            return Role::fromRoot;
        case 0x02:
            return step.command.at(4) == 2 ? Role::file : Role::fileByPath;
        default:
            return before != nullptr && ins(*before) == 0xA4 && p1(*before) == 0x02
                       ? Role::fileByLastForm
                       : Role::wholePath;
    }
}

bool isWhole(const Step& step, Role role) {
    if (!isGood(step)) return false;
    if (role == Role::read) return step.data.size() == step.command.back();
    const bool isFile =
        role == Role::file || role == Role::fileByPath || role == Role::fileByLastForm;
    return !isFile || !step.data.empty();  // Without control parameters there is no size.
}

// What may follow a step within the reading of a file; nothing: the reading ends.
std::vector<Role> followersOf(const Step& step, Role role) {
    const bool noSuchForm = has(step, 0x6A86);
    const bool notFound = has(step, 0x6A82);
    if (isWhole(step, role)) {
        switch (role) {
            case Role::application:
            case Role::identifier:
                return {Role::identifier, Role::file};
            case Role::wholePath:
                return {Role::file};
            case Role::fromRoot:
                return {Role::fromRoot, Role::file};
            case Role::read:
                return {Role::read, Role::identifier};
            default:
                return {Role::read};
        }
    }
    switch (role) {
        case Role::application:
            return {isSecondApplication(step) ? Role::identifier : Role::application};
        case Role::identifier:
            if (noSuchForm) return {Role::wholePath};
            [[fallthrough]];
        case Role::wholePath:
            if (noSuchForm || notFound) return {Role::fromRoot};
            return {};
        case Role::file:
            if (isGood(step)) return {};
            return {Role::fileByPath};
        case Role::fileByPath:
            if (isGood(step)) return {};
            return {Role::fileByLastForm};
        default:
            return {};
    }
}

// The readings of a journey: each begins by selecting the application.
std::vector<std::span<const Step>> readingsOf(std::span<const Step> steps) {
    std::vector<std::span<const Step>> readings;
    std::size_t begin = 0;
    for (std::size_t at = 1; at <= steps.size(); ++at) {
        const bool ends = at == steps.size() ||
                          (selectsApplication(steps[at]) && !selectsApplication(steps[at - 1]));
        if (!ends) continue;
        readings.push_back(steps.subspan(begin, at - begin));
        begin = at;
    }
    return readings;
}

// Whether every chunk of the good reading has arrived. A reading in which one has not must have
// ended where it failed, and each failure before that must have been followed as it has to be.
bool isComplete(std::span<const Step> good, std::span<const Step> run) {
    auto arrived = run.begin();
    bool complete = true;
    for (const Step& chunk : good) {
        if (ins(chunk) != 0xB0) continue;
        arrived = std::find_if(arrived, run.end(), [&](const Step& step) {
            return step.command == chunk.command && isGood(step) && step.data == chunk.data;
        });
        if (arrived == run.end()) {
            complete = false;
            break;
        }
        ++arrived;
    }
    for (std::size_t at = 0; at < run.size(); ++at) {
        const Role role = roleOf(run[at], at == 0 ? nullptr : &run[at - 1]);
        const std::vector<Role> followers = followersOf(run[at], role);
        if (at + 1 == run.size()) {
            if (complete) continue;
            EXPECT_TRUE(followers.empty()) << "ends after " << toHex(run[at].command);
            continue;
        }
        const Role next = roleOf(run[at + 1], &run[at]);
        // The acquisition selects the application once ahead of all readings.
        const bool selectsAgain = role == Role::application && next == Role::application &&
                                  (isGood(run[at]) || isSecondApplication(run[at]));
        EXPECT_TRUE(selectsAgain || std::ranges::find(followers, next) != followers.end())
            << toHex(run[at].command) << " is followed by " << toHex(run[at + 1].command);
    }
    return complete;
}

}  // namespace

Steps stepsOf(const std::vector<Exchange>& exchanges, std::size_t n, const Fault& fault,
              bool reconnects) {
    Steps steps;
    bool isSecondTry = false;
    for (std::size_t at = 0; at < exchanges.size(); ++at) {
        const Exchange& exchange = exchanges[at];
        const bool isTriedAgain = exchange.code == status::resetCard && at + 1 < exchanges.size() &&
                                  exchanges[at + 1].command == exchange.command;
        if (isTriedAgain) {
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

DWORD statusOfAcquisition(const Steps& good, const Steps& run) {
    const auto wanted = readingsOf(good);
    const auto had = readingsOf(run);
    if (!isComplete(wanted.front(), had.front())) {
        EXPECT_EQ(had.size(), 1u) << "without its information the card is not read further";
        return status::unexpected;
    }
    // Each certificate is read, also behind one that could not be.
    EXPECT_EQ(had.size(), wanted.size());
    bool complete = true;
    for (std::size_t at = 1; at < std::min(had.size(), wanted.size()); ++at) {
        complete = isComplete(wanted[at], had[at]) && complete;
    }
    return complete ? status::success : status::fileNotFound;
}

DWORD statusOfPin(const Steps& good, const Steps& run) {
    // On some cards the limits are looked for in files first. Whatever comes of that, the PIN is
    // tried: there are limits for the case.
    const auto sequenceOf = [](const Steps& steps) {
        const auto begin = std::ranges::find_if(
            steps, [](const Step& step) { return isOfSequence(step) && ins(step) != 0xB0; });
        return std::span<const Step>(begin, steps.end());
    };
    const auto sequence = sequenceOf(run);
    const auto limits = std::span<const Step>(run).first(run.size() - sequence.size());
    const auto goodLimits =
        std::span<const Step>(good).first(good.size() - sequenceOf(good).size());
    EXPECT_EQ(limits.empty(), goodLimits.empty());
    if (!limits.empty()) isComplete(goodLimits, limits);
    return statusOfSequence(sequenceOf(good), sequence, judgePin);
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
