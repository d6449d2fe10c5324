#include "doctor/card_look.h"

#include "containers.h"
#include "doctor/certificate_facts.h"
#include "pin_query.h"

namespace cardhost::doctor {

namespace {

void lookThrough(Acquisition& acquisition, CardFacts& facts) {
    for (const std::string directory : {"", "mscp"}) {
        for (const std::string& name : acquisition.fileNames(directory)) {
            facts.files.emplace_back((directory.empty() ? "" : directory + "/") + name,
                                     acquisition.readFile(directory, name).size());
        }
    }
    for (const Container& container : containersOf(acquisition)) {
        facts.certificates.push_back(certificateFacts(container.certificate.der, container.index,
                                                      "mscp/" + container.certificateFile));
    }
}

}  // namespace

CardFacts lookAtCard(const CommonOptions& options) {
    using Clock = std::chrono::steady_clock;
    CardFacts facts;
    try {
        const std::filesystem::path file = Session::driverFile(options);
        const Trace trace(options.trace, options.kept);
        ConnectedCard card(options.card, file.parent_path(), trace);
        const Driver driver(file);
        const auto start = Clock::now();
        try {
            Acquisition acquisition(driver, card, trace);
            facts.acquisitionTime =
                std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
            lookThrough(acquisition, facts);
        } catch (const Refusal& refusal) {
            if (refusal.entryPoint() != "CardAcquireContext") throw;
            facts.refusal = refusal.status();
            return facts;
        }
        // A recording has no answer to what the driver did not ask.
        if (card.isRecording()) return facts;
        facts.pins = askPinTries(card, trace);
    } catch (const Failure& failure) {
        facts.failure = failure.what();
    }
    return facts;
}

}  // namespace cardhost::doctor
