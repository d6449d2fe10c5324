// The readable report of a command, on standard output. What it says of a card or of a reader
// cannot steer the terminal. Long values are broken into lines; scripts have --json.
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "doctor/printable.h"
#include "terminal.h"

namespace cardhost {

class Report {
public:
    explicit Report(std::FILE* stream) : stream_(stream), terminal_(stream) {}

    /// A heading with an empty line ahead of it, except at the top.
    void heading(const std::string& text) {
        write((isEmpty_ ? "" : "\n") + terminal_.styled(Style::heading, doctor::printable(text)) +
              "\n");
    }

    /// A label and its value, in columns.
    void row(const std::string& label, const std::string& value) {
        writeRow(fmt::format("  {:<18}", label), value);
    }

    /// The same, one step further in.
    void innerRow(const std::string& label, const std::string& value) {
        writeRow(fmt::format("     {:<15}", label), value);
    }

    /// A label and a command to be copied, in one piece.
    void commandRow(const std::string& label, const std::string& command) {
        write(fmt::format("  {:<18}{}\n", label, doctor::printable(command)));
    }

    void line(const std::string& text) { write(text + "\n"); }

private:
    static constexpr std::size_t width = 80;

    /// A hash, a path: to be copied in one piece.
    static std::size_t longestWord(std::string_view text) {
        std::size_t longest = 0;
        while (!text.empty()) {
            const std::size_t end = std::min(text.find(' '), text.size());
            longest = std::max(longest, end);
            text.remove_prefix(std::min(end + 1, text.size()));
        }
        return longest;
    }

    void writeRow(std::string begin, const std::string& value) {
        const std::string text = doctor::printable(value);
        if (begin.size() + doctor::widthOf(text) <= width) {
            return write(begin + text + "\n");
        }
        const std::size_t room = width - begin.size();
        if (longestWord(text) > room) return write(begin + text + "\n");
        for (const std::string& part : doctor::wrapped(text, room)) {
            write(begin + part + "\n");
            begin.assign(begin.size(), ' ');
        }
    }

    void write(const std::string& text) {
        fmt::print(stream_, "{}", text);
        std::fflush(stream_);
        isEmpty_ = false;
    }

    std::FILE* stream_;
    Terminal terminal_;
    bool isEmpty_ = true;
};

}  // namespace cardhost
