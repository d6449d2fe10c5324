// CardGetProperty: nearly all answers are constants of this system, held in the table below.
#include <algorithm>
#include <array>
#include <cstring>

#include "card/pin_types.h"
#include "log/logger.h"
#include "pin/pin_information.h"
#include "session/card_context.h"
#include "session/entry_log.h"
#include "session/entry_points.h"
#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

constexpr const char* scope = "CardGetProperty";

/// What dwFlags has to be.
enum class Flags { zero, any, keySpecification, pinIdentifier, oneOrTwo };

/// How a property is answered.
enum class Answer {
    bytes,            ///< the row's builder fills a buffer of the row's size
    keySizes,         ///< CardQueryKeySizes fills the buffer
    cardIdentifier,   ///< the file cardid
    refused,          ///< SCARD_E_UNSUPPORTED_FEATURE, with the exit line
    refusedSilently,  ///< SCARD_E_UNSUPPORTED_FEATURE, without the exit line (untold-exits)
};

struct Request {
    PCARD_DATA card;
    DWORD dwFlags;
};
using SizeOf = DWORD (*)(const Request&);
using Build = void (*)(const Request&, BYTE* answer);

struct PropertyRow {
    WideStringView name;
    Flags flags;
    Answer answer;
    SizeOf size;
    Build build;
};

template <typename Record>
DWORD sizeOf(const Request&) {
    return sizeof(Record);
}

template <typename Record>
void put(const Record& record, BYTE* answer) {
    std::memcpy(answer, &record, sizeof(record));
}

template <DWORD value>
void number(const Request&, BYTE* answer) {
    put(value, answer);
}

void freeSpace(const Request&, BYTE* answer) {
    // quirk: free-space-twice. dwMaxKeyContainers is 0 here, unlike in CardQueryFreeSpace.
    put(CARD_FREE_SPACE_INFO{.dwVersion = 1,
                             .dwBytesAvailable = 0,
                             .dwKeyContainersAvailable = 0,
                             .dwMaxKeyContainers = 0},
        answer);
}

void capabilities(const Request&, BYTE* answer) {
    // quirk: certificates-called-compressed. The files hold plain DER.
    put(CARD_CAPABILITIES{.dwVersion = 1, .fCertificateCompression = 1, .fKeyGen = 0}, answer);
}

void pinInformation(const Request& request, BYTE* answer) {
    put(pinInformationOf(contextOf(request.card), static_cast<PinId>(request.dwFlags)), answer);
}

// Wide multi-strings: each text with its NUL, and a final NUL.
constexpr WCHAR tripleDes[] = WIDE_TEXT("3DES_112\0");
constexpr WCHAR chainingModes[] = WIDE_TEXT("ChainingModeCBC\0");
constexpr WCHAR noAlgorithms[] = WIDE_TEXT("");
static_assert(sizeof(tripleDes) == 20 && sizeof(chainingModes) == 34 && sizeof(noAlgorithms) == 2);

DWORD algorithmsSize(const Request& request) {
    return request.dwFlags == 1 ? sizeof(tripleDes) : sizeof(noAlgorithms);
}

void algorithms(const Request& request, BYTE* answer) {
    if (request.dwFlags == 1) {
        put(tripleDes, answer);
    } else {
        put(noAlgorithms, answer);
    }
}

void chaining(const Request&, BYTE* answer) {
    put(chainingModes, answer);
}

// The bits of the valid identifiers in the low byte. quirk: pin-list-of-ones. Above it all ones.
constexpr DWORD pinList = 0xFFFFFF1E;

constexpr std::array<PropertyRow, 18> propertyTable{{
    {WIDE_TEXT("Free Space"), Flags::zero, Answer::bytes, sizeOf<CARD_FREE_SPACE_INFO>, freeSpace},
    {WIDE_TEXT("Capabilities"), Flags::zero, Answer::bytes, sizeOf<CARD_CAPABILITIES>,
     capabilities},
    {WIDE_TEXT("Key Sizes"), Flags::keySpecification, Answer::keySizes, sizeOf<CARD_KEY_SIZES>,
     nullptr},
    {WIDE_TEXT("Read Only Mode"), Flags::zero, Answer::bytes, sizeOf<DWORD>, number<1>},
    {WIDE_TEXT("Cache Mode"), Flags::zero, Answer::bytes, sizeOf<DWORD>, number<3>},
    {WIDE_TEXT("Supports Windows x.509 Enrollment"), Flags::zero, Answer::bytes, sizeOf<DWORD>,
     number<1>},
    {WIDE_TEXT("Card Identifier"), Flags::zero, Answer::cardIdentifier, nullptr, nullptr},
    {WIDE_TEXT("Card Serial Number"), Flags::any, Answer::refused, nullptr, nullptr},
    {WIDE_TEXT("PIN Information"), Flags::pinIdentifier, Answer::bytes, sizeOf<PIN_INFO>,
     pinInformation},
    {WIDE_TEXT("PIN List"), Flags::zero, Answer::bytes, sizeOf<DWORD>, number<pinList>},
    {WIDE_TEXT("Authenticated State"), Flags::any, Answer::refusedSilently, nullptr, nullptr},
    {WIDE_TEXT("PIN Strength Verify"), Flags::pinIdentifier, Answer::bytes, sizeOf<DWORD>,
     number<1>},
    {WIDE_TEXT("Key Import Support"), Flags::zero, Answer::bytes, sizeOf<DWORD>, number<0>},
    {WIDE_TEXT("Algorithms"), Flags::oneOrTwo, Answer::bytes, algorithmsSize, algorithms},
    {WIDE_TEXT("Padding Schemes"), Flags::oneOrTwo, Answer::bytes, sizeOf<DWORD>, number<0>},
    {WIDE_TEXT("Chaining Modes"), Flags::oneOrTwo, Answer::bytes, sizeOf<decltype(chainingModes)>,
     chaining},
    {WIDE_TEXT("PIN Strength Change"), Flags::any, Answer::refusedSilently, nullptr, nullptr},
    {WIDE_TEXT("PIN Strength Unblock"), Flags::any, Answer::refusedSilently, nullptr, nullptr},
}};

const PropertyRow* findProperty(LPCWSTR wszProperty) {
    if (wszProperty == nullptr) return nullptr;
    const WideStringView name(wszProperty);
    const auto row = std::find_if(propertyTable.begin(), propertyTable.end(),
                                  [&](const PropertyRow& r) { return r.name == name; });
    return row == propertyTable.end() ? nullptr : &*row;
}

bool areValid(Flags flags, DWORD dwFlags) {
    switch (flags) {
        case Flags::zero:
            return dwFlags == 0;
        case Flags::any:
            return true;
        case Flags::keySpecification:
            return dwFlags != 0;  // 9 and above are found out by CardQueryKeySizes' turn.
        case Flags::pinIdentifier:
            return isValidPinId(dwFlags);
        case Flags::oneOrTwo:
            return dwFlags == 1 || dwFlags == 2;
    }
    return false;
}

DWORD failWith(const char* line, DWORD status) {
    logError(line);
    return exitWith(scope, status);
}

DWORD invalidFlags() {
    return failWith("CMR_329: dwFlags is invalid.", SCARD_E_INVALID_PARAMETER);
}

// The answer on its way: a buffer from the platform's allocator, freed at the end.
class AnswerBuffer {
public:
    explicit AnswerBuffer(PCARD_DATA card) : card_(card) {}
    ~AnswerBuffer() {
        if (bytes != nullptr) card_->pfnCspFree(bytes);
    }
    AnswerBuffer(const AnswerBuffer&) = delete;
    AnswerBuffer& operator=(const AnswerBuffer&) = delete;

    BYTE* bytes = nullptr;
    DWORD size = 0;

private:
    PCARD_DATA card_;
};

// quirk: no-size-query. A call without a buffer is a bad argument.
DWORD deliver(const AnswerBuffer& answer, PBYTE pbData, DWORD cbData, PDWORD pdwDataLen) {
    if (pbData == nullptr) {
        logError("CMR_326: pbData is NULL.");
        return SCARD_E_INVALID_PARAMETER;
    }
    if (cbData < answer.size) {
        logError("CMR_327: cbData is too small.");
        return SCARD_E_INSUFFICIENT_BUFFER;
    }
    if (pdwDataLen == nullptr) {
        logError("CMR_328: pdwDataLen is NULL.");
        return SCARD_E_INVALID_PARAMETER;
    }
    *pdwDataLen = answer.size;
    std::copy_n(answer.bytes, answer.size, pbData);
    return SCARD_S_SUCCESS;
}

// Builds the answer of a row. A failure has been logged, with the exit line.
DWORD buildAnswer(const PropertyRow& row, const Request& request, AnswerBuffer& answer) {
    if (row.answer == Answer::cardIdentifier) {
        char cardid[] = "cardid";
        const DWORD status =
            CardReadFile(request.card, nullptr, cardid, 0, &answer.bytes, &answer.size);
        return status == 0 ? SCARD_S_SUCCESS : exitWith(scope, status);
    }
    answer.size = row.size(request);
    answer.bytes = static_cast<BYTE*>(request.card->pfnCspAlloc(answer.size));
    if (answer.bytes == nullptr) {
        return failWith("CMR_21: Out-of-memory (PFN_CSP_ALLOC).", ERROR_NOT_ENOUGH_MEMORY);
    }
    if (row.answer != Answer::keySizes) {
        row.build(request, answer.bytes);
        return SCARD_S_SUCCESS;
    }
    CARD_KEY_SIZES sizes{};
    sizes.dwVersion = 1;
    CardQueryKeySizes(request.card, request.dwFlags, 0, &sizes);  // Its status is disregarded.
    if (request.dwFlags > AT_ECDHE_P521) return invalidFlags();
    put(sizes, answer.bytes);
    return SCARD_S_SUCCESS;
}

}  // namespace

DWORD WINAPI CardGetProperty(PCARD_DATA pCardData, LPCWSTR wszProperty, PBYTE pbData, DWORD cbData,
                             PDWORD pdwDataLen, DWORD dwFlags) {
    logEntry(scope);
    if (wszProperty != nullptr) {
        logToFile(scope, "with parameters wszProperty: '{}'", wideToUtf8(wszProperty).c_str());
    }
    if (pCardData == nullptr) {
        return failWith("CMR_324: pCardData is NULL.", SCARD_E_INVALID_PARAMETER);
    }
    if (pCardData->hSCardCtx == 0) return exitWith(scope, SCARD_E_INVALID_PARAMETER);
    const PropertyRow* row = findProperty(wszProperty);
    if (row == nullptr) {
        return failWith("CMR_325: wszProperty is invalid.", SCARD_E_INVALID_PARAMETER);
    }
    if (!areValid(row->flags, dwFlags)) return invalidFlags();
    if (row->answer == Answer::refused) return exitWith(scope, SCARD_E_UNSUPPORTED_FEATURE);
    // quirk: untold-exits. The name in the line above tells which property it was.
    if (row->answer == Answer::refusedSilently) return SCARD_E_UNSUPPORTED_FEATURE;

    DWORD status = SCARD_S_SUCCESS;
    {
        AnswerBuffer answer(pCardData);
        status = buildAnswer(*row, {pCardData, dwFlags}, answer);
        if (status != SCARD_S_SUCCESS) return status;
        status = deliver(answer, pbData, cbData, pdwDataLen);
    }
    return exitWith(scope, status);
}

}  // namespace KelmoraID
