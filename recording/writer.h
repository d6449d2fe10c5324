// Writes a conversation as text, line by line as it goes: see docs/conversation-format.md.
#pragma once

#include <functional>
#include <string>

#include "recording/conversation.h"

namespace recording {

class Writer {
public:
    /// Gets each line, without its end.
    using Sink = std::function<void(const std::string& line)>;

    explicit Writer(Sink sink) : sink_(std::move(sink)) {}

    /// The head; nothing but notes may be written ahead of it.
    void begin(ByteView atr, Protocol protocol);
    /// A line of words. Each line of the text is one of its own.
    void note(const std::string& text);
    /// `text` begins with the entry point's name. A byte that would end the line or the text is
    /// written as a question mark.
    void call(const std::string& text);
    /// The bytes of a PIN are masked.
    void command(ByteView command);
    void command(const WrittenCommand& command);
    /// `meaning` explains the code of a failure in a comment; empty for none.
    void reply(const Reply& reply, const std::string& meaning = {});
    /// `meaning` explains the status in a comment; empty for none.
    void result(const Result& result, const std::string& meaning = {});
    /// A line of the driver's log, which begins with an opening bracket.
    void logLine(const std::string& text);
    /// Ends the conversation: a text without this is one that was cut.
    void end();

private:
    void bytes(const char* mark, const std::string& hex, const std::string& tail,
               const std::string& comment);

    Sink sink_;
};

/// The whole conversation.
void write(const Conversation& conversation, Writer& writer);
/// The same, as one text.
std::string textOf(const Conversation& conversation);

}  // namespace recording
