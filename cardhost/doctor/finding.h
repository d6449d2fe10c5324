// What the doctor says of one point: what it found, whether that is well, and if not what to do.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cardhost::doctor {

enum class Verdict {
    well,
    note,     // worth knowing; a card works all the same
    problem,  // stands in the way
    unknown,  // could not be looked at
};

struct Finding {
    std::string section;
    std::string id;  // for scripts; the same from release to release
    Verdict verdict;
    std::string subject;
    std::string found;
    std::string advice;  // empty where there is nothing to do
};

/// The findings in the order in which they were made.
class Findings {
public:
    /// Findings from now on belong to this section.
    void begin(std::string section) { section_ = std::move(section); }

    void well(std::string id, std::string subject, std::string found) {
        add(Verdict::well, std::move(id), std::move(subject), std::move(found), {});
    }
    void note(std::string id, std::string subject, std::string found, std::string advice = {}) {
        add(Verdict::note, std::move(id), std::move(subject), std::move(found), std::move(advice));
    }
    void problem(std::string id, std::string subject, std::string found, std::string advice) {
        add(Verdict::problem, std::move(id), std::move(subject), std::move(found),
            std::move(advice));
    }
    void unknown(std::string id, std::string subject, std::string found, std::string advice = {}) {
        add(Verdict::unknown, std::move(id), std::move(subject), std::move(found),
            std::move(advice));
    }
    void add(Verdict verdict, std::string id, std::string subject, std::string found,
             std::string advice) {
        findings_.push_back({section_, std::move(id), verdict, std::move(subject), std::move(found),
                             std::move(advice)});
    }

    const std::vector<Finding>& all() const { return findings_; }
    std::size_t count(Verdict verdict) const;

private:
    std::string section_;
    std::vector<Finding> findings_;
};

/// "well", "note", "problem" or "unknown".
std::string_view verdictName(Verdict verdict);

}  // namespace cardhost::doctor
