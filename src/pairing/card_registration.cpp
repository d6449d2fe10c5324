#include "pairing/card_registration.h"

#include <atomic>
#include <string>
#include <vector>

#include "log/logger.h"
#include "pairing/service_client.h"
#include "pairing/service_log.h"
#include "text/text_lists.h"

namespace KelmoraID {
namespace {

// For the whole process, by plain loads and stores: two threads can pass the test together. They
// keep overlapping calls apart in the usual case only, which is all that is asked of them.
std::atomic<bool> skipRegisterCard = false;
std::atomic<bool> registerCardRunning = false;

}  // namespace

void RegisterCard(const ByteVector& certificate, bool debug) {
    const std::string encoded = encodeBase64(certificate);
    if (encoded.empty()) {
        logToFile(serviceLogScope, "Certificate handling failure. Skip smart card to AD pairing.");
        return;
    }
    std::vector<std::string> addresses = readServiceAddresses();
    if (addresses.empty()) {
        logToFile(serviceLogScope, "No AD service address found. Skip smart card to AD pairing.");
        return;
    }
    logVectorParts(addresses, debug);
    for (std::string& address : addresses) {
        trimBlanks(address);
        if (address.empty()) continue;
        const std::string body =
            R"({"smartcard" : "NOT USED", "certificate" : ")" + encoded + R"("})";
        if (sendServiceRequest("Post", address, body, debug)) return;
    }
}

void registerAcquiredCard(const ByteVector& certificate) {
    static constexpr const char* scope = "CardAcquireContext";
    if (skipRegisterCard.load(std::memory_order_relaxed)) return;
    if (registerCardRunning.load(std::memory_order_relaxed)) {
        static constexpr const char* text =
            "Another registercard action is already running. Do not attempt to pair card.";
        logToFile(scope, text);
        logWarning(text);
        return;
    }
    logToFile(scope, "Entering RegisterCard");
    registerCardRunning.store(true, std::memory_order_relaxed);
    RegisterCard(certificate, false);
    // quirk: pairing-ends. No guard: an exception leaves it set.
    registerCardRunning.store(false, std::memory_order_relaxed);
}

void setSkipRegisterCard(bool skip) {
    skipRegisterCard.store(skip, std::memory_order_relaxed);
}

}  // namespace KelmoraID
