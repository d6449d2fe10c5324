#include "driver_slots.h"

#include "driver_memory.h"

namespace faults {
namespace {

template <auto member>
struct Slot;
template <typename... Arguments, DWORD (WINAPI* CARD_DATA::*member)(Arguments...)>
struct Slot<member> {
    static inline DWORD(WINAPI* original)(Arguments...) = nullptr;
    static inline int timesEntered = 0;
    static DWORD WINAPI call(Arguments... arguments) {
        ++timesEntered;
        const InsideDriver inside;
        return original(arguments...);
    }
    static void put(CARD_DATA& data) {
        if (data.*member == nullptr || data.*member == call) return;
        original = data.*member;
        data.*member = call;
    }
};

}  // namespace

std::span<const SlotRow> driverSlots() {
// The name of an entry point is that of its slot.
#define SLOT(name)                                                                  \
    {                                                                               \
#name, offsetof(CARD_DATA, pfn##name), Slot < &CARD_DATA::pfn##name> ::put, \
            Slot < &CARD_DATA::pfn##name> ::timesEntered                            \
    }
    static const SlotRow rows[] = {
        SLOT(CardDeleteContext),
        SLOT(CardQueryCapabilities),
        SLOT(CardDeleteContainer),
        SLOT(CardCreateContainer),
        SLOT(CardGetContainerInfo),
        SLOT(CardAuthenticatePin),
        SLOT(CardGetChallenge),
        SLOT(CardAuthenticateChallenge),
        SLOT(CardUnblockPin),
        SLOT(CardChangeAuthenticator),
        SLOT(CardCreateDirectory),
        SLOT(CardDeleteDirectory),
        SLOT(CardCreateFile),
        SLOT(CardReadFile),
        SLOT(CardWriteFile),
        SLOT(CardDeleteFile),
        SLOT(CardEnumFiles),
        SLOT(CardGetFileInfo),
        SLOT(CardQueryFreeSpace),
        SLOT(CardQueryKeySizes),
        SLOT(CardSignData),
        SLOT(CardRSADecrypt),
        SLOT(CardConstructDHAgreement),
        SLOT(CardDeriveKey),
        SLOT(CardDestroyDHAgreement),
        SLOT(CspGetDHAgreement),
        SLOT(CardGetChallengeEx),
        SLOT(CardAuthenticateEx),
        SLOT(CardChangeAuthenticatorEx),
        SLOT(CardDeauthenticateEx),
        SLOT(CardGetContainerProperty),
        SLOT(CardSetContainerProperty),
        SLOT(CardGetProperty),
        SLOT(CardSetProperty),
        SLOT(CspUnpadData),
        SLOT(MDImportSessionKey),
        SLOT(MDEncryptData),
        SLOT(CardImportSessionKey),
        SLOT(CardGetSharedKeyHandle),
        SLOT(CardGetAlgorithmProperty),
        SLOT(CardGetKeyProperty),
        SLOT(CardSetKeyProperty),
        SLOT(CardDestroyKey),
        SLOT(CardProcessEncryptedData),
        SLOT(CardCreateContainerEx),
    };
#undef SLOT
    return rows;
}

DWORD deleteHalfFilled(CARD_DATA& data) {
    return Slot<&CARD_DATA::pfnCardDeleteContext>::call(&data);
}

}  // namespace faults

extern "C" DWORD WINAPI __real_CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags);
extern "C" DWORD WINAPI __wrap_CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags);
extern "C" DWORD WINAPI __wrap_CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags) {
    DWORD status = 0;
    {
        const faults::InsideDriver inside;
        status = __real_CardAcquireContext(pCardData, dwFlags);
    }
    if (status != 0) return status;
    for (const faults::SlotRow& row : faults::driverSlots()) row.put(*pCardData);
    return status;
}
