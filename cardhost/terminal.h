// Colour for a terminal: only there, and not where the environment has NO_COLOR (no-color.org).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "os.h"

namespace cardhost {

enum class Style { plain, heading, good, warning, bad, faint };

class Terminal {
public:
    explicit Terminal(std::FILE* stream)
        : isColoured_(!isForbidden() && os::takesEscapeSequences(stream)) {}

    /// The text, in the style where there is colour.
    std::string styled(Style style, const std::string& text) const {
        if (!isColoured_ || style == Style::plain) return text;
        return codeOf(style) + text + "\033[0m";
    }

private:
    static bool isForbidden() {
        const char* forbidden = std::getenv("NO_COLOR");
        return forbidden != nullptr && *forbidden != 0;
    }

    static std::string codeOf(Style style) {
        switch (style) {
            case Style::heading:
                return "\033[1m";
            case Style::good:
                return "\033[32m";
            case Style::warning:
                return "\033[33m";
            case Style::bad:
                return "\033[31m";
            case Style::faint:
                return "\033[2m";
            default:
                return "";
        }
    }

    bool isColoured_;
};

}  // namespace cardhost
