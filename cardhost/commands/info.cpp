// cardhost info: everything that the platform can learn of a card through the driver.
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "card_types.h"
#include "commands/commands.h"
#include "containers.h"
#include "entry_point_table.h"
#include "files.h"
#include "options.h"
#include "pins.h"
#include "session.h"

namespace cardhost {

namespace {

constexpr PIN_ID firstPin = 1;
constexpr PIN_ID lastPin = 4;

const char* accessText(DWORD condition) {
    switch (condition) {
        case EveryoneReadUserWriteAc:
            return "everyone reads, the user writes";
        case EveryoneReadAdminWriteAc:
            return "everyone reads, the administrator writes";
        default:
            return "another access condition";
    }
}

const char* pinTypeText(DWORD type) {
    switch (type) {
        case AlphaNumericPinType:
            return "typed into the platform's prompt";
        case ExternalPinType:
            return "asked for by the driver's own dialog";
        case ChallengeResponsePinType:
            return "challenge and response";
        case EmptyPinType:
            return "none needed";
        default:
            return "of an unknown type";
    }
}

const char* pinPurposeText(DWORD purpose) {
    switch (purpose) {
        case AuthenticationPin:
            return "authentication";
        case DigitalSignaturePin:
            return "digital signature";
        case EncryptionPin:
            return "encryption";
        case NonRepudiationPin:
            return "non-repudiation";
        case AdministratorPin:
            return "administrator";
        case PrimaryCardPin:
            return "primary";
        case UnblockOnlyPin:
            return "unblock only";
        default:
            return "an unknown purpose";
    }
}

const char* cachePolicyText(DWORD policy) {
    switch (policy) {
        case PinCacheNormal:
            return "the platform may keep it";
        case PinCacheTimed:
            return "the platform may keep it for a time";
        case PinCacheNone:
            return "the platform keeps it not";
        case PinCacheAlwaysPrompt:
            return "asked for every time";
        default:
            return "an unknown cache policy";
    }
}

/// "PIN 1, 2, 4" for the bits of a PIN set that stand for the PINs of this interface.
std::string pinSetText(PIN_SET set) {
    std::string text;
    for (PIN_ID pin = firstPin; pin <= lastPin; ++pin) {
        if ((set >> pin & 1) == 0) continue;
        text += fmt::format("{}{}", text.empty() ? "" : ", ", pin);
    }
    return text.empty() ? "no PIN" : "PIN " + text;
}

void printCard(Session& session) {
    Report& report = session.report;
    const CardGeneration* generation = generationOf(session.card.atr());
    report.heading("Card");
    report.row("type", generation == nullptr
                           ? std::string("not known by its ATR")
                           : fmt::format("{}, a FINEID card with {}", generation->type,
                                         generation->description));
    report.row("reader", session.card.reader());
    report.row("ATR", hexSpaced(session.card.atr()));
    report.row("card identifier", hexSpaced(session.acquisition.property("Card Identifier")));
}

void printDriver(Session& session, bool isVerbose) {
    Report& report = session.report;
    std::string empty;
    std::size_t filled = 0;
    const auto slots = slotsOf(session.acquisition.record());
    for (const Slot& slot : slots) {
        if (slot.isFilled) {
            ++filled;
        } else {
            empty += fmt::format("{}{}", empty.empty() ? "" : ", ", slot.name);
        }
    }
    report.heading("Driver");
    report.row("file", shown(session.driver.file()));
    report.row("interface version", fmt::format("{}", session.acquisition.record().dwVersion));
    report.row("entry points", fmt::format("{} of {} filled", filled, slots.size()));
    if (!empty.empty()) report.row("not offered", empty);
    if (!isVerbose) return;
    for (const Slot& slot : slots) report.row(slot.isFilled ? "  offered" : "  empty", slot.name);
}

void printFiles(Session& session, bool isVerbose) {
    Report& report = session.report;
    report.heading("Files that the platform sees");
    for (const std::string directory : {"", "mscp"}) {
        for (const std::string& name : session.acquisition.fileNames(directory)) {
            const Bytes content = session.acquisition.readFile(directory, name);
            const std::string path = (directory.empty() ? "/" : "/" + directory + "/") + name;
            if (!isVerbose) {
                report.row(path, fmt::format("{:>5} bytes", content.size()));
                continue;
            }
            const CARD_FILE_INFO info = session.acquisition.fileInfo(directory, name);
            report.row(path,
                       fmt::format("{:>5} bytes (CardGetFileInfo says {}); {}", content.size(),
                                   info.cbFileSize, accessText(info.AccessCondition)));
            if (content.size() <= 16) report.row("", hexSpaced(content));
        }
    }
}

/// Whether the key blob that the driver gives out is the key of the certificate.
bool isKeyOfCertificate(const Bytes& blob, const Certificate& certificate) {
    constexpr std::size_t eccHeader = 8;   // magic and length
    constexpr std::size_t rsaHeader = 20;  // PUBLICKEYSTRUC and RSAPUBKEY
    const Bytes& key = certificate.key.bitString;
    if (certificate.key.isEc) {
        return blob.size() > eccHeader && !key.empty() &&
               std::equal(blob.begin() + eccHeader, blob.end(), key.begin() + 1, key.end());
    }
    if (blob.size() <= rsaHeader) return false;
    // The modulus: little-endian in the blob, big-endian in the certificate's RSAPublicKey.
    const Bytes modulus = reversed(ByteView(blob).subspan(rsaHeader));
    return std::search(key.begin(), key.end(), modulus.begin(), modulus.end()) != key.end();
}

void printContainers(Session& session) {
    Report& report = session.report;
    for (const Container& container : containersOf(session.acquisition)) {
        const Certificate& certificate = container.certificate;
        const Bytes blob = session.acquisition.publicKeyBlob(container.index);
        report.heading(fmt::format("Container {}: {} key{}", container.index,
                                   container.isKeyExchange ? "key exchange" : "signature",
                                   container.isDefault ? ", the default" : ""));
        report.row("name", container.name);
        report.row("key size", fmt::format("{} bits in the container map", container.mapBits));
        report.row("public key", fmt::format("{} bytes, {}", blob.size(),
                                             isKeyOfCertificate(blob, certificate)
                                                 ? "the key of the certificate"
                                                 : "NOT the key of the certificate"));
        report.row("PIN", pinText(container.pin));
        report.row("certificate", fmt::format("mscp/{}, {} bytes", container.certificateFile,
                                              certificate.der.size()));
        report.row("  subject", certificate.subject);
        report.row("  issuer", certificate.issuer);
        report.row("  serial number", certificate.serialNumber);
        report.row("  valid from", certificate.notBefore);
        report.row("  valid until", certificate.notAfter);
        report.row("  key", certificate.key.description);
    }
}

void printPins(Session& session) {
    Report& report = session.report;
    report.heading("PINs");
    const auto list = session.acquisition.propertyAs<PIN_SET>("PIN List");
    report.row("list", fmt::format("{} ({:#010x})", pinSetText(list), list));
    for (PIN_ID pin = firstPin; pin <= lastPin; ++pin) {
        const auto info = session.acquisition.propertyAs<PIN_INFO>("PIN Information", pin);
        report.row(
            fmt::format("PIN {}", pin),
            fmt::format("{}; {}; {}", pinPurposeText(info.PinPurpose), pinTypeText(info.PinType),
                        cachePolicyText(info.PinCachePolicy.PinCachePolicyType)));
        report.row("", fmt::format("changed with {}, unblocked with {}",
                                   pinSetText(info.dwChangePermission),
                                   pinSetText(info.dwUnblockPermission)));
    }
}

void printProperties(Session& session) {
    constexpr DWORD keySpecs[] = {AT_KEYEXCHANGE, AT_SIGNATURE};
    Report& report = session.report;
    Acquisition& acquisition = session.acquisition;
    report.heading("Properties");
    for (const char* name : {"Read Only Mode", "Cache Mode", "Supports Windows x.509 Enrollment",
                             "Key Import Support"}) {
        report.row(name, fmt::format("  {}", acquisition.propertyAs<DWORD>(name)));
    }
    const auto capabilities = acquisition.propertyAs<CARD_CAPABILITIES>("Capabilities");
    report.row("capabilities",
               fmt::format("certificate compression {}, key generation {}",
                           capabilities.fCertificateCompression, capabilities.fKeyGen));
    const auto space = acquisition.propertyAs<CARD_FREE_SPACE_INFO>("Free Space");
    report.row("free space", fmt::format("{} bytes, {} containers", space.dwBytesAvailable,
                                         space.dwKeyContainersAvailable));
    for (const DWORD keySpec : keySpecs) {
        const auto sizes = acquisition.propertyAs<CARD_KEY_SIZES>("Key Sizes", keySpec);
        report.row(keySpec == AT_KEYEXCHANGE ? "key exchange keys" : "signature keys",
                   fmt::format("{} bits", sizes.dwDefaultBitlen));
    }
}

using Json = nlohmann::ordered_json;

Json cardJson(Session& session) {
    const CardGeneration* generation = generationOf(session.card.atr());
    return {{"type", generation == nullptr ? Json() : Json(generation->type)},
            {"reader", session.card.reader()},
            {"atr", hex(session.card.atr())},
            {"identifier", hex(session.acquisition.property("Card Identifier"))}};
}

Json filesJson(Session& session) {
    auto files = Json::array();
    for (const std::string directory : {"", "mscp"}) {
        for (const std::string& name : session.acquisition.fileNames(directory)) {
            files.push_back({{"path", (directory.empty() ? "/" : "/" + directory + "/") + name},
                             {"bytes", session.acquisition.readFile(directory, name).size()}});
        }
    }
    return files;
}

Json containersJson(Session& session) {
    auto containers = Json::array();
    for (const Container& container : containersOf(session.acquisition)) {
        const Certificate& certificate = container.certificate;
        const Bytes blob = session.acquisition.publicKeyBlob(container.index);
        containers.push_back({{"index", container.index},
                              {"name", container.name},
                              {"default", container.isDefault},
                              {"use", container.isKeyExchange ? "key exchange" : "signature"},
                              {"key", certificate.key.description},
                              {"keyOfCertificate", isKeyOfCertificate(blob, certificate)},
                              {"pin", container.pin},
                              {"file", "mscp/" + container.certificateFile},
                              {"subject", certificate.subject},
                              {"issuer", certificate.issuer},
                              {"serialNumber", certificate.serialNumber},
                              {"notBefore", certificate.notBefore},
                              {"notAfter", certificate.notAfter},
                              {"certificate", hex(certificate.der)}});
    }
    return containers;
}

Json pinsJson(Session& session) {
    auto pins = Json::array();
    for (PIN_ID pin = firstPin; pin <= lastPin; ++pin) {
        const auto info = session.acquisition.propertyAs<PIN_INFO>("PIN Information", pin);
        pins.push_back({{"pin", pin},
                        {"purpose", pinPurposeText(info.PinPurpose)},
                        {"asked", pinTypeText(info.PinType)},
                        {"cache", cachePolicyText(info.PinCachePolicy.PinCachePolicyType)}});
    }
    return pins;
}

void printJson(Session& session, std::FILE* stream) {
    std::vector<std::string> offered;
    for (const Slot& slot : slotsOf(session.acquisition.record())) {
        if (slot.isFilled) offered.emplace_back(slot.name);
    }
    const Json all{{"card", cardJson(session)},
                   {"driver",
                    {{"file", shown(session.driver.file())},
                     {"version", session.acquisition.record().dwVersion},
                     {"entryPoints", offered}}},
                   {"files", filesJson(session)},
                   {"containers", containersJson(session)},
                   {"pins", pinsJson(session)}};
    // What a card holds may be no UTF-8.
    fmt::print(stream, "{}\n", all.dump(2, ' ', false, Json::error_handler_t::replace));
}

struct InfoOptions {
    bool isVerbose = false;
    bool isJson = false;
};

void info(const InfoOptions& options, const CommonOptions& common, std::FILE* stream) {
    const bool isVerbose = options.isVerbose;
    Session session(common, stream);
    if (options.isJson) return printJson(session, stream);
    printCard(session);
    printDriver(session, isVerbose);
    printFiles(session, isVerbose);
    printContainers(session);
    printPins(session);
    if (isVerbose) printProperties(session);
}

}  // namespace

void addInfo(Commands& commands) {
    auto options = std::make_shared<InfoOptions>();
    Command command = commands.add(
        "info", "What the platform can learn of the card: files, keys, certificates, PINs");
    command.flag("--json", options->isJson, "For programs: the same as JSON");
    command.flag("-v,--verbose", options->isVerbose,
                 "Also every entry point, what the driver says of each file, and the "
                 "properties of the card");
    command.does([options](const CommonOptions& common, std::FILE* stream) {
        info(*options, common, stream);
    });
}

}  // namespace cardhost
