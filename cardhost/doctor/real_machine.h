// The machine that the program runs on. What differs between the systems stands in
// machine_windows.cpp and machine_posix.cpp.
#pragma once

#include <memory>

#include "doctor/machine.h"
#include "session.h"

namespace cardhost::doctor {

/// The readers and the card as the options choose them, the same on each system.
class RealMachine : public Machine {
public:
    /// @param hasChosenCard whether the options name a card that is in no reader of this machine
    RealMachine(CommonOptions options, bool hasChosenCard)
        : options_(std::move(options)), hasChosenCard_(hasChosenCard) {}

    std::string driverFile() const override;
    Readers readers() override;
    CardFacts card(const std::string& reader) override;
    std::chrono::system_clock::time_point now() const override {
        return std::chrono::system_clock::now();
    }

private:
    CommonOptions options_;
    bool hasChosenCard_;
};

std::unique_ptr<Machine> realMachine(const CommonOptions& options, bool hasChosenCard);

}  // namespace cardhost::doctor
