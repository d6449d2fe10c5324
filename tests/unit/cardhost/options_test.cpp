// The command line: what is wrong with it is told in one line.
#include <gmock/gmock.h>

#include "options.h"

namespace cardhost {
namespace {

using ::testing::HasSubstr;

CommandLine parsed(const std::vector<std::string>& arguments) {
    return parse(arguments, stderr);
}

std::string refusalOf(const std::vector<std::string>& arguments) {
    try {
        parse(arguments, stderr);
        return {};
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::usage);
        EXPECT_EQ(std::string(failure.what()).find('\n'), std::string::npos);
        return failure.what();
    }
}

TEST(Options, OfTheCard) {
    EXPECT_EQ(parsed({"info"}).common.card.virtualType, 3);
    EXPECT_EQ(parsed({"--virtual", "8", "info"}).common.card.virtualType, 8);
    EXPECT_EQ(parsed({"info", "--reader"}).common.card.reader, "");
    EXPECT_EQ(parsed({"info", "--reader", "A reader"}).common.card.reader, "A reader");
    EXPECT_EQ(parsed({"info", "--replay", "card.txt"}).common.card.recording, "card.txt");
    EXPECT_TRUE(parsed({"--trace", "info"}).common.trace);
}

TEST(Options, OfTheCardExcludeEachOther) {
    for (const std::vector<std::string>& pair :
         {std::vector<std::string>{"--replay", "f", "--virtual", "3"},
          {"--replay", "f", "--reader", "r"},
          {"--replay", "f", "--virtual-state", "s"},
          {"--reader", "r", "--virtual", "3"}}) {
        std::vector<std::string> arguments = pair;
        arguments.push_back("info");
        EXPECT_THAT(refusalOf(arguments), HasSubstr("excludes"));
    }
}

TEST(Options, ThatACommandWouldPassOverAreRefused) {
    for (const std::vector<std::string>& card : {std::vector<std::string>{"--virtual", "5"},
                                                 {"--replay", "f"},
                                                 {"--reader", "r"},
                                                 {"--as", "5"},
                                                 {"--virtual-state", "s"}}) {
        for (const std::vector<std::string>& command : {std::vector<std::string>{"list"},
                                                        {"list", "--json"},
                                                        {"doctor", "--log", "l"},
                                                        {"report", "--log", "l", "--out", "o"}}) {
            std::vector<std::string> arguments = card;
            arguments.insert(arguments.end(), command.begin(), command.end());
            EXPECT_THAT(refusalOf(arguments), HasSubstr(card.front() + " does not go with "));
        }
    }
    for (const char* option : {"--pin", "--pin-file"}) {
        EXPECT_THAT(refusalOf({"report", "--log", "l", "--out", "o", option, "1234"}),
                    HasSubstr(std::string(option) + " does not go with --log"));
    }
    EXPECT_TRUE(parsed({"list"}).action);
    EXPECT_TRUE(parsed({"doctor", "--log", "l"}).action);
    EXPECT_TRUE(parsed({"report", "--log", "l", "--out", "o"}).action);
    EXPECT_TRUE(parsed({"--virtual", "5", "doctor"}).action);
}

TEST(Options, EveryKeyCommandTakesTheSame) {
    for (const auto& [command, input] :
         {std::pair{"sign", "--in"}, std::pair{"decrypt", "--in"}, std::pair{"agree", "--peer"}}) {
        EXPECT_TRUE(parsed({command, input, "i", "--out", "o", "--no-pin"}).action);
        EXPECT_TRUE(parsed({command, input, "i", "--out", "o", "--pin", "1", "--pin", "2"}).action);
        EXPECT_THAT(refusalOf({command, "--out", "o"}), HasSubstr(input));
        EXPECT_THAT(refusalOf({command, input, "i"}), HasSubstr("--out is required"));
        EXPECT_THAT(refusalOf({command, input, "i", "--out", "o", "--pin", "1", "--pin-file", "f"}),
                    HasSubstr("excludes"));
    }
    EXPECT_THAT(refusalOf({"sign", "--in", "i", "--out", "o", "--container", "256"}),
                HasSubstr("256"));
}

TEST(Options, WhatMakesNoSense) {
    EXPECT_THAT(refusalOf({}), HasSubstr("A subcommand is required"));
    EXPECT_THAT(refusalOf({"dance"}), HasSubstr("no such command: dance"));
    EXPECT_THAT(refusalOf({"info", "--virtual", "9"}), HasSubstr("9 not in {3,4,5,6,7,8}"));
    EXPECT_THAT(refusalOf({"record"}), HasSubstr("--out is required"));
}

}  // namespace
}  // namespace cardhost
