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
    explicit RealMachine(CommonOptions options) : options_(std::move(options)) {}

    std::string driverFile() const override;
    Readers readers() override;
    CardFacts card(const std::string& reader) override;
    std::chrono::system_clock::time_point now() const override {
        return std::chrono::system_clock::now();
    }

private:
    CommonOptions options_;
};

std::unique_ptr<Machine> realMachine(const CommonOptions& options);

}  // namespace cardhost::doctor
