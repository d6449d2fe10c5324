// What the leak checker is told: the runtime errors that are thrown as pointers are never freed by
// the product, and meant so. Everything else that leaks still fails a test.
#pragma once

#define THROWN_POINTERS                           \
    "leak:setEnvironment\n"                       \
    "leak:failToReadPinProperties\n"              \
    "leak:isLengthAllowedByGetData\n"             \
    "leak:throwUnlessSelected\n"                  \
    "leak:KelmoraID::CardOperations::VerifyPin\n" \
    "leak:KelmoraID::CardOperations::SelectFineidApplication\n"

extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
