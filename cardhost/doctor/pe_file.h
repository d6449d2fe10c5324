// Facts of a Windows library file (PE/COFF), read from its bytes alone. The file is
// input from outside: every offset and count is checked, whatever the file says.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "bytes.h"

namespace cardhost::doctor {

enum class Architecture { unknown, x86, x64, arm64 };

struct PeFacts {
    bool isPe = false;
    Architecture architecture = Architecture::unknown;
    bool isLibrary = false;
    /// Whether it serves ARM64 and emulated x64 programs alike (ARM64X).
    bool isArm64X = false;
    bool hasSignature = false;
    std::vector<std::string> exports;  // by name; bounded

    bool exportsName(std::string_view name) const;
};

PeFacts peFacts(ByteView file);

/// "x64", "x86", "ARM64" or "another architecture".
std::string_view architectureName(Architecture architecture);

}  // namespace cardhost::doctor
