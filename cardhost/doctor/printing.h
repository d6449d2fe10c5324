// The doctor's report: for a person on a terminal of 80 columns, or as JSON for a script.
#pragma once

#include <cstdio>
#include <string>

#include "doctor/finding.h"
#include "terminal.h"

namespace cardhost::doctor {

class Printer {
public:
    explicit Printer(std::FILE* stream) : stream_(stream), terminal_(stream) {}

    /// Prints what was found since the last call.
    void print(const Findings& findings);
    /// Prints how many points are well and names those that stand in the way.
    void summarise(const Findings& findings);

private:
    void printFinding(const Finding& finding);
    void line(const std::string& text);

    std::FILE* stream_;
    Terminal terminal_;
    std::size_t printed_ = 0;
    std::string section_;
};

/// All of it as one JSON object, with a line end behind it.
std::string asJson(const Findings& findings);

}  // namespace cardhost::doctor
