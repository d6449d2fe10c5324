// bench_growth: what an acquisition and its followers cost as things grow. The driver is linked in,
// the virtual card stands behind the seam. What is counted is told in one line of JSON; bench.py
// counts the instructions of the rest by callgrind.
//
//   bench_growth load                   heap that the library's entry function takes
//   bench_growth memory TYPE            heap held and peak of an acquisition
//   bench_growth certificate SIZE       an acquisition with certificates of that many bytes
//   bench_growth agreements N           as many agreements, each kept
//   bench_growth readers N              as many cards acquired, each in a reader of its own
//   bench_growth threads N ROUNDS       the same in as many threads at a time; each acquires its
//                                       card that often
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "counted_heap.h"
#include "pairing/card_registration.h"
#include "platform/minidriver.h"
#include "support/platform_record.h"
#include "test_certificate.h"
#include "virtual_card/pkcs15_files.h"
#include "virtual_card/winscard/virtual_reader.h"

extern "C" DWORD WINAPI CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags);
extern "C" BOOL WINAPI DllMain(HINSTANCE hinstDLL, DWORD fdwReason, LPVOID lpvReserved);

extern "C" {
PCCERT_CONTEXT WINAPI __real_CertCreateCertificateContext(DWORD type, const BYTE* bytes,
                                                          DWORD size);
BOOL WINAPI __real_CertFreeCertificateContext(PCCERT_CONTEXT certificate);
BOOL WINAPI __real_CryptDecodeObject(DWORD type, LPCSTR structure, const BYTE* bytes, DWORD size,
                                     DWORD flags, void* result, DWORD* resultSize);
BOOL WINAPI __real_CryptBinaryToStringA(const BYTE* bytes, DWORD size, DWORD flags, LPSTR text,
                                        DWORD* length);
PCCERT_CONTEXT WINAPI __wrap_CertCreateCertificateContext(DWORD type, const BYTE* bytes,
                                                          DWORD size);
BOOL WINAPI __wrap_CertFreeCertificateContext(PCCERT_CONTEXT certificate);
BOOL WINAPI __wrap_CryptDecodeObject(DWORD type, LPCSTR structure, const BYTE* bytes, DWORD size,
                                     DWORD flags, void* result, DWORD* resultSize);
BOOL WINAPI __wrap_CryptBinaryToStringA(const BYTE* bytes, DWORD size, DWORD flags, LPSTR text,
                                        DWORD* length);

PCCERT_CONTEXT WINAPI __wrap_CertCreateCertificateContext(DWORD type, const BYTE* bytes,
                                                          DWORD size) {
    const bench::Counting none(false);
    const auto* made = __real_CertCreateCertificateContext(type, bytes, size);
    if (made != nullptr) bench::hold(static_cast<long>(made->cbCertEncoded));
    return made;
}

BOOL WINAPI __wrap_CertFreeCertificateContext(PCCERT_CONTEXT certificate) {
    const bench::Counting none(false);
    bench::hold(-static_cast<long>(certificate->cbCertEncoded));
    return __real_CertFreeCertificateContext(certificate);
}

BOOL WINAPI __wrap_CryptDecodeObject(DWORD type, LPCSTR structure, const BYTE* bytes, DWORD size,
                                     DWORD flags, void* result, DWORD* resultSize) {
    const bench::Counting none(false);
    return __real_CryptDecodeObject(type, structure, bytes, size, flags, result, resultSize);
}

BOOL WINAPI __wrap_CryptBinaryToStringA(const BYTE* bytes, DWORD size, DWORD flags, LPSTR text,
                                        DWORD* length) {
    const bench::Counting none(false);
    return __real_CryptBinaryToStringA(bytes, size, flags, text, length);
}
}

namespace {

using virtual_card::Bytes;
using virtual_card::Generation;
using virtual_card::KeyRow;
using virtual_card::VirtualReader;

constexpr std::uint8_t readBinary = 0xB0;

LPVOID WINAPI allocate(SIZE_T size) {
    return operator new(size);
}
LPVOID WINAPI reallocate(LPVOID, SIZE_T) {
    return nullptr;  // The driver never calls it.
}
void WINAPI release(LPVOID address) {
    operator delete(address);
}

/// A generation whose certificates have a given size.
struct GrownGeneration {
    std::string pem;
    virtual_card::TestKey key;
    std::vector<KeyRow> keys;
    Generation generation;
    Bytes certificate;

    GrownGeneration(int cardType, std::size_t size)
        : pem(bench::certificateOfSize(size)),
          key{virtual_card::generation5Authentication.privateKey, pem.c_str()},
          generation(*virtual_card::findGeneration(cardType)),
          certificate(virtual_card::derOfPem(pem)) {
        keys.assign(generation.keys.begin(), generation.keys.end());
        for (KeyRow& row : keys) row.key = &key;
        generation.keys = keys;
    }
};

/// A reader with a card in it, and the record that the platform has for it.
struct Place {
    VirtualReader reader;
    Bytes atr;
    Bytes beyond;  // the certificate, where a command cannot address its end
    CARD_DATA data{};
    std::size_t commands = 0;

    Place(const Generation& generation, std::uintptr_t number) : reader(generation) {
        reader.setHandles(number, number);
        atr = reader.card().atr();
        KelmoraID::testing::fillRecord(data, atr, number, number, {allocate, reallocate, release});
    }
};

std::deque<Place> places;

/// Hands each call on to the reader whose handle it has. From 32,768 on READ BINARY would address
/// another file (ISO/IEC 7816-4, 11.3.3): there this card reads on all the same.
int32_t transmit(void*, uintptr_t card, uint32_t protocol, const uint8_t* command,
                 uint32_t commandLength, uint8_t* reply, uint32_t* replyLength) {
    const bench::Counting none(false);
    Place& place = places.at(card - 1);
    ++place.commands;
    if (commandLength == 5 && command[1] == readBinary && command[2] >= 0x80) {
        const std::size_t offset = command[2] * 256u + command[3];
        const std::size_t end = std::min<std::size_t>(offset + command[4], place.beyond.size());
        if (offset > end || *replyLength < end - offset + 2) std::abort();
        const auto first = place.beyond.begin() + static_cast<std::ptrdiff_t>(offset);
        uint8_t* last =
            std::copy(first, place.beyond.begin() + static_cast<std::ptrdiff_t>(end), reply);
        *last++ = 0x90;
        *last++ = 0x00;
        *replyLength = static_cast<uint32_t>(last - reply);
        return 0;
    }
    const CardSeam& seam = *place.reader.seam();
    const auto code =
        seam.transmit(seam.self, card, protocol, command, commandLength, reply, replyLength);
    place.reader.clearExchanges();
    return code;
}

int32_t status(void*, uintptr_t card, uint32_t* state, uint32_t* protocol, uint8_t* atr,
               uint32_t* atrLength) {
    const bench::Counting none(false);
    const CardSeam& seam = *places.at(card - 1).reader.seam();
    return seam.status(seam.self, card, state, protocol, atr, atrLength);
}

void require(DWORD answer, const char* call) {
    if (answer == 0) return;
    char text[100];
    std::snprintf(text, sizeof text, "%s: 0x%08X", call, answer);
    throw std::runtime_error(text);
}

void acquire(Place& place) {
    const bench::Counting driver(true);
    require(CardAcquireContext(&place.data, 0), "CardAcquireContext");
}

void release(Place& place) {
    const bench::Counting driver(true);
    require(place.data.pfnCardDeleteContext(&place.data), "CardDeleteContext");
}

const Generation& generationOf(int cardType) {
    const auto* generation = virtual_card::findGeneration(cardType);
    if (generation == nullptr) throw std::runtime_error("no such card type");
    return *generation;
}

Place& add(const Generation& generation) {
    return places.emplace_back(generation, places.size() + 1);
}

void load() {
    {
        const bench::Counting driver(true);
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    }
    std::printf("{\"allocations\": %ld}\n", bench::heap().allocations);
}

void memory(int cardType) {
    const Generation& generation = generationOf(cardType);
    std::size_t certificates = 0;
    for (const KeyRow& key : generation.keys)
        certificates += virtual_card::derOfPem(key.key->certificate).size();
    Place& place = add(generation);
    // The first ones make what a process has once, in the libraries below.
    for (int i = 0; i < 4; ++i) {
        acquire(place);
        release(place);
    }
    bench::resetHeap();
    acquire(place);
    const bench::Heap heap = bench::heap();
    release(place);
    std::printf(
        "{\"certificates\": %zu, \"held\": %ld, \"peak\": %ld, \"allocations\": %ld, "
        "\"left\": %ld}\n",
        certificates, heap.held, heap.peak, heap.allocations, bench::heap().held);
}

void certificate(std::size_t size) {
    const GrownGeneration grown(5, size);
    Place& place = add(grown.generation);
    place.beyond = grown.certificate;
    acquire(place);
    std::printf("{\"commands\": %zu, \"peak\": %ld}\n", place.commands, bench::heap().peak);
    release(place);
    places.clear();  // ahead of what they stand on
}

void agreements(int count) {
    Place& place = add(generationOf(5));
    acquire(place);
    std::string pin = "1234";
    require(
        place.data.pfnCardAuthenticateEx(&place.data, 1, 0, reinterpret_cast<PBYTE>(pin.data()),
                                         static_cast<DWORD>(pin.size()), nullptr, nullptr, nullptr),
        "CardAuthenticateEx");
    // The card's own public key does for the other party's: in its certificate the point follows
    // 03 42 00 04.
    const Bytes own = virtual_card::derOfPem(virtual_card::generation5Authentication.certificate);
    const Bytes mark{0x03, 0x42, 0x00, 0x04};
    const auto point = std::search(own.begin(), own.end(), mark.begin(), mark.end()) + 4;
    Bytes blob{0x45, 0x43, 0x4B, 0x31, 32, 0, 0, 0};
    blob.insert(blob.end(), point, point + 64);
    for (int i = 0; i < count; ++i) {
        CARD_DH_AGREEMENT_INFO info{};
        info.dwVersion = 2;
        info.dwPublicKey = static_cast<DWORD>(blob.size());
        info.pbPublicKey = blob.data();
        require(place.data.pfnCardConstructDHAgreement(&place.data, &info),
                "CardConstructDHAgreement");
    }
    std::printf("{\"agreements\": %d}\n", count);
    release(place);
}

void readers(int count) {
    for (int i = 0; i < count; ++i) acquire(add(generationOf(5)));
    std::printf("{\"readers\": %d}\n", count);
    for (Place& place : places) release(place);
}

void threads(int count, int rounds) {
    for (int i = 0; i < count; ++i) add(generationOf(5));
    // Two at a time would have one tell on standard output that it does without.
    KelmoraID::setSkipRegisterCard(true);
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> running;
    for (Place& place : places) {
        running.emplace_back([&place, rounds] {
            for (int i = 0; i < rounds; ++i) {
                // Without the counting, which is for one thread.
                require(CardAcquireContext(&place.data, 0), "CardAcquireContext");
                require(place.data.pfnCardDeleteContext(&place.data), "CardDeleteContext");
            }
        });
    }
    for (std::thread& thread : running) thread.join();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    std::printf("{\"threads\": %d, \"acquisitions\": %d, \"seconds\": %.6f}\n", count,
                count * rounds, time.count());
}

int numberAt(int argc, char** argv, int position) {
    if (position >= argc) throw std::runtime_error("a number is missing");
    const int number = std::atoi(argv[position]);
    if (number <= 0) throw std::runtime_error("a number above 0 is wanted");
    return number;
}

}  // namespace

int main(int argc, char** argv) try {
    static CardSeam seam{};
    seam.transmit = transmit;
    seam.status = status;
    SetCardSeam(&seam);
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "load") {
        load();
    } else if (what == "memory") {
        memory(numberAt(argc, argv, 2));
    } else if (what == "certificate") {
        certificate(static_cast<std::size_t>(numberAt(argc, argv, 2)));
    } else if (what == "agreements") {
        agreements(numberAt(argc, argv, 2));
    } else if (what == "readers") {
        readers(numberAt(argc, argv, 2));
    } else if (what == "threads") {
        threads(numberAt(argc, argv, 2), numberAt(argc, argv, 3));
    } else {
        throw std::runtime_error("load, memory, certificate, agreements, readers or threads?");
    }
    places.clear();
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "bench_growth: %s\n", error.what());
    return 1;
}
