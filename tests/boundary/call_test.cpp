// Every entry point with every argument as it should be and wrong in one way after the other: the
// status, what comes back and the lines of both log channels, compared whole with tests/data/calls.
#include <cstring>
#include <sstream>

#include "calls.h"
#include "refused_operations.h"
#include "support/statuses.h"

namespace boundary {
namespace {

char* characters(const char* text) {
    return const_cast<char*>(text);
}
WCHAR* wide(const WCHAR* text) {
    return const_cast<WCHAR*>(text);
}
std::string number(std::uint32_t value) {
    return std::to_string(value);
}

// What a caller may hand over as its record.
void recordRows(Calls& calls, const std::string& name,
                const std::function<DWORD(PCARD_DATA)>& entry) {
    // A few serve without the handle too.
    calls.call(name + ": no record", [&] { return entry(nullptr); });
    CARD_DATA without = calls.data;
    without.hSCardCtx = 0;
    calls.call(name + ": no context handle", [&] { return entry(&without); });
    CARD_DATA unacquired = calls.data;
    unacquired.pvVendorSpecific = nullptr;
    calls.call(name + ": no card acquired", [&] { return entry(&unacquired); });
}

void acquisitions(Calls& calls) {
    const auto acquire = [&](const char* what, DWORD flags,
                             const std::function<void(CARD_DATA&)>& change) {
        calls.call(std::string("CardAcquireContext: ") + what, [&] {
            CARD_DATA record = calls.data;
            change(record);
            const DWORD status = acquireContextOfDriver()(&record, flags);
            calls.tell("version", record.dwVersion);
            return status;
        });
    };
    calls.call("CardAcquireContext: no record",
               [] { return acquireContextOfDriver()(nullptr, 0); });
    acquire("flags", 2, [](CARD_DATA&) {});
    for (const DWORD version : {0u, 1u, 4u, 5u, 6u}) {
        acquire(("version " + number(version)).c_str(), 0,
                [&](CARD_DATA& record) { record.dwVersion = version; });
    }
    acquire("no ATR", 0, [](CARD_DATA& record) { record.pbAtr = nullptr; });
    acquire("an empty ATR", 0, [](CARD_DATA& record) { record.cbAtr = 0; });
    acquire("no card name", 0, [](CARD_DATA& record) { record.pwszCardName = nullptr; });
    acquire("no allocator", 0, [](CARD_DATA& record) { record.pfnCspAlloc = nullptr; });
    acquire("no reallocator", 0, [](CARD_DATA& record) { record.pfnCspReAlloc = nullptr; });
    acquire("no free", 0, [](CARD_DATA& record) { record.pfnCspFree = nullptr; });
    acquire("no card handle", 0, [](CARD_DATA& record) { record.hScard = 0; });
    acquire("no context handle", 0, [](CARD_DATA& record) { record.hSCardCtx = 0; });
    calls.call("CardAcquireContext", [&] { return calls.card.acquire(); });
}

void files(Calls& calls) {
    struct Name {
        const char* directory;
        const char* file;
    };
    constexpr Name names[] = {
        {nullptr, "cardid"}, {nullptr, "cardcf"}, {nullptr, "cardapps"}, {"mscp", "cmapfile"},
        {"mscp", "kxc00"},   {"mscp", "ksc01"},   {"mscp", "ksc02"},     {"mscp", "kxc01"},
        {"mscp", "msroots"}, {"mscp", "cardid"},  {nullptr, "cmapfile"}, {"other", "cmapfile"},
        {"", "cardid"},      {"mscp", ""},        {nullptr, "CARDID"},   {nullptr, "other"},
        {nullptr, nullptr},
    };
    const auto spell = [](const char* text) { return text == nullptr ? "(none)" : text; };
    for (const Name& name : names) {
        const std::string path = std::string(spell(name.directory)) + "/" + spell(name.file);
        calls.call("CardReadFile: " + path, [&] {
            const Answer answer = calls.card.readFile(name.directory, name.file);
            // A certificate is long, and told by its length.
            if (answer.status == 0) calls.tell("size", static_cast<DWORD>(answer.bytes.size()));
            if (answer.bytes.size() < 256 && answer.status == 0) {
                calls.tellBytes("bytes", answer.bytes.data(), answer.bytes.size());
            }
            return answer.status;
        });
        for (const DWORD version : {0u, 1u, 2u}) {
            calls.call("CardGetFileInfo: " + path + ", version " + number(version), [&] {
                CARD_FILE_INFO info{};
                info.dwVersion = version;
                const DWORD status = calls.data.pfnCardGetFileInfo(
                    &calls.data, characters(name.directory), characters(name.file), &info);
                calls.tellBytes("record", &info, sizeof(info));
                return status;
            });
        }
    }
    PBYTE bytes = nullptr;
    DWORD size = 77;
    recordRows(calls, "CardReadFile", [&](PCARD_DATA record) {
        const DWORD status =
            calls.data.pfnCardReadFile(record, nullptr, characters("cardid"), 0, &bytes, &size);
        calls.free(bytes);
        return status;
    });
    calls.call("CardReadFile: flags",
               [&] { return calls.card.readFile(nullptr, "cardid", 1).status; });
    calls.call("CardReadFile: no pointer to the bytes", [&] {
        return calls.data.pfnCardReadFile(&calls.data, nullptr, characters("cardid"), 0, nullptr,
                                          &size);
    });
    calls.call("CardReadFile: no pointer to the size", [&] {
        return calls.data.pfnCardReadFile(&calls.data, nullptr, characters("cardid"), 0, &bytes,
                                          nullptr);
    });
    for (const char* file : {"cardid", "cardcf", "cardapps", "msroots"}) {
        calls.call(std::string("CardReadFile: no memory for ") + file, [&] {
            PlatformSide::failAllocation(1);
            const DWORD status =
                calls.card.readFile(std::strcmp(file, "msroots") == 0 ? "mscp" : nullptr, file)
                    .status;
            PlatformSide::failAllocation(0);
            return status;
        });
    }
    for (const char* directory :
         {static_cast<const char*>(nullptr), "mscp", "", "other", "ofeight_", "of_nine__"}) {
        calls.call(std::string("CardEnumFiles: ") + spell(directory), [&] {
            const Answer answer = calls.card.listFiles(directory);
            if (answer.status == 0) {
                calls.tellBytes("names", answer.bytes.data(), answer.bytes.size());
            }
            return answer.status;
        });
    }
    LPSTR list = nullptr;
    recordRows(calls, "CardEnumFiles", [&](PCARD_DATA record) {
        const DWORD status = calls.data.pfnCardEnumFiles(record, nullptr, &list, &size, 0);
        calls.free(list);
        return status;
    });
    calls.call("CardEnumFiles: flags",
               [&] { return calls.data.pfnCardEnumFiles(&calls.data, nullptr, &list, &size, 1); });
    calls.call("CardEnumFiles: no pointer to the names", [&] {
        return calls.data.pfnCardEnumFiles(&calls.data, nullptr, nullptr, &size, 0);
    });
    calls.call("CardEnumFiles: no pointer to the size", [&] {
        return calls.data.pfnCardEnumFiles(&calls.data, nullptr, &list, nullptr, 0);
    });
    calls.call("CardEnumFiles: no memory", [&] {
        PlatformSide::failAllocation(1);
        const DWORD status = calls.card.listFiles("mscp").status;
        PlatformSide::failAllocation(0);
        return status;
    });
    CARD_FILE_INFO info{};
    recordRows(calls, "CardGetFileInfo", [&](PCARD_DATA record) {
        return calls.data.pfnCardGetFileInfo(record, nullptr, characters("cardid"), &info);
    });
    calls.call("CardGetFileInfo: no record to fill", [&] {
        return calls.data.pfnCardGetFileInfo(&calls.data, nullptr, characters("cardid"), nullptr);
    });
}

void capabilities(Calls& calls) {
    CARD_CAPABILITIES capability{};
    CARD_FREE_SPACE_INFO space{};
    CARD_KEY_SIZES sizes{};
    recordRows(calls, "CardQueryCapabilities", [&](PCARD_DATA record) {
        return calls.data.pfnCardQueryCapabilities(record, &capability);
    });
    recordRows(calls, "CardQueryFreeSpace", [&](PCARD_DATA record) {
        return calls.data.pfnCardQueryFreeSpace(record, 0, &space);
    });
    recordRows(calls, "CardQueryKeySizes", [&](PCARD_DATA record) {
        return calls.data.pfnCardQueryKeySizes(record, AT_KEYEXCHANGE, 0, &sizes);
    });
    calls.call("CardQueryCapabilities: no record to fill",
               [&] { return calls.data.pfnCardQueryCapabilities(&calls.data, nullptr); });
    calls.call("CardQueryFreeSpace: no record to fill",
               [&] { return calls.data.pfnCardQueryFreeSpace(&calls.data, 0, nullptr); });
    calls.call("CardQueryFreeSpace: flags",
               [&] { return calls.data.pfnCardQueryFreeSpace(&calls.data, 1, &space); });
    calls.call("CardQueryKeySizes: no record to fill",
               [&] { return calls.data.pfnCardQueryKeySizes(&calls.data, 1, 0, nullptr); });
    calls.call("CardQueryKeySizes: flags",
               [&] { return calls.data.pfnCardQueryKeySizes(&calls.data, 1, 1, &sizes); });
    for (const DWORD version : {0u, 1u, 2u}) {
        calls.call("CardQueryCapabilities: version " + number(version), [&] {
            capability = {version, 0x5A5A5A5A, 0x5A5A5A5A};
            const DWORD status = calls.data.pfnCardQueryCapabilities(&calls.data, &capability);
            calls.tellBytes("record", &capability, sizeof(capability));
            return status;
        });
        calls.call("CardQueryFreeSpace: version " + number(version), [&] {
            space = {};
            space.dwVersion = version;
            const DWORD status = calls.data.pfnCardQueryFreeSpace(&calls.data, 0, &space);
            calls.tellBytes("record", &space, sizeof(space));
            return status;
        });
        calls.call("CardQueryKeySizes: version " + number(version), [&] {
            sizes = {};
            sizes.dwVersion = version;
            const DWORD status =
                calls.data.pfnCardQueryKeySizes(&calls.data, AT_SIGNATURE, 0, &sizes);
            calls.tellBytes("record", &sizes, sizeof(sizes));
            return status;
        });
    }
    for (DWORD keySpecification = 0; keySpecification < 10; ++keySpecification) {
        calls.call("CardQueryKeySizes: dwKeySpec " + number(keySpecification), [&] {
            sizes = {};
            sizes.dwVersion = 1;
            const DWORD status =
                calls.data.pfnCardQueryKeySizes(&calls.data, keySpecification, 0, &sizes);
            calls.tellBytes("record", &sizes, sizeof(sizes));
            return status;
        });
    }
}

constexpr LPCWSTR propertyNames[] = {WIDE_TEXT("Free Space"),
                                     WIDE_TEXT("Capabilities"),
                                     WIDE_TEXT("Key Sizes"),
                                     WIDE_TEXT("Read Only Mode"),
                                     WIDE_TEXT("Cache Mode"),
                                     WIDE_TEXT("Supports Windows x.509 Enrollment"),
                                     WIDE_TEXT("Card Identifier"),
                                     WIDE_TEXT("Card Serial Number"),
                                     WIDE_TEXT("PIN Information"),
                                     WIDE_TEXT("PIN List"),
                                     WIDE_TEXT("Authenticated State"),
                                     WIDE_TEXT("PIN Strength Verify"),
                                     WIDE_TEXT("Key Import Support"),
                                     WIDE_TEXT("Algorithms"),
                                     WIDE_TEXT("Padding Schemes"),
                                     WIDE_TEXT("Chaining Modes"),
                                     WIDE_TEXT("PIN Strength Change"),
                                     WIDE_TEXT("PIN Strength Unblock"),
                                     WIDE_TEXT("Parent Window"),
                                     WIDE_TEXT("PIN Context String"),
                                     WIDE_TEXT("Container Info"),
                                     WIDE_TEXT("PIN Identifier"),
                                     WIDE_TEXT("Associated ECDH Key"),
                                     WIDE_TEXT("Nobody's"),
                                     WIDE_TEXT("")};

std::string narrow(LPCWSTR text) {
    std::string result;
    for (; *text != 0; ++text) result += static_cast<char>(*text);
    return result;
}

void properties(Calls& calls) {
    BYTE buffer[256] = {};
    DWORD size = 77;
    const LPCWSTR known = WIDE_TEXT("PIN List");
    recordRows(calls, "CardGetProperty", [&](PCARD_DATA record) {
        return calls.data.pfnCardGetProperty(record, known, buffer, 256, &size, 0);
    });
    for (const LPCWSTR name : propertyNames) {
        for (const DWORD flags : {0u, 1u, 2u, 5u, 9u}) {
            calls.call("CardGetProperty: " + narrow(name) + ", flags " + number(flags), [&] {
                const Answer answer = calls.card.property(name, flags);
                if (answer.status == 0) {
                    calls.tellBytes("bytes", answer.bytes.data(), answer.bytes.size());
                }
                return answer.status;
            });
        }
        for (const DWORD length : {0u, 4u, 8u}) {
            calls.call("CardSetProperty: " + narrow(name) + ", " + number(length) + " bytes", [&] {
                std::memset(buffer, 0, sizeof(buffer));
                buffer[0] = 'a';
                return calls.data.pfnCardSetProperty(&calls.data, name, buffer, length, 0);
            });
        }
        calls.call("CardSetProperty: " + narrow(name) + ", flags",
                   [&] { return calls.data.pfnCardSetProperty(&calls.data, name, buffer, 4, 1); });
        calls.call("CardSetProperty: " + narrow(name) + ", no bytes",
                   [&] { return calls.data.pfnCardSetProperty(&calls.data, name, nullptr, 4, 0); });
        for (const BYTE container : {BYTE{0}, BYTE{2}, BYTE{3}}) {
            calls.call(
                "CardGetContainerProperty: " + narrow(name) + ", container " + number(container),
                [&] {
                    std::memset(buffer, 0, sizeof(buffer));
                    // Only of the rest: a record of containers holds pointers.
                    const DWORD room = name == propertyNames[20] ? 4 : 256;
                    const DWORD status = calls.data.pfnCardGetContainerProperty(
                        &calls.data, container, name, buffer, room, &size, 0);
                    if (status == 0) calls.tellBytes("bytes", buffer, size);
                    return status;
                });
        }
    }
    calls.call("CardGetProperty: no name", [&] {
        return calls.data.pfnCardGetProperty(&calls.data, nullptr, buffer, 256, &size, 0);
    });
    calls.call("CardGetProperty: no buffer", [&] {
        return calls.data.pfnCardGetProperty(&calls.data, known, nullptr, 256, &size, 0);
    });
    calls.call("CardGetProperty: too small a buffer", [&] {
        return calls.data.pfnCardGetProperty(&calls.data, known, buffer, 3, &size, 0);
    });
    calls.call("CardGetProperty: no pointer to the size", [&] {
        return calls.data.pfnCardGetProperty(&calls.data, known, buffer, 256, nullptr, 0);
    });
    calls.call("CardGetProperty: no memory", [&] {
        PlatformSide::failAllocation(1);
        const DWORD status = calls.card.property(known, 0).status;
        PlatformSide::failAllocation(0);
        return status;
    });
    recordRows(calls, "CardSetProperty", [&](PCARD_DATA record) {
        return calls.data.pfnCardSetProperty(record, known, buffer, 4, 0);
    });
    calls.call("CardSetProperty: no name",
               [&] { return calls.data.pfnCardSetProperty(&calls.data, nullptr, buffer, 4, 0); });
    const LPCWSTR pin = WIDE_TEXT("PIN Identifier");
    recordRows(calls, "CardGetContainerProperty", [&](PCARD_DATA record) {
        return calls.data.pfnCardGetContainerProperty(record, 0, pin, buffer, 4, &size, 0);
    });
    calls.call("CardGetContainerProperty: no name", [&] {
        return calls.data.pfnCardGetContainerProperty(&calls.data, 0, nullptr, buffer, 4, &size, 0);
    });
    calls.call("CardGetContainerProperty: no buffer", [&] {
        return calls.data.pfnCardGetContainerProperty(&calls.data, 0, pin, nullptr, 4, &size, 0);
    });
    calls.call("CardGetContainerProperty: no pointer to the size", [&] {
        return calls.data.pfnCardGetContainerProperty(&calls.data, 0, pin, buffer, 4, nullptr, 0);
    });
    calls.call("CardGetContainerProperty: flags", [&] {
        return calls.data.pfnCardGetContainerProperty(&calls.data, 0, pin, buffer, 4, &size, 1);
    });
}

void containers(Calls& calls) {
    recordRows(calls, "CardGetContainerInfo", [&](PCARD_DATA record) {
        CONTAINER_INFO info{};
        const DWORD status = calls.data.pfnCardGetContainerInfo(record, 0, 0, &info);
        calls.free(info.pbSigPublicKey);
        calls.free(info.pbKeyExPublicKey);
        return status;
    });
    for (BYTE container = 0; container < 3; ++container) {
        for (const DWORD version : {0u, 1u, 2u}) {
            calls.call("CardGetContainerProperty: Container Info of version " + number(version) +
                           ", container " + number(container),
                       [&] {
                           CONTAINER_INFO info{};
                           info.dwVersion = version;
                           DWORD size = 77;
                           const DWORD status = calls.data.pfnCardGetContainerProperty(
                               &calls.data, container, WIDE_TEXT("Container Info"),
                               reinterpret_cast<PBYTE>(&info), sizeof(info), &size, 0);
                           calls.tell("signature key", info.cbSigPublicKey);
                           calls.tell("exchange key", info.cbKeyExPublicKey);
                           calls.free(info.pbSigPublicKey);
                           calls.free(info.pbKeyExPublicKey);
                           return status;
                       });
        }
    }
    calls.call("CardGetContainerInfo: no record to fill",
               [&] { return calls.data.pfnCardGetContainerInfo(&calls.data, 0, 0, nullptr); });
    const auto inform = [&](const std::string& what, BYTE container, DWORD flags, DWORD version) {
        calls.call("CardGetContainerInfo: " + what, [&] {
            CONTAINER_INFO info{};
            info.dwVersion = version;
            const DWORD status =
                calls.data.pfnCardGetContainerInfo(&calls.data, container, flags, &info);
            calls.tell("version", info.dwVersion);
            calls.tellBytes("signature", info.pbSigPublicKey, info.cbSigPublicKey);
            calls.tellBytes("exchange", info.pbKeyExPublicKey, info.cbKeyExPublicKey);
            calls.free(info.pbSigPublicKey);
            calls.free(info.pbKeyExPublicKey);
            return status;
        });
    };
    for (const BYTE container : {BYTE{0}, BYTE{1}, BYTE{2}, BYTE{3}, BYTE{255}}) {
        inform("container " + number(container), container, 0, 1);
    }
    inform("flags", 0, 1, 1);
    for (const DWORD version : {0u, 2u}) inform("version " + number(version), 0, 0, version);
    PlatformSide::failAllocation(1);
    inform("no memory", 0, 0, 1);
    PlatformSide::failAllocation(0);
}

void pins(Calls& calls) {
    DWORD attempts = 77;
    BYTE pin[] = {'1', '2', '3', '4'};
    PBYTE sessionPin = nullptr;
    DWORD sessionSize = 0;
    const auto pinCall = [&](const std::string& what, PIN_ID pinId, DWORD flags,
                             const std::string& text, bool hasSession = false) {
        calls.call("CardAuthenticateEx: " + what, [&] {
            attempts = 77;
            Bytes bytes(text.begin(), text.end());
            const DWORD status = calls.data.pfnCardAuthenticateEx(
                &calls.data, pinId, flags, text.empty() ? nullptr : bytes.data(),
                static_cast<DWORD>(bytes.size()), hasSession ? &sessionPin : nullptr,
                hasSession ? &sessionSize : nullptr, &attempts);
            calls.tell("attempts", attempts);
            EXPECT_EQ(std::string(bytes.begin(), bytes.end()), text) << "the caller's buffer stays";
            return status;
        });
    };
    recordRows(calls, "CardAuthenticateEx", [&](PCARD_DATA record) {
        return calls.data.pfnCardAuthenticateEx(record, 1, 0, pin, 4, nullptr, nullptr, &attempts);
    });
    for (const PIN_ID pinId : {0u, 2u, 3u, 5u, 8u}) {
        pinCall("PIN " + number(pinId), pinId, 0, "1234");
    }
    for (const DWORD flags : {1u, 0x40u, 0x10000000u, 0x20000000u, 0x10000040u, 0x20000040u}) {
        pinCall("flags " + number(flags), 1, flags, "1234");
        pinCall("flags " + number(flags) + " and a session", 1, flags, "1234", true);
    }
    for (const bool first : {true, false}) {
        calls.call(
            std::string("CardAuthenticateEx: a session's ") + (first ? "PIN" : "length") + " alone",
            [&] {
                return calls.data.pfnCardAuthenticateEx(
                    &calls.data, 1, CARD_AUTHENTICATE_GENERATE_SESSION_PIN, pin, 4,
                    first ? &sessionPin : nullptr, first ? nullptr : &sessionSize, &attempts);
            });
    }
    pinCall("no PIN", 1, 0, "");
    pinCall("too short a PIN", 1, 0, "1");
    pinCall("too long a PIN", 1, 0, "12345678901234567890");
    pinCall("a wrong PIN", 1, 0, "4321");
    pinCall("a wrong signature PIN", 4, 0, "654321");
    pinCall("the PIN", 1, 0, calls.card.pin(virtual_card::PinRole::Authentication));
    pinCall("the signature PIN", 4, 0, calls.card.pin(virtual_card::PinRole::Signature));
    for (const DWORD length : {0u, 34u, 33u}) {
        calls.call("CardAuthenticateEx: an ATR of " + number(length) + " bytes", [&] {
            Bytes other(34);
            CARD_DATA record = calls.data;
            record.pbAtr = other.data();
            record.cbAtr = length;
            return calls.data.pfnCardAuthenticateEx(&record, 1, 0, pin, 4, nullptr, nullptr,
                                                    &attempts);
        });
    }
    pinCall("the PIN again", 1, 0, calls.card.pin(virtual_card::PinRole::Authentication));
    pinCall("the signature PIN again", 4, 0, calls.card.pin(virtual_card::PinRole::Signature));
    recordRows(calls, "CardAuthenticatePin", [&](PCARD_DATA record) {
        return calls.data.pfnCardAuthenticatePin(record, wide(WIDE_TEXT("user")), pin, 4,
                                                 &attempts);
    });
    for (const LPCWSTR user : {WIDE_TEXT("user"), WIDE_TEXT("admin"), WIDE_TEXT("User"),
                               WIDE_TEXT("other"), WIDE_TEXT("")}) {
        calls.call("CardAuthenticatePin: " + narrow(user), [&] {
            attempts = 77;
            const DWORD status =
                calls.data.pfnCardAuthenticatePin(&calls.data, wide(user), pin, 4, &attempts);
            calls.tell("attempts", attempts);
            return status;
        });
    }
    calls.call("CardAuthenticatePin: no user", [&] {
        return calls.data.pfnCardAuthenticatePin(&calls.data, nullptr, pin, 4, &attempts);
    });
    calls.call("CardAuthenticatePin: no PIN", [&] {
        return calls.data.pfnCardAuthenticatePin(&calls.data, wide(WIDE_TEXT("user")), nullptr, 4,
                                                 &attempts);
    });
}

void signing(Calls& calls) {
    const bool isEcc = calls.card.isEcKey(0);
    recordRows(calls, "CardSignData", [&](PCARD_DATA record) {
        CARD_SIGNING_INFO info{};
        return calls.data.pfnCardSignData(record, &info);
    });
    calls.call("CardSignData: no record of the signature",
               [&] { return calls.data.pfnCardSignData(&calls.data, nullptr); });
    Bytes hash(64, 0x11);
    const auto sign = [&](const std::string& what,
                          const std::function<void(CARD_SIGNING_INFO&)>& change) {
        calls.call("CardSignData: " + what, [&] {
            CARD_SIGNING_INFO info{};
            info.dwVersion = 1;
            info.dwKeySpec = isEcc ? AT_ECDSA_P256 : AT_KEYEXCHANGE;
            info.aiHashAlg = isEcc ? 0 : CALG_SHA_256;
            info.pbData = hash.data();
            info.cbData = 32;
            change(info);
            const DWORD status = calls.data.pfnCardSignData(&calls.data, &info);
            // An EC signature is another each time.
            calls.tell("size", info.cbSignedData);
            calls.free(info.pbSignedData);
            return status;
        });
    };
    for (const DWORD version : {0u, 1u, 2u, 3u}) {
        sign("version " + number(version), [&](auto& info) { info.dwVersion = version; });
    }
    for (const DWORD flags : {1u, 0x00400000u, 0x01000000u, 0x20000000u, 0x40000000u}) {
        sign("flags " + number(flags), [&](auto& info) { info.dwSigningFlags = flags; });
    }
    for (const BYTE container : {BYTE{1}, BYTE{2}, BYTE{3}, BYTE{255}}) {
        sign("container " + number(container),
             [&](auto& info) { info.bContainerIndex = container; });
        sign("the size of container " + number(container), [&](auto& info) {
            info.bContainerIndex = container;
            info.dwSigningFlags = CARD_BUFFER_SIZE_ONLY;
        });
    }
    for (DWORD keySpecification = 0; keySpecification < 10; ++keySpecification) {
        sign("dwKeySpec " + number(keySpecification),
             [&](auto& info) { info.dwKeySpec = keySpecification; });
    }
    sign("no data", [](auto& info) { info.pbData = nullptr; });
    for (const DWORD length : {0u, 1u, 20u, 36u, 64u}) {
        sign(number(length) + " bytes", [&](auto& info) { info.cbData = length; });
    }
    for (const DWORD length : {20u, 28u, 32u, 48u, 64u}) {
        for (const ALG_ID algorithm : {0u, 0x8003u, 0x8004u, 0x800Bu, 0x800Cu, 0x800Du, 0x800Eu}) {
            sign("algorithm " + number(algorithm) + ", " + number(length) + " bytes",
                 [&](auto& info) {
                     info.aiHashAlg = algorithm;
                     info.cbData = length;
                 });
        }
    }
    for (const LPCWSTR name :
         {WIDE_TEXT("SHA1"), WIDE_TEXT("SHA224"), WIDE_TEXT("SHA256"), WIDE_TEXT("SHA384"),
          WIDE_TEXT("SHA512"), WIDE_TEXT("MD2"), WIDE_TEXT("MD4"), WIDE_TEXT("MD5"),
          WIDE_TEXT("sha256"), WIDE_TEXT("")}) {
        for (const DWORD padding : {0u, 1u, 2u, 4u, 8u}) {
            sign("hash " + narrow(name) + ", padding " + number(padding), [&](auto& info) {
                static BCRYPT_PSS_PADDING_INFO parameters;
                parameters = {name, 32};
                info.dwVersion = 2;
                info.dwSigningFlags = CARD_PADDING_INFO_PRESENT;
                info.pPaddingInfo = &parameters;
                info.dwPaddingType = padding;
                info.aiHashAlg = 0;
            });
        }
    }
    sign("both ways of naming the hash", [](auto& info) {
        static BCRYPT_PKCS1_PADDING_INFO parameters;
        parameters = {WIDE_TEXT("SHA256")};
        info.dwVersion = 2;
        info.dwSigningFlags = CARD_PADDING_INFO_PRESENT;
        info.pPaddingInfo = &parameters;
        info.dwPaddingType = CARD_PADDING_PKCS1;
        info.aiHashAlg = CALG_SHA_256;
    });
    PlatformSide::failAllocation(1);
    sign("no memory", [](auto&) {});
    PlatformSide::failAllocation(0);
}

void decryptions(Calls& calls) {
    recordRows(calls, "CardRSADecrypt", [&](PCARD_DATA record) {
        CARD_RSA_DECRYPT_INFO info{};
        return calls.data.pfnCardRSADecrypt(record, &info);
    });
    calls.call("CardRSADecrypt: no record of the block",
               [&] { return calls.data.pfnCardRSADecrypt(&calls.data, nullptr); });
    const auto decrypt = [&](const std::string& what,
                             const std::function<void(CARD_RSA_DECRYPT_INFO&)>& change) {
        calls.call("CardRSADecrypt: " + what, [&] {
            Bytes block(600, 0x01);
            CARD_RSA_DECRYPT_INFO info{};
            info.dwVersion = 2;
            info.dwKeySpec = AT_KEYEXCHANGE;
            info.pbData = block.data();
            info.cbData = 256;
            info.dwPaddingType = CARD_PADDING_PKCS1;
            change(info);
            const DWORD status = calls.data.pfnCardRSADecrypt(&calls.data, &info);
            calls.tell("version", info.dwVersion);
            calls.tell("size", info.cbData);
            return status;
        });
    };
    for (const DWORD version : {0u, 1u, 2u, 3u}) {
        decrypt("version " + number(version), [&](auto& info) { info.dwVersion = version; });
    }
    for (const BYTE container : {BYTE{0}, BYTE{1}, BYTE{2}, BYTE{3}, BYTE{255}}) {
        for (const DWORD keySpecification : {0u, 1u, 2u, 3u}) {
            decrypt("container " + number(container) + ", dwKeySpec " + number(keySpecification),
                    [&](auto& info) {
                        info.bContainerIndex = container;
                        info.dwKeySpec = keySpecification;
                    });
        }
    }
    decrypt("no block", [](auto& info) { info.pbData = nullptr; });
    for (const DWORD length : {0u, 1u, 127u, 128u, 255u, 257u, 384u, 512u}) {
        decrypt(number(length) + " bytes", [&](auto& info) { info.cbData = length; });
    }
    for (const DWORD padding : {0u, 1u, 4u, 8u}) {
        decrypt("padding " + number(padding), [&](auto& info) { info.dwPaddingType = padding; });
        decrypt("padding " + number(padding) + " and its parameters", [&](auto& info) {
            info.dwPaddingType = padding;
            info.pPaddingInfo = info.pbData;
        });
    }
}

void agreements(Calls& calls) {
    CARD_DATA& data = calls.data;
    calls.call("CspGetDHAgreement",
               [&] { return data.pfnCspGetDHAgreement(&data, nullptr, nullptr, 0); });
    if (data.pfnCardConstructDHAgreement == nullptr) return;
    recordRows(calls, "CardConstructDHAgreement", [&](PCARD_DATA record) {
        CARD_DH_AGREEMENT_INFO info{};
        return data.pfnCardConstructDHAgreement(record, &info);
    });
    recordRows(calls, "CardDeriveKey", [&](PCARD_DATA record) {
        CARD_DERIVE_KEY info{};
        return data.pfnCardDeriveKey(record, &info);
    });
    recordRows(calls, "CardDestroyDHAgreement",
               [&](PCARD_DATA record) { return data.pfnCardDestroyDHAgreement(record, 0, 0); });
    calls.call("CardConstructDHAgreement: no record of it",
               [&] { return data.pfnCardConstructDHAgreement(&data, nullptr); });
    calls.call("CardDeriveKey: no record of it",
               [&] { return data.pfnCardDeriveKey(&data, nullptr); });
    const Bytes own = calls.card.publicKey(0);
    const auto agree = [&](const std::string& what,
                           const std::function<void(CARD_DH_AGREEMENT_INFO&)>& change) {
        calls.call("CardConstructDHAgreement: " + what, [&] {
            Bytes blob = own;
            blob.resize(own.size() + 8);
            CARD_DH_AGREEMENT_INFO info{};
            info.dwVersion = 2;
            info.dwPublicKey = static_cast<DWORD>(own.size());
            info.pbPublicKey = blob.data();
            change(info);
            const DWORD status = data.pfnCardConstructDHAgreement(&data, &info);
            calls.tell("secret", info.bSecretAgreementIndex);
            return status;
        });
    };
    agree("the card's own key", [](auto&) {});
    for (const DWORD version : {0u, 1u, 3u}) {
        agree("version " + number(version), [&](auto& info) { info.dwVersion = version; });
    }
    for (const DWORD flags : {1u, 0x20000000u}) {
        agree("flags " + number(flags), [&](auto& info) { info.dwFlags = flags; });
    }
    for (const BYTE container : {BYTE{1}, BYTE{2}, BYTE{3}, BYTE{255}}) {
        agree("container " + number(container),
              [&](auto& info) { info.bContainerIndex = container; });
    }
    agree("no key", [](auto& info) { info.pbPublicKey = nullptr; });
    for (const DWORD length : {0u, 7u, 8u, 9u}) {
        agree(number(length) + " bytes", [&](auto& info) { info.dwPublicKey = length; });
    }
    agree("a byte less", [](auto& info) { --info.dwPublicKey; });
    agree("a byte more", [](auto& info) { ++info.dwPublicKey; });
    agree("another kind of key", [](auto& info) { info.pbPublicKey[0] ^= 1; });
    agree("another length in it", [](auto& info) { ++info.pbPublicKey[4]; });
    const auto derive = [&](const std::string& what,
                            const std::function<void(CARD_DERIVE_KEY&)>& change) {
        calls.call("CardDeriveKey: " + what, [&] {
            CARD_DERIVE_KEY info{};
            info.dwVersion = 2;
            info.pwszKDF = wide(WIDE_TEXT("HASH"));
            info.bSecretAgreementIndex = 1;
            change(info);
            const DWORD status = data.pfnCardDeriveKey(&data, &info);
            calls.tellBytes("key", info.pbDerivedKey, info.cbDerivedKey);
            calls.free(info.pbDerivedKey);
            return status;
        });
    };
    derive("of the secret", [](auto&) {});
    for (const DWORD version : {0u, 1u, 3u}) {
        derive("version " + number(version), [&](auto& info) { info.dwVersion = version; });
    }
    for (const DWORD flags : {1u, 2u, 0x01000000u}) {
        derive("flags " + number(flags), [&](auto& info) { info.dwFlags = flags; });
    }
    derive("of no such secret", [](auto& info) { info.bSecretAgreementIndex = 7; });
    derive("no way named", [](auto& info) { info.pwszKDF = nullptr; });
    for (const LPCWSTR way : {WIDE_TEXT("HMAC"), WIDE_TEXT("TLS_PRF"), WIDE_TEXT("hash"),
                              WIDE_TEXT("SP800_56A_CONCAT"), WIDE_TEXT("")}) {
        derive("by " + narrow(way), [&](auto& info) { info.pwszKDF = wide(way); });
    }
    for (const LPCWSTR name : {WIDE_TEXT("SHA1"), WIDE_TEXT("SHA256"), WIDE_TEXT("SHA384"),
                               WIDE_TEXT("SHA512"), WIDE_TEXT("MD5"), WIDE_TEXT("")}) {
        for (const DWORD type : {0u, 1u, 2u, 3u}) {
            derive("with " + narrow(name) + " as parameter " + number(type), [&](auto& info) {
                static BCryptBuffer buffer;
                static BCryptBufferDesc list;
                buffer = {static_cast<ULONG>((narrow(name).size() + 1) * sizeof(WCHAR)), type,
                          wide(name)};
                list = {0, 1, &buffer};
                info.pParameterList = &list;
            });
        }
    }
    struct Parameters {
        const char* what;
        DWORD count;
        bool hasList;
        ULONG size;
        bool hasBytes;
    };
    for (const Parameters& row : {Parameters{"parameters that are not there", 1, false, 0, false},
                                  Parameters{"no parameters", 0, false, 0, false},
                                  Parameters{"an empty parameter", 1, true, 0, true},
                                  Parameters{"a parameter of three bytes", 1, true, 3, true},
                                  Parameters{"a parameter without bytes", 1, true, 3, false},
                                  Parameters{"two parameters", 2, true, 3, true}}) {
        for (const DWORD type : {0u, 1u, 2u}) {
            derive(std::string("with ") + row.what + " of type " + number(type), [&](auto& info) {
                static BYTE bytes[] = {'a', 'b', 'c'};
                static BCryptBuffer buffers[2];
                static BCryptBufferDesc list;
                buffers[0] = {row.size, type, row.hasBytes ? bytes : nullptr};
                buffers[1] = {2, 3 - type, bytes};
                list = {0, row.count, row.hasList ? buffers : nullptr};
                info.pParameterList = &list;
            });
        }
    }
    derive("an algorithm named", [](auto& info) { info.pwszAlgId = wide(WIDE_TEXT("ECDH_P256")); });
    PlatformSide::failAllocation(1);
    derive("no memory", [](auto&) {});
    PlatformSide::failAllocation(0);
    calls.call("CardDeriveKey: no context handle, of the secret", [&] {
        CARD_DERIVE_KEY info{};
        info.dwVersion = 2;
        info.pwszKDF = wide(WIDE_TEXT("HASH"));
        info.bSecretAgreementIndex = 1;
        CARD_DATA record = data;
        record.hSCardCtx = 0;
        return data.pfnCardDeriveKey(&record, &info);
    });
    for (const BYTE secret : {BYTE{7}, BYTE{1}, BYTE{1}}) {
        calls.call("CardDestroyDHAgreement: secret " + number(secret),
                   [&] { return data.pfnCardDestroyDHAgreement(&data, secret, 0); });
    }
    calls.call("CardDestroyDHAgreement: flags",
               [&] { return data.pfnCardDestroyDHAgreement(&data, 0, 1); });
}

// What the card answers instead, at each exchange of a call.
void answersOfTheCard(Calls& calls) {
    PlatformSide& card = calls.card;
    const auto each = [&](const std::string& name, std::initializer_list<std::uint32_t> words,
                          const std::function<void()>& before,
                          const std::function<DWORD()>& entry) {
        before();
        card.reader.clearExchanges();
        calls.call(name, entry);
        const std::size_t count = card.reader.exchanges().size();
        const auto answered = [&](std::size_t n, const std::string& what,
                                  virtual_card::Fault fault) {
            before();
            card.reader.clearExchanges();
            card.reader.failTransmit(n, fault);
            calls.call(name + ": exchange " + std::to_string(n) + " answered " + what, entry);
        };
        for (std::size_t n = 1; n <= count; ++n) {
            for (const std::uint32_t word : words) {
                // Ahead of the last ones files are read, and one refusal is as good as another.
                if (n + 4 < count && word != *words.begin()) break;
                answered(n, toHex(Bytes{BYTE(word >> 8), BYTE(word)}),
                         {virtual_card::Fault::Kind::StatusWord, word});
            }
            answered(n, "256 bytes", {virtual_card::Fault::Kind::LongData, 0x42});
            answered(n, "nothing", {virtual_card::Fault::Kind::TransportError, status::lostData});
            card.reader.failReconnect(status::removedCard);
            answered(n, "a reset, and no reconnect", {virtual_card::Fault::Kind::ResetCard, 0});
            card.reader.failReconnect(0);
            card.reconnect();
        }
        card.reader.clearExchanges();
    };
    const auto nothing = [] {};
    for (const PIN_ID pinId : {1u, 4u}) {
        each("CardAuthenticateEx: PIN " + number(pinId),
             {0x6300, 0x63C0, 0x63C5, 0x63E5, 0x6700, 0x6982, 0x6983, 0x6984, 0x6A88, 0x0000},
             nothing, [&] {
                 DWORD attempts = 77;
                 const DWORD status =
                     card.authenticate(pinId,
                                       card.pin(pinId == 1 ? virtual_card::PinRole::Authentication
                                                           : virtual_card::PinRole::Signature),
                                       &attempts);
                 calls.tell("attempts", attempts);
                 return status;
             });
    }
    for (BYTE container = 0; container < card.containers(); ++container) {
        each(
            "CardSignData: container " + number(container),
            {0x6982, 0x6700, 0x67FF, 0x6985, 0x6986, 0x6A84, 0x6A86, 0x6A88, 0x6C10, 0x6D00, 0x6100,
             0x9000},
            [&] { card.openKey(container); },
            [&] {
                const Answer answer = card.signMessage(container, "a message");
                calls.tell("size", static_cast<DWORD>(answer.bytes.size()));
                return answer.status;
            });
    }
    if (const BYTE container = card.rsaContainer(); container < card.containers()) {
        const Bytes block = encryptedTo(card.certificate(container), "a message");
        each(
            "CardRSADecrypt: container " + number(container),
            {0x6982, 0x6985, 0x6A88, 0x6D00, 0x6100, 0x9000}, [&] { card.openKey(container); },
            [&] {
                const Answer answer = card.decrypt(container, block);
                calls.tellBytes("bytes", answer.bytes.data(), answer.bytes.size());
                return answer.status;
            });
    }
    if (calls.data.pfnCardConstructDHAgreement != nullptr && card.isEcKey(0)) {
        each(
            "CardConstructDHAgreement: the card's own key",
            {0x6982, 0x6985, 0x6A88, 0x6D00, 0x6100, 0x9000}, [&] { card.openKey(0); },
            [&] {
                BYTE index = 0;
                const DWORD status = card.agreeWithItself(&index);
                calls.tell("secret", index);
                return status;
            });
    }
}

// The caller may change the ATR in its record after the acquisition: what each card is sent then.
void otherAtrs(Calls& calls) {
    PlatformSide& card = calls.card;
    const auto tellCommands = [&] {
        std::string text;
        for (const std::string& command : journey(card.reader)) text += command + " ";
        calls.tell("sent", text);
    };
    const Bytes own = card.publicKey(0);
    std::vector<int> types = allCardTypes();
    constexpr int none = 0;
    types.push_back(none);
    for (const int type : types) {
        Bytes other{0x3B, 0x00};
        if (type != none) {
            other = virtual_card::VirtualReader(*virtual_card::findGeneration(type)).card().atr();
        }
        CARD_DATA record = calls.data;
        record.pbAtr = other.data();
        record.cbAtr = static_cast<DWORD>(other.size());
        const std::string with = " with the ATR of card type " + std::to_string(type);
        for (const PIN_ID pinId : {1u, 2u, 4u}) {
            calls.call("CardAuthenticateEx: PIN " + number(pinId) + with, [&] {
                card.reader.clearExchanges();
                std::string pin = card.pin(pinId == 1 ? virtual_card::PinRole::Authentication
                                                      : virtual_card::PinRole::Signature);
                const DWORD status = calls.data.pfnCardAuthenticateEx(
                    &record, pinId, 0, reinterpret_cast<PBYTE>(pin.data()),
                    static_cast<DWORD>(pin.size()), nullptr, nullptr, nullptr);
                tellCommands();
                return status;
            });
        }
        for (BYTE container = 0; container < card.containers(); ++container) {
            calls.call("CardSignData: container " + number(container) + with, [&] {
                card.openKey(container);
                card.reader.clearExchanges();
                Bytes hash(32, 0x11);
                CARD_SIGNING_INFO info = card.signingInfo(container, hash);
                const DWORD status = calls.data.pfnCardSignData(&record, &info);
                calls.free(info.pbSignedData);
                tellCommands();
                return status;
            });
        }
        if (calls.data.pfnCardConstructDHAgreement == nullptr) continue;
        calls.call("CardConstructDHAgreement:" + with, [&] {
            card.openKey(0);
            card.reader.clearExchanges();
            Bytes blob = own;
            CARD_DH_AGREEMENT_INFO info{};
            info.dwVersion = 2;
            info.dwPublicKey = static_cast<DWORD>(blob.size());
            info.pbPublicKey = blob.data();
            const DWORD status = calls.data.pfnCardConstructDHAgreement(&record, &info);
            tellCommands();
            return status;
        });
    }
    card.reader.clearExchanges();
}

// Each exchange of an acquisition refused.
void refusedAcquisitions(Calls& calls) {
    calls.card.reader.clearExchanges();
    calls.card.acquireOrFail();
    const std::size_t count = calls.card.reader.exchanges().size();
    calls.card.release();
    for (std::size_t n = 1; n <= count; ++n) {
        calls.card.reader.clearExchanges();
        calls.card.reader.failTransmit(n, {virtual_card::Fault::Kind::StatusWord, 0x6A82});
        calls.call("CardAcquireContext: exchange " + std::to_string(n) + " refused", [&] {
            const DWORD status = calls.card.acquire();
            calls.tell("exchanges", static_cast<DWORD>(calls.card.reader.exchanges().size()));
            return status;
        });
        calls.card.release();
    }
    calls.card.reader.clearExchanges();
}

void refusals(Calls& calls) {
    for (const RefusedOperation& operation : refusedOperations) {
        const auto call = [&](PCARD_DATA record) { return operation.call(calls.data, record); };
        recordRows(calls, operation.name, call);
        calls.call(operation.name, [&] { return call(&calls.data); });
    }
    calls.call("CspUnpadData",
               [&] { return calls.data.pfnCspUnpadData(nullptr, nullptr, nullptr); });
}

std::string seen(int cardType, bool hasLogFile = true) {
    Calls calls(cardType, hasLogFile);
    acquisitions(calls);
    if (!calls.card.acquired) return calls.text();
    files(calls);
    capabilities(calls);
    properties(calls);
    containers(calls);
    pins(calls);
    signing(calls);
    decryptions(calls);
    agreements(calls);
    answersOfTheCard(calls);
    otherAtrs(calls);
    refusals(calls);
    calls.call("CardDeleteContext: no record",
               [&] { return calls.data.pfnCardDeleteContext(nullptr); });
    calls.call("CardDeleteContext: no context in the record", [&] {
        CARD_DATA record = calls.data;
        record.pvVendorSpecific = nullptr;
        return calls.data.pfnCardDeleteContext(&record);
    });
    calls.call("CardDeleteContext", [&] {
        calls.card.release();
        return DWORD{0};
    });
    refusedAcquisitions(calls);
    return calls.text();
}

// RSA keys alone, a second signing key, and keys of both kinds.
class EveryCall : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(CardType, EveryCall, ::testing::Values(3, 4, 6),
                         ::testing::PrintToStringParamName());

std::string fileName() {
    return "card-type-" + std::to_string(EveryCall::GetParam()) + ".txt";
}

TEST_P(EveryCall, AnswersExactlyAsItIsKept) {
    expectAsKept(fileName(), seen(GetParam()));
}

TEST_P(EveryCall, AnswersTheSameWithoutALogFile) {
    std::istringstream all(keptCalls(fileName()));
    std::string expected;
    for (std::string line; std::getline(all, line);) {
        if (!line.starts_with("    file [")) expected += line + "\n";
    }
    const std::string now = seen(GetParam(), false);
    if (now != expected) FAIL() << difference(fileName(), now, expected);
}

}  // namespace
}  // namespace boundary
