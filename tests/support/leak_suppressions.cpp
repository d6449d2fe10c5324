// The runtime errors that are thrown as pointers are never freed by the product, and the handle of a
// second signing certificate is given up with its context: both meant so. The leak checker is told
// that they are no mistakes; everything else that leaks still fails a test.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();

const char* __lsan_default_suppressions() {
    return "leak:setEnvironment\n"
           "leak:failToReadPinProperties\n"
           "leak:isLengthAllowedByGetData\n"
           "leak:throwUnlessSelected\n"
           "leak:KelmoraID::CardOperations::VerifyPin\n"
           "leak:KelmoraID::CardOperations::SelectFineidApplication\n";
}
