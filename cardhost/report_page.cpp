#include "report_page.h"

#include <algorithm>
#include <array>
#include <cctype>

#include <fmt/format.h>

#include "doctor/log_reader.h"
#include "doctor/printable.h"
#include "recording/meanings.h"
#include "report_style.h"
#include "report_words.h"
#include "status_names.h"
#include "tlv.h"

namespace cardhost {

namespace {

using recording::Exchange;

constexpr std::size_t colours = 5;  // of the strip; the last class is for all the rest
constexpr std::size_t commandsShownAtOnce = 6;
constexpr int deepestTlv = 12;

/// Text for any place between tags or in a quoted attribute.
std::string escaped(std::string_view text) {
    std::string result;
    for (const char character : doctor::printable(text)) {
        if (character == '&') {
            result += "&amp;";
        } else if (character == '<') {
            result += "&lt;";
        } else if (character == '>') {
            result += "&gt;";
        } else if (character == '"') {
            result += "&quot;";
        } else if (character == '\'') {
            result += "&#39;";
        } else {
            result += character;
        }
    }
    return result;
}

std::string timeText(std::optional<recording::Duration> time) {
    if (!time) return {};
    if (time->count() < 10) return "&lt; 0.01 ms";
    const double ms = static_cast<double>(time->count()) / 1000;
    return ms < 10     ? fmt::format("{:.2f} ms", ms)
           : ms < 1000 ? fmt::format("{:.0f} ms", ms)
                       : fmt::format("{:.2f} s", ms / 1000);
}

/// A call with all that happened in it.
struct CallStep {
    std::string text;
    std::vector<const Exchange*> exchanges;
    std::vector<std::string> log;
    const recording::Result* result = nullptr;

    bool isBad() const { return result != nullptr && result->status != 0; }
    bool isWell() const { return result != nullptr && result->status == 0; }

    recording::Duration time() const {
        // A recorded card's commands took what they took, however fast the call is now.
        recording::Duration sum{0};
        for (const Exchange* exchange : exchanges) sum += exchange->reply.time.value_or(sum.zero());
        return std::max(sum, result == nullptr ? sum : result->time.value_or(sum));
    }
};

std::string commandsText(const CallStep& step) {
    const std::size_t count = step.exchanges.size();
    return count == 0 ? "no command" : fmt::format("{} command{}", count, count == 1 ? "" : "s");
}

std::vector<CallStep> stepsOf(const recording::Conversation& conversation) {
    std::vector<CallStep> steps;
    const auto step = [&]() -> CallStep& {
        if (steps.empty()) steps.emplace_back();
        return steps.back();
    };
    for (const recording::Entry& entry : conversation.entries) {
        if (const auto* call = std::get_if<recording::Call>(&entry)) {
            steps.emplace_back();
            steps.back().text = call->text;
        } else if (const auto* exchange = std::get_if<Exchange>(&entry)) {
            step().exchanges.push_back(exchange);
        } else if (const auto* result = std::get_if<recording::Result>(&entry)) {
            step().result = result;
        } else if (const auto* line = std::get_if<recording::LogLine>(&entry)) {
            step().log.push_back(line->text);
        }
    }
    return steps;
}

std::uint16_t statusWordOf(const Exchange& exchange) {
    const auto& bytes = exchange.reply.bytes;
    if (bytes.size() < 2) return 0;
    return static_cast<std::uint16_t>(bytes[bytes.size() - 2] << 8 | bytes[bytes.size() - 1]);
}

/// Whether the card did not do what was asked. Bytes that wait are no failure.
bool isRefused(const Exchange& exchange) {
    const std::uint16_t word = statusWordOf(exchange);
    const auto& command = exchange.command.bytes;
    // The query of a PIN is answered by the tries left.
    const bool isQuery = command.size() >= 2 && command.size() <= 5 && command[1] == 0x20;
    if (isQuery && (word & 0xFFF0) == 0x63C0) return false;
    return exchange.reply.failure != 0 || (word != 0x9000 && (word >> 8) != 0x61);
}

std::string replyWords(const Exchange& exchange) {
    if (exchange.reply.failure != 0) return "failed: " + statusText(exchange.reply.failure);
    const std::string meaning = recording::meaningOfReply(exchange.reply.bytes);
    return meaning.empty() ? fmt::format("status word {:04X}", statusWordOf(exchange)) : meaning;
}

const char* classOf(ReportPage::Mark mark) {
    return mark == ReportPage::Mark::good      ? "good"
           : mark == ReportPage::Mark::unclear ? "unclear"
                                               : "bad";
}

class Page {
public:
    std::string of(const ReportPage& page) {
        const auto steps = stepsOf(page.conversation);
        begin(page);
        found(page);
        times(steps);
        diagram(page, steps);
        add("</main></body></html>\n");
        return std::move(html_);
    }

private:
    void add(std::string_view html) { html_ += html; }

    template <typename... Values>
    void format(fmt::format_string<Values...> form, Values&&... values) {
        html_ += fmt::format(form, std::forward<Values>(values)...);
    }

    void begin(const ReportPage& page) {
        add("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
            "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">"
            "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
            "style-src 'unsafe-inline'; img-src data:\"><link rel=\"icon\" href=\"data:,\">");
        format("<title>{}</title><style>{}</style></head><body><main>\n", escaped(page.title),
               reportStyle);
        format("<h1>{}</h1>\n<p class=\"outcome {}\">{}</p>\n", escaped(page.title),
               classOf(page.mark), escaped(page.outcome));
    }

    void found(const ReportPage& page) {
        if (page.found.empty()) return;
        format("<h2>{}</h2>\n<div class=\"found\">\n", escaped(page.foundHeading));
        for (const auto& group : page.found) {
            format("<section><h3>{}</h3><dl>", escaped(group.heading));
            for (const auto& [label, value] : group.rows) {
                format("<dt>{}</dt><dd>{}</dd>", escaped(label), escaped(value));
            }
            add("</dl></section>\n");
        }
        add("</div>\n");
    }

    void times(const std::vector<CallStep>& steps) {
        std::vector<const CallStep*> longest;
        recording::Duration all{0};
        for (const CallStep& step : steps) {
            all += step.time();
            if (step.time().count() > 0) longest.push_back(&step);
        }
        if (all.count() == 0) return;
        std::stable_sort(longest.begin(), longest.end(), [](const auto* left, const auto* right) {
            return left->time() > right->time();
        });
        if (longest.size() > colours) longest.resize(colours);
        const auto colourOf = [&](const CallStep& step) {
            const auto at = std::find(longest.begin(), longest.end(), &step);
            return static_cast<std::size_t>(at - longest.begin()) < longest.size()
                       ? static_cast<std::size_t>(at - longest.begin())
                       : colours;
        };
        format(
            "<h2>Where the time went</h2>\n<p class=\"dim\">{} in all, in the order of the calls."
            "</p>\n<div class=\"strip\" role=\"img\" aria-label=\"Share of each call\">",
            timeText(all));
        for (const CallStep& step : steps) {
            if (step.time().count() == 0) continue;
            format("<i class=\"c{}\" style=\"flex:{} 1 0\" title=\"{}: {}\"></i>", colourOf(step),
                   step.time().count(), escaped(step.text), timeText(step.time()));
        }
        add("</div>\n<ul class=\"times\">\n");
        for (std::size_t at = 0; at < longest.size(); ++at) {
            format(
                "<li><b class=\"c{}\"></b><span>{} <span class=\"dim\">{}</span></span>"
                "<span>{}</span></li>\n",
                at, escaped(longest[at]->text), commandsText(*longest[at]),
                timeText(longest[at]->time()));
        }
        add("</ul>\n");
    }

    void diagram(const ReportPage& page, const std::vector<CallStep>& steps) {
        isOfLog_ = page.isOfLog;
        add("<h2>What happened</h2>\n<p class=\"dim\">Each line opens: by a click, or by Tab and "
            "Enter. Blue goes towards the card, green comes back, red is a failure; grey is a "
            "refusal that the call came through, such as of a file that not every card has."
            "</p>\n<div class=\"heads\" aria-hidden=\"true\"><div><span>Platform</span>"
            "<span>Driver</span><span>Card</span></div></div>\n");
        if (!page.leftOut.empty()) format("<p class=\"dim\">{}</p>\n", escaped(page.leftOut));
        // A walk that ended badly ended at its last call, also where that call came back well.
        for (const CallStep& step : steps)
            call(step,
                 step.isWell() && (page.mark != ReportPage::Mark::bad || &step != &steps.back()));
    }

    void call(const CallStep& step, bool isGood) {
        const bool isOpen = step.isBad() || (!step.exchanges.empty() &&
                                             step.exchanges.size() <= commandsShownAtOnce);
        format("<details class=\"call\"{}><summary class=\"row\"><span class=\"lanes\">",
               isOpen ? " open" : "");
        // What this program asks itself goes past the driver.
        const bool isPast = step.text.starts_with("Query");
        const char* const lane = isPast ? "past" : "card";
        const char* const callLane = isPast ? "past" : "platform";
        if (!step.text.empty()) format("<i class=\"arrow right {} up\"></i>", callLane);
        if (step.result != nullptr) {
            format("<i class=\"arrow left {} down{}\"></i>", callLane, step.isBad() ? " bad" : "");
        }
        const std::string meaning = meaningOfCall(step.text);
        format("</span><span class=\"text\"><span class=\"what\">{}</span>{}{}</span>",
               escaped(step.text.empty() ? "Ahead of the first call" : step.text),
               meaning.empty() ? "" : "<br><span class=\"dim\">" + escaped(meaning) + "</span>",
               statusLine(step));
        format("<span class=\"side\">{}{}</span></summary>\n",
               step.time().count() == 0 ? "" : timeText(step.time()),
               step.exchanges.empty() ? "" : "<br>" + commandsText(step));
        for (const Exchange* exchange : step.exchanges) command(*exchange, lane, isGood);
        if (step.exchanges.empty() && step.log.empty()) {
            add("<div class=\"inside dim\">No command went to the card.</div>");
        }
        if (!step.log.empty()) {
            add("<ul class=\"log\" aria-label=\"Lines of the driver's log\">");
            for (const std::string& line : step.log) format("<li>{}</li>", escaped(line));
            add("</ul>");
        }
        add("</details>\n");
    }

    std::string statusLine(const CallStep& step) const {
        if (step.result == nullptr && isOfLog_) {
            if (step.text.empty()) return {};
            return doctor::hasExitLine(step.text)
                       ? "<br><span class=\"uncleartext\">not complete: its end is not in the "
                         "log</span>"
                       : "<br><span class=\"dim\">the log does not tell how it ended</span>";
        }
        if (step.result == nullptr) return "<br><span class=\"dim\">has not come back</span>";
        if (!step.isBad()) return {};
        return "<br><span class=\"badtext\">" + escaped(statusText(step.result->status)) +
               "</span>";
    }

    void command(const Exchange& exchange, const char* lane, bool isInGoodCall) {
        const bool isBad = isRefused(exchange);
        // The driver tries what a card may not have: what its call came through is no failure.
        const bool isTrial = isBad && isInGoodCall && exchange.reply.failure == 0;
        const auto bytes = exchange.command.withoutPin();
        format(
            "<details class=\"command\"><summary class=\"row\"><span class=\"lanes\">"
            "<i class=\"arrow right {} up\"></i><i class=\"arrow left {} down{}\"></i></span>"
            "<span class=\"text\"><span class=\"what\">{}</span><br><span class=\"{}\">{}</span>"
            "</span><span class=\"side\">{}</span></summary>\n<div class=\"inside\">",
            lane, lane,
            isTrial ? " trial"
            : isBad ? " bad"
                    : "",
            escaped(recording::meaningOfCommand(bytes)),
            isTrial ? "dim"
            : isBad ? "badtext"
                    : "goodtext",
            escaped(replyWords(exchange)), timeText(exchange.reply.time));
        header(exchange);
        format("<p>Command <code>{}</code></p>", recording::hexText(exchange.command));
        if (exchange.reply.failure != 0) {
            format("<p>Failed <code>{}</code></p>", escaped(statusText(exchange.reply.failure)));
        } else if (exchange.reply.bytes.empty()) {
            add("<p>Nothing came back.</p>");
        } else {
            reply(exchange);
        }
        add("</div></details>\n");
    }

    /// The header's fields (ISO/IEC 7816-4, 5.1).
    void header(const Exchange& exchange) {
        static constexpr std::array<const char*, 5> names{"class", "instruction", "P1", "P2",
                                                          "length"};
        const auto& bytes = exchange.command.bytes;
        add("<p class=\"dim\">");
        for (std::size_t at = 0; at < std::min(names.size(), bytes.size()); ++at) {
            format("{}{} <code>{:02X}</code>", at == 0 ? "" : ", ", names[at],
                   bytes[at].value_or(0));
        }
        add("</p>");
    }

    void reply(const Exchange& exchange) {
        const auto& bytes = exchange.reply.bytes;
        const std::uint16_t word = statusWordOf(exchange);
        const std::string meaning = recording::meaningOfStatusWord(word);
        format("<p>Reply <code>{}</code></p>", recording::hexText(bytes));
        if (bytes.size() < 2) return;
        format("<p>Status word <code>{:04X}</code>{}{}</p>", word, meaning.empty() ? "" : ": ",
               escaped(meaning));
        const ByteView data = ByteView(bytes).first(bytes.size() - 2);
        if (isTlv(data)) tlv(data, 0);
    }

    void tlv(ByteView bytes, int depth, bool areFileParameters = false) {
        add("<ul>");
        while (const auto element = readTlv(bytes)) {
            const std::string name = nameOfTag(element->tag, areFileParameters);
            format("<li><code>{:02X}</code> {}", element->tag, escaped(name));
            const bool isOpen =
                element->isConstructed() && depth < deepestTlv && isTlv(element->value);
            if (isOpen) {
                tlv(element->value, depth + 1, holdsFileParameters(element->tag));
            } else {
                // A file's parameters are numbers, some of which would be letters too.
                const std::string text =
                    areFileParameters ? "" : textOfValue(element->tag, element->value);
                if (text.empty()) {
                    format(" <code>{}</code>", recording::hexText(element->value));
                } else {
                    format(" {}", escaped(text));
                }
            }
            add("</li>");
            bytes = bytes.subspan(element->size());
        }
        add("</ul>");
    }

    std::string html_;
    bool isOfLog_ = false;
};

}  // namespace

std::string htmlOf(const ReportPage& page) {
    return Page().of(page);
}

}  // namespace cardhost
