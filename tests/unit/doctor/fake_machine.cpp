#include "fake_machine.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "card_types.h"

namespace cardhost::doctor::testing {

namespace {

using std::chrono::system_clock;

constexpr std::int64_t now2026 = 1'790'000'000;
constexpr std::chrono::hours year{24 * 365};

RegistryValue valueOf(RegistryValue::Kind kind) {
    RegistryValue value;
    value.kind = kind;
    return value;
}

void registerCards(Registry& registry) {
    registry[database];
    for (const CardGeneration& generation : generations()) {
        Bytes atr(generation.atr.begin(), generation.atr.end());
        Bytes mask(atr.size(), 0xFF);
        const std::string name = fmt::format("Kelmora ID FINEID card type {}", generation.type);
        registry[FakeMachine::rowKey(name)] =
            FakeMachine::row(atr, mask, "kelmora-id-minidriver.dll");
        atr.push_back(0);
        mask.push_back(0);
        registry[FakeMachine::rowKey(name + " (longer ATR)")] =
            FakeMachine::row(atr, mask, "kelmora-id-minidriver.dll");
    }
    // A row of Windows' own that fits no card of ours.
    registry[FakeMachine::rowKey("Identity Device")] =
        FakeMachine::row(bytesOfHex("3b0000"), bytesOfHex("ff0000"), "msclmd.dll");
}

}  // namespace

RegistryValue text(const std::string& value) {
    RegistryValue result = valueOf(RegistryValue::Kind::text);
    result.text = value;
    return result;
}

RegistryValue number(std::uint32_t value) {
    RegistryValue result = valueOf(RegistryValue::Kind::number);
    result.number = value;
    return result;
}

RegistryValue binary(const Bytes& value) {
    RegistryValue result = valueOf(RegistryValue::Kind::binary);
    result.binary = value;
    return result;
}

RegistryValue otherType() {
    return valueOf(RegistryValue::Kind::other);
}

FileFacts library(Architecture architecture, const std::string& exported) {
    FileFacts file;
    file.exists = true;
    file.pe.isPe = true;
    file.pe.isLibrary = true;
    file.pe.architecture = architecture;
    file.pe.exports = {exported};
    file.version = "1.0.0.0";
    file.signature = {Signature::State::trusted, "Somebody", "Somebody Ltd", ""};
    return file;
}

CertificateFacts logonCertificate() {
    CertificateFacts certificate;
    certificate.name = "KORTTINEN TESTI";
    certificate.key = "RSA, 2048 bits";
    certificate.notBefore = system_clock::from_time_t(now2026) - year;
    certificate.notAfter = system_clock::from_time_t(now2026) + year;
    certificate.allowsSigning = true;
    certificate.hasExtendedUsage = true;
    certificate.allowsCardLogon = true;
    certificate.allowsClientAuthentication = true;
    certificate.hasUserPrincipalName = true;
    return certificate;
}

std::map<std::string, RegistryValue> FakeMachine::row(const Bytes& atr, const Bytes& mask,
                                                      const std::string& driver) {
    return {{"ATR", binary(atr)},
            {"ATRMask", binary(mask)},
            {"Crypto Provider", text("Microsoft Base Smart Card Crypto Provider")},
            {"Smart Card Key Storage Provider", text("Microsoft Smart Card Key Storage Provider")},
            {"80000001", text(driver)}};
}

std::string FakeMachine::rowKey(const std::string& name) {
    return fmt::format("{}\\{}", database, name);
}

FakeMachine::FakeMachine() {
    registerCards(wide);
    registerCards(narrow);
    files[dll64] = library(Architecture::x64, "CardAcquireContext");
    files[dll32] = library(Architecture::x86, "CardAcquireContext");
    for (const char* name : {"SCardSvr", "ScDeviceEnum", "CertPropSvc"}) {
        services[name] = {true, "", Service::Start::manual, true};
    }
    readersNow.list = {{"Reader 1", SCARD_S_SUCCESS,
                        Bytes(generations()[0].atr.begin(), generations()[0].atr.end())}};
    cardNow.acquisitionTime = std::chrono::milliseconds(700);
    cardNow.files = {{"cardid", 16}, {"mscp/cmapfile", 172}};
    CertificateFacts signing = logonCertificate();
    signing.container = 1;
    cardNow.certificates = {logonCertificate(), signing};
    PinTries tries;
    tries.pin = 1;
    tries.state = PinTries::State::open;
    tries.left = 5;
    cardNow.pins = {tries};
    logNow.folder = R"(C:\Program Files\Kelmora-ID-minidriver\Log)";
    logNow.file = logNow.folder + R"(\Kelmora-ID-minidriver.log)";
    wide[R"(SYSTEM\CurrentControlSet\Control\Lsa)"]["RunAsPPL"] = number(0);
    wide[R"(SOFTWARE\Policies\Microsoft\Windows\ScPnP)"]["EnableScPnP"] = number(0);
}

std::optional<std::vector<std::string>> FakeMachine::subkeys(View view, const std::string& key) {
    Registry& keys = registry(view);
    if (keys.find(key) == keys.end()) return std::nullopt;
    std::vector<std::string> names;
    for (const auto& [name, values] : keys) {
        if (name.starts_with(key + "\\")) names.push_back(name.substr(key.size() + 1));
    }
    return names;
}

std::optional<RegistryValue> FakeMachine::value(View view, const std::string& key,
                                                const std::string& name) {
    const auto found = registry(view).find(key);
    if (found == registry(view).end()) return std::nullopt;
    const auto entry = found->second.find(name);
    return entry == found->second.end() ? std::nullopt : std::optional(entry->second);
}

std::string FakeMachine::systemFolder(View view) const {
    return view == View::bits32 && processor != Architecture::x86 ? R"(C:\Windows\SysWOW64)"
                                                                  : R"(C:\Windows\System32)";
}

FileFacts FakeMachine::file(const std::string& path) {
    const auto found = files.find(path);
    return found == files.end() ? FileFacts{} : found->second;
}

Service FakeMachine::service(const std::string& name) {
    const auto found = services.find(name);
    return found == services.end() ? Service{} : found->second;
}

CardFacts FakeMachine::card(const std::string& reader) {
    EXPECT_EQ(reader, "Reader 1");
    return cardNow;
}

AddressAnswer FakeMachine::ask(bool isSecure, const std::string& host, std::uint16_t port) {
    asked.push_back(fmt::format("{} {} {}", isSecure ? "https" : "http", host, port));
    whileAsked();
    return answer;
}

std::chrono::system_clock::time_point FakeMachine::now() const {
    return system_clock::from_time_t(now2026);
}

}  // namespace cardhost::doctor::testing
