#include "doctor/printing.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "doctor/printable.h"

namespace cardhost::doctor {

namespace {

constexpr std::size_t width = 80;
constexpr std::size_t margin = 11;

struct Mark {
    const char* text;
    Style style;
};

Mark markOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::well:
            return {"ok", Style::good};
        case Verdict::note:
            return {"note", Style::warning};
        case Verdict::problem:
            return {"PROBLEM", Style::bad};
        case Verdict::unknown:
            break;
    }
    return {"unknown", Style::warning};
}

std::string counted(std::size_t number, const char* one, const char* many) {
    return fmt::format("{} {}", number, number == 1 ? one : many);
}

}  // namespace

void Printer::line(const std::string& text) {
    fmt::print(stream_, "{}\n", text);
}

void Printer::printFinding(const Finding& finding) {
    if (finding.section != section_) {
        line((section_.empty() ? "" : "\n") +
             terminal_.styled(Style::heading, printable(finding.section)));
        section_ = finding.section;
    }
    const Mark mark = markOf(finding.verdict);
    const std::string blank(margin, ' ');
    std::string begin = "  " + terminal_.styled(mark.style, mark.text) +
                        std::string(margin - 2 - widthOf(mark.text), ' ');
    for (const std::string& text :
         wrapped(printable(finding.subject + ": " + finding.found), width - margin)) {
        line(begin + text);
        begin = blank;
    }
    if (finding.advice.empty()) return;
    constexpr std::string_view arrow = "-> ";
    begin = blank + std::string(arrow);
    for (const std::string& text :
         wrapped(printable(finding.advice), width - margin - arrow.size())) {
        line(begin + text);
        begin = blank + std::string(arrow.size(), ' ');
    }
}

void Printer::print(const Findings& findings) {
    for (; printed_ < findings.all().size(); ++printed_) printFinding(findings.all()[printed_]);
    std::fflush(stream_);
}

void Printer::summarise(const Findings& findings) {
    const std::size_t problems = findings.count(Verdict::problem);
    const std::size_t unknown = findings.count(Verdict::unknown);
    line("\n" + terminal_.styled(Style::heading, "Summary"));
    const std::string rest =
        fmt::format("{} well, {}{}", findings.count(Verdict::well),
                    counted(findings.count(Verdict::note), "note", "notes"),
                    unknown == 0 ? "" : fmt::format(", {} not known", unknown));
    if (problems == 0) {
        line("  " + terminal_.styled(Style::good, "Nothing stands in the way.") +
             " Points: " + rest + ".");
        return;
    }
    line("  " +
         terminal_.styled(Style::bad,
                          counted(problems, "problem stands", "problems stand") + " in the way.") +
         " Other points: " + rest + ".");
    std::string last;
    for (const Finding& finding : findings.all()) {
        if (finding.verdict != Verdict::problem) continue;
        std::string begin = "  - ";
        const std::string text = printable(finding.section + ": " + finding.subject);
        if (text == last) continue;
        last = text;
        for (const std::string& part : wrapped(text, width - begin.size())) {
            line(begin + part);
            begin = "    ";
        }
    }
    std::fflush(stream_);
}

std::string asJson(const Findings& findings) {
    auto list = nlohmann::ordered_json::array();
    for (const Finding& finding : findings.all()) {
        list.push_back({{"section", finding.section},
                        {"id", finding.id},
                        {"verdict", verdictName(finding.verdict)},
                        {"subject", finding.subject},
                        {"found", finding.found},
                        {"advice", finding.advice}});
    }
    nlohmann::ordered_json summary;
    for (const Verdict verdict :
         {Verdict::well, Verdict::note, Verdict::problem, Verdict::unknown}) {
        summary[std::string(verdictName(verdict))] = findings.count(verdict);
    }
    const nlohmann::ordered_json report = {{"isWell", findings.count(Verdict::problem) == 0},
                                           {"summary", summary},
                                           {"findings", list}};
    // What is no UTF-8 becomes the replacement character.
    return report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace cardhost::doctor
