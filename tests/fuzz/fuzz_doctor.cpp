// What cardhost doctor reads of a machine that it does not know: the driver's log, and library
// files.
#include <span>
#include <string_view>

#include "doctor/log_explanation.h"
#include "doctor/pe_file.h"
#include "doctor/printable.h"
#include "fuzz_target.h"

using namespace cardhost::doctor;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t mostNames = 4096;
    const cardhost::Bytes bytes(data, data + size);
    fuzz::require(peFacts(bytes).exports.size() <= mostNames, "the exports are bounded");

    LogReader log;
    log.add(bytes);
    log.finish();
    fuzz::require(log.strays() <= 2 * log.lines() + size, "no more strays than there is room for");
    Findings findings;
    explainLog(log, "log", findings);
    fuzz::require(!findings.all().empty(), "there is always something to say");
    for (const Finding& finding : findings.all()) {
        const std::string text = printable(finding.subject + finding.found);
        fuzz::require(text.find('\033') == std::string::npos, "no text steers a terminal");
        fuzz::require(printable(text) == text, "what is printable stays as it is");
    }
    return 0;
}
