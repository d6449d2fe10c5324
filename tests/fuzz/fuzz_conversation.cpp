// A conversation's text, over any bytes: what is read is written and read again, replayed, blanked
// and shown as a page.
#include <set>

#include "anonymous.h"
#include "fuzz_target.h"
#include "recording/parser.h"
#include "recording/replay_card.h"
#include "recording/writer.h"
#include "report_page.h"

namespace {

/// The same without the line that an exchange stands on.
void requireSame(const recording::Conversation& read, const recording::Conversation& again) {
    fuzz::require(read.atr == again.atr && read.protocol == again.protocol, "the head stays");
    fuzz::require(read.entries.size() == again.entries.size(), "no entry comes or goes");
}

void replay(const recording::Conversation& conversation) {
    recording::ReplayCard card(conversation);
    for (const auto& entry : conversation.entries) {
        const auto* exchange = std::get_if<recording::Exchange>(&entry);
        if (exchange == nullptr) continue;
        const auto command = exchange->command.withoutPin();
        std::vector<std::uint8_t> reply(recording::longestReply);
        auto length = static_cast<std::uint32_t>(reply.size());
        const auto protocol = conversation.protocol == recording::Protocol::t0 ? 1U : 2U;
        const auto status = static_cast<std::uint32_t>(card.seam()->transmit(
            card.seam()->self, card.cardHandle(), protocol, command.data(),
            static_cast<std::uint32_t>(command.size()), reply.data(), &length));
        fuzz::require(status == exchange->reply.failure, "the recorded status comes back");
        fuzz::require(length == exchange->reply.bytes.size(), "the recorded reply comes back");
    }
    fuzz::require(card.isAtEnd() && card.mismatch().empty(), "a conversation replays itself");
}

/// No tag stands on the page but the ones that the page is made of.
void requireOwnTags(const std::string& html) {
    static const std::set<std::string> own{
        "html", "head", "meta", "link", "title", "style",   "body",    "main",    "h1",
        "h2",   "h3",   "p",    "div",  "span",  "i",       "b",       "ul",      "li",
        "dl",   "dt",   "dd",   "code", "br",    "section", "details", "summary", "!DOCTYPE"};
    for (std::size_t at = html.find('<'); at != std::string::npos; at = html.find('<', at + 1)) {
        const std::size_t start = at + (html.compare(at + 1, 1, "/") == 0 ? 2 : 1);
        const std::size_t end = html.find_first_of(" >\n", start);
        fuzz::require(own.count(html.substr(start, end - start)) == 1, "only tags of the page");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    recording::Conversation conversation;
    try {
        conversation = recording::parse({reinterpret_cast<const char*>(data), size});
    } catch (const recording::FormatError& error) {
        fuzz::require(error.line() > 0, "a refusal names its line");
        return 0;
    }
    const std::string text = recording::textOf(conversation);
    requireSame(conversation, recording::parse(text));
    fuzz::require(recording::textOf(recording::parse(text)) == text, "what is written stays so");
    replay(conversation);
    cardhost::ReportPage page;
    page.title = std::string(reinterpret_cast<const char*>(data), std::min<std::size_t>(size, 99));
    page.conversation = conversation;
    requireOwnTags(cardhost::htmlOf(page));
    cardhost::anonymize(conversation);
    fuzz::require(recording::textOf(conversation).size() >= conversation.entries.size(),
                  "a blanked one can be written");
    replay(conversation);
    return 0;
}
