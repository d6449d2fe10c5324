// A card that says what a recorded one said: exactly, and in the recorded order. It stands behind
// the seam of the double of winscard.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "recording/conversation.h"
#include "virtual_card/winscard/card_seam.h"

namespace recording {

class ReplayCard {
public:
    /// Plays the conversation, which has to outlive the card.
    explicit ReplayCard(const Conversation& conversation);
    ReplayCard(const ReplayCard&) = delete;
    ReplayCard& operator=(const ReplayCard&) = delete;

    const CardSeam* seam() const { return &seam_; }
    std::uintptr_t cardHandle() const { return 0x0CA2E; }
    std::uintptr_t contextHandle() const { return 0x0C022; }

    /// Says that the caller is about to call this of the driver. Where the conversation goes on
    /// with another call, and the same one comes later, it goes on there: a recording of many calls
    /// serves a caller that makes some of them. Without such announcements the exchanges follow
    /// each other.
    void beginCall(const std::string& text);

    /// Whether every exchange was asked for.
    bool isAtEnd() const { return next_ == exchanges_.size(); }
    /// What was asked that the recording has not, and what stood next in it; empty while all is
    /// well. From then on every command fails as if the card was removed.
    const std::string& mismatch() const { return mismatch_; }

    /// Is shown each exchange: the command, and what came back.
    std::function<void(ByteView command, const Reply& reply)> onExchange;

private:
    Reply exchange(ByteView command);

    CardSeam seam_{};
    const Conversation& conversation_;
    std::vector<const Exchange*> exchanges_;
    std::vector<std::size_t> callOf_;  // of each exchange: the number of its call
    std::vector<std::pair<std::string, std::size_t>> calls_;  // text and first exchange
    std::size_t next_ = 0;
    std::size_t call_ = 0;  // the last announced call that is in the recording; 0 for none
    std::string announced_;
    bool isInRecording_ = false;
    std::string mismatch_;
};

}  // namespace recording
