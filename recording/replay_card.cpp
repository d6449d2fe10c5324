#include "recording/replay_card.h"

#include <algorithm>

#include "recording/meanings.h"

namespace recording {

namespace {

// PC/SC codes, states and protocols.
constexpr std::uint32_t success = 0;
constexpr std::uint32_t invalidHandle = 0x80100003;
constexpr std::uint32_t insufficientBuffer = 0x80100008;
constexpr std::uint32_t protocolMismatch = 0x8010000F;
constexpr std::uint32_t removedCard = 0x80100069;
constexpr std::uint32_t stateSpecific = 6;

std::int32_t status(std::uint32_t code) {
    return static_cast<std::int32_t>(code);
}

std::uint32_t numberOf(Protocol protocol) {
    return protocol == Protocol::t0 ? 1 : 2;
}

std::string shown(const WrittenCommand& command) {
    constexpr std::size_t longest = 48;
    WrittenCommand head;
    head.bytes.assign(command.bytes.begin(),
                      command.bytes.begin() +
                          static_cast<std::ptrdiff_t>(std::min(longest, command.bytes.size())));
    return hexText(head) + (command.bytes.size() > longest ? " ..." : "") + " (" +
           meaningOfCommand(command.withoutPin()) + ")";
}

}  // namespace

ReplayCard::ReplayCard(const Conversation& conversation) : conversation_(conversation) {
    calls_.emplace_back("", 0);  // what stands ahead of the first call
    for (const Entry& entry : conversation.entries) {
        if (const auto* call = std::get_if<Call>(&entry)) {
            calls_.emplace_back(call->text, exchanges_.size());
        } else if (const auto* exchange = std::get_if<Exchange>(&entry)) {
            exchanges_.push_back(exchange);
            callOf_.push_back(calls_.size() - 1);
        }
    }
    seam_.self = this;
    seam_.readerName = "Recording";
    seam_.establishContext = [](void* self, std::uintptr_t* context) {
        *context = static_cast<ReplayCard*>(self)->contextHandle();
        return status(success);
    };
    seam_.connect = [](void* self, std::uintptr_t, std::uint32_t, std::uint32_t protocols,
                       std::uintptr_t* card, std::uint32_t* activeProtocol) {
        const auto* replay = static_cast<ReplayCard*>(self);
        *activeProtocol = numberOf(replay->conversation_.protocol);
        *card = replay->cardHandle();
        return status((protocols & *activeProtocol) != 0 ? success : protocolMismatch);
    };
    seam_.reconnect = [](void* self, std::uintptr_t card, std::uint32_t, std::uint32_t protocols,
                         std::uint32_t, std::uint32_t* activeProtocol) {
        const auto* replay = static_cast<ReplayCard*>(self);
        if (card != replay->cardHandle()) return status(invalidHandle);
        *activeProtocol = numberOf(replay->conversation_.protocol);
        return status((protocols & *activeProtocol) != 0 ? success : protocolMismatch);
    };
    seam_.status = [](void* self, std::uintptr_t card, std::uint32_t* state,
                      std::uint32_t* protocol, std::uint8_t* atr, std::uint32_t* atrLength) {
        const auto* replay = static_cast<ReplayCard*>(self);
        if (card != replay->cardHandle()) return status(invalidHandle);
        const Bytes& bytes = replay->conversation_.atr;
        if (*atrLength < bytes.size()) return status(insufficientBuffer);
        std::copy(bytes.begin(), bytes.end(), atr);
        *atrLength = static_cast<std::uint32_t>(bytes.size());
        *state = stateSpecific;
        *protocol = numberOf(replay->conversation_.protocol);
        return status(success);
    };
    seam_.transmit = [](void* self, std::uintptr_t card, std::uint32_t protocol,
                        const std::uint8_t* command, std::uint32_t commandLength,
                        std::uint8_t* reply, std::uint32_t* replyLength) {
        auto* replay = static_cast<ReplayCard*>(self);
        if (card != replay->cardHandle()) return status(invalidHandle);
        if (protocol != numberOf(replay->conversation_.protocol)) return status(protocolMismatch);
        const ByteView bytes(command, commandLength);
        const Reply answer = replay->exchange(bytes);
        if (replay->onExchange) replay->onExchange(bytes, answer);
        const std::uint32_t room = *replyLength;
        *replyLength = static_cast<std::uint32_t>(answer.bytes.size());
        if (answer.failure != 0) return status(answer.failure);
        if (room < answer.bytes.size()) return status(insufficientBuffer);
        std::copy(answer.bytes.begin(), answer.bytes.end(), reply);
        return status(success);
    };
}

void ReplayCard::beginCall(const std::string& text) {
    announced_ = text;
    isInRecording_ = false;
    // Each call is played once: from the one after the last announced on.
    for (std::size_t at = call_ + 1; at < calls_.size(); ++at) {
        if (calls_[at].first != text) continue;
        call_ = at;
        next_ = calls_[at].second;
        isInRecording_ = true;
        return;
    }
}

Reply ReplayCard::exchange(ByteView command) {
    const Reply removed{{}, removedCard, std::nullopt};
    if (!mismatch_.empty()) return removed;
    const bool isThere = next_ < exchanges_.size() &&
                         (announced_.empty() || (isInRecording_ && callOf_[next_] == call_));
    if (isThere && exchanges_[next_]->command.matches(command)) return exchanges_[next_++]->reply;
    mismatch_ = "the recording has not what was asked: " + shown(WrittenCommand(command)) + "; ";
    if (isThere) {
        mismatch_ += "next in it, on line " + std::to_string(exchanges_[next_]->line) + ", is " +
                     shown(exchanges_[next_]->command);
    } else if (!announced_.empty() && !isInRecording_) {
        mismatch_ += "it has no further call of " + announced_;
    } else if (next_ < exchanges_.size()) {
        mismatch_ += "in it " + announced_ + " ends there, ahead of line " +
                     std::to_string(exchanges_[next_]->line);
    } else {
        mismatch_ += "it ends there";
    }
    return removed;
}

}  // namespace recording
