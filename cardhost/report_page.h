// A conversation as one page to look at: no script, nothing from elsewhere. Whatever a card or a
// log says stands on it as text.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "recording/conversation.h"

namespace cardhost {

struct ReportPage {
    std::string title;
    std::string outcome;  // one line: what became of it
    enum class Mark { good, unclear, bad };
    Mark mark = Mark::good;
    bool isOfLog = false;  // which does not tell of every call how it ended
    std::string leftOut;   // what of the conversation is not on it
    std::string foundHeading = "What was found on the card";
    /// What was found, group by group.
    struct Group {
        std::string heading;
        std::vector<std::pair<std::string, std::string>> rows;
    };
    std::vector<Group> found;
    recording::Conversation conversation;
};

/// The page as HTML.
std::string htmlOf(const ReportPage& page);

}  // namespace cardhost
