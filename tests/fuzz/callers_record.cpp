#include "platform_record.h"

#include <cstdlib>
#include <cstring>

#include "fuzz_target.h"
#include "hostile_card.h"
#include "session/card_context.h"
#include "session/entry_points.h"

namespace fuzz {
namespace {

int failing = 0;

LPVOID WINAPI allocate(SIZE_T size) {
    if (failing != 0 && --failing == 0) return nullptr;
    void* memory = std::malloc(size == 0 ? 1 : size);
    require(memory != nullptr, "an allocation is of a size that can be had");
    std::memset(memory, 0xCD, size);
    return memory;
}

LPVOID WINAPI reallocate(LPVOID address, SIZE_T size) {
    return std::realloc(address, size);
}

void WINAPI release(LPVOID address) {
    std::free(address);
}

constexpr LONG ownStatuses[] = {
    SCARD_S_SUCCESS,          ERROR_INVALID_PARAMETER,     ERROR_NOT_ENOUGH_MEMORY,
    ERROR_REVISION_MISMATCH,  SCARD_E_DIR_NOT_FOUND,       SCARD_E_FILE_NOT_FOUND,
    SCARD_E_INVALID_HANDLE,   SCARD_E_INVALID_PARAMETER,   SCARD_E_INSUFFICIENT_BUFFER,
    SCARD_E_NO_KEY_CONTAINER, SCARD_E_UNEXPECTED,          SCARD_E_UNKNOWN_CARD,
    SCARD_W_CHV_BLOCKED,      SCARD_E_UNSUPPORTED_FEATURE, SCARD_W_SECURITY_VIOLATION,
    SCARD_W_WRONG_CHV,
};

}  // namespace

PlatformRecord::PlatformRecord(const Bytes& cardsAtr, SCARDCONTEXT context, SCARDHANDLE card)
    : atr(cardsAtr) {
    static WCHAR name[] = WIDE_TEXT("FINEID");
    failing = 0;
    data.dwVersion = 7;
    data.pbAtr = atr.data();
    data.cbAtr = static_cast<DWORD>(atr.size());
    data.pwszCardName = name;
    data.pfnCspAlloc = allocate;
    data.pfnCspReAlloc = reallocate;
    data.pfnCspFree = release;
    data.hSCardCtx = context;
    data.hScard = card;
}

PlatformRecord::~PlatformRecord() {
    failing = 0;
    const auto* context = static_cast<const KelmoraID::CardContext*>(data.pvVendorSpecific);
    if (context == nullptr) return;
    // The product gives this handle up with the object, and means to: it is not a leak to report.
    if (context->secondSignCert != nullptr) CertFreeCertificateContext(context->secondSignCert);
    KelmoraID::CardDeleteContext(&data);
}

void PlatformRecord::failAllocation(int n) {
    failing = n;
}

void PlatformRecord::take(void* buffer, std::size_t size, bool isFilled) {
    if (buffer == nullptr) return;
    if (isFilled) readAll(buffer, size);
    std::free(buffer);
}

bool isKnownStatus(DWORD status) {
    const auto isThis = [&](auto known) { return static_cast<DWORD>(known) == status; };
    return std::any_of(std::begin(ownStatuses), std::end(ownStatuses), isThis) ||
           std::any_of(std::begin(readerCodes), std::end(readerCodes), isThis);
}

}  // namespace fuzz
