// The reader of settings over a registry that lies: any status, any length, any bytes; and the
// pairing with the services that it names. This program's RegGetValueW stands in the place of the
// stand-in platform's.
#include <cstring>
#include <stdexcept>

#include "fuzz_input.h"
#include "fuzz_target.h"
#include "pairing/card_registration.h"
#include "pairing/service_client.h"
#include "registry/registry.h"

namespace {

fuzz::FuzzInput* answers = nullptr;
int calls = 0;

}  // namespace

extern "C" LSTATUS WINAPI RegGetValueW(HKEY, LPCWSTR lpSubKey, LPCWSTR lpValue, DWORD, LPDWORD,
                                       PVOID pvData, LPDWORD pcbData) {
    static constexpr LSTATUS statuses[] = {ERROR_SUCCESS, ERROR_MORE_DATA, ERROR_FILE_NOT_FOUND, 5};
    fuzz::require(++calls <= 64, "a registry that always has more data is given up");
    fuzz::require(lpSubKey != nullptr && lpValue != nullptr, "key and value have names");
    const LSTATUS status = answers->oneOf(statuses);
    const std::uint8_t kind = answers->byte();
    const fuzz::Bytes bytes = answers->block();
    const DWORD room = *pcbData;
    std::memset(pvData, 0x41, room);  // All of the room is the registry's to write.
    std::copy_n(bytes.begin(), std::min<std::size_t>(bytes.size(), room),
                static_cast<std::uint8_t*>(pvData));
    switch (kind % 4) {
        case 0:
            *pcbData = static_cast<DWORD>(bytes.size());
            break;
        case 1:
            *pcbData = answers->word();
            break;
        case 2: {
            // From 1 MiB on it is more than is ever read: a length between would cost seconds.
            const DWORD length = answers->number();
            *pcbData = length < 0x100000 ? length : length | 0x80000000;
            break;
        }
        default:  // The length stays as it was told.
            break;
    }
    return status;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    answers = &input;
    calls = 0;
    const WideString text = KelmoraID::readRegistryString(WIDE_TEXT("key"), WIDE_TEXT("value"));
    fuzz::readAll(text.data(), text.size() * sizeof(WCHAR));
    calls = 0;
    for (const std::string& address : KelmoraID::readServiceAddresses()) {
        fuzz::require(address.find('\0') == std::string::npos, "an address ends at its terminator");
    }
    calls = 0;
    input.rewindTo(0);
    try {
        KelmoraID::RegisterCard({data, data + size}, true);
    } catch (const std::invalid_argument&) {  // As documented, when a port is no number.
    } catch (const std::out_of_range&) {
    }
    return 0;
}
