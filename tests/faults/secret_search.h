// Looks for a secret where it should not be.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>

#include "platform_side.h"

namespace faults {

inline bool holds(const boundary::Bytes& bytes, const boundary::Bytes& secret) {
    return std::search(bytes.begin(), bytes.end(), secret.begin(), secret.end()) != bytes.end();
}
inline boundary::Bytes bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

/// As text, and as the log prints bytes: "31323334", "31 32 33 34".
inline void expectNotIn(const std::string& log, const boundary::Bytes& secret) {
    std::string spaced;
    std::string joined;
    for (const std::uint8_t byte : secret) {
        char digits[8];
        std::snprintf(digits, sizeof(digits), "%02x", byte);
        joined += digits;
        spaced += (spaced.empty() ? "" : " ") + std::string(digits);
    }
    std::string lower = log;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    EXPECT_EQ(log.find(std::string(secret.begin(), secret.end())), std::string::npos) << log;
    EXPECT_EQ(lower.find(joined), std::string::npos) << log;
    EXPECT_EQ(lower.find(spaced), std::string::npos) << log;
}

}  // namespace faults
