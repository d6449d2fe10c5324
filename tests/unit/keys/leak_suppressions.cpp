// The runtime errors that are thrown as pointers are never freed by the product, and meant so.
// Where a catch-all of the product swallows one, the leak checker is told that it is no mistake.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();

const char* __lsan_default_suppressions() {
    return "leak:setEnvironment\n"
           "leak:KelmoraID::CardOperations::VerifyPin\n"
           "leak:throwUnlessSelected\n";
}
