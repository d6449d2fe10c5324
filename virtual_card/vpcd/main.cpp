// virtual-card: a FINEID card in software, put into the virtual reader of a PC/SC daemon.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "state_file.h"
#include "vpcd_client.h"

namespace {

using namespace virtual_card;

constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

constexpr char usage[] =
    "virtual-card: a FINEID card in software for the virtual reader driver of a PC/SC daemon\n"
    "\n"
    "usage: virtual-card --generation N [--host HOST] [--port PORT] [--state FILE]\n"
    "\n"
    "  --generation N  the generation of the card (see below)\n"
    "  --host HOST     where the driver waits; 127.0.0.1 if not given\n"
    "  --port PORT     its port; 35963 if not given, the first virtual reader\n"
    "  --state FILE    keeps the PINs' remaining tries in FILE between runs\n"
    "  --help          this text\n"
    "\n"
    "The card stays in the reader until the program is ended (Ctrl-C, SIGTERM) or the driver\n"
    "closes the connection. Its keys are test keys that anyone can read. The PINs of every\n"
    "generation: authentication 1234, signature 123456, unblocking 12345678.\n"
    "\n"
    "generations:\n";

struct Options {
    const Generation* generation = nullptr;
    std::string host = "127.0.0.1";
    std::string port = "35963";
    std::optional<std::filesystem::path> state;
    bool help = false;
};

class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string namesOfGenerations() {
    std::string names;
    for (const Generation& row : generations()) {
        names += (names.empty() ? "" : ", ") + std::to_string(row.cardType);
    }
    return names;
}

/// The row of that number; null where it is none.
const Generation* generationNamed(const std::string& number) {
    for (const Generation& row : generations()) {
        if (number == std::to_string(row.cardType)) return &row;
    }
    return nullptr;
}

Options readOptions(const std::vector<std::string>& arguments) {
    Options options;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string& name = arguments[index];
        if (name == "--help") {
            options.help = true;
            return options;
        }
        if (name != "--generation" && name != "--host" && name != "--port" && name != "--state") {
            throw UsageError("unknown option '" + name + "'");
        }
        if (++index == arguments.size()) throw UsageError("option '" + name + "' needs a value");
        const std::string& value = arguments[index];
        if (name == "--host") options.host = value;
        if (name == "--port") options.port = value;
        if (name == "--state") options.state = value;
        if (name == "--generation") {
            options.generation = generationNamed(value);
            if (options.generation == nullptr) {
                throw UsageError("there is no generation '" + value + "': there are " +
                                 namesOfGenerations());
            }
        }
    }
    if (options.generation == nullptr) throw UsageError("no generation given");
    return options;
}

/// The writing end of the pipe that wakes the program up when a signal asks it to end.
int stopWriter = -1;

void onSignal(int) {
    const char byte = 0;
    // Nothing to do about a failure: a full pipe has woken the program up already.
    [[maybe_unused]] ssize_t written = ::write(stopWriter, &byte, 1);
}

/// The reading end of that pipe.
int catchStopSignals() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("no pipe to be had");
    stopWriter = ends[1];
    struct sigaction action {};
    action.sa_handler = onSignal;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
    return ends[0];
}

/// A control of the driver. Power on and off leave the card alike: as after a reset.
void control(std::uint8_t code, VirtualCard& card, VpcdClient& driver) {
    enum : std::uint8_t { off = 0, on = 1, reset = 2, askForAtr = 4 };
    switch (code) {
        case off:
        case on:
        case reset:
            card.reset();
            break;
        case askForAtr:
            driver.send(card.atr());
            break;
        default:
            std::cerr << "virtual-card: the driver sent an unknown control, " << unsigned{code}
                      << '\n';
    }
}

void serve(const Options& options) {
    int stop = catchStopSignals();
    VirtualCard card(*options.generation);
    StateFile state(options.state);
    state.load(card);
    VpcdClient driver(options.host, options.port);
    std::cout << "virtual-card: generation " << options.generation->cardType << " ("
              << options.generation->name << ") is in the reader at " << options.host << ", port "
              << options.port << std::endl;
    while (auto message = driver.receive(stop)) {
        if (message->size() == 1) {
            control(message->front(), card, driver);
            continue;
        }
        Bytes reply = card.transmit(*message);
        // Before the reply goes out: who has seen a wrong PIN counted cannot have it back.
        state.save(card);
        driver.send(reply);
    }
    std::cout << "virtual-card: taken out of the reader" << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Options options = readOptions(std::vector<std::string>(argv + 1, argv + argc));
        if (options.help) {
            std::cout << usage;
            for (const Generation& row : generations()) {
                std::cout << "  " << row.cardType << "  " << row.name << '\n';
            }
            return EXIT_SUCCESS;
        }
        serve(options);
        return EXIT_SUCCESS;
    } catch (const UsageError& error) {
        std::cerr << "virtual-card: " << error.what() << "; see virtual-card --help\n";
        return exitUsage;
    } catch (const std::exception& error) {
        std::cerr << "virtual-card: " << error.what() << '\n';
        return exitFailure;
    }
}
