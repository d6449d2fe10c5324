// bench_reader: a whole journey with the card in a reader, over the PC/SC service, and the same
// calls of that service once more without the driver: turn by turn, so that both meet the same
// machine. Prints the times of each turn as one line of JSON.
//
//   bench_reader READER ROUNDS
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include <botan/hash.h>

#include "key_operations.h"
#include "known_inputs.h"
#include "os.h"
#include "pins.h"
#include "session.h"
#include "winscard_calls.h"

extern "C" __attribute__((visibility("default"))) LONG WINAPI SCardTransmit(
    SCARDHANDLE hCard, LPCSCARD_IO_REQUEST pioSendPci, const BYTE* pbSendBuffer, DWORD cbSendLength,
    LPSCARD_IO_REQUEST pioRecvPci, LPBYTE pbRecvBuffer, LPDWORD pcbRecvLength);
extern "C" __attribute__((visibility("default"))) LONG WINAPI
SCardStatusW(SCARDHANDLE hCard, LPWSTR mszReaderNames, LPDWORD pcchReaderLen, LPDWORD pdwState,
             LPDWORD pdwProtocol, LPBYTE pbAtr, LPDWORD pcbAtrLen);

namespace {

using namespace cardhost;
using Clock = std::chrono::steady_clock;

decltype(&SCardTransmit) realTransmit = nullptr;
decltype(&SCardStatusW) realStatus = nullptr;

/// A call of the driver's: a command with its reply, or without bytes a query of the protocol.
struct Command {
    SCARD_IO_REQUEST protocol;
    Bytes bytes;
    Bytes reply;
};
std::vector<Command> commands;
bool isKept = true;

/// What the keys work on, made ahead of all measuring.
struct Work {
    Container container;
    Bytes block;
    CurvePoint peer;
};

Work workFor(const Container& container) {
    Work work{container, {}, {}};
    if (!container.certificate.key.isEc) {
        work.block = knownBlock(container.certificate);
    } else if (container.index == 0) {
        work.peer = knownPeer(container.certificate);
    }
    return work;
}

void travel(Acquisition& acquisition, const std::vector<Work>& works, const Bytes& digest) {
    for (const std::string directory : {"", "mscp"}) {
        for (const std::string& name : acquisition.fileNames(directory)) {
            acquisition.readFile(directory, name);
        }
    }
    for (const Work& work : works) {
        const bool isEc = work.container.certificate.key.isEc;
        verifyPin(acquisition, work.container.pin,
                  {{work.container.pin == 1 ? "1234" : "123456"}, {}});
        signHash(acquisition, work.container, isEc ? Scheme::ecdsa : Scheme::pkcs1,
                 Provider::keyStorage, *hashNamed("sha256"), digest);
        if (!isEc) {
            verifyPin(acquisition, work.container.pin,
                      {{work.container.pin == 1 ? "1234" : "123456"}, {}});
            decipher(acquisition, work.container, work.block);
        } else if (work.container.index == 0) {
            agree(acquisition, work.container, work.peer, {});
        }
    }
}

/// From the call of each entry point to its return; what cardhost does beside them does not count.
double withDriver(const Driver& driver, ConnectedCard& card, const Trace& trace,
                  const std::vector<Work>& works, const Bytes& digest) {
    const auto before = trace.timeInCalls();
    Acquisition acquisition(driver, card, trace);
    travel(acquisition, works, digest);
    acquisition.close();
    return std::chrono::duration<double>(trace.timeInCalls() - before).count();
}

/// The kept commands as they went out. What comes back may be another signature, never another
/// length or status.
double bare(SCARDHANDLE card) {
    std::vector<BYTE> reply(512);
    const auto start = Clock::now();
    for (const Command& command : commands) {
        if (command.bytes.empty()) {
            DWORD protocol = 0;
            realStatus(card, nullptr, nullptr, nullptr, &protocol, nullptr, nullptr);
            continue;
        }
        auto length = static_cast<DWORD>(reply.size());
        if (realTransmit(card, &command.protocol, command.bytes.data(),
                         static_cast<DWORD>(command.bytes.size()), nullptr, reply.data(),
                         &length) != SCARD_S_SUCCESS ||
            length != command.reply.size() ||
            !std::equal(command.reply.end() - 2, command.reply.end(), reply.begin() + length - 2)) {
            throw std::runtime_error("the card answers otherwise than to the driver");
        }
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void print(const char* name, const std::vector<double>& times) {
    std::printf("\"%s\": [", name);
    for (std::size_t i = 0; i < times.size(); ++i) {
        std::printf("%s%.6f", i == 0 ? "" : ", ", times[i]);
    }
    std::printf("]");
}

void measure(const char* reader, int rounds) {
    CommonOptions options;
    options.card.reader = reader;
    const Trace trace(false);
    const auto driverFile = Session::driverFile(options);
    const os::Library winscard(os::realWinscard(driverFile.parent_path()));
    realTransmit = winscard.get<decltype(&SCardTransmit)>("SCardTransmit");
    realStatus = winscard.get<decltype(&SCardStatusW)>("SCardStatusW");
    ConnectedCard card(options.card, driverFile.parent_path(), trace);
    const Driver driver(driverFile);
    const auto hash = Botan::HashFunction::create_or_throw(hashNamed("sha256")->botanName);
    const auto value = hash->process(knownChallenge());
    const Bytes digest(value.begin(), value.end());
    std::vector<Work> works;
    {
        Acquisition acquisition(driver, card, trace);
        for (const Container& container : containersOf(acquisition)) {
            works.push_back(workFor(container));
        }
        acquisition.close();
    }
    commands.clear();
    withDriver(driver, card, trace, works, digest);
    isKept = false;
    if (commands.empty()) throw std::runtime_error("the driver's commands did not come by here");
    std::vector<double> driverTimes, bareTimes;
    for (int round = 0; round < rounds; ++round) {
        const bool driverFirst = round % 2 == 0;
        if (driverFirst) driverTimes.push_back(withDriver(driver, card, trace, works, digest));
        bareTimes.push_back(bare(card.handle()));
        if (!driverFirst) driverTimes.push_back(withDriver(driver, card, trace, works, digest));
    }
    std::size_t sent = 0, out = 0, back = 0;
    for (const Command& command : commands) {
        if (!command.bytes.empty()) ++sent;
        out += command.bytes.size();
        back += command.reply.size();
    }
    std::printf("{\"commands\": %zu, \"out\": %zu, \"back\": %zu, ", sent, out, back);
    print("driver", driverTimes);
    std::printf(", ");
    print("bare", bareTimes);
    std::printf("}\n");
}

}  // namespace

/// Found by the driver's import ahead of the library's own: keeps the commands of one journey.
LONG WINAPI SCardTransmit(SCARDHANDLE hCard, LPCSCARD_IO_REQUEST pioSendPci,
                          const BYTE* pbSendBuffer, DWORD cbSendLength,
                          LPSCARD_IO_REQUEST pioRecvPci, LPBYTE pbRecvBuffer,
                          LPDWORD pcbRecvLength) {
    const LONG code = realTransmit(hCard, pioSendPci, pbSendBuffer, cbSendLength, pioRecvPci,
                                   pbRecvBuffer, pcbRecvLength);
    if (isKept && code == SCARD_S_SUCCESS) {
        commands.push_back({*pioSendPci, Bytes(pbSendBuffer, pbSendBuffer + cbSendLength),
                            Bytes(pbRecvBuffer, pbRecvBuffer + *pcbRecvLength)});
    }
    return code;
}

/// The same for the query that goes ahead of the commands of an operation.
LONG WINAPI SCardStatusW(SCARDHANDLE hCard, LPWSTR mszReaderNames, LPDWORD pcchReaderLen,
                         LPDWORD pdwState, LPDWORD pdwProtocol, LPBYTE pbAtr, LPDWORD pcbAtrLen) {
    if (isKept) commands.emplace_back();
    return realStatus(hCard, mszReaderNames, pcchReaderLen, pdwState, pdwProtocol, pbAtr,
                      pcbAtrLen);
}

int main(int argc, char** argv) try {
    const int rounds = argc == 3 ? std::atoi(argv[2]) : 0;
    if (rounds <= 0) throw std::runtime_error("usage: bench_reader READER ROUNDS");
    measure(argv[1], rounds);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "bench_reader: %s\n", error.what());
    return 1;
}
