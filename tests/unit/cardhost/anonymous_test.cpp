// Recordings without what tells one card from another.
#include <gmock/gmock.h>

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include <botan/x509_dn.h>
#include <botan/x509_key.h>
#include <botan/x509cert.h>

#include "anonymous.h"
#include "recording/writer.h"
#include "virtual_card/pkcs15_files.h"

namespace cardhost {
namespace {

using recording::Bytes;
using recording::Conversation;
using recording::Exchange;
using recording::WrittenCommand;

Exchange exchanged(const Bytes& command, Bytes data) {
    data.insert(data.end(), {0x90, 0x00});
    return {WrittenCommand(command), {std::move(data), 0, {}}, 0};
}

/// A file as it is read: in chunks of 127 bytes, from its start; up to `limit` bytes of it.
void read(Conversation& conversation, const Bytes& file, std::size_t limit = 100000) {
    for (std::size_t at = 0; at < std::min(file.size(), limit); at += 127) {
        const std::size_t size = std::min<std::size_t>(127, std::min(file.size(), limit) - at);
        const auto start = file.begin() + static_cast<std::ptrdiff_t>(at);
        conversation.entries.push_back(
            exchanged({0x00, 0xB0, static_cast<std::uint8_t>(at >> 8),
                       static_cast<std::uint8_t>(at), static_cast<std::uint8_t>(size)},
                      Bytes(start, start + static_cast<std::ptrdiff_t>(size))));
    }
}

Bytes dataOf(const Conversation& conversation) {
    Bytes all;
    for (const auto& entry : conversation.entries) {
        const Bytes& reply = std::get<Exchange>(entry).reply.bytes;
        all.insert(all.end(), reply.begin(), reply.end() - 2);
    }
    return all;
}

bool holds(const Bytes& all, std::string_view text) {
    return std::search(all.begin(), all.end(), text.begin(), text.end()) != all.end();
}

bool holds(const Bytes& all, const Bytes& bytes) {
    return std::search(all.begin(), all.end(), bytes.begin(), bytes.end()) != all.end();
}

/// All files of a generation of the virtual card.
std::vector<Bytes> filesOf(const virtual_card::Generation& generation) {
    virtual_card::FileSystem files;
    makeFiles(generation, files);
    std::vector<Bytes> result;
    const auto visit = [&](const auto& self, const virtual_card::File& file) -> void {
        if (!file.isDirectory && !file.content.empty()) result.push_back(file.content);
        for (const auto& child : file.children) self(self, *child);
    };
    visit(visit, files.root());
    return result;
}

bool isCertificate(const Bytes& file) {
    return file.size() > 400;
}

TEST(Anonymous, CertificatesTellNobodyAndCanBeRead) {
    for (const auto& generation : virtual_card::generations()) {
        for (const Bytes& file : filesOf(generation)) {
            if (!isCertificate(file)) continue;
            const Botan::X509_Certificate before(file);
            Conversation conversation;
            read(conversation, file);
            anonymize(conversation);
            const Bytes blanked = dataOf(conversation);
            ASSERT_EQ(blanked.size(), file.size());
            const Botan::X509_Certificate after(blanked);
            EXPECT_FALSE(holds(blanked, "KORTTINEN"));
            EXPECT_FALSE(holds(blanked, "TESTI"));
            EXPECT_FALSE(holds(blanked, "9990000"));
            EXPECT_FALSE(holds(blanked, "virtual.test"));
            EXPECT_EQ(after.issuer_dn().to_string(), before.issuer_dn().to_string());
            EXPECT_EQ(after.constraints(), before.constraints());
            EXPECT_EQ(after.extended_key_usage(), before.extended_key_usage());
            const auto keyBefore = before.load_subject_public_key();
            const auto keyAfter = after.load_subject_public_key();
            EXPECT_EQ(keyAfter->algo_name(), keyBefore->algo_name());
            EXPECT_EQ(keyAfter->key_length(), keyBefore->key_length());
            EXPECT_NE(keyAfter->public_key_bits(), keyBefore->public_key_bits());
            EXPECT_NE(after.serial_number(), before.serial_number());
            EXPECT_NE(after.signature(), before.signature());
            EXPECT_NE(after.subject_key_id(), before.subject_key_id());
            EXPECT_EQ(after.not_before().to_string().substr(0, 7),
                      before.not_before().to_string().substr(0, 7));
        }
    }
}

TEST(Anonymous, ACertificateWhoseReadingWasCutTellsNobodyEither) {
    const auto& generation = *virtual_card::findGeneration(3);
    for (Bytes file : filesOf(generation)) {
        if (!isCertificate(file)) continue;
        // A day of its own; a certificate is read whatever its signature.
        constexpr std::string_view first = "200101000000Z";
        constexpr std::string_view own = "200117123456Z";
        const auto time = std::search(file.begin(), file.end(), first.begin(), first.end());
        ASSERT_NE(time, file.end());
        std::copy(own.begin(), own.end(), time);
        const std::vector<std::uint8_t> digits = Botan::X509_Certificate(file).serial_number();
        Bytes number{0x02, static_cast<std::uint8_t>(digits.size())};
        number.insert(number.end(), digits.begin(), digits.end());
        ASSERT_TRUE(holds(file, number));
        for (std::size_t limit = 5; limit < file.size(); limit += limit < 300 ? 1 : 13) {
            Conversation conversation;
            read(conversation, file, limit);
            anonymize(conversation);
            const Bytes blanked = dataOf(conversation);
            EXPECT_EQ(blanked.size(), limit);
            EXPECT_FALSE(holds(blanked, number)) << limit;
            EXPECT_FALSE(holds(blanked, "200117")) << limit;
            EXPECT_FALSE(holds(blanked, "KOR")) << limit;
            EXPECT_FALSE(holds(blanked, "TEST")) << limit;
            EXPECT_FALSE(holds(blanked, "9990")) << limit;
        }
    }
}

TEST(Anonymous, WhatWasBlankedGoesWhereverItOccurs) {
    const Bytes serial{0x99, 0x90, 0x00, 0x03, 0x12, 0x34, 0x56, 0x78};
    Bytes info{0x30, 0x0F, 0x02, 0x01, 0x01, 0x04, 0x0A};
    info.insert(info.end(), serial.begin(), serial.end());
    info.insert(info.end(), {0x00, 0x00});
    Conversation conversation;
    read(conversation, info);
    Bytes other{0x5A, 0x08};
    other.insert(other.end(), serial.begin(), serial.end());
    conversation.entries.push_back(exchanged({0x00, 0xCA, 0x00, 0x5A, 0x00}, other));
    Bytes command{0x00, 0xDA, 0x00, 0x5A, 0x08};
    command.insert(command.end(), serial.begin(), serial.end());
    conversation.entries.push_back(exchanged(command, {}));
    const std::size_t size = recording::textOf(conversation).size();
    anonymize(conversation);
    EXPECT_EQ(recording::textOf(conversation).size(), size);
    EXPECT_FALSE(holds(dataOf(conversation), serial));
    const auto& last = std::get<Exchange>(conversation.entries.back());
    EXPECT_EQ(last.command.withoutPin(),
              (Bytes{0x00, 0xDA, 0x00, 0x5A, 0x08, 0, 0, 0, 0, 0, 0, 0, 0}));
}

Bytes element(std::uint8_t tag, const Bytes& value) {
    Bytes all{tag, static_cast<std::uint8_t>(value.size())};
    all.insert(all.end(), value.begin(), value.end());
    return all;
}

Bytes text(std::uint8_t tag, std::string_view value) {
    return element(tag, Bytes(value.begin(), value.end()));
}

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes anonymous(const Bytes& file) {
    Conversation conversation;
    read(conversation, file);
    anonymize(conversation);
    return dataOf(conversation);
}

// What each optional part of EF.CIAInfo becomes.
TEST(Anonymous, TheCardsOwnInformationTellsNobody) {
    const Bytes numbers = joined(
        {element(0xA1, text(0x80, "1234")),
         element(0xA2, element(0x30, joined({element(0x02, {0x01}), element(0x06, {0x2A})})))});
    const auto info = [&](std::string_view serial, std::string_view label, std::string_view issuer,
                          std::string_view holder, std::string_view time, std::string_view late) {
        return element(0x30, joined({element(0x02, {0x01}), text(0x04, serial), text(0x0C, "Maker"),
                                     text(0x80, label), element(0x03, {0x05, 0x20}), numbers,
                                     text(0x83, issuer), text(0x84, holder), text(0x85, time),
                                     element(0xA5, text(0x18, late)), text(0x13, "fi")}));
    };
    const Bytes file = info("87654321", "Label", "Issuer", "Korttinen Testi Olavi ",
                            "20200117123456Z", "20211218010203Z");
    const Bytes blanked = info(std::string_view("\0\0\0\0\0\0\0\0", 8), "XXXXX", "XXXXXX",
                               "XXXXXXXXXXXXXXXXXXXXXX", "20200101000000Z", "20211201000000Z");
    EXPECT_EQ(anonymous(file), blanked);
    // The serial number may be left out, and the reading cut anywhere.
    const Bytes without = element(
        0x30, joined({element(0x02, {0x01}), text(0x0C, "Maker"), text(0x84, "Korttinen Testi")}));
    EXPECT_FALSE(holds(anonymous(without), "Kor"));
    for (std::size_t limit = 5; limit < file.size(); ++limit) {
        Conversation conversation;
        read(conversation, file, limit);
        anonymize(conversation);
        EXPECT_EQ(dataOf(conversation).size(), limit);
        for (const char* personal : {"8765", "Lab", "Iss", "Ko", "2020011", "2021121"}) {
            EXPECT_FALSE(holds(dataOf(conversation), personal)) << limit << personal;
        }
    }
}

TEST(Anonymous, DirectoriesKeepWhatTheDriverReadsAndNoName) {
    // A key: label, PIN; identifier, usage; the holder's name, a day; path, size.
    const auto object = [](const Bytes& identifier, std::string_view name, std::string_view time,
                           const Bytes& number) {
        return element(
            0x30,
            joined(
                {element(0x30, joined({text(0x0C, "authentication key"), element(0x04, {0x01})})),
                 element(0x30, joined({element(0x04, identifier), element(0x03, {0x05, 0x20}),
                                       text(0x18, time), element(0x02, number)})),
                 element(0xA0, element(0x30, element(0x31, text(0x0C, name)))),
                 element(0xA1,
                         element(0x30, joined({element(0x30, element(0x04, {0x3F, 0x00, 0x50, 0x15,
                                                                            0x43, 0x31})),
                                               element(0x02, {0x08, 0x00})})))}));
    };
    EXPECT_EQ(anonymous(object(Bytes(20, 0x77), "KORTTINEN", "20200117123456Z", {1, 2, 3, 4, 5})),
              object(Bytes(20, 0), "XXXXXXXXX", "20200101000000Z", {0, 0, 0, 0, 0}));
    // Of the virtual cards all stays but the serial number and the card's label.
    for (const auto& generation : virtual_card::generations()) {
        for (const Bytes& file : filesOf(generation)) {
            if (isCertificate(file) || (file[0] == 0x30 && file[2] == 0x02)) continue;
            EXPECT_EQ(anonymous(file), file);
        }
    }
}

TEST(Anonymous, WhatKeysComputedIsBlanked) {
    const Bytes made(20, 0x77);
    const Bytes block{0x00, 0x11, 0x22, 0x33};
    Conversation conversation;
    const auto add = [&](Bytes header, const Bytes& data, const Bytes& reply) {
        header.push_back(static_cast<std::uint8_t>(data.size()));
        header.insert(header.end(), data.begin(), data.end());
        conversation.entries.push_back(exchanged(header, reply));
    };
    add({0x00, 0x2A, 0x9E, 0x9A}, {0x10, 0x20}, made);  // a signature
    add({0x00, 0x2A, 0x9E, 0x9A}, {0x10, 0x20}, {});    // one that is fetched
    add({0x00, 0xC0, 0x00, 0x00}, {}, made);
    add({0x10, 0x2A, 0x80, 0x86}, {0x81, 0x11, 0x22}, {});  // a block in two parts
    add({0x00, 0x2A, 0x80, 0x86}, {0xA6, 0x44}, made);
    add({0x00, 0x2A, 0x80, 0x86}, {0xA6, 0x03, 0x7F}, made);
    add({0x00, 0xA4, 0x04, 0x00}, {0x55, 0x66}, made);  // something else
    anonymize(conversation);
    const auto commandOf = [&](std::size_t at) {
        return recording::hexText(std::get<Exchange>(conversation.entries[at]).command);
    };
    EXPECT_EQ(commandOf(0), "00 2A 9E 9A 02 10 20");
    EXPECT_EQ(commandOf(3), "10 2A 80 86 03 81 00 00");
    EXPECT_EQ(commandOf(4), "00 2A 80 86 02 A6 00");
    EXPECT_EQ(commandOf(5), "00 2A 80 86 03 A6 00 00");
    Bytes expected(4 * made.size(), 0);
    expected.insert(expected.end(), made.begin(), made.end());
    EXPECT_EQ(dataOf(conversation), expected);
}

TEST(Anonymous, TheOtherPartysKeyStays) {
    const auto after = [](Bytes data) {
        Bytes command{0x00, 0x2A, 0x80, 0x86, static_cast<std::uint8_t>(data.size())};
        command.insert(command.end(), data.begin(), data.end());
        Conversation conversation;
        conversation.entries.push_back(exchanged(command, Bytes(32, 0x77)));
        anonymize(conversation);
        EXPECT_EQ(dataOf(conversation), Bytes(32, 0));
        const auto& exchange = std::get<Exchange>(conversation.entries.front());
        return exchange.command.withoutPin() == command;
    };
    for (const std::size_t size : {65u, 97u, 133u}) {
        Bytes point(size, 0x5A);
        point[0] = 0x04;
        EXPECT_TRUE(after(point));
        point.insert(point.begin(), 0);
        EXPECT_TRUE(after(point));
        point.push_back(0x5A);
        EXPECT_FALSE(after(point)) << "longer than a point";
    }
    EXPECT_FALSE(after(Bytes(65, 0x5A)));
    EXPECT_FALSE(after(Bytes(255, 0x04)));
}

TEST(Anonymous, AHostileConversationStaysOne) {
    // Lengths beyond the file, depths without end, nothing at all.
    for (Bytes file : {Bytes(), Bytes{0x30}, Bytes{0x30, 0x82, 0xFF, 0xFF, 0x30}, Bytes(300, 0x30),
                       Bytes(300, 0x80), Bytes{0x30, 0x03, 0x02, 0x01, 0x01},
                       Bytes{0x30, 0x05, 0x02, 0x01, 0x01, 0x04, 0x7F}}) {
        Conversation conversation;
        conversation.entries.push_back(
            {Exchange{WrittenCommand(Bytes{0x00, 0xB0}), {file, 0, {}}, 0}});
        conversation.entries.push_back({Exchange{WrittenCommand(Bytes{}), {file, 0, {}}, 0}});
        read(conversation, file);
        Bytes deep(2000, 0x30);
        for (std::size_t at = 1; at < deep.size(); at += 4) deep[at] = 0x82;
        read(conversation, deep);
        anonymize(conversation);
    }
}

}  // namespace
}  // namespace cardhost
