// The transport exception of exchangeWithReconnect.
#pragma once

#include <system_error>

#include "platform/win32.h"

namespace KelmoraID {

/// A PC/SC code as a signed 32-bit value of the system category, and a text. Runtimes append a
/// message of their own to the text of a std::system_error, each another one; what() of this class
/// is the given text alone, so that it reads the same on every build.
class TransmitError final : public std::system_error {
public:
    /// @param text  a literal
    TransmitError(LONG pcscCode, const char* text)
        : std::system_error(std::error_code(static_cast<int>(pcscCode), std::system_category()),
                            text),
          text_(text) {}

    const char* what() const noexcept override { return text_; }

private:
    const char* text_;
};

}  // namespace KelmoraID
