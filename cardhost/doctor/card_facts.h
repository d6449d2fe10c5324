// What a card in a reader shows of itself through the driver: facts without a judgement.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cardhost::doctor {

struct CertificateFacts {
    int container = 0;
    std::string name;  // the common name of the subject
    std::string key;   // "RSA, 2048 bits" and so on
    bool isEc = false;
    std::chrono::system_clock::time_point notBefore;
    std::chrono::system_clock::time_point notAfter;
    bool allowsSigning = false;               // digitalSignature, or no key usage at all
    bool hasExtendedUsage = false;            // whether it limits its usage at all
    bool allowsCardLogon = false;             // smart card logon among the extended usages
    bool allowsClientAuthentication = false;  // client authentication among them
    bool hasUserPrincipalName = false;
};

struct PinTries {
    int pin = 0;
    enum class State { open, verified, blocked, unknown } state = State::unknown;
    int left = 0;        // where open
    std::string answer;  // what the card said, where unknown
};

struct CardFacts {
    std::string failure;                   // what ended the look; empty where it went through
    std::optional<std::uint32_t> refusal;  // the driver's status, where it refused the acquisition
    std::chrono::milliseconds acquisitionTime{0};
    std::vector<std::pair<std::string, std::size_t>> files;  // path and size
    std::vector<CertificateFacts> certificates;
    std::vector<PinTries> pins;
};

}  // namespace cardhost::doctor
