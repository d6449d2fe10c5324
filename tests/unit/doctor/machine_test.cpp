// Each row makes a healthy machine sick in one way: the doctor names that, and nothing else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <ostream>

#include "doctor/checks.h"
#include "fake_machine.h"

namespace cardhost::doctor::testing {
namespace {

using ::testing::HasSubstr;

Findings examined(FakeMachine& machine, bool usesNetwork = true) {
    Examination examination(machine, usesNetwork);
    examine(examination);
    return examination.findings;
}

std::string shown(const Findings& findings) {
    std::string text;
    for (const Finding& finding : findings.all()) {
        if (finding.verdict == Verdict::well) continue;
        text += finding.section + " | " + finding.id + " | " +
                std::string(verdictName(finding.verdict)) + " | " + finding.subject + " | " +
                finding.found + "\n";
    }
    return text;
}

struct Sickness {
    const char* name;
    std::function<void(FakeMachine& machine)> fall;
    Verdict verdict;
    const char* id;
    const char* found;    // a part of what is found, or of its subject
    bool isAlone = true;  // whether it brings no other finding with it

    friend std::ostream& operator<<(std::ostream& out, const Sickness& row) {
        return out << row.name;
    }
};

std::string typeRow(int type) {
    return FakeMachine::rowKey("Kelmora ID FINEID card type " + std::to_string(type));
}

void makeArm64(FakeMachine& machine) {
    machine.processor = Architecture::arm64;
    machine.files[dll64] = library(Architecture::arm64, "CardAcquireContext");
    machine.files[dll64].pe.isArm64X = true;
    machine.files[R"(C:\Windows\System32\kelmora-id-minidriver-arm64.dll)"] =
        library(Architecture::arm64, "CardAcquireContext");
    machine.files[R"(C:\Windows\System32\kelmora-id-minidriver-x64.dll)"] =
        library(Architecture::x64, "CardAcquireContext");
}

void setAddresses(FakeMachine& machine, const std::string& addresses) {
    machine.wide[settingsKey]["ADRSURL"] = text(addresses);
    machine.narrow[settingsKey]["ADRSURL"] = text(addresses);
}

void installDialog(FakeMachine& machine) {
    machine.narrow[runKey]["Kelmora ID"] = text(R"(C:\Companion\Companion.exe)");
    machine.files[dialogLibrary] = library(Architecture::x64, "promptCodeEntryDefault");
}

RegistryValue& policy(FakeMachine& machine, const char* name) {
    return machine.wide[R"(SOFTWARE\Policies\Microsoft\Windows\SmartCardCredentialProvider)"][name];
}

CertificateFacts& authentication(FakeMachine& machine) {
    return machine.cardNow.certificates.front();
}

void takeCardOut(FakeMachine& machine) {
    machine.readersNow.list[0].status = SCARD_E_NO_SMARTCARD;
    machine.readersNow.list[0].atr.clear();
}

const char* lsaKey = R"(SYSTEM\CurrentControlSet\Control\Lsa)";
const char* appControlKey = R"(SYSTEM\CurrentControlSet\Control\CI\Policy)";

using enum Verdict;

const Sickness sicknesses[] = {
    // Registration
    {"NoDatabase", [](FakeMachine& m) { m.wide.erase(database); }, problem, "registration.database",
     "64-bit programs"},
    {"NoRowOfOurs",
     [](FakeMachine& m) {
         std::erase_if(m.narrow, [](const auto& key) {
             return key.first.find("Kelmora ID") != std::string::npos;
         });
     },
     problem, "registration.none", "32-bit programs"},
    {"OneRowGone", [](FakeMachine& m) { m.wide.erase(typeRow(5)); }, problem,
     "registration.missing", "no row fits a card of type 5"},
    {"LongerRowGone", [](FakeMachine& m) { m.wide.erase(typeRow(6) + " (longer ATR)"); }, problem,
     "registration.missing", "type 6 with a longer ATR"},
    {"NoAtr", [](FakeMachine& m) { m.wide[typeRow(3)].erase("ATR"); }, problem, "registration.atr",
     "type 3", false},
    {"AtrOfAnotherType", [](FakeMachine& m) { m.wide[typeRow(3)]["ATR"] = text("3bdd"); }, problem,
     "registration.atr", "type 3", false},
    {"ShortMask", [](FakeMachine& m) { m.wide[typeRow(4)]["ATRMask"] = binary(Bytes(19, 0xFF)); },
     problem, "registration.mask", "19 bytes and its ATR 20", false},
    {"NarrowMask", [](FakeMachine& m) { m.wide[typeRow(4)]["ATRMask"] = binary(Bytes(20, 0x0F)); },
     problem, "registration.mask", "fits no card", false},
    {"MaskOfAnotherType", [](FakeMachine& m) { m.wide[typeRow(4)]["ATRMask"] = number(0xFF); },
     problem, "registration.mask", "0 bytes and its ATR 20", false},
    {"NoProvider", [](FakeMachine& m) { m.wide[typeRow(7)].erase("Crypto Provider"); }, problem,
     "registration.value", "has no value 'Crypto Provider'"},
    {"OtherKeyStorage",
     [](FakeMachine& m) {
         m.narrow[typeRow(8)]["Smart Card Key Storage Provider"] = text("Other KSP");
     },
     problem, "registration.value", "is 'Other KSP'"},
    {"NoDriverNamed", [](FakeMachine& m) { m.wide[typeRow(8)].erase("80000001"); }, problem,
     "registration.rival", "no driver"},
    {"DriverFromAnotherFolder",
     [](FakeMachine& m) {
         m.wide[typeRow(8)]["80000001"] = text(R"(C:\Old\kelmora-id-minidriver.dll)");
     },
     problem, "registration.path", R"(names C:\Old\kelmora-id-minidriver.dll)"},
    {"RivalAhead",
     [](FakeMachine& m) {
         m.wide[FakeMachine::rowKey("Another card")] =
             FakeMachine::row(m.wide[typeRow(3)]["ATR"].binary, Bytes(22, 0xFF), "othercard.dll");
     },
     problem, "registration.rival",
     "comes first for a card of type 3 and names the driver othercard.dll"},
    {"RivalWithWiderMask",
     [](FakeMachine& m) {
         Bytes mask(20, 0x00);
         mask[0] = 0xFF;
         Bytes atr(20, 0x00);
         atr[0] = 0x3B;
         m.wide[FakeMachine::rowKey("All of 20 bytes")] = FakeMachine::row(atr, mask, "other.dll");
     },
     problem, "registration.rival", "a card of type 4, type 5, type 7"},
    {"RivalBehind",
     [](FakeMachine& m) {
         m.wide[FakeMachine::rowKey("Zebra card")] =
             FakeMachine::row(m.wide[typeRow(3)]["ATR"].binary, Bytes(22, 0xFF), "zebra.dll");
     },
     note, "registration.other", "ours comes first"},
    // Driver files
    {"DllMissing", [](FakeMachine& m) { m.files.erase(dll32); }, problem, "driver.missing",
     "SysWOW64"},
    {"DllUnreadable", [](FakeMachine& m) { m.files[dll64].unreadable = "access denied"; }, problem,
     "driver.unreadable", "access denied"},
    {"DllIsNoLibrary", [](FakeMachine& m) { m.files[dll64].pe = PeFacts{}; }, problem,
     "driver.format", "is no library"},
    {"DllIsProgram", [](FakeMachine& m) { m.files[dll64].pe.isLibrary = false; }, problem,
     "driver.format", "is no library"},
    {"DllOfOtherArchitecture",
     [](FakeMachine& m) { m.files[dll64].pe.architecture = Architecture::x86; }, problem,
     "driver.architecture", "is made for x86; these programs need x64"},
    {"DllOfX64OnArm64",
     [](FakeMachine& m) {
         makeArm64(m);
         m.files[dll64] = library(Architecture::x64, "CardAcquireContext");
     },
     problem, "driver.architecture", "is made for x64; these programs need ARM64"},
    {"NoExport", [](FakeMachine& m) { m.files[dll64].pe.exports = {"DllMain"}; }, problem,
     "driver.export", "does not export CardAcquireContext"},
    {"Arm64WithoutForwarder",
     [](FakeMachine& m) {
         makeArm64(m);
         m.files[dll64].pe.isArm64X = false;
     },
     problem, "driver.set", "serves ARM64 programs only"},
    {"Arm64WithoutX64Part",
     [](FakeMachine& m) {
         makeArm64(m);
         m.files.erase(R"(C:\Windows\System32\kelmora-id-minidriver-x64.dll)");
     },
     problem, "driver.missing", "minidriver-x64.dll is missing"},
    {"Arm64WithoutArm64Part",
     [](FakeMachine& m) {
         makeArm64(m);
         m.files.erase(R"(C:\Windows\System32\kelmora-id-minidriver-arm64.dll)");
     },
     problem, "driver.missing", "minidriver-arm64.dll is missing"},
    {"VersionsDiffer", [](FakeMachine& m) { m.files[dll32].version = "0.9.0.0"; }, problem,
     "driver.version", "version 0.9.0.0 here, 1.0.0.0 above"},
    {"NoVersion", [](FakeMachine& m) { m.files[dll32].version.clear(); }, note, "driver.version",
     "tells no version"},
    {"NotSigned",
     [](FakeMachine& m) {
         m.files[dll32].signature = {Signature::State::none, "", "", ""};
     },
     note, "driver.signature", "no signature"},
    {"SignerNotTrusted",
     [](FakeMachine& m) {
         m.files[dll32].signature = {Signature::State::untrusted, "Somebody", "", "unknown root"};
     },
     note, "driver.signature", "whom this machine does not trust (unknown root)"},
    {"ChangedAfterSigning",
     [](FakeMachine& m) {
         m.files[dll32].signature = {Signature::State::broken, "Somebody", "", "bad digest"};
     },
     problem, "driver.signature", "does not hold (bad digest)"},
    // Platform
    {"NoService", [](FakeMachine& m) { m.services.erase("SCardSvr"); }, problem, "platform.service",
     "no program reaches a card"},
    {"ServiceDisabled",
     [](FakeMachine& m) { m.services["SCardSvr"].start = Service::Start::disabled; }, problem,
     "platform.service", "is disabled"},
    {"ServicesNotToBeAsked",
     [](FakeMachine& m) { m.services["SCardSvr"].unreadable = "access denied"; }, unknown,
     "platform.service", "cannot be asked: access denied"},
    {"PropagationDisabled",
     [](FakeMachine& m) { m.services["CertPropSvc"].start = Service::Start::disabled; }, note,
     "platform.service", "user's store"},
    {"NoDeviceEnumeration", [](FakeMachine& m) { m.services.erase("ScDeviceEnum"); }, note,
     "platform.service", "may not notice readers"},
    {"ProtectedLsa", [](FakeMachine& m) { m.wide[lsaKey]["RunAsPPL"] = number(1); }, problem,
     "platform.lsa", "logon with the card fails"},
    {"ProtectedLsaByPolicy",
     [](FakeMachine& m) {
         m.wide[R"(SOFTWARE\Policies\Microsoft\Windows\System)"]["RunAsPPL"] = number(2);
     },
     problem, "platform.lsa", "logon with the card fails"},
    {"ProtectedLsaPerhaps",
     [](FakeMachine& m) {
         m.wide.erase(lsaKey);
         m.wide[R"(SOFTWARE\Microsoft\Windows NT\CurrentVersion)"]["CurrentBuildNumber"] =
             text("22621");
     },
     unknown, "platform.lsa", "not configured; Windows 11 may have it on all the same"},
    {"ProtectedLsaPerhapsAfterAnUpgrade",
     [](FakeMachine& m) {
         m.wide.erase(lsaKey);
         m.wide[R"(SOFTWARE\Microsoft\Windows NT\CurrentVersion)"]["CurrentBuildNumber"] =
             text("26100");
     },
     unknown, "platform.lsa", "from 24H2 on also upgraded ones"},
    {"AppControlOn",
     [](FakeMachine& m) {
         m.wide[appControlKey]["VerifiedAndReputablePolicyState"] = number(1);
         m.files[dll64].signature.state = Signature::State::untrusted;
     },
     problem, "platform.app-control", "refuses files without a trusted signature", false},
    {"AppControlEvaluating",
     [](FakeMachine& m) {
         m.wide[appControlKey]["VerifiedAndReputablePolicyState"] = number(2);
         m.files[dll64].signature.state = Signature::State::none;
     },
     note, "platform.app-control", "evaluating", false},
    // Readers
    {"NoReaderService",
     [](FakeMachine& m) {
         m.readersNow = {true, "no smart-card service answers: 0x8010001d", {}};
     },
     problem, "readers.service", "0x8010001d", false},
    {"NoReader", [](FakeMachine& m) { m.readersNow.list.clear(); }, problem, "readers.none",
     "no reader is connected", false},
    {"OnlyVirtualReaders",
     [](FakeMachine& m) {
         m.readersNow.list = {{"Windows Hello for Business 1", SCARD_S_SUCCESS, Bytes{0x3B}}};
     },
     problem, "readers.none", "only readers of Windows itself", false},
    {"VirtualReaderToo",
     [](FakeMachine& m) {
         m.readersNow.list.push_back({"Microsoft Virtual Smart Card 0", SCARD_S_SUCCESS, {}});
     },
     note, "readers.virtual", "made by Windows itself"},
    {"CardHeldByAnother",
     [](FakeMachine& m) {
         m.readersNow.list[0] = {"Reader 1", SCARD_E_SHARING_VIOLATION, {}};
     },
     problem, "readers.held", "another program holds the card", false},
    {"MuteCard",
     [](FakeMachine& m) {
         m.readersNow.list[0] = {"Reader 1", SCARD_W_UNRESPONSIVE_CARD, {}};
     },
     problem, "readers.mute", "SCARD_W_UNRESPONSIVE_CARD", false},
    {"ForeignCard", [](FakeMachine& m) { m.readersNow.list[0].atr = bytesOfHex("3b9f9581"); },
     problem, "readers.foreign", "not a FINEID card", false},
    {"CardOneBitAway", [](FakeMachine& m) { m.readersNow.list[0].atr.back() ^= 0x10; }, problem,
     "readers.foreign", "one bit away from type 3 (byte 22 is 58, there 48)", false},
    {"ForeignCardBesideOurs",
     [](FakeMachine& m) {
         m.readersNow.list.push_back({"Reader 2", SCARD_S_SUCCESS, bytesOfHex("3b9f9581")});
     },
     note, "readers.foreign", "Reader 2"},
    {"NoCard", takeCardOut, note, "card.none", "no FINEID card in any reader", false},
    // Settings
    {"AddressWithoutPort", [](FakeMachine& m) { setAddresses(m, "https://host"); }, problem,
     "settings.address", "'https://host' is not of the form"},
    {"AddressInCapitals", [](FakeMachine& m) { setAddresses(m, "HTTPS://host:443"); }, problem,
     "settings.address", "neither with http nor with https"},
    {"AddressWithoutHost", [](FakeMachine& m) { setAddresses(m, "https://:443"); }, problem,
     "settings.address", "has no host"},
    {"AddressWithPort0", [](FakeMachine& m) { setAddresses(m, "https://host:0"); }, problem,
     "settings.address", "not from 1 to 65535"},
    {"AddressWithPortInLetters", [](FakeMachine& m) { setAddresses(m, "https://host:x"); }, problem,
     "settings.address", "the first acquisition of each process fails"},
    {"AddressWithPath", [](FakeMachine& m) { setAddresses(m, "https://host:443/pair"); }, note,
     "settings.ignored", "drops '/pair'"},
    {"PlainAddress", [](FakeMachine& m) { setAddresses(m, "http://host:80"); }, note,
     "settings.plain", "unencrypted"},
    {"NoAddressInIt", [](FakeMachine& m) { setAddresses(m, " ; "); }, note, "settings.none",
     "with no address in it"},
    {"AddressOfOtherType",
     [](FakeMachine& m) {
         m.wide[settingsKey]["ADRSURL"] = m.narrow[settingsKey]["ADRSURL"] = otherType();
     },
     problem, "settings.type", "no text value"},
    {"AddressFor64BitsOnly",
     [](FakeMachine& m) { m.wide[settingsKey]["ADRSURL"] = text("https://host:443"); }, note,
     "settings.view", "Wow6432Node"},
    {"OtherAddressFor32Bits",
     [](FakeMachine& m) {
         setAddresses(m, "https://host:443");
         m.narrow[settingsKey]["ADRSURL"] = text("https://host");
     },
     problem, "settings.address", "ADRSURL, 32-bit programs"},
    {"ServiceSilent",
     [](FakeMachine& m) {
         setAddresses(m, "https://host:443");
         m.answer = {false, "did not answer in time", std::chrono::milliseconds(16000)};
     },
     problem, "settings.answer", "https://host:443 did not answer in time (16.0 s)"},
    // PIN dialog
    {"RunValueOfOtherType", [](FakeMachine& m) { m.narrow[runKey]["Kelmora ID"] = number(1); },
     note, "dialog.type", "no text value"},
    {"RunValueInQuotes",
     [](FakeMachine& m) {
         installDialog(m);
         m.narrow[runKey]["Kelmora ID"] = text(R"("C:\Companion\Companion.exe")");
     },
     note, "dialog.command", "quotation marks"},
    {"RunValueWithArguments",
     [](FakeMachine& m) {
         installDialog(m);
         m.narrow[runKey]["Kelmora ID"] = text(R"(C:\Companion\Companion.exe /log=D:\x)");
     },
     note, "dialog.missing", R"(C:\Companion\Companion.exe /log=D:\CodeEntryLibrary.dll)"},
    {"NoDialogLibrary",
     [](FakeMachine& m) {
         installDialog(m);
         m.files.erase(dialogLibrary);
     },
     note, "dialog.missing", R"(C:\Companion\CodeEntryLibrary.dll is missing)"},
    {"DialogIsNoLibrary",
     [](FakeMachine& m) {
         installDialog(m);
         m.files[dialogLibrary].pe = PeFacts{};
     },
     note, "dialog.format", "is no library"},
    {"DialogWithoutItsFunction",
     [](FakeMachine& m) {
         installDialog(m);
         m.files[dialogLibrary].pe.exports.clear();
     },
     problem, "dialog.function", "does not export promptCodeEntryDefault"},
    {"DialogOfOtherArchitecture",
     [](FakeMachine& m) {
         installDialog(m);
         m.files[dialogLibrary].pe.architecture = Architecture::x86;
     },
     note, "dialog.architecture", "is made for x86"},
    // Log
    {"LogNotWritable",
     [](FakeMachine& m) {
         m.logNow.folderExists = true;
         m.logNow.reason = "Access denied";
     },
     note, "log.not-writable", "Access denied"},
    {"LogRedirected", [](FakeMachine& m) { m.logNow.redirected = R"(C:\Users\x\VirtualStore)"; },
     note, "log.redirected", "VirtualStore"},
    {"LargeLog",
     [](FakeMachine& m) {
         m.logNow.folderExists = m.logNow.fileExists = m.logNow.isWritable = true;
         m.logNow.size = 3'000'000'000;
     },
     note, "log.large", "3000000000 bytes", false},
    // Card
    {"CardRefused", [](FakeMachine& m) { m.cardNow.refusal = 0x80100024; }, problem, "card.refused",
     "SCARD_E_FILE_NOT_FOUND"},
    {"CardLost", [](FakeMachine& m) { m.cardNow.failure = "the card no longer answers"; }, problem,
     "card.failure", "no longer answers"},
    {"SlowAcquisition",
     [](FakeMachine& m) { m.cardNow.acquisitionTime = std::chrono::seconds(17); }, note,
     "card.slow", "17000 ms"},
    {"CertificateRunOut",
     [](FakeMachine& m) { authentication(m).notAfter = m.now() - std::chrono::hours(1); }, problem,
     "card.expired", "it has run out"},
    {"CertificateNotYetValid",
     [](FakeMachine& m) { authentication(m).notBefore = m.now() + std::chrono::hours(1); }, problem,
     "card.not-yet-valid", "not valid yet"},
    {"CertificateWithoutSigning", [](FakeMachine& m) { authentication(m).allowsSigning = false; },
     problem, "card.usage", "does not allow digital signatures"},
    {"CertificateForOtherUse",
     [](FakeMachine& m) {
         authentication(m).allowsCardLogon = authentication(m).allowsClientAuthentication = false;
         policy(m, "AllowCertificatesWithNoEKU") = number(1);
     },
     problem, "card.extended-usage", "neither smart card logon nor client authentication"},
    {"PinBlocked", [](FakeMachine& m) { m.cardNow.pins[0].state = PinTries::State::blocked; },
     problem, "card.blocked", "PIN 1"},
    {"OneTryLeft", [](FakeMachine& m) { m.cardNow.pins[0].left = 1; }, note, "card.last-try",
     "1 try left"},
    {"TriesNotTold",
     [](FakeMachine& m) {
         m.cardNow.pins[0].state = PinTries::State::unknown;
         m.cardNow.pins[0].answer = "6A 88";
     },
     unknown, "card.tries", "6A 88"},
    // Policies
    {"EcCardWithoutPolicy", [](FakeMachine& m) { authentication(m).isEc = true; }, problem,
     "policy.ecc", "EnumerateECCCerts"},
    {"EcCardWithPolicyOff",
     [](FakeMachine& m) {
         authentication(m).isEc = true;
         policy(m, "EnumerateECCCerts") = number(0);
     },
     problem, "policy.ecc", "off, and this card needs it"},
    {"NoLogonUsage", [](FakeMachine& m) { authentication(m).allowsCardLogon = false; }, problem,
     "policy.no-eku", "AllowCertificatesWithNoEKU"},
    {"NoPrincipalName", [](FakeMachine& m) { authentication(m).hasUserPrincipalName = false; },
     problem, "policy.hints", "X509HintsNeeded"},
    {"PropagationOff",
     [](FakeMachine& m) {
         m.wide[R"(SOFTWARE\Policies\Microsoft\Windows\CertProp)"]["CertPropEnabled"] = number(0);
     },
     note, "policy.propagation", "user's store"},
    {"PlugAndPlayOn",
     [](FakeMachine& m) { m.wide.erase(R"(SOFTWARE\Policies\Microsoft\Windows\ScPnP)"); }, note,
     "policy.plug-and-play", "Windows Update"},
    {"NoRedirection",
     [](FakeMachine& m) {
         m.wide[R"(SOFTWARE\Policies\Microsoft\Windows NT\Terminal Services)"]["fEnableSmartCard"] =
             number(0);
     },
     note, "policy.redirection", "remote sessions"},
    // Linux
    {"NoLibrary", [](FakeMachine& m) { m.windows = false; }, problem, "driver.missing",
     "/opt/libkelmora-id-minidriver.so is missing"},
    {"LibraryDoesNotLoad",
     [](FakeMachine& m) {
         m.windows = false;
         m.files[m.driverFile()].exists = true;
         m.files[m.driverFile()].unreadable = "wrong ELF class";
     },
     problem, "driver.unreadable", "wrong ELF class"},
    {"NoDaemon",
     [](FakeMachine& m) {
         m.windows = false;
         m.files[m.driverFile()].exists = true;
         m.readersNow = {true, "no smart-card service answers", {}};
     },
     problem, "readers.service", "no smart-card service answers", false},
};

class SickMachine : public ::testing::TestWithParam<Sickness> {};

TEST_P(SickMachine, IsNamed) {
    const Sickness& row = GetParam();
    FakeMachine machine;
    row.fall(machine);
    const Findings findings = examined(machine);
    const Finding* named = nullptr;
    std::size_t others = 0;
    for (const Finding& finding : findings.all()) {
        if (finding.verdict == well) continue;
        if (finding.id == row.id && finding.verdict == row.verdict && named == nullptr) {
            named = &finding;
        } else {
            ++others;
        }
    }
    ASSERT_NE(named, nullptr) << shown(findings);
    EXPECT_THAT(named->subject + ": " + named->found, HasSubstr(row.found));
    if (row.verdict == problem) EXPECT_NE(named->advice, "") << "nothing to do is told";
    if (row.isAlone) EXPECT_EQ(others, 0U) << shown(findings);
}

INSTANTIATE_TEST_SUITE_P(Doctor, SickMachine, ::testing::ValuesIn(sicknesses),
                         [](const auto& row) { return row.param.name; });

struct Health {
    const char* name;
    std::function<void(FakeMachine& machine)> change;
    friend std::ostream& operator<<(std::ostream& out, const Health& row) {
        return out << row.name;
    }
};

const Health healthy[] = {
    {"AsItIs", [](FakeMachine&) {}},
    {"Arm64", makeArm64},
    {"X86",
     [](FakeMachine& m) {
         m.processor = Architecture::x86;
         m.files = {{dll64, library(Architecture::x86, "CardAcquireContext")}};
         m.narrow.insert(m.wide.begin(), m.wide.end());
         m.wide.clear();
     }},
    {"WithAddresses",
     [](FakeMachine& m) { setAddresses(m, "https://host:443; https://spare:8443 ;"); }},
    {"WithDialog", installDialog},
    {"WithLog", [](FakeMachine& m) { m.logNow.folderExists = m.logNow.isWritable = true; }},
    {"EmptyReaderBeside",
     [](FakeMachine& m) {
         m.readersNow.list.push_back({"Reader 2", SCARD_E_NO_SMARTCARD, {}});
     }},
    {"LongerAtr", [](FakeMachine& m) { m.readersNow.list[0].atr.push_back(0xDA); }},
    {"PathInTheRow",
     [](FakeMachine& m) { m.wide[typeRow(3)]["80000001"] = text("KELMORA-ID-MINIDRIVER.DLL"); }},
    {"EcCardWithPolicy",
     [](FakeMachine& m) {
         authentication(m).isEc = true;
         policy(m, "EnumerateECCCerts") = number(1);
     }},
    {"ProtectedLsaWithMakersSignature",
     [](FakeMachine& m) {
         m.wide[lsaKey]["RunAsPPL"] = number(1);
         m.files[dll64].signature.organization = "Microsoft Corporation";
     }},
    {"AppControlWithSignature",
     [](FakeMachine& m) { m.wide[appControlKey]["VerifiedAndReputablePolicyState"] = number(1); }},
    {"ServiceAsleep", [](FakeMachine& m) { m.services["SCardSvr"].isRunning = false; }},
    {"Linux",
     [](FakeMachine& m) {
         m.windows = false;
         m.wide.clear();
         m.narrow.clear();
         m.services.clear();
         m.files.clear();
         m.files[m.driverFile()].exists = true;
     }},
};

class HealthyMachine : public ::testing::TestWithParam<Health> {};

TEST_P(HealthyMachine, Passes) {
    FakeMachine machine;
    GetParam().change(machine);
    const Findings findings = examined(machine);
    EXPECT_EQ(shown(findings), "");
    EXPECT_GE(findings.count(well), 7U);
}

INSTANTIATE_TEST_SUITE_P(Doctor, HealthyMachine, ::testing::ValuesIn(healthy),
                         [](const auto& row) { return row.param.name; });

/// The codes of what is well, each once, in their order.
std::vector<std::string> wellCodes(FakeMachine& machine) {
    std::vector<std::string> codes;
    const Findings findings = examined(machine);
    for (const Finding& finding : findings.all()) {
        if (finding.verdict != well || std::ranges::count(codes, finding.id) > 0) continue;
        codes.push_back(finding.id);
    }
    return codes;
}

TEST(Health, IsToldPointByPoint) {
    FakeMachine machine;
    EXPECT_THAT(wellCodes(machine),
                ::testing::ElementsAre("registration.rows", "driver.file", "driver.signature",
                                       "platform.service", "platform.lsa", "platform.app-control",
                                       "readers.card", "settings.none", "dialog.none", "log.off",
                                       "card.acquired", "card.files", "card.certificate",
                                       "card.tries", "policy.ecc", "policy.no-eku", "policy.hints",
                                       "policy.propagation", "policy.plug-and-play"));
}

TEST(Health, OfWhatIsThereIsToldToo) {
    FakeMachine machine;
    setAddresses(machine, "https://a:443");
    installDialog(machine);
    machine.logNow.folderExists = machine.logNow.isWritable = true;
    machine.readersNow.list.push_back({"Reader 2", SCARD_E_NO_SMARTCARD, {}});
    const auto codes = wellCodes(machine);
    for (const char* code :
         {"settings.address", "settings.answer", "dialog.library", "log.on", "readers.empty"}) {
        EXPECT_THAT(codes, ::testing::Contains(code));
    }
    for (const char* code : {"settings.none", "dialog.none", "log.off"}) {
        EXPECT_THAT(codes, ::testing::Not(::testing::Contains(code)));
    }
}

TEST(Health, OfALogThatHasLinesNamesTheCommandThatExplainsThem) {
    FakeMachine machine;
    machine.logNow.folderExists = machine.logNow.isWritable = machine.logNow.fileExists = true;
    machine.logNow.file = "C:\\the.log";
    const Findings findings = examined(machine);
    const auto found = std::ranges::find(findings.all(), "log.explain", &Finding::id);
    ASSERT_NE(found, findings.all().end());
    EXPECT_EQ(found->verdict, note);
    EXPECT_EQ(found->advice, "cardhost doctor --log \"C:\\the.log\"");
}

TEST(Refusal, NamesTheLogAndHowToSwitchItOn) {
    FakeMachine machine;
    machine.cardNow.refusal = 0x8010001F;
    machine.logNow.folder = "C:\\Log";
    machine.logNow.file = "C:\\Log\\the.log";
    const auto advice = [&] {
        const Findings findings = examined(machine);
        const auto found = std::ranges::find(findings.all(), "card.refused", &Finding::id);
        return found == findings.all().end() ? std::string() : found->advice;
    };
    const char* explain = "Have the log explained: cardhost doctor --log \"C:\\Log\\the.log\"";
    EXPECT_THAT(advice(), HasSubstr(explain));
    EXPECT_THAT(advice(), HasSubstr("making the folder C:\\Log, and try again."));
    machine.logNow.folderExists = machine.logNow.isWritable = true;
    EXPECT_THAT(advice(), ::testing::StartsWith(explain));
    setAddresses(machine, "https://host:port");
    EXPECT_EQ(advice(), "Put the address under Settings right, and run this again.");
}

TEST(Signatures, AreAskedOfTheMakerOnlyWhereTheyHold) {
    FakeMachine machine;
    machine.wide[lsaKey]["RunAsPPL"] = number(1);
    machine.files[dll64].signature = {Signature::State::broken, "", "Microsoft Corporation", "bad"};
    EXPECT_THAT(shown(examined(machine)), HasSubstr("platform.lsa | problem"));
}

TEST(Addresses, AreAskedInOrderAndOnlyOnRequest) {
    FakeMachine machine;
    setAddresses(machine, "https://a:443;http://b:8080;ftp://c:21");
    examined(machine, false);
    EXPECT_TRUE(machine.asked.empty());
    examined(machine);
    EXPECT_THAT(machine.asked, ::testing::ElementsAre("https a 443", "http b 8080"));
}

TEST(Addresses, AreShownAheadOfTheWaitForThem) {
    FakeMachine machine;
    setAddresses(machine, "https://a:443;https://b:443");
    Examination examination(machine, true);
    std::string lastShown;
    examination.show = [&] {
        const Finding& last = examination.findings.all().back();
        lastShown = last.section + " " + last.id + " " + last.found;
    };
    std::vector<std::string> shownWhileAsked;
    machine.whileAsked = [&] { shownWhileAsked.push_back(lastShown); };
    examine(examination);
    EXPECT_THAT(shownWhileAsked, ::testing::ElementsAre("Settings settings.address https://a:443",
                                                        "Settings settings.address https://b:443"));
}

TEST(Policies, WithoutACardTellWhatTheyWouldMean) {
    FakeMachine machine;
    takeCardOut(machine);
    const std::string findings = shown(examined(machine));
    EXPECT_THAT(findings, HasSubstr("policy.ecc | note"));
    EXPECT_THAT(findings, HasSubstr("policy.no-eku | note"));
    EXPECT_THAT(findings, HasSubstr("policy.hints | note"));
}

TEST(Sections, StandInTheOrderInWhichACardNeedsThem) {
    FakeMachine machine;
    std::vector<std::string> sections;
    const Findings findings = examined(machine);
    for (const Finding& finding : findings.all()) {
        if (sections.empty() || sections.back() != finding.section) {
            sections.push_back(finding.section);
        }
    }
    EXPECT_THAT(sections, ::testing::ElementsAre("Registration", "Driver files", "Platform",
                                                 "Readers", "Settings", "PIN dialog", "Log", "Card",
                                                 "Policies for logon"));
}

}  // namespace
}  // namespace cardhost::doctor::testing
