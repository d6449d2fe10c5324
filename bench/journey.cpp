// bench_journey: goes through the calls of a recording, with the driver linked in. The card says
// what the recorded one said at that call, in that order, whatever it is asked: what is signed,
// deciphered and agreed on here is nothing but bytes of the right size. bench.py counts the
// instructions by callgrind.
//
//   bench_journey RECORDING
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/minidriver.h"
#include "platform/wide_text.h"
#include "recording/parser.h"
#include "support/platform_record.h"
#include "virtual_card/winscard/card_seam.h"

extern "C" DWORD WINAPI CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags);

namespace {

using recording::Bytes;

LPVOID WINAPI allocate(SIZE_T size) {
    return std::malloc(size == 0 ? 1 : size);
}
LPVOID WINAPI reallocate(LPVOID address, SIZE_T size) {
    return std::realloc(address, size);
}
void WINAPI release(LPVOID address) {
    std::free(address);
}

/// The exchanges of a call that are still to come.
std::vector<const recording::Exchange*> waiting;
std::uint32_t protocol = 0;

int32_t transmit(void*, uintptr_t, uint32_t, const uint8_t*, uint32_t, uint8_t* reply,
                 uint32_t* replyLength) {
    if (waiting.empty()) return static_cast<int32_t>(SCARD_E_UNEXPECTED);
    const Bytes& bytes = waiting.front()->reply.bytes;
    waiting.erase(waiting.begin());
    std::copy(bytes.begin(), bytes.end(), reply);
    *replyLength = static_cast<uint32_t>(bytes.size());
    return 0;
}

int32_t status(void*, uintptr_t, uint32_t*, uint32_t* active, uint8_t*, uint32_t*) {
    *active = protocol;
    return 0;
}

/// The last number in a call's text.
BYTE numberIn(const std::string& call) {
    return static_cast<BYTE>(std::stoi(call.substr(call.find_last_of(' ') + 1)));
}

class Journey {
public:
    explicit Journey(Bytes atr) : atr_(std::move(atr)) {
        KelmoraID::testing::fillRecord(data_, atr_, 1, 1, {allocate, reallocate, ::release});
    }

    DWORD make(const std::string& call) {
        const std::string name = call.substr(0, call.find(' '));
        if (name == "CardAcquireContext") return CardAcquireContext(&data_, 0);
        if (name == "CardDeleteContext") return data_.pfnCardDeleteContext(&data_);
        if (name == "CardEnumFiles" || name == "CardReadFile") return file(name, call);
        if (name == "CardGetContainerInfo") {
            CONTAINER_INFO info{};
            info.dwVersion = 1;
            const DWORD answer = data_.pfnCardGetContainerInfo(&data_, numberIn(call), 0, &info);
            ::release(info.pbSigPublicKey);
            ::release(info.pbKeyExPublicKey);
            return answer;
        }
        if (name == "CardGetContainerProperty") {
            DWORD pin = 0, size = 0;
            return data_.pfnCardGetContainerProperty(&data_, numberIn(call),
                                                     WIDE_TEXT("PIN Identifier"),
                                                     reinterpret_cast<PBYTE>(&pin), 4, &size, 0);
        }
        if (name == "CardGetProperty") {
            PIN_INFO info{};
            DWORD size = 0;
            return data_.pfnCardGetProperty(&data_, WIDE_TEXT("PIN Information"),
                                            reinterpret_cast<PBYTE>(&info), sizeof info, &size,
                                            numberIn(call));
        }
        if (name == "CardAuthenticateEx") {
            Bytes pin(numberIn(call) == 1 ? 4 : 6, '1');
            return data_.pfnCardAuthenticateEx(&data_, numberIn(call), 0, pin.data(),
                                               static_cast<DWORD>(pin.size()), nullptr, nullptr,
                                               nullptr);
        }
        if (name == "CardSignData") return sign(numberIn(call));
        if (name == "CardRSADecrypt") return decrypt(numberIn(call));
        if (name == "CardConstructDHAgreement") return agree();
        if (name == "CardDeriveKey") return derive();
        if (name == "CardDestroyDHAgreement") {
            return data_.pfnCardDestroyDHAgreement(&data_, numberIn(call), 0);
        }
        throw std::runtime_error("no such call is known: " + call);
    }

private:
    DWORD file(const std::string& name, const std::string& call) {
        std::string path = call.substr(call.find(' ') + 1);
        const bool isInDirectory = path.starts_with("mscp");
        char directory[] = "mscp";
        PBYTE bytes = nullptr;
        DWORD size = 0, answer = 0;
        if (name == "CardEnumFiles") {
            answer = data_.pfnCardEnumFiles(&data_, isInDirectory ? directory : nullptr,
                                            reinterpret_cast<LPSTR*>(&bytes), &size, 0);
        } else {
            if (isInDirectory) path.erase(0, 5);
            answer = data_.pfnCardReadFile(&data_, isInDirectory ? directory : nullptr, path.data(),
                                           0, &bytes, &size);
        }
        ::release(bytes);
        return answer;
    }

    bool isEc(BYTE container) {
        CONTAINER_INFO info{};
        info.dwVersion = 1;
        data_.pfnCardGetContainerInfo(&data_, container, 0, &info);
        const PBYTE blob = info.pbKeyExPublicKey ? info.pbKeyExPublicKey : info.pbSigPublicKey;
        const bool is = blob != nullptr && blob[0] == 'E';  // "ECS1", "ECK1" and so on
        ::release(info.pbSigPublicKey);
        ::release(info.pbKeyExPublicKey);
        return is;
    }

    DWORD sign(BYTE container) {
        Bytes hash(32, 0x11);
        CARD_SIGNING_INFO info{};
        info.dwVersion = 1;
        info.bContainerIndex = container;
        const bool isEcKey = isEc(container);
        info.dwKeySpec = isEcKey ? AT_ECDSA_P256 : container == 0 ? AT_KEYEXCHANGE : AT_SIGNATURE;
        info.aiHashAlg = isEcKey ? 0 : 0x800C;  // CALG_SHA_256
        info.pbData = hash.data();
        info.cbData = static_cast<DWORD>(hash.size());
        const DWORD answer = data_.pfnCardSignData(&data_, &info);
        ::release(info.pbSignedData);
        return answer;
    }

    DWORD decrypt(BYTE container) {
        Bytes block(256, 0x55);
        CARD_RSA_DECRYPT_INFO info{};
        info.dwVersion = 2;
        info.dwPaddingType = CARD_PADDING_PKCS1;
        info.bContainerIndex = container;
        info.dwKeySpec = container == 0 ? AT_KEYEXCHANGE : AT_SIGNATURE;
        info.pbData = block.data();
        info.cbData = static_cast<DWORD>(block.size());
        return data_.pfnCardRSADecrypt(&data_, &info);
    }

    DWORD agree() {
        Bytes blob(8 + 64, 0x22);
        CARD_DH_AGREEMENT_INFO info{};
        info.dwVersion = 2;
        info.dwPublicKey = static_cast<DWORD>(blob.size());
        info.pbPublicKey = blob.data();
        const DWORD answer = data_.pfnCardConstructDHAgreement(&data_, &info);
        secret_ = info.bSecretAgreementIndex;
        return answer;
    }

    DWORD derive() {
        WCHAR kdf[] = WIDE_TEXT("HASH");
        CARD_DERIVE_KEY info{};
        info.dwVersion = 1;
        info.bSecretAgreementIndex = secret_;
        info.pwszKDF = kdf;
        const DWORD answer = data_.pfnCardDeriveKey(&data_, &info);
        ::release(info.pbDerivedKey);
        return answer;
    }

    Bytes atr_;
    CARD_DATA data_{};
    BYTE secret_ = 0;
};

/// A call and what the card said at it.
struct Step {
    std::string call;
    std::vector<const recording::Exchange*> exchanges;
    DWORD status = 0;
};

std::vector<Step> stepsOf(const recording::Conversation& conversation) {
    std::vector<Step> steps;
    for (const recording::Entry& entry : conversation.entries) {
        if (const auto* call = std::get_if<recording::Call>(&entry)) {
            steps.push_back({call->text, {}, 0});
        } else if (const auto* exchange = std::get_if<recording::Exchange>(&entry)) {
            steps.at(steps.size() - 1).exchanges.push_back(exchange);
        } else if (const auto* result = std::get_if<recording::Result>(&entry)) {
            steps.at(steps.size() - 1).status = result->status;
        }
    }
    return steps;
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) throw std::runtime_error("usage: bench_journey RECORDING");
    std::ifstream file(argv[1], std::ios::binary);
    std::stringstream text;
    if (!(text << file.rdbuf())) throw std::runtime_error("the recording cannot be read");
    const auto conversation = recording::parse(text.str());
    protocol =
        conversation.protocol == recording::Protocol::t0 ? SCARD_PROTOCOL_T0 : SCARD_PROTOCOL_T1;
    static CardSeam seam{};
    seam.transmit = transmit;
    seam.status = status;
    SetCardSeam(&seam);
    Journey journey(conversation.atr);
    for (const Step& step : stepsOf(conversation)) {
        if (step.call.starts_with("Query of")) continue;  // past the driver
        waiting = step.exchanges;
        if (journey.make(step.call) != step.status || !waiting.empty()) {
            throw std::runtime_error("goes otherwise than recorded: " + step.call);
        }
    }
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "bench_journey: %s\n", error.what());
    return 1;
}
