// The directory client as a program, so that a test can let it meet real servers. Writes its log to
// minidriver.log in the current folder.
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>

#include "pairing/card_registration.h"
#include "pairing/service_client.h"
#include "platform/fixed_paths.h"

const char* logFilePath() {
    return "minidriver.log";
}

namespace {

enum Outcome { accepted = 0, refused = 1, usage = 2, threw = 3 };

int run(int count, char** arguments) {
    if (count == 4 && std::strcmp(arguments[1], "send") == 0) {
        return KelmoraID::sendServiceRequest("Post", arguments[2], arguments[3], true) ? accepted
                                                                                       : refused;
    }
    if (count == 3 && std::strcmp(arguments[1], "register") == 0) {
        std::ifstream file(arguments[2], std::ios::binary);
        const KelmoraID::ByteVector certificate((std::istreambuf_iterator<char>(file)), {});
        KelmoraID::registerAcquiredCard(certificate);
        return accepted;
    }
    std::fputs("usage: pairing_client send URL BODY | register CERTIFICATE\n", stderr);
    return usage;
}

}  // namespace

int main(int count, char** arguments) {
    try {
        return run(count, arguments);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
        return threw;
    }
}
