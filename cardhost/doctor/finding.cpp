#include "doctor/finding.h"

#include <algorithm>

namespace cardhost::doctor {

std::size_t Findings::count(Verdict verdict) const {
    return static_cast<std::size_t>(
        std::count_if(findings_.begin(), findings_.end(),
                      [&](const Finding& finding) { return finding.verdict == verdict; }));
}

std::string_view verdictName(Verdict verdict) {
    switch (verdict) {
        case Verdict::well:
            return "well";
        case Verdict::note:
            return "note";
        case Verdict::problem:
            return "problem";
        case Verdict::unknown:
            break;
    }
    return "unknown";
}

}  // namespace cardhost::doctor
