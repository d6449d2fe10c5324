// A machine made of values: a healthy one with a card in its reader, until a test makes it sick.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "doctor/machine.h"

namespace cardhost::doctor::testing {

/// The keys of one view below HKEY_LOCAL_MACHINE, in the registry's order.
using Registry = std::map<std::string, std::map<std::string, RegistryValue>>;

RegistryValue text(const std::string& value);
RegistryValue number(std::uint32_t value);
RegistryValue binary(const Bytes& value);
RegistryValue otherType();

inline constexpr const char* database = R"(SOFTWARE\Microsoft\Cryptography\Calais\SmartCards)";
inline constexpr const char* dll64 = R"(C:\Windows\System32\kelmora-id-minidriver.dll)";
inline constexpr const char* dll32 = R"(C:\Windows\SysWOW64\kelmora-id-minidriver.dll)";
inline constexpr const char* settingsKey = R"(SOFTWARE\Kelmora\KelmoraID)";
inline constexpr const char* runKey = R"(SOFTWARE\Microsoft\Windows\CurrentVersion\Run)";
inline constexpr const char* dialogLibrary = R"(C:\Companion\CodeEntryLibrary.dll)";

/// A library of that architecture with that one export, signed by a trusted publisher.
FileFacts library(Architecture architecture, const std::string& exported);

/// The certificate of the authentication key that a logon takes without any policy.
CertificateFacts logonCertificate();

class FakeMachine : public Machine {
public:
    /// 64-bit Windows with everything in place, and a card of type 3 in its one reader.
    FakeMachine();

    /// A row of the database as the package makes it.
    static std::map<std::string, RegistryValue> row(const Bytes& atr, const Bytes& mask,
                                                    const std::string& driver);
    /// The key of a row of ours.
    static std::string rowKey(const std::string& name);

    bool windows = true;
    Architecture processor = Architecture::x64;
    Registry wide;
    Registry narrow;
    std::map<std::string, FileFacts> files;
    std::map<std::string, Service> services;
    Readers readersNow;
    CardFacts cardNow;
    LogPlace logNow;
    AddressAnswer answer{true, "answers (HTTP status 200)", std::chrono::milliseconds(12)};
    std::vector<std::string> asked;  // "https host 443"
    std::function<void()> whileAsked = [] {};

    Registry& registry(View view) { return view == View::bits64 ? wide : narrow; }

    bool isWindows() const override { return windows; }
    Architecture architecture() const override { return processor; }
    std::optional<std::vector<std::string>> subkeys(View view, const std::string& key) override;
    std::optional<RegistryValue> value(View view, const std::string& key,
                                       const std::string& name) override;
    std::string systemFolder(View view) const override;
    FileFacts file(const std::string& path) override;
    std::string driverFile() const override { return "/opt/libkelmora-id-minidriver.so"; }
    Service service(const std::string& name) override;
    Readers readers() override { return readersNow; }
    CardFacts card(const std::string& reader) override;
    AddressAnswer ask(bool isSecure, const std::string& host, std::uint16_t port) override;
    LogPlace log() override { return logNow; }
    std::chrono::system_clock::time_point now() const override;
};

}  // namespace cardhost::doctor::testing
