// The readable report of a command, on standard output.
#pragma once

#include <cstdio>
#include <string>

#include <fmt/format.h>

#include "terminal.h"

namespace cardhost {

class Report {
public:
    explicit Report(std::FILE* stream) : stream_(stream), terminal_(stream) {}

    /// A heading with an empty line ahead of it, except at the top.
    void heading(const std::string& text) {
        write((isEmpty_ ? "" : "\n") + terminal_.styled(Style::heading, text) + "\n");
    }

    /// A label and its value, in columns.
    void row(const std::string& label, const std::string& value) {
        write(fmt::format("  {:<18}{}\n", label, value));
    }

    /// The same, one step further in.
    void innerRow(const std::string& label, const std::string& value) {
        write(fmt::format("     {:<15}{}\n", label, value));
    }

    void line(const std::string& text) { write(text + "\n"); }

private:
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
