#include "options.h"

#include <algorithm>
#include <sstream>

#include <CLI/CLI.hpp>

#include "card_types.h"
#include "commands/commands.h"
#include "doctor/printable.h"

namespace cardhost {

namespace {

constexpr const char* seeHelp = " (see cardhost --help)";

/// One of the types of card that there are, whichever they are.
CLI::IsMember knownType() {
    std::vector<int> types;
    for (const CardGeneration& generation : generations()) types.push_back(generation.type);
    return CLI::IsMember(types);
}

constexpr const char* description =
    "cardhost: what the platform does with a smart-card minidriver, on the command line.\n"
    "It loads the driver, connects it to a card and calls its entry points.";

void addCommonOptions(CLI::App& program, CommandLine& line) {
    constexpr const char* group = "The card and the driver";
    program
        .add_option(
            "--driver", line.common.driver,
            "The minidriver; if not given, the one beside this program, or else the installed one")
        ->type_name("FILE")
        ->group(group);
    auto* virtualCard =
        program
            .add_option("--virtual", line.common.card.virtualType,
                        "A virtual card of this type, with test keys. Its PINs: 1 is 1234, 4 is "
                        "123456, 3 is 12345678")
            ->check(knownType())
            ->capture_default_str()
            ->type_name("TYPE")
            ->group(group);
    auto* stateFile =
        program
            .add_option_function<std::string>(
                "--virtual-state",
                [&line](const std::string& file) { line.common.card.stateFile = os::pathOf(file); },
                "Keep the virtual card's PIN tries in this file, from command to command")
            ->type_name("FILE")
            ->group(group);
    auto* reader =
        program
            .add_option_function<std::string>(
                "--reader", [&line](const std::string& name) { line.common.card.reader = name; },
                "The card in this reader; without a name, in the first reader with a FINEID card")
            ->expected(0, 1)
            ->default_str("")
            ->type_name("[NAME]")
            ->excludes(virtualCard)
            ->excludes(stateFile)
            ->group(group);
    program
        .add_option(
            "--as", line.common.card.takenFor,
            "Have the driver take the card for one of this type, whatever its ATR: to see how far "
            "it gets with a card that it does not know")
        ->check(knownType())
        ->type_name("TYPE")
        ->group(group);
    program
        .add_flag("--trace", line.common.trace,
                  "Show on standard error each entry point that is called and each command to the "
                  "card, the bytes of PINs masked")
        ->group(group);
    program
        .add_option_function<std::string>(
            "--replay",
            [&line](const std::string& file) { line.common.card.recording = os::pathOf(file); },
            "A recorded card, such as record or --trace writes it: says again what it said then")
        ->type_name("FILE")
        ->excludes(virtualCard)
        ->excludes(stateFile)
        ->excludes(reader)
        ->group(group);
}

/// The help with each description in lines of a terminal's width.
std::string wrappedHelp(const std::string& help) {
    constexpr std::size_t width = 80;
    constexpr std::size_t column = 30;  // where descriptions begin (CLI::Formatter)
    std::istringstream lines(help);
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        if (line.size() <= width) {
            result += line + '\n';
            continue;
        }
        const std::size_t margin = line.starts_with(' ') ? column : 0;
        std::string begin = line.substr(0, margin);
        for (const std::string& part : doctor::wrapped(line.substr(margin), width - margin)) {
            result += begin + part + '\n';
            begin.assign(margin, ' ');
        }
    }
    return result;
}

void printHelp(const CLI::App& program, std::FILE* help) {
    const auto chosen = program.get_subcommands();
    const CLI::App& subject = chosen.empty() ? program : *chosen.front();
    fmt::print(help, "{}", wrappedHelp(subject.help(chosen.empty() ? "" : "cardhost")));
    if (!chosen.empty()) {
        fmt::print(
            help,
            "\nThe options --driver and --trace go with every command, and with those that ask\n"
            "a card --virtual, --virtual-state, --reader, --replay and --as:\n"
            "see cardhost --help\n");
    }
}

/// Options that the chosen command would pass over.
void refuseUnused(const CLI::App& program) {
    const CLI::App& command = *program.get_subcommands().front();
    const auto isGiven = [&](const char* name) {
        const CLI::Option* option = command.get_option_no_throw(name);
        return option != nullptr && option->count() > 0;
    };
    std::string asksNoCard;
    if (command.get_name() == "list") asksNoCard = "list, which tells of all readers";
    if (isGiven("--log")) asksNoCard = "--log, where no card is asked";
    if (asksNoCard.empty()) return;
    for (const char* name :
         {"--virtual", "--virtual-state", "--reader", "--replay", "--as", "--pin", "--pin-file"}) {
        const CLI::Option* option = program.get_option_no_throw(name);
        if (isGiven(name) || (option != nullptr && option->count() > 0)) {
            throw Failure(ExitCode::usage,
                          fmt::format("{} does not go with {}{}", name, asksNoCard, seeHelp));
        }
    }
}

std::string oneLine(std::string text) {
    text.erase(std::find(text.begin(), text.end(), '\n'), text.end());
    return text;
}

}  // namespace

Option& Option::required() {
    option_->required();
    return *this;
}

Option& Option::typeName(const char* name) {
    option_->type_name(name);
    return *this;
}

Option& Option::showDefault() {
    option_->capture_default_str();
    return *this;
}

Option& Option::between(int lowest, int highest) {
    option_->check(CLI::Range(lowest, highest).description(""));
    return *this;
}

Option& Option::oneOf(const std::vector<std::string>& values) {
    option_->check(CLI::IsMember(values));
    return *this;
}

Option& Option::repeatable() {
    option_->allow_extra_args(false);
    return *this;
}

Option& Option::once() {
    option_->expected(1);
    return *this;
}

Option& Option::excludes(const Option& other) {
    option_->excludes(other.option_);
    return *this;
}

Option Command::option(const char* names, std::string& value, const char* description) {
    return Option(command_.add_option(names, value, description));
}

Option Command::option(const char* names, unsigned& value, const char* description) {
    return Option(command_.add_option(names, value, description));
}

Option Command::option(const char* names, int& value, const char* description) {
    return Option(command_.add_option(names, value, description));
}

Option Command::option(const char* names, std::vector<std::string>& values,
                       const char* description) {
    return Option(command_.add_option(names, values, description));
}

Option Command::flag(const char* names, bool& value, const char* description) {
    return Option(command_.add_flag(names, value, description));
}

void Command::does(Action action) {
    command_.callback([&chosen = chosen_, action = std::move(action)] { chosen = action; });
}

Command Commands::add(const char* name, const char* description) {
    return {*program_.add_subcommand(name, description), chosen_};
}

CommandLine parse(std::vector<std::string> arguments, std::FILE* help) {
    CommandLine line;
    CLI::App program(description, "cardhost");
    program.footer(std::string("\n") + exitCodeHelp);
    program.require_subcommand(1);
    program.fallthrough();
    addCommonOptions(program, line);
    Commands commands(program, line.action);
    addInfo(commands);
    addLogon(commands);
    addVerify(commands);
    addSign(commands);
    addDecrypt(commands);
    addAgree(commands);
    addExport(commands);
    addRecord(commands);
    addReport(commands);
    addList(commands);
    addDoctor(commands);
    std::reverse(arguments.begin(), arguments.end());
    try {
        program.parse(arguments);
        refuseUnused(program);
    } catch (const CLI::CallForHelp&) {
        printHelp(program, help);
        line.action = {};
    } catch (const CLI::RequiredError& error) {
        const auto words = program.remaining();
        throw Failure(ExitCode::usage,
                      words.empty() || !program.get_subcommands().empty()
                          ? oneLine(error.what()) + seeHelp
                          : fmt::format("no such command: {}{}", words.front(), seeHelp));
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitCode::usage, oneLine(error.what()) + seeHelp);
    }
    line.common.card.isChosen = program.count("--virtual") + program.count("--replay") > 0;
    return line;
}

}  // namespace cardhost
