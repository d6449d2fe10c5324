// What goes on between the platform, the driver and the card, told to those who want to know:
// --trace shows it on standard error as it goes, a recording keeps it. The text form is that of
// docs/conversation-format.md; the bytes of PINs are masked.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "bytes.h"
#include "platform/minidriver.h"
#include "recording/conversation.h"

namespace cardhost {

class Trace {
public:
    /// `isShown` lets it be shown on standard error, `kept` takes what is to be kept (null for
    /// nothing) and has to outlive the trace. The listener, if any, is the first of onCall.
    explicit Trace(bool isShown, recording::Conversation* kept = nullptr,
                   std::function<void(const std::string& call)> listener = {});
    /// Shows the end of the conversation.
    ~Trace();
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

    /// Whether anyone wants to know of commands: then a seam has to stand between driver and
    /// reader.
    bool isOn() const;
    /// Whether commands would help at least to tell how a long call gets on.
    bool isUseful() const;

    /// The commands that have been answered so far.
    std::size_t exchanges() const;

    /// What the driver's entry points have taken so far, from call to return.
    std::chrono::nanoseconds timeInCalls() const;

    /// Is told of each entry point ahead of its call.
    void onCall(std::function<void(const std::string& call)> listener) const;

    /// A card was connected to.
    void begin(ByteView atr, recording::Protocol protocol) const;
    /// An entry point is called, and came back.
    void entryPoint(const std::string& call) const;
    void result(DWORD status) const;
    /// A command goes to the card, and what came back for it. A reply that does not tell the time
    /// it took took that since the command.
    void command(ByteView command) const;
    void reply(recording::Reply reply) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace cardhost
